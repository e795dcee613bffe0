#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "UsbTest.h"

/// The library without any list, for the lifetime of this object.
class NoLists {
 public:
    NoLists() : before_(std::exchange(g_pDeviceList, nullptr)) {}
    ~NoLists() { g_pDeviceList = before_; }
    NoLists(const NoLists&) = delete;
    NoLists& operator=(const NoLists&) = delete;

 private:
    tagUSB_DEVICE_LIST* before_;
};

/// A test on whole device lists.
class ListTest : public UsbTest {
 protected:
    void TearDown() override;

    /// LibUSB_CreateDeviceList on `context`; TearDown releases the list like those of createList.
    uint32_t createSingleCallList(uint32_t vendorId);
    static tagUSB_DEVICE_LIST& listOf(uint32_t handle);
    /// All records of a list, in order.
    static std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> recordsOf(uint32_t list);
    /// Their serial numbers.
    static std::vector<std::string> serialsOf(uint32_t list);
    /// The record with this serial number; fails the test when there is none.
    static tagUSB_DEVICE_ACCESS_ENTRY& recordNamed(uint32_t list, std::string_view serial);
    /// The records' devices.
    static std::vector<libusb_device*> devicesOf(uint32_t list);
    /// The devices of kVendor in libusb's order; of every vendor for -1.
    std::vector<libusb_device*> libusbsDevices(int32_t vendorId = kVendor);

    /// LibUSB_UpdateDeviceList, expected to return 0.
    static void update(uint32_t list);
    /// Unplugs or plugs, waits for the flag and updates.
    void unplugAndUpdate(const std::string& id, uint32_t list);
    void plugAndUpdate(const std::string& id, uint32_t list);
    /// Unplugs the device, plugs it in again with these changes (a merge patch) and updates.
    void replugChanged(const std::string& id, const std::string& changes, uint32_t list);
    /// Puts one more device on the bus.
    void addDevice(const std::string& json);
    /// Calls of a libusb function since the last clearCalls.
    uint64_t callsOf(const std::string& function);

 private:
    void command(const std::string& operation);
    std::vector<uint32_t> singleCallLists_;
};
