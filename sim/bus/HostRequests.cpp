#include "HostRequests.h"

#include <algorithm>
#include <future>

namespace simbus {

bool runTransfer(ConnectionId connection, Transfer& transfer, std::chrono::milliseconds limit) {
    auto ended = std::make_shared<std::promise<void>>();
    transfer.done = [ended] { ended->set_value(); };
    auto& bus = Bus::instance();
    if (bus.submit(connection, transfer) != Submitted::accepted) {
        return false;
    }
    auto waiting = ended->get_future();
    if (waiting.wait_for(limit) != std::future_status::ready) {
        bus.cancel(transfer);
        waiting.wait();
    }
    return transfer.status == Status::completed;
}

Bytes readDescriptor(const DeviceInfo& device, std::uint8_t requestType, std::uint16_t value,
                     std::uint16_t index, std::uint16_t length) {
    constexpr std::uint8_t kGetDescriptor = 6;
    Bytes data(length);
    Transfer transfer;
    transfer.setup = {requestType, kGetDescriptor, value, index, length};
    transfer.data = data.data();
    transfer.length = data.size();
    if (!runTransfer(device.connection, transfer)) {
        return {};
    }
    data.resize(transfer.actual);
    return data;
}

namespace {

Bytes readStringDescriptor(const DeviceInfo& device, std::uint16_t value, std::uint16_t language) {
    return readDescriptor(device, 0x80, value, language, 255);
}

}  // namespace

std::optional<std::wstring> readString(const DeviceInfo& device, std::uint8_t index) {
    const Bytes languages = index == 0 ? Bytes{} : readStringDescriptor(device, 0x0300, 0);
    if (languages.size() < 4) {
        return std::nullopt;
    }
    const auto language = static_cast<std::uint16_t>(languages[2] | languages[3] << 8);
    const Bytes text = readStringDescriptor(device, static_cast<std::uint16_t>(0x0300 | index), language);
    if (text.size() < 2 || text[1] != 3) {
        return std::nullopt;
    }
    std::wstring result;
    for (std::size_t at = 2; at + 1 < std::min<std::size_t>(text.size(), text[0]); at += 2) {
        result += static_cast<wchar_t>(text[at] | text[at + 1] << 8);
    }
    return result;
}

}  // namespace simbus
