#include <algorithm>
#include <cstddef>

#include "ConfigDescriptors.h"

namespace sim {

namespace {

constexpr std::size_t kHeaderSize = 2;
constexpr std::size_t kMostInterfaces = 32;
constexpr std::size_t kMostEndpoints = 32;

enum class Found { whole, cutShort, bad };

/// Iterates over descriptors, never past the end.
class Cursor {
 public:
    Cursor(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    std::size_t left() const { return size_; }
    const std::uint8_t* data() const { return data_; }
    std::uint8_t length() const { return data_[0]; }
    std::uint8_t type() const { return data_[1]; }
    void skip() {
        size_ -= data_[0];
        data_ += data_[0];
    }

    // Skips descriptors of kinds that the library does not parse; appends their bytes to `extra`.
    Found skipExtras(simbus::Bytes& extra) {
        const std::uint8_t* begin = data_;
        Found found = Found::whole;
        while (found == Found::whole && size_ >= kHeaderSize && !isOwnKind()) {
            if (length() < kHeaderSize) {
                found = Found::bad;
            } else if (length() > size_) {
                found = Found::cutShort;
            } else {
                skip();
            }
        }
        if (found == Found::whole) {
            extra.assign(begin, data_);
        }
        return found;
    }

 private:
    bool isOwnKind() const {
        return type() == LIBUSB_DT_ENDPOINT || type() == LIBUSB_DT_INTERFACE || type() == LIBUSB_DT_CONFIG ||
               type() == LIBUSB_DT_DEVICE;
    }

    const std::uint8_t* data_;
    std::size_t size_;
};

Found parseEndpoint(Cursor& cursor, AlternateStore& alternate) {
    if (cursor.left() < kHeaderSize) {
        return Found::bad;
    }
    if (cursor.type() != LIBUSB_DT_ENDPOINT) {
        return Found::cutShort;
    }
    if (cursor.length() < LIBUSB_DT_ENDPOINT_SIZE) {
        return Found::bad;
    }
    if (cursor.length() > cursor.left()) {
        return Found::cutShort;
    }
    const std::uint8_t* bytes = cursor.data();
    libusb_endpoint_descriptor endpoint{};
    endpoint.bLength = bytes[0];
    endpoint.bDescriptorType = bytes[1];
    endpoint.bEndpointAddress = bytes[2];
    endpoint.bmAttributes = bytes[3];
    endpoint.wMaxPacketSize = static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8U);
    endpoint.bInterval = bytes[6];
    if (cursor.length() >= LIBUSB_DT_ENDPOINT_AUDIO_SIZE) {
        endpoint.bRefresh = bytes[7];
        endpoint.bSynchAddress = bytes[8];
    }
    cursor.skip();
    alternate.endpoints.push_back(endpoint);
    alternate.endpointExtras.emplace_back();
    return cursor.skipExtras(alternate.endpointExtras.back()) == Found::bad ? Found::bad : Found::whole;
}

Found parseAlternate(Cursor& cursor, InterfaceStore& interface) {
    const std::uint8_t* bytes = cursor.data();
    if (cursor.type() != LIBUSB_DT_INTERFACE) {
        return Found::cutShort;
    }
    if (cursor.length() < LIBUSB_DT_INTERFACE_SIZE || bytes[4] > kMostEndpoints) {
        return Found::bad;
    }
    if (cursor.length() > cursor.left()) {
        return Found::cutShort;
    }
    AlternateStore& alternate = interface.alternates.emplace_back();
    alternate.shown = {bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5],
                       bytes[6], bytes[7], bytes[8], nullptr,  nullptr,  0};
    cursor.skip();
    if (const Found extras = cursor.skipExtras(alternate.extra); extras != Found::whole) {
        alternate.shown.bNumEndpoints = 0;
        return extras;
    }
    const std::size_t promised = alternate.shown.bNumEndpoints;
    while (alternate.endpoints.size() < promised) {
        const Found endpoint = parseEndpoint(cursor, alternate);
        if (endpoint == Found::bad) {
            return Found::bad;
        }
        if (endpoint == Found::cutShort) {
            break;
        }
    }
    alternate.shown.bNumEndpoints = static_cast<std::uint8_t>(alternate.endpoints.size());
    return Found::whole;
}

/// Parses all settings of one interface; they are consecutive.
Found parseInterface(Cursor& cursor, InterfaceStore& interface) {
    while (cursor.left() >= LIBUSB_DT_INTERFACE_SIZE) {
        const auto& alternates = interface.alternates;
        const bool another =
            cursor.type() == LIBUSB_DT_INTERFACE &&
            cursor.data()[2] ==
                (alternates.empty() ? cursor.data()[2] : alternates.front().shown.bInterfaceNumber);
        if (!another) {
            break;
        }
        const Found alternate = parseAlternate(cursor, interface);
        if (alternate == Found::bad) {
            return Found::bad;
        }
        if (alternate == Found::cutShort) {
            break;
        }
    }
    return interface.alternates.empty() ? Found::cutShort : Found::whole;
}

/// Sets the pointers of the C structs to the stored data; to be called when nothing moves any more.
void connect(ConfigRecord& record) {
    for (InterfaceStore& interface : record.interfaces) {
        for (AlternateStore& alternate : interface.alternates) {
            for (std::size_t i = 0; i < alternate.endpoints.size(); ++i) {
                alternate.endpoints[i].extra = alternate.endpointExtras[i].data();
                alternate.endpoints[i].extra_length = static_cast<int>(alternate.endpointExtras[i].size());
            }
            alternate.shown.endpoint = alternate.endpoints.data();
            alternate.shown.extra = alternate.extra.data();
            alternate.shown.extra_length = static_cast<int>(alternate.extra.size());
            interface.shown.push_back(alternate.shown);
        }
        record.shownInterfaces.push_back({interface.shown.data(), static_cast<int>(interface.shown.size())});
    }
    record.shown.interface = record.shownInterfaces.data();
    record.shown.bNumInterfaces = static_cast<std::uint8_t>(record.interfaces.size());
    record.shown.extra = record.extra.data();
    record.shown.extra_length = static_cast<int>(record.extra.size());
}

}  // namespace

