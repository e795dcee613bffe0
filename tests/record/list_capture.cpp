// Prints the packets of a capture, a line each, as this project reads them; for comparisons.
#include <cstdio>
#include <exception>

#include "capture/CaptureFile.h"

namespace {

using simbus::capture::Packet;

void printHex(const std::uint8_t* bytes, std::size_t count) {
    std::printf(" x");
    for (std::size_t i = 0; i < count; ++i) {
        std::printf("%02x", bytes[i]);
    }
}

void print(const Packet& packet) {
    std::printf("%llu %llu %c %u 0x%02x %u %u %d %u", static_cast<unsigned long long>(packet.number),
                static_cast<unsigned long long>(packet.nanoseconds), static_cast<char>(packet.event),
                static_cast<unsigned>(packet.kind), packet.endpoint, packet.device, packet.bus, packet.status,
                packet.length);
    if (packet.setup) {
        printHex(packet.setup->data(), packet.setup->size());
    } else {
        printHex(nullptr, 0);
    }
    printHex(packet.data, packet.size);
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    try {
        const auto capture = simbus::capture::readCaptureFile(argv[1]);
        for (const Packet& packet : capture.packets) {
            print(packet);
        }
        for (const std::string& problem : capture.problems) {
            std::fprintf(stderr, "%s\n", problem.c_str());
        }
        return capture.problems.empty() ? 0 : 1;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "%s\n", problem.what());
        return 1;
    }
}
