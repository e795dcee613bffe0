#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <thread>

struct libusb_context;
struct libusb_device;
struct libusb_device_handle;
struct libusb_transfer;
class HIDAccess;
struct tagUSB_DEVICE_LIST;

/// How many vendor ids a list watches, and how many endpoints a record describes, at most.
constexpr int32_t kMaxVendorIds = 16;
constexpr int32_t kMaxEndpoints = 16;
/// Bytes of the string, device-descriptor and configuration-descriptor buffers of a record.
constexpr int32_t kStringBytes = 128;
constexpr int32_t kDeviceDescriptorBytes = 32;
constexpr int32_t kConfigDescriptorBytes = 512;
/// Bytes of the standard USB device descriptor.
constexpr int32_t kStandardDeviceDescriptorBytes = 18;

/// Values of `tagUSB_DEVICE_ACCESS_ENTRY::familyStatus`.
constexpr int32_t kPlainDevice = 0;
constexpr int32_t kCompositeParent = 1;
constexpr int32_t kCompositeChild = 2;

/// One endpoint of an interface. All four fields are -1 in an entry that is not used.
struct tagUSB_ENDPOINT_INFO {
    int32_t address;        ///< bEndpointAddress, 0x00 to 0xFF
    int32_t direction;      ///< 1 IN, 0 OUT: the address shifted right by 7
    int32_t attributes;     ///< bmAttributes; the transfer type is its low two bits
    int32_t maxPacketSize;  ///< wMaxPacketSize, bytes
};

/// Asynchronous transfer state of one endpoint address of an open record. The record owns 32 of them from
/// open to close; callers run at most one transfer at a time on each.
struct tagUSB_CALLBACK_INFO {
    libusb_transfer* pTransfer;  ///< allocated at open, reused by every transfer, freed at close
    int32_t isPending;     ///< 1 from just before submission until the completion callback ran; shared field
    int32_t status;        ///< libusb_transfer_status of the last completion
    int32_t length;        ///< bytes asked for by the last completed transfer
    int32_t actualLength;  ///< bytes moved by the last completed transfer
};

/// One listed device, or one split-off interface of a composite device ("DAE"). Zeroed when it is made, then
/// filled by the enumeration; freed only by a list release or as a duplicate of an update.
struct tagUSB_DEVICE_ACCESS_ENTRY {
    tagUSB_DEVICE_ACCESS_ENTRY* pPrev;  ///< chain of the list, null at the head
    tagUSB_DEVICE_ACCESS_ENTRY* pNext;  ///< null at the tail
    tagUSB_DEVICE_LIST* pDeviceList;    ///< owning list
    uint32_t isOpen;                    ///< 1 while open through LibUSB_OpenDevice; shared field
    libusb_device* pDevice;             ///< one plain libusb reference is held as long as this is set
    libusb_device_handle* hDevice;      ///< open handle, else null
    tagUSB_DEVICE_ACCESS_ENTRY* pCompositeParent;  ///< of a child: its whole device
    tagUSB_DEVICE_ACCESS_ENTRY* pCompositeChild;   ///< of a parent: its split-off interface
    uint64_t reserved;                             ///< not used
    int32_t familyStatus;                          ///< kPlainDevice, kCompositeParent, kCompositeChild
    HIDAccess* pHIDAccess;                         ///< HID object of a HID device, else null
    uint32_t idVendor;                             ///< 0 to 0xFFFF, from the device descriptor
    uint32_t idProduct;                            ///< 0 to 0xFFFF
    uint32_t bcdDevice;                            ///< 0 to 0xFFFF
    int32_t isHid;                                 ///< 1 for a device driven through the HID interface
    uint32_t isUnsupportedClass;                   ///< 1 when the device is of a class that is not driven
    uint32_t kernelDriverDetached;     ///< 1 would re-attach the kernel driver at close; nothing sets it
    uint8_t busNumber;                 ///< libusb's bus number, 0 where it was not read
    char sManufacturer[kStringBytes];  ///< NUL-terminated; "?" when not known
    char sProduct[kStringBytes];
    char sSerialNumber[kStringBytes];
    int32_t interfaceNumber;         ///< claimed at open: 0, or the interface index of a child
    int32_t deviceDescriptorLength;  ///< 18, or 0 when it could not be read
    uint8_t deviceDescriptor[kDeviceDescriptorBytes];
    int32_t configDescriptorLength;  ///< valid bytes of configDescriptor, 0 to 512
    uint8_t configDescriptor[kConfigDescriptorBytes];
    int32_t endpointCount;  ///< valid entries of endpoints, 0 to 16
    tagUSB_ENDPOINT_INFO endpoints[kMaxEndpoints];
    uint32_t packetSize;       ///< standing HID packet size, bytes
    uint32_t exPacketSize;     ///< packet size of the last HID interrupt call, bytes
    uint32_t fillValue;        ///< standing HID pad byte
    uint32_t exFillValue;      ///< pad byte of the last HID interrupt call
    int32_t lastResult;        ///< libusb's code of the last failed open or submission; shared field
    uint32_t initFlag;         ///< 1; nothing reads it
    uint32_t changeReported;   ///< 1 once a change of presence was handed to Java
    uint32_t isPresent;        ///< 1 when the latest enumeration saw the device
    uint32_t reportedPresent;  ///< presence last handed to Java
    std::map<uint8_t, tagUSB_CALLBACK_INFO*> callbackInfos;  ///< by endpoint address; empty while closed
};

