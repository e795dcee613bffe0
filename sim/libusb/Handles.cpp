// Open devices.
#include "Handles.h"

#include <algorithm>

#include "Checks.h"
#include "Claims.h"
#include "Devices.h"
#include "Events.h"
#include "Transfers.h"

namespace sim {

namespace {

constexpr int kMostInterfaces = 32;

/// The code that the scenario makes this device return for an operation.
std::optional<int> hostFailure(const libusb_device& device, const char* operation) {
    const auto found = device.info->hostFailures.find(operation);
    return found == device.info->hostFailures.end() ? std::nullopt : std::optional<int>(found->second);
}

int codeOf(simbus::Status status) {
    switch (status) {
        case simbus::Status::completed:
            return LIBUSB_SUCCESS;
        case simbus::Status::noDevice:
            return LIBUSB_ERROR_NO_DEVICE;
        default:
            return LIBUSB_ERROR_NOT_FOUND;
    }
}

}  // namespace

Opened attachedHandle(const char* function, libusb_device_handle* given) {
    Opened opened;
    opened.handle = checkHandle(function, given);
    if (opened.handle == nullptr) {
        opened.error = LIBUSB_ERROR_INVALID_PARAM;
        return opened;
    }
    opened.connection = opened.handle->device->info->connection;
    opened.error = opened.handle->device->attached ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
    return opened;
}

Opened attachedInterface(const char* function, libusb_device_handle* given, int interfaceNumber) {
    Opened opened = attachedHandle(function, given);
    if (opened.handle != nullptr && (interfaceNumber < 0 || interfaceNumber >= kMostInterfaces)) {
        opened.error = LIBUSB_ERROR_INVALID_PARAM;
    }
    return opened;
}

namespace {

std::vector<TransferRecord*> transfersOf(const libusb_device_handle& handle, std::uint8_t interfaceNumber) {
    return flyingTransfers(*handle.context, [&](const TransferRecord& record) {
        return record.handle == &handle && record.interfaceNumber == interfaceNumber &&
               record.shown->type != LIBUSB_TRANSFER_TYPE_CONTROL;
    });
}

std::vector<TransferRecord*> closeHandle(const char* function, libusb_device_handle& handle) {
    libusb_context& context = *handle.context;
    auto abandoned =
        abandonTransfers(context, [&](const TransferRecord& record) { return record.handle == &handle; });
    if (!abandoned.empty()) {
        violation(function, "device " + nameOf(*handle.device) + " has " + std::to_string(abandoned.size()) +
                                " transfer(s) in flight");
    }
    dropClaims(handle);
    auto& handles = context.handles;
    handles.erase(std::find(handles.begin(), handles.end(), &handle));
    releaseDevice(*handle.device);
    state().handles.retire(&handle);
    return abandoned;
}

}  // namespace

}  // namespace sim

using sim::StateLock;

int libusb_open(libusb_device* given, libusb_device_handle** handle) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    libusb_device* device = sim::checkDevice(__func__, given);
    if (device == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!device->attached || !simbus::Bus::instance().configuration(device->info->connection)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (const auto code = sim::hostFailure(*device, "open"); code) {
        return *code;
    }
    auto* opened = new libusb_device_handle{device, device->context};
    sim::state().handles.add(opened, opened);
    sim::holdDevice(*device);
    device->context->handles.push_back(opened);
    device->context->sourcesChanged = true;
    sim::wakeHandler(*device->context);
    *handle = opened;
    if (sim::isLogged(*opened->context, LIBUSB_LOG_LEVEL_DEBUG)) {
        const std::string place =
            std::to_string(device->info->busNumber) + "." + std::to_string(device->info->address);
        lock.unlock();
        sim::log(*opened->context, LIBUSB_LOG_LEVEL_DEBUG, __func__, "open " + place);
    }
    return LIBUSB_SUCCESS;
}

void libusb_close(libusb_device_handle* given) {
    SIM_ENTER_VOID();
    if (given == nullptr) {
        return;
    }
    StateLock lock(sim::state().mutex);
    libusb_device_handle* handle = sim::checkHandle(__func__, given);
    if (handle == nullptr) {
        return;
    }
    // A device is closed while no thread handles events; the thread that does is asked to leave. A close
    // inside one of that thread's own callbacks does not ask.
    libusb_context& context = *handle->context;
    const bool handlesEvents = sim::threadState().handling == &context;
    if (!handlesEvents) {
        ++context.closing;
        sim::wakeHandler(context);
        lock.unlock();
        sim::lockEvents(context);
        lock.lock();
    }
    // Another thread may have closed it meanwhile, which is a wrong use.
    handle = sim::checkHandle(__func__, given);
    const auto abandoned =
        handle == nullptr ? std::vector<sim::TransferRecord*>() : sim::closeHandle(__func__, *handle);
    context.closing -= handlesEvents ? 0 : 1;
    lock.unlock();
    sim::stopOnBus(abandoned);
    if (!handlesEvents) {
        sim::unlockEvents(context);
    }
}