int parseConfiguration(const simbus::Bytes& bytes, ConfigRecord& record) {
    if (bytes.size() < LIBUSB_DT_CONFIG_SIZE || bytes[1] != LIBUSB_DT_CONFIG) {
        return LIBUSB_ERROR_IO;
    }
    const auto totalLength = static_cast<std::uint16_t>(bytes[2] | bytes[3] << 8U);
    const std::size_t size = std::min<std::size_t>(totalLength, bytes.size());
    if (size < LIBUSB_DT_CONFIG_SIZE || bytes[0] < LIBUSB_DT_CONFIG_SIZE || bytes[0] > size ||
        bytes[4] > kMostInterfaces) {
        return LIBUSB_ERROR_IO;
    }
    record.shown.bLength = bytes[0];
    record.shown.bDescriptorType = bytes[1];
    record.shown.wTotalLength = totalLength;
    record.shown.bConfigurationValue = bytes[5];
    record.shown.iConfiguration = bytes[6];
    record.shown.bmAttributes = bytes[7];
    record.shown.MaxPower = bytes[8];

    Cursor cursor(bytes.data(), size);
    cursor.skip();
    for (std::size_t i = 0; i < bytes[4]; ++i) {
        simbus::Bytes extra;
        Found found = cursor.skipExtras(extra);
        if (record.extra.empty()) {
            record.extra = extra;
        }
        if (found == Found::whole) {
            found = parseInterface(cursor, record.interfaces.emplace_back());
        }
        if (found == Found::bad) {
            return LIBUSB_ERROR_IO;
        }
        if (found == Found::cutShort) {
            break;
        }
    }
    while (!record.interfaces.empty() && record.interfaces.back().alternates.empty()) {
        record.interfaces.pop_back();
    }
    connect(record);
    return LIBUSB_SUCCESS;
}

}  // namespace sim
