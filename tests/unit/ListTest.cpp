#include "ListTest.h"

#include <gtest/gtest.h>
#include <libusb.h>

#include <stdexcept>

#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"

void ListTest::TearDown() {
    bus.clearFaults();
    bus.clearHooks();
    for (const uint32_t list : singleCallLists_) {
        LibUSB_ReleaseDeviceList(list);
    }
    UsbTest::TearDown();
}

uint32_t ListTest::createSingleCallList(uint32_t vendorId) {
    singleCallLists_.push_back(LibUSB_CreateDeviceList(context, vendorId));
    return singleCallLists_.back();
}

tagUSB_DEVICE_LIST& ListTest::listOf(uint32_t handle) {
    int32_t status = 0;
    tagUSB_DEVICE_LIST* list = findDeviceList(handle, status);
    if (list == nullptr) {
        throw std::out_of_range("no list " + std::to_string(handle));
    }
    return *list;
}

std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> ListTest::recordsOf(uint32_t list) {
    std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> records;
    for (auto* entry = listOf(list).pFirst; entry != nullptr; entry = entry->pNext) {
        EXPECT_EQ(records.empty() ? nullptr : records.back(), entry->pPrev);
        EXPECT_EQ(&listOf(list), entry->pDeviceList);
        records.push_back(entry);
    }
    return records;
}

std::vector<std::string> ListTest::serialsOf(uint32_t list) {
    std::vector<std::string> serials;
    for (const tagUSB_DEVICE_ACCESS_ENTRY* entry : recordsOf(list)) {
        serials.emplace_back(entry->sSerialNumber);
    }
    return serials;
}

tagUSB_DEVICE_ACCESS_ENTRY& ListTest::recordNamed(uint32_t list, std::string_view serial) {
    for (tagUSB_DEVICE_ACCESS_ENTRY* entry : recordsOf(list)) {
        if (serial == entry->sSerialNumber) {
            return *entry;
        }
    }
    throw std::out_of_range("no record " + std::string(serial) + " in list " + std::to_string(list));
}

std::vector<libusb_device*> ListTest::devicesOf(uint32_t list) {
    std::vector<libusb_device*> devices;
    for (const tagUSB_DEVICE_ACCESS_ENTRY* entry : recordsOf(list)) {
        devices.push_back(entry->pDevice);
    }
    return devices;
}

std::vector<libusb_device*> ListTest::libusbsDevices(int32_t vendorId) {
    libusb_device** all = nullptr;
    const ssize_t count = libusb_get_device_list(context, &all);
    std::vector<libusb_device*> devices;
    for (ssize_t i = 0; i < count; ++i) {
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(all[i], &descriptor);
        if (vendorId == -1 || vendorId == descriptor.idVendor) {
            devices.push_back(all[i]);
        }
    }
    libusb_free_device_list(all, 1);
    return devices;
}

void ListTest::update(uint32_t list) {
    EXPECT_EQ(0, LibUSB_UpdateDeviceList(list, 0));
}

void ListTest::unplugAndUpdate(const std::string& id, uint32_t list) {
    unplugAndWait(id, list);
    update(list);
}

void ListTest::plugAndUpdate(const std::string& id, uint32_t list) {
    plugAndWait(id, list);
    update(list);
}

void ListTest::replugChanged(const std::string& id, const std::string& changes, uint32_t list) {
    unplugAndWait(id, list);
    listOf(list).changePending.store(false);  // so that the test waits for the arrival
    command(R"({"op":"change","device":")" + id + R"(","set":)" + changes + "}");
    plugAndUpdate(id, list);
}

void ListTest::addDevice(const std::string& json) {
    command(R"({"op":"add","device":)" + json + "}");
}

uint64_t ListTest::callsOf(const std::string& function) {
    return bus.calls()[function];
}

void ListTest::command(const std::string& operation) {
    const std::string answer = bus.command(operation);
    if (answer.find(R"("ok":true)") == std::string::npos) {
        throw std::runtime_error(answer);
    }
}
