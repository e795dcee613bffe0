#include "Anonymous.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "bus/DescriptorTypes.h"

namespace simbus::capture {

namespace {

using Setup = std::array<std::uint8_t, 8>;

constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kDeviceDescriptor = 1;

/// Calls `visit` with each packet of a control transfer and the request that it belongs to.
template <class Visit>
void visitRequests(Capture& capture, Visit visit) {
    std::map<std::uint64_t, Setup> begun;
    for (Packet& packet : capture.packets) {
        if (packet.setup) {
            begun[packet.urb] = *packet.setup;
        }
        const auto request = begun.find(packet.urb);
        if (packet.kind == Kind::control && request != begun.end()) {
            visit(packet, request->second);
        }
    }
}

bool isAnswer(const Packet& packet, const Setup& request, std::uint8_t descriptor) {
    return packet.event == Event::completion && request[0] == 0x80 && request[1] == kGetDescriptor &&
           request[3] == descriptor;
}

/// The data of a packet, to be changed.
std::uint8_t* dataOf(Capture& capture, const Packet& packet) {
    return capture.file.data() + (packet.data - capture.file.data());
}

/// Where the serial numbers are: bus and address of a device, and the index of its string.
std::set<std::tuple<unsigned, unsigned, unsigned>> serialNumberPlaces(Capture& capture) {
    constexpr std::size_t kSerialNumber = 16;
    std::set<std::tuple<unsigned, unsigned, unsigned>> places;
    visitRequests(capture, [&](const Packet& packet, const Setup& request) {
        if (isAnswer(packet, request, kDeviceDescriptor) && packet.size > kSerialNumber &&
            packet.data[kSerialNumber] != 0) {
            places.emplace(packet.bus, packet.device, packet.data[kSerialNumber]);
        }
    });
    return places;
}

/// Overwrites the text, UTF-16 in little-endian order, in its string descriptors, and returns it in each form
/// in which it may be found elsewhere.
std::set<Bytes> blankDescriptors(Capture& capture) {
    constexpr std::size_t kFewest = 4;  // characters of a text that is no other by chance
    const auto places = serialNumberPlaces(capture);
    std::set<Bytes> texts;
    visitRequests(capture, [&](const Packet& packet, const Setup& request) {
        if (!isAnswer(packet, request, stringType) || packet.size < 4 ||
            places.count({packet.bus, packet.device, request[2]}) == 0) {
            return;
        }
        std::uint8_t* const text = dataOf(capture, packet) + 2;
        const std::size_t characters = packet.size / 2 - 1;
        Bytes ascii;
        for (std::size_t i = 0; i < characters; ++i) {
            ascii.push_back(text[2 * i]);
        }
        if (characters >= kFewest) {
            texts.insert(Bytes(text, text + 2 * characters));
            texts.insert(ascii);
        }
        for (std::size_t i = 0; i < characters; ++i) {
            text[2 * i] = '0';
            text[2 * i + 1] = 0;
        }
    });
    return texts;
}

void blankEach(std::uint8_t* data, std::size_t size, const Bytes& text) {
    std::uint8_t* const end = data + size;
    for (auto* at = std::search(data, end, text.begin(), text.end()); at != end;
         at = std::search(at + text.size(), end, text.begin(), text.end())) {
        // The zeroes between the characters of UTF-16 stay.
        std::transform(at, at + text.size(), at,
                       [](std::uint8_t byte) { return byte == 0 ? byte : std::uint8_t{'0'}; });
    }
}

}  // namespace

void blankSerialNumbers(Capture& capture) {
    const std::set<Bytes> texts = blankDescriptors(capture);
    for (const Packet& packet : capture.packets) {
        if (packet.size != 0) {
            for (const Bytes& text : texts) {
                blankEach(dataOf(capture, packet), packet.size, text);
            }
        }
    }
}

void omitData(Capture& capture) {
    constexpr std::uint8_t kType = 0x60;  // of a request: 0 is standard
    std::set<const Packet*> standard;
    visitRequests(capture, [&](const Packet& packet, const Setup& request) {
        if ((request[0] & kType) == 0) {
            standard.insert(&packet);
        }
    });
    for (Packet& packet : capture.packets) {
        if (standard.count(&packet) == 0) {
            packet.data = nullptr;
            packet.size = 0;
        }
    }
}

}  // namespace simbus::capture