libusb_device* libusb_get_device(libusb_device_handle* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    const libusb_device_handle* handle = sim::checkHandle(__func__, given);
    return handle == nullptr ? nullptr : handle->device;
}

int libusb_get_configuration(libusb_device_handle* given, int* configuration) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedHandle(__func__, given);
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    if (const auto code = sim::hostFailure(*opened.handle->device, "getConfiguration"); code) {
        return *code;
    }
    const auto active = simbus::Bus::instance().configuration(opened.connection);
    if (!active) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    *configuration = *active;
    return LIBUSB_SUCCESS;
}

int libusb_set_configuration(libusb_device_handle* given, int configuration) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedHandle(__func__, given);
    if (opened.handle != nullptr && (configuration < -1 || configuration > 0xFF)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    if (const auto code = sim::hostFailure(*opened.handle->device, "setConfiguration"); code) {
        return *code;
    }
    if (sim::anyClaimed(*opened.handle->device)) {
        return LIBUSB_ERROR_BUSY;
    }
    lock.unlock();
    const auto value = static_cast<std::uint8_t>(std::max(configuration, 0));  // -1 means unconfigured
    return sim::codeOf(simbus::Bus::instance().setConfiguration(opened.connection, value));
}

int libusb_claim_interface(libusb_device_handle* given, int interfaceNumber) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedInterface(__func__, given, interfaceNumber);
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    if (const auto code = sim::hostFailure(*opened.handle->device, "claim"); code) {
        return *code;
    }
    const auto number = static_cast<std::uint8_t>(interfaceNumber);
    if (opened.handle->detachesDrivers) {
        lock.unlock();
        simbus::Bus::instance().setDriver(opened.connection, number, false);
        lock.lock();
    }
    libusb_device_handle* handle = sim::checkHandle(__func__, given);
    if (handle == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const int result = sim::claimInterface(*handle, number);
    if (libusb_context& context = *handle->context; sim::isLogged(context, LIBUSB_LOG_LEVEL_DEBUG)) {
        lock.unlock();
        sim::log(context, LIBUSB_LOG_LEVEL_DEBUG, __func__,
                 "interface " + std::to_string(interfaceNumber) + ": " + std::to_string(result));
    }
    return result;
}

int libusb_release_interface(libusb_device_handle* given, int interfaceNumber) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedInterface(__func__, given, interfaceNumber);
    if (opened.error == LIBUSB_ERROR_INVALID_PARAM) {
        return opened.error;
    }
    const auto number = static_cast<std::uint8_t>(interfaceNumber);
    if (!sim::hasClaimed(*opened.handle, number)) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    sim::dropClaim(*opened.handle, number);
    const bool attachDriver = opened.handle->detachesDrivers;
    const auto stopped = sim::transfersOf(*opened.handle, number);
    lock.unlock();
    // The kernel stops the transfers on the interface and selects its first setting.
    sim::stopOnBus(stopped);
    auto& bus = simbus::Bus::instance();
    if (bus.alternate(opened.connection, number).value_or(0) != 0) {
        bus.setAlternate(opened.connection, number, 0);
    }
    if (attachDriver) {
        bus.setDriver(opened.connection, number, true);
    }
    return opened.error;
}

int libusb_set_interface_alt_setting(libusb_device_handle* given, int interfaceNumber, int alternate) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedInterface(__func__, given, interfaceNumber);
    if (opened.handle != nullptr && (alternate < 0 || alternate > 0xFF)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    const auto number = static_cast<std::uint8_t>(interfaceNumber);
    if (!sim::hasClaimed(*opened.handle, number)) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    lock.unlock();
    return sim::codeOf(simbus::Bus::instance().setAlternate(opened.connection, number,
                                                            static_cast<std::uint8_t>(alternate)));
}

int libusb_clear_halt(libusb_device_handle* given, unsigned char endpoint) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedHandle(__func__, given);
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    lock.unlock();
    return sim::codeOf(simbus::Bus::instance().clearHalt(opened.connection, endpoint));
}

int libusb_reset_device(libusb_device_handle* given) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedHandle(__func__, given);
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    lock.unlock();
    // A device that is unplugged during the reset counts as not found.
    const auto status = simbus::Bus::instance().resetDevice(opened.connection);
    return status == simbus::Status::completed ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND;
}
