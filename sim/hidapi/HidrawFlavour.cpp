// What only the hidraw library of hidapi does: it knows the report descriptor of each interface, and of its
// strings only three.
#include "HidDevice.h"

namespace {

/// Reads the items of a report descriptor, from which it collects the usages of the outermost collections.
class UsageReader {
 public:
    explicit UsageReader(const simbus::Bytes& bytes) : bytes_(bytes) {}

    std::vector<sim::Usage> read() {
        for (std::size_t at = 0; at < bytes_.size();) {
            const std::uint8_t prefix = bytes_[at];
            if (prefix == kLongItem) {
                at += 3U + (at + 1 < bytes_.size() ? bytes_[at + 1] : 0U);
                continue;
            }
            const std::size_t size = (prefix & 3U) == 3 ? 4 : prefix & 3U;
            take(prefix & 0xFCU, size, valueAt(at + 1, size));
            at += 1 + size;
        }
        if (found_.empty()) {
            found_.push_back(current_);  // without a collection, what the items have said
        }
        return found_;
    }

 private:
    static constexpr std::uint8_t kLongItem = 0xFE;

    std::uint32_t valueAt(std::size_t at, std::size_t size) const {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < size && at + i < bytes_.size(); ++i) {
            value |= static_cast<std::uint32_t>(bytes_[at + i]) << 8U * i;
        }
        return value;
    }

    void take(unsigned item, std::size_t size, std::uint32_t value) {
        constexpr unsigned kUsagePage = 0x04;
        constexpr unsigned kUsage = 0x08;
        constexpr unsigned kCollection = 0xA0;
        constexpr unsigned kEndCollection = 0xC0;
        if (item == kCollection && depth_++ == 0) {
            found_.push_back(current_);
        } else if (item == kEndCollection && depth_ > 0) {
            --depth_;
        } else if (item == kUsagePage && depth_ == 0) {
            current_.page = static_cast<std::uint16_t>(value);
        } else if (item == kUsage && depth_ == 0) {
            current_.usage = static_cast<std::uint16_t>(value);
            if (size == 4) {
                current_.page = static_cast<std::uint16_t>(value >> 16U);
            }
        }
    }

    const simbus::Bytes& bytes_;
    sim::Usage current_{};
    int depth_ = 0;
    std::vector<sim::Usage> found_;
};

}  // namespace

std::vector<sim::Usage> sim::usagesOf(const HidInterface& interface) {
    return UsageReader(readReportDescriptor(interface)).read();
}

int hid_get_indexed_string(hid_device* device, int /*index*/, wchar_t* /*string*/, size_t /*maxlen*/) {
    SIM_ENTER(-1)
    return sim::noted(*device, -1, L"hid_get_indexed_string: not supported by hidraw");
}
