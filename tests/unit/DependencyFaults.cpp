#include "DependencyFaults.h"

#include <libusb.h>

#include <algorithm>
#include <set>

namespace {

constexpr unsigned kEachCall = 1000;
/// For a call that is repeated until something happens.
constexpr unsigned kFirstPolls = 2;

const std::vector<int> kLibusbCodes{
    LIBUSB_ERROR_IO,        LIBUSB_ERROR_INVALID_PARAM, LIBUSB_ERROR_ACCESS,  LIBUSB_ERROR_NO_DEVICE,
    LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_BUSY,          LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_OVERFLOW,
    LIBUSB_ERROR_PIPE,      LIBUSB_ERROR_INTERRUPTED,   LIBUSB_ERROR_NO_MEM,  LIBUSB_ERROR_NOT_SUPPORTED,
    LIBUSB_ERROR_OTHER};
const std::vector<int> kTransferStatuses{LIBUSB_TRANSFER_ERROR,     LIBUSB_TRANSFER_TIMED_OUT,
                                         LIBUSB_TRANSFER_CANCELLED, LIBUSB_TRANSFER_STALL,
                                         LIBUSB_TRANSFER_NO_DEVICE, LIBUSB_TRANSFER_OVERFLOW};
/// For a call that returns nothing or null, whatever the reason.
const std::vector<int> kFails{-1};
/// General error, no memory, no device, not permitted, exclusive access, not open, time-out.
const std::vector<int> kIoKitCodes{static_cast<int>(0xE00002BC), static_cast<int>(0xE00002BD),
                                   static_cast<int>(0xE00002C0), static_cast<int>(0xE00002E2),
                                   static_cast<int>(0xE00002C5), static_cast<int>(0xE00002CD),
                                   static_cast<int>(0xE00002D6)};
/// A run loop without a source, and one that was stopped.
const std::vector<int> kRunLoopEnds{1, 2};

using Faults = std::map<std::string, DependencyFault>;

void add(Faults& faults, const std::vector<int>& codes, unsigned mostCalls,
         std::initializer_list<const char*> calls) {
    for (const char* call : calls) {
        faults[call] = {codes, mostCalls};
    }
}

Faults makeFaults() {
    Faults faults;
    add(faults, kLibusbCodes, kEachCall,
        {"libusb_init", "libusb_get_device_list", "libusb_get_device_descriptor",
         "libusb_get_active_config_descriptor", "libusb_control_transfer", "libusb_open",
         "libusb_kernel_driver_active", "libusb_get_configuration", "libusb_set_configuration",
         "libusb_claim_interface", "libusb_release_interface", "libusb_reset_device",
         "libusb_submit_transfer", "libusb_cancel_transfer", "libusb_hotplug_register_callback"});
    add(faults, kLibusbCodes, kFirstPolls,
        {"libusb_handle_events", "libusb_handle_events_timeout_completed"});
    add(faults, kFails, kEachCall,
        {"libusb_alloc_transfer", "hid_init", "hid_enumerate", "hid_open_path", "hid_write",
         "CFStringCreateWithBytes", "CFNumberCreate", "IOServiceMatching", "IOServiceGetMatchingService",
         "IORegistryEntryCreateCFProperty", "hid driver registered"});
    add(faults, kFails, kFirstPolls, {"hid_read_timeout"});
    add(faults, kIoKitCodes, kEachCall,
        {"IOServiceGetMatchingServices", "IOCreatePlugInInterfaceForService",
         "IOCFPlugInInterface.QueryInterface", "IOHIDDeviceDeviceInterface.open",
         "IOHIDDeviceDeviceInterface.getAsyncEventSource",
         "IOHIDDeviceDeviceInterface.setInputReportCallback", "IOHIDDeviceDeviceInterface.setReport",
         "IOUSBDeviceInterface.GetNumberOfConfigurations",
         "IOUSBDeviceInterface.GetConfigurationDescriptorPtr"});
    add(faults, kRunLoopEnds, kFirstPolls, {"CFRunLoopRunInMode"});
    add(faults, {}, 0,
        {"libusb_exit", "libusb_get_version", "libusb_error_name", "libusb_strerror",
         "libusb_free_device_list", "libusb_ref_device", "libusb_unref_device", "libusb_get_bus_number",
         "libusb_get_device_address", "libusb_close", "libusb_free_transfer",
         "libusb_hotplug_deregister_callback", "libusb_interrupt_event_handler", "CFRunLoopStop",
         "IOHIDDeviceDeviceInterface.close", "hid open", "hid report queued", "hid report taken",
         "hid write"});
    return faults;
}

struct Answers {
    bool libusbs;  ///< libusb's own codes pass through
    std::set<int> codes;
};

/// The negative results of the methods.
const std::map<std::string, Answers>& answers() {
    static const Answers bulkWrite{false, {-109, -112, -114, -120, -150}};
    static const Answers bulkRead{false, {-109, -113, -114, -120, -150}};
    static const Answers interruptWrite{false, {-109, -112, -114, -150}};
    static const Answers interruptRead{false, {-109, -113, -114, -150}};
    static const std::map<std::string, Answers> all{
        {"usbInitialize", {true, {-115, -200}}},
        {"usbRelease", {false, {-116}}},
        {"usbCreateDeviceList", {false, {-116, LIBUSB_ERROR_NO_MEM}}},
        {"usbCreateDeviceList2", {false, {-116, LIBUSB_ERROR_NO_MEM}}},
        {"usbUpdateDeviceList", {false, {-103, -104}}},
        {"usbReleaseDeviceList", {false, {-103, -104}}},
        {"usbGetDeviceListCount", {false, {}}},
        {"usbOpenDevice", {false, {-105, -107, -108, -114, -130, -131, -158}}},
        {"usbCloseDevice", {false, {-109, -114}}},
        {"usbResetDevice", {true, {-109, -114, -120}}},
        {"usbCancelPipeTransfer", {true, {-109, -114, -120}}},
        {"usbWriteControlPipe", {false, {-109, -112, -114, -120}}},
        {"usbReadControlPipe", {false, {-109, -113, -114, -120}}},
        {"usbWriteBulkPipe", bulkWrite},
        {"usbReadBulkPipe", bulkRead},
        {"usbWriteBulkPipeEx", bulkWrite},
        {"usbReadBulkPipeEx", bulkRead},
        {"usbWriteInterruptPipe", interruptWrite},
        {"usbReadInterruptPipe", interruptRead},
        {"usbWriteInterruptPipeEx", interruptWrite},
        {"usbReadInterruptPipeEx", interruptRead},
        {"usbGetDeviceDescriptor", {false, {-114, -131}}},
        {"usbGetEndpointList", {false, {-114}}},
    };
    return all;
}

}  // namespace

const DependencyFault* dependencyFault(const std::string& call) {
    static const Faults faults = makeFaults();
    static const DependencyFault completion{kTransferStatuses, kEachCall};
    if (call.rfind("transfer:", 0) == 0) {
        return &completion;
    }
    const auto found = faults.find(call);
    return found == faults.end() ? nullptr : &found->second;
}

bool mayAnswer(const std::string& method, int result) {
    const Answers& known = answers().at(method);
    const bool libusbs = std::find(kLibusbCodes.begin(), kLibusbCodes.end(), result) != kLibusbCodes.end();
    return result >= 0 || known.codes.count(result) != 0 || (known.libusbs && libusbs);
}