/// One device list: the devices of up to sixteen vendors. Linked into the chain for good; never freed.
struct tagUSB_DEVICE_LIST {
    uint32_t handle;                  ///< Java's name of the list
    std::atomic<bool> changePending;  ///< raised by a hotplug event, taken down by the next update
    libusb_context* pContext;   ///< context the list was enumerated in; null once its session has ended and
                                ///< nothing of the list runs in it any more (shared field)
    libusb_device** ppDevList;  ///< stale value of the last enumeration
    int32_t vidCount;           ///< number of ids as given, even above sixteen
    int32_t vidList[kMaxVendorIds];  ///< the ids in the order given, then -1
    tagUSB_DEVICE_ACCESS_ENTRY* pFirst;
    tagUSB_DEVICE_LIST* pPrevList;
    tagUSB_DEVICE_LIST* pNextList;  ///< shared field: the hotplug thread walks the chain
};

constexpr int kEndpointLanes = 32;  ///< endpoint addresses 0x00 to 0x0F, then 0x80 to 0x8F

/// What the library keeps of one endpoint address of a record, open or not.
struct EndpointLane {
    std::atomic<bool> inUse;       ///< some thread is about to submit, waits, or has not read the outcome yet
    bool completedElsewhere;       ///< the completion ran on another thread than the waiter's
    std::thread::id waiter;        ///< thread that submitted and waits
    tagUSB_CALLBACK_INFO* record;  ///< the transfer record, as in callbackInfos; null while closed
};

/// What the library keeps beside a record. Every tagUSB_DEVICE_ACCESS_ENTRY is made as one of these.
struct DeviceRecord final : tagUSB_DEVICE_ACCESS_ENTRY {
    EndpointLane lanes[kEndpointLanes];
    std::atomic<int32_t> activeCalls;  ///< threads now inside another call of this record than a transfer
    bool heldByCaller;                 ///< opened and not closed since: the open-device map may point here
    bool closeIsDue;                   ///< a transfer did not come back in time; finishClose looks again
};

inline DeviceRecord& privateSide(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    return static_cast<DeviceRecord&>(entry);
}
/// The lane of an endpoint address; null for a number that is none.
inline EndpointLane* laneOf(tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t address) {
    constexpr unsigned kNumberAndDirection = 0x8F;
    return (address & ~kNumberAndDirection) != 0
               ? nullptr
               : &privateSide(entry).lanes[(address & 0x0FU) | (address >> 3U & 0x10U)];
}
