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

/// Upper limits: vendor ids that a list watches, endpoints that a record describes.
constexpr int32_t kMaxVendorIds = 16;
constexpr int32_t kMaxEndpoints = 16;
/// Bytes of the string, device-descriptor and configuration-descriptor buffers of a record.
constexpr int32_t kStringBytes = 128;
constexpr int32_t kDeviceDescriptorBytes = 32;
constexpr int32_t kConfigDescriptorBytes = 512;
/// Bytes of the standard USB device descriptor.
constexpr int32_t kStandardDeviceDescriptorBytes = 18;
/// Bytes of a packet of the extended interrupt calls, and of a HID report: the limits, and the size that a
/// new record starts with.
constexpr int32_t kSmallestPacket = 64;
constexpr int32_t kLargestPacket = 1024;
constexpr uint32_t kStandardPacketSize = 512;

/// Values of `tagUSB_DEVICE_ACCESS_ENTRY::familyStatus`.
constexpr int32_t kPlainDevice = 0;
constexpr int32_t kCompositeParent = 1;
constexpr int32_t kCompositeChild = 2;

/// One endpoint of an interface. All four fields of an unused entry are -1.
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
    int32_t isPending;  ///< 1 from just before submission until the completion callback has run; shared field
    int32_t status;     ///< libusb_transfer_status of the last completion
    int32_t length;     ///< bytes requested by the last completed transfer
    int32_t actualLength;  ///< bytes transferred by the last completed transfer
};

/// One listed device, or one split-off interface of a composite device ("DAE"). Zeroed on creation, then
/// filled by the enumeration or the composite split; freed only by a list release or, as a duplicate, by an
/// update.
struct tagUSB_DEVICE_ACCESS_ENTRY {
    tagUSB_DEVICE_ACCESS_ENTRY* pPrev;             ///< chain of the list, null at the head
    tagUSB_DEVICE_ACCESS_ENTRY* pNext;             ///< null at the tail
    tagUSB_DEVICE_LIST* pDeviceList;               ///< owning list
    uint32_t isOpen;                               ///< 1 while open through LibUSB_OpenDevice; shared field
    libusb_device* pDevice;                        ///< holds one plain libusb reference while not null
    libusb_device_handle* hDevice;                 ///< open handle, else null
    tagUSB_DEVICE_ACCESS_ENTRY* pCompositeParent;  ///< of a child: the record of the whole device
    tagUSB_DEVICE_ACCESS_ENTRY* pCompositeChild;   ///< of a parent: the record of its split-off interface
    uint64_t reserved;                             ///< not used
    int32_t familyStatus;                          ///< kPlainDevice, kCompositeParent, kCompositeChild
    HIDAccess* pHIDAccess;                         ///< HID object of a HID device, else null
    uint32_t idVendor;                             ///< 0 to 0xFFFF, from the device descriptor
    uint32_t idProduct;                            ///< 0 to 0xFFFF
    uint32_t bcdDevice;                            ///< 0 to 0xFFFF
    int32_t isHid;                                 ///< 1 for a device driven through the HID interface
    uint32_t isUnsupportedClass;                   ///< 1 when the library does not drive the device's class
    uint32_t kernelDriverDetached;     ///< 1 makes close re-attach the kernel driver; nothing sets it
    uint8_t busNumber;                 ///< libusb's bus number; 0 when not read
    char sManufacturer[kStringBytes];  ///< NUL-terminated; "?" when unknown
    char sProduct[kStringBytes];
    char sSerialNumber[kStringBytes];
    int32_t interfaceNumber;         ///< claimed at open: 0, or the interface index of a child
    int32_t deviceDescriptorLength;  ///< 18, or 0 when it could not be read
    uint8_t deviceDescriptor[kDeviceDescriptorBytes];
    int32_t configDescriptorLength;  ///< valid bytes of configDescriptor, 0 to 512
    uint8_t configDescriptor[kConfigDescriptorBytes];
    int32_t endpointCount;  ///< valid entries of endpoints, 0 to 16
    tagUSB_ENDPOINT_INFO endpoints[kMaxEndpoints];
    uint32_t packetSize;       ///< HID packet size of the calls that pass none, bytes
    uint32_t exPacketSize;     ///< packet size of the last HID interrupt call, bytes
    uint32_t fillValue;        ///< HID pad byte of the calls that pass none
    uint32_t exFillValue;      ///< pad byte of the last HID interrupt call
    int32_t lastResult;        ///< libusb's code of the last failed open or submission; shared field
    uint32_t initFlag;         ///< 1; nothing reads it
    uint32_t changeReported;   ///< 1 from creation; nothing reads it
    uint32_t isPresent;        ///< 1 when the latest enumeration saw the device
    uint32_t reportedPresent;  ///< presence last reported to Java
    std::map<uint8_t, tagUSB_CALLBACK_INFO*> callbackInfos;  ///< by endpoint address; empty while closed
};

/// The devices of up to sixteen vendors. Once linked into the chain, a list is never unlinked or freed.
struct tagUSB_DEVICE_LIST {
    uint32_t handle;                  ///< identifies the list to Java
    std::atomic<bool> changePending;  ///< set by a hotplug event, cleared by the next update
    libusb_context* pContext;         ///< context of the enumeration; null once the session has ended and no
                                      ///< transfer of the list runs in it any more (shared field)
    libusb_device** ppDevList;        ///< libusb's array of the last enumeration; stale after it
    int32_t vidCount;                 ///< number of ids passed at creation; may exceed sixteen
    int32_t vidList[kMaxVendorIds];   ///< the first sixteen ids in the order given; -1 in unused slots
    tagUSB_DEVICE_ACCESS_ENTRY* pFirst;
    tagUSB_DEVICE_LIST* pPrevList;
    tagUSB_DEVICE_LIST* pNextList;  ///< shared field: the hotplug thread walks the chain
};

constexpr int kEndpointLanes = 32;  ///< endpoint addresses 0x00 to 0x0F, then 0x80 to 0x8F

/// Internal state of one endpoint address of a record, whether the record is open or not.
struct EndpointLane {
    std::atomic<bool> inUse;       ///< a thread owns the address, until it has read the outcome
    bool completedElsewhere;       ///< the completion callback ran on a thread other than `waiter`
    std::thread::id waiter;        ///< thread that submitted the transfer and waits for it
    tagUSB_CALLBACK_INFO* record;  ///< the transfer record, as in callbackInfos; null while closed
};

/// Internal state of a record. Every tagUSB_DEVICE_ACCESS_ENTRY is allocated as a DeviceRecord.
struct DeviceRecord final : tagUSB_DEVICE_ACCESS_ENTRY {
    EndpointLane lanes[kEndpointLanes];
    std::atomic<int32_t> users;        ///< look-ups of it in the open-device map that are still in use
    std::atomic<int32_t> activeCalls;  ///< threads inside a call on this record, except those that own a lane
    bool heldByCaller;                 ///< opened and not closed since; the open-device map may point here
    bool isRetired;                    ///< retireRecord gave up on it; endRetiredRecords tries again
};

inline DeviceRecord& privateSide(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    return static_cast<DeviceRecord&>(entry);
}
/// The lane of an endpoint address; null for an invalid address.
inline EndpointLane* laneOf(tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t address) {
    constexpr unsigned kNumberAndDirection = 0x8F;
    return (address & ~kNumberAndDirection) != 0
               ? nullptr
               : &privateSide(entry).lanes[(address & 0x0FU) | (address >> 3U & 0x10U)];
}
