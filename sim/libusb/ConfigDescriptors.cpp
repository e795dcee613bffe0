#include "ConfigDescriptors.h"

#include <algorithm>
#include <memory>

#include "Checks.h"

namespace sim {

namespace {

constexpr auto kNotFreed = "config descriptors not freed";

int hand(const simbus::Bytes& bytes, libusb_config_descriptor** config) {
    auto record = std::make_unique<ConfigRecord>();
    const int result = parseConfiguration(bytes, *record);
    if (result == LIBUSB_SUCCESS) {
        *config = &record->shown;
        simbus::Bus::instance().addToTally(kNotFreed, 1);
        state().configs.add(*config, record.release());
    }
    return result;
}

int handByValue(const simbus::DeviceInfo& info, std::uint8_t value, libusb_config_descriptor** config) {
    const simbus::Bytes* bytes = configurationOf(info, value);
    return bytes == nullptr ? static_cast<int>(LIBUSB_ERROR_NOT_FOUND) : hand(*bytes, config);
}

}  // namespace

const simbus::Bytes* configurationOf(const simbus::DeviceInfo& info, std::uint8_t value) {
    constexpr std::size_t kValueAt = 5;
    const auto& all = info.configurationDescriptors;
    const auto found = std::find_if(all.begin(), all.end(), [&](const simbus::Bytes& bytes) {
        return bytes.size() > kValueAt && bytes[kValueAt] == value;
    });
    return found == all.end() ? nullptr : &*found;
}

}  // namespace sim

using sim::StateLock;

int libusb_get_active_config_descriptor(libusb_device* given, libusb_config_descriptor** config) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    if (device == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const auto active = simbus::Bus::instance().configuration(device->info->connection);
    if (!active) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    return *active == 0 ? static_cast<int>(LIBUSB_ERROR_NOT_FOUND)
                        : sim::handByValue(*device->info, *active, config);
}

int libusb_get_config_descriptor(libusb_device* given, uint8_t index, libusb_config_descriptor** config) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    if (device == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const auto& all = device->info->configurationDescriptors;
    return index < all.size() ? sim::hand(all[index], config) : static_cast<int>(LIBUSB_ERROR_NOT_FOUND);
}

int libusb_get_config_descriptor_by_value(libusb_device* given, uint8_t value,
                                          libusb_config_descriptor** config) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    return device == nullptr ? static_cast<int>(LIBUSB_ERROR_INVALID_PARAM)
                             : sim::handByValue(*device->info, value, config);
}

void libusb_free_config_descriptor(libusb_config_descriptor* config) {
    SIM_ENTER_VOID();
    if (config == nullptr) {
        return;
    }
    const StateLock lock(sim::state().mutex);
    auto& configs = sim::state().configs;
    if (configs.find(config) == nullptr) {
        sim::violation(__func__, configs.wasGivenBack(config) ? "descriptor is freed twice"
                                                              : "descriptor was never handed out");
        return;
    }
    simbus::Bus::instance().addToTally(sim::kNotFreed, -1);
    configs.retire(config);
}
