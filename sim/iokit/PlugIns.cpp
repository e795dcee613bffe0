// Stand-in plug-ins: from a service to its interface, and the interfaces of HID and USB devices.
#include <IOKit/hid/IOHIDDevicePlugIn.h>
#include <IOKit/usb/IOUSBLib.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "Objects.h"
#include "Registry.h"
#include "ReportQueue.h"

namespace sim {

namespace {

bool operator==(const CFUUIDBytes& one, const CFUUIDBytes& other) {
    return std::memcmp(&one, &other, sizeof one) == 0;
}
bool isId(REFIID id, CFUUIDRef known) {
    return id == CFUUIDGetUUIDBytes(known);
}

/// A COM object with a function table: the program holds the address of `table`.
template <class Table, class Derived>
struct WithTable {
    const Table* table = &Derived::functions();
    std::atomic<ULONG> references{1};
    Counted counted;

    static Derived& of(void* self) { return *static_cast<Derived*>(reinterpret_cast<WithTable*>(self)); }
    Table** handle() { return reinterpret_cast<Table**>(this); }
    static ULONG addReference(void* self) { return ++of(self).references; }
    static ULONG release(void* self) {
        Derived& object = of(self);
        const ULONG left = --object.references;
        if (left == 0) {
            delete &object;
        }
        return left;
    }
};

/// A reference on a service, dropped at the end of the plug-in or interface that holds it.
class ServiceReference {
 public:
    explicit ServiceReference(io_service_t takenOver) : service_(takenOver) {}
    ~ServiceReference() { IOObjectRelease(service_); }
    ServiceReference(const ServiceReference&) = delete;
    ServiceReference& operator=(const ServiceReference&) = delete;

    static io_service_t retained(io_service_t service) {
        IOObjectRetain(service);
        return service;
    }

 private:
    const io_service_t service_;
};

/// The interface of a HID device. While it is open with input started, a thread takes reports from the driver
/// and signals the event source.
struct HidInterfaceObject : WithTable<IOHIDDeviceDeviceInterface, HidInterfaceObject> {
    HidInterfaceObject(HidInterface at, io_service_t ofService)
        : interface(std::move(at)), service(ServiceReference::retained(ofService)) {}
    ~HidInterfaceObject() {
        stop();
        if (source != nullptr) {
            CFRelease(source);
        }
    }

    static const IOHIDDeviceDeviceInterface& functions();

    void start() {
        runs = true;
        pump = std::thread([this] {
            std::uint8_t report[8192];
            while (runs) {
                const int count = opening->read(report, sizeof report, std::chrono::milliseconds(1));
                if (count < 0) {
                    return;  // unplugged
                }
                if (count > 0 && reports.put({report, report + count})) {
                    signalSource(source);
                }
            }
        });
    }
    void stop() {
        runs = false;
        if (pump.joinable()) {
            pump.join();
        }
    }
    // Runs on the thread whose run loop has the source.
    void hand() {
        for (auto report = reports.take(); report; report = reports.take()) {
            const std::size_t count = std::min(report->size(), bufferLength);
            std::memcpy(buffer, report->data(), count);
            callback(context, kIOReturnSuccess, handle(), kIOHIDReportTypeInput, 0, buffer,
                     static_cast<CFIndex>(count));
            countReportTaken();
        }
    }

