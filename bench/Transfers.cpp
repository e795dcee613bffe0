// Measures transfers: with plain libusb, asynchronous and synchronous, and with the library, on whichever bus
// libusb finds. The identical devices PLAIN001 and LIBRARY1 (scenario.json) accept and send bytes without
// end.
#include "MacOSXUSBAccess/io/Transfers.h"

#include <cstdlib>
#include <string>

#include "Library.h"
#include "PlainLibusb.h"
#include "Timing.h"

namespace {

constexpr int32_t kSizes[] = {64, 512, 4096, 65536, 1048576};

bool transferThroughLibrary(tagUSB_DEVICE_ACCESS_ENTRY* device, bool interrupt, unsigned char endpoint,
                            uint8_t* bytes, int32_t length) {
    const bool in = (endpoint & LIBUSB_ENDPOINT_IN) != 0;
    const auto call = interrupt ? (in ? LibUSB_ReadInterruptPipe : LibUSB_WriteInterruptPipe)
                                : (in ? LibUSB_ReadBulkPipe : LibUSB_WriteBulkPipe);
    return call(device, endpoint, length, kBenchTimeoutMs, bytes) == length;
}

template <class Transfer>
void add(const char* way, bool interrupt, bool in, int32_t size, Transfer transfer) {
    const std::string name = std::string(interrupt ? "interrupt" : "bulk") + (in ? "_read/" : "_write/") +
                             std::to_string(size) + "/" + way;
    const auto endpoint = static_cast<unsigned char>((interrupt ? 2U : 1U) | (in ? 0x80U : 0U));
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        std::vector<uint8_t> bytes(static_cast<std::size_t>(size));
        EachCall each(state);
        for (auto _ : state) {
            if (!each.time([&] { return transfer(interrupt, endpoint, bytes.data(), size); })) {
                break;
            }
        }
    })->UseManualTime();
}

void addAll(PlainLibusb& plain, PlainLibusb& beside, tagUSB_DEVICE_ACCESS_ENTRY* device) {
    for (const bool interrupt : {false, true}) {
        for (const bool in : {false, true}) {
            for (const int32_t size : kSizes) {
                add("asynchronous", interrupt, in, size,
                    [&](auto... arguments) { return plain.transferAsynchronously(arguments...); });
                add("beside_events", interrupt, in, size,
                    [&](auto... arguments) { return beside.transferAsynchronously(arguments...); });
                add("synchronous", interrupt, in, size,
                    [&](auto... arguments) { return plain.transferSynchronously(arguments...); });
                add("library", interrupt, in, size,
                    [=](auto... arguments) { return transferThroughLibrary(device, arguments...); });
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    PlainLibusb plain("PLAIN001");
    PlainLibusb beside("PLAIN002", true);
    Library library;
    tagUSB_DEVICE_ACCESS_ENTRY* device = library.open("LIBRARY1");
    addAll(plain, beside, device);
    return runBenchmarks(argc, argv);
}