    const HidInterface interface;
    const ServiceReference service;
    std::unique_ptr<HidOpening> opening;
    CFRunLoopSourceRef source = nullptr;
    std::uint8_t* buffer = nullptr;
    std::size_t bufferLength = 0;
    IOHIDReportCallback callback = nullptr;
    void* context = nullptr;
    std::thread pump;
    std::atomic<bool> runs{false};
    ReportQueue reports;
};

IOReturn openHid(void* self, IOOptionBits options) {
    SIM_CALL_POINT("IOHIDDeviceDeviceInterface.open");
    expectNoOptions("IOHIDDeviceDeviceInterface.open", options);
    if (fault) {
        return *fault;
    }
    auto& object = HidInterfaceObject::of(self);
    object.opening = openHid(object.interface);
    return object.opening == nullptr ? kIOReturnError : kIOReturnSuccess;
}

IOReturn closeHid(void* self, IOOptionBits options) {
    SIM_CALL_POINT("IOHIDDeviceDeviceInterface.close");
    expectNoOptions("IOHIDDeviceDeviceInterface.close", options);
    static_cast<void>(fault);
    auto& object = HidInterfaceObject::of(self);
    object.stop();
    object.opening.reset();
    return kIOReturnSuccess;
}

IOReturn getSource(void* self, CFTypeRef* source) {
    SIM_CALL_POINT("IOHIDDeviceDeviceInterface.getAsyncEventSource");
    if (fault) {
        return *fault;
    }
    auto& object = HidInterfaceObject::of(self);
    if (object.source == nullptr) {
        object.source = createSource([&object] { object.hand(); });
    }
    *source = object.source;
    return kIOReturnSuccess;
}

IOReturn setCallback(void* self, std::uint8_t* report, CFIndex length, IOHIDReportCallback callback,
                     void* context, IOOptionBits options) {
    SIM_CALL_POINT("IOHIDDeviceDeviceInterface.setInputReportCallback");
    expectNoOptions("IOHIDDeviceDeviceInterface.setInputReportCallback", options);
    auto& object = HidInterfaceObject::of(self);
    if (fault || object.opening == nullptr) {
        return fault.value_or(kIOReturnNotOpen);
    }
    object.buffer = report;
    object.bufferLength = static_cast<std::size_t>(length);
    object.callback = callback;
    object.context = context;
    object.start();
    return kIOReturnSuccess;
}

/// With a callback the system would send asynchronously. Without one it ignores the time-out; a tally records
/// that of the latest report.
IOReturn sendReport(void* self, IOHIDReportType type, std::uint32_t id, const std::uint8_t* report,
                    CFIndex length, std::uint32_t timeout, IOHIDReportCallback callback, void* context,
                    IOOptionBits options) {
    SIM_CALL_POINT("IOHIDDeviceDeviceInterface.setReport");
    expectNoOptions("IOHIDDeviceDeviceInterface.setReport", options);
    auto& bus = simbus::Bus::instance();
    if (callback != nullptr || context != nullptr) {
        bus.addViolation("IOHIDDeviceDeviceInterface.setReport: callback");
    }
    constexpr const char* kTimeout = "time-out of the latest setReport";
    bus.addToTally(kTimeout, timeout - bus.tally(kTimeout));
    auto& object = HidInterfaceObject::of(self);
    if (fault || object.opening == nullptr || type != kIOHIDReportTypeOutput || id != 0) {
        return fault.value_or(kIOReturnNotOpen);
    }
    return object.opening->write(0, report, static_cast<std::size_t>(length)) < 0 ? kIOReturnNoDevice
                                                                                  : kIOReturnSuccess;
}

const IOHIDDeviceDeviceInterface& HidInterfaceObject::functions() {
    static const IOHIDDeviceDeviceInterface table = [] {
        IOHIDDeviceDeviceInterface made{};
        made.QueryInterface = [](void*, REFIID, LPVOID*) { return HRESULT{-1}; };
        made.AddRef = addReference;
        made.Release = release;
        made.open = openHid;
        made.close = closeHid;
        made.getAsyncEventSource = getSource;
        made.setInputReportCallback = setCallback;
        made.setReport = sendReport;
        return made;
    }();
    return table;
}

/// The interface of a USB device, for its descriptors only.
struct UsbDeviceObject : WithTable<IOUSBDeviceInterface, UsbDeviceObject> {
    UsbDeviceObject(simbus::DeviceInfoPtr at, io_service_t ofService)
        : device(std::move(at)), service(ofService) {}

    static const IOUSBDeviceInterface& functions();

    const simbus::DeviceInfoPtr device;
    const ServiceReference service;  // the program's reference; see queryPlugIn
    simbus::Bytes configuration;
};

IOReturn countConfigurations(void* self, UInt8* count) {
    SIM_CALL_POINT("IOUSBDeviceInterface.GetNumberOfConfigurations");
    if (fault) {
        return *fault;
    }
    *count = static_cast<UInt8>(UsbDeviceObject::of(self).device->configurationDescriptors.size());
    return kIOReturnSuccess;
}

/// The system stores as many bytes as the descriptor claims to have.
IOReturn getConfiguration(void* self, UInt8 index, IOUSBConfigurationDescriptorPtr* descriptor) {
    SIM_CALL_POINT("IOUSBDeviceInterface.GetConfigurationDescriptorPtr");
    UsbDeviceObject& object = UsbDeviceObject::of(self);
    if (fault || index >= object.device->configurationDescriptors.size()) {
        return fault.value_or(kIOReturnError);
    }
    object.configuration = object.device->configurationDescriptors[index];
    if (object.configuration.size() < sizeof(IOUSBConfigurationDescriptor)) {
        return kIOReturnError;
    }
    object.configuration.resize(
        static_cast<std::size_t>(object.configuration[2] | object.configuration[3] << 8));
    object.configuration.resize(std::max(object.configuration.size(), sizeof(IOUSBConfigurationDescriptor)));
    *descriptor = reinterpret_cast<IOUSBConfigurationDescriptorPtr>(object.configuration.data());
    return kIOReturnSuccess;
}

const IOUSBDeviceInterface& UsbDeviceObject::functions() {
    static const IOUSBDeviceInterface table = [] {
        IOUSBDeviceInterface made{};
        made.QueryInterface = [](void*, REFIID, LPVOID*) { return HRESULT{-1}; };
        made.AddRef = addReference;
        made.Release = release;
        made.GetNumberOfConfigurations = countConfigurations;
        made.GetConfigurationDescriptorPtr = getConfiguration;
        return made;
    }();
    return table;
}

struct PlugIn : WithTable<IOCFPlugInInterface, PlugIn> {
    PlugIn(Service at, io_service_t under)
        : service(std::move(at)), name(under), reference(ServiceReference::retained(under)) {}

    static const IOCFPlugInInterface& functions();

    const Service service;
    const io_service_t name;
    std::optional<ServiceReference> reference;
};

HRESULT queryPlugIn(void* self, REFIID id, LPVOID* result) {
    SIM_CALL_POINT("IOCFPlugInInterface.QueryInterface");
    PlugIn& plugIn = PlugIn::of(self);
    const Service& service = plugIn.service;
    *result = nullptr;
    if (fault) {
        return *fault;
    }
    if (service.hid && isId(id, kIOHIDDeviceDeviceInterfaceID)) {
        *result = (new HidInterfaceObject({service.device, *service.hid}, plugIn.name))->handle();
    } else if (!service.hid && isId(id, kIOUSBDeviceInterfaceID)) {
        // For all interfaces of USB devices with an id below 245, the system's plug-in drops its own
        // reference when such an interface is queried, and the interface drops the program's at its end.
        plugIn.reference.reset();
        *result = (new UsbDeviceObject(service.device, plugIn.name))->handle();
    }
    return *result == nullptr ? HRESULT{-1} : HRESULT{0};
}

const IOCFPlugInInterface& PlugIn::functions() {
    static const IOCFPlugInInterface table = [] {
        IOCFPlugInInterface made{};
        made.QueryInterface = queryPlugIn;
        made.AddRef = addReference;
        made.Release = release;
        return made;
    }();
    return table;
}

}  // namespace

}  // namespace sim

extern "C" kern_return_t IOCreatePlugInInterfaceForService(io_service_t object, CFUUIDRef pluginType,
                                                           CFUUIDRef interfaceType,
                                                           IOCFPlugInInterface*** theInterface,
                                                           SInt32* theScore) {
    SIM_CALL_POINT(__func__);
    *theInterface = nullptr;
    *theScore = 0;
    const auto service = sim::serviceOf(object);
    if (fault || !service) {
        return fault.value_or(kIOReturnError);
    }
    const CFUUIDRef type = service->hid ? kIOHIDDeviceTypeID : kIOUSBDeviceUserClientTypeID;
    const bool known = sim::isId(CFUUIDGetUUIDBytes(pluginType), type) &&
                       sim::isId(CFUUIDGetUUIDBytes(interfaceType), kIOCFPlugInInterfaceID);
    if (!known) {
        return kIOReturnError;
    }
    *theInterface = (new sim::PlugIn(*service, object))->handle();
    return KERN_SUCCESS;
}
