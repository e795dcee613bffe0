// The order of the fields in the records.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "MacOSXUSBAccess/records/DeviceRecords.h"
#include "hid/HIDAccess.h"

namespace {

void expectInOrder(std::initializer_list<const void*> fields) {
    const auto wrong = std::adjacent_find(fields.begin(), fields.end(), std::greater_equal<>());
    EXPECT_EQ(fields.end(), wrong) << "field " << wrong - fields.begin() << " stands behind the next one";
}

}  // namespace

TEST(RecordLayout, OfADeviceList) {
    const tagUSB_DEVICE_LIST list{};
    expectInOrder({&list.handle, &list.changePending, &list.pContext, &list.ppDevList, &list.vidCount,
                   &list.vidList, &list.pFirst, &list.pPrevList, &list.pNextList});
}

TEST(RecordLayout, OfADevice) {
    const DeviceRecord entry{};
    EXPECT_EQ(static_cast<const void*>(&entry), &entry.pPrev) << "the library's own fields come last";
    expectInOrder({&entry.pPrev,
                   &entry.pNext,
                   &entry.pDeviceList,
                   &entry.isOpen,
                   &entry.pDevice,
                   &entry.hDevice,
                   &entry.pCompositeParent,
                   &entry.pCompositeChild,
                   &entry.reserved,
                   &entry.familyStatus,
                   &entry.pHIDAccess,
                   &entry.idVendor,
                   &entry.idProduct,
                   &entry.bcdDevice,
                   &entry.isHid,
                   &entry.isUnsupportedClass,
                   &entry.kernelDriverDetached,
                   &entry.busNumber,
                   &entry.sManufacturer,
                   &entry.sProduct,
                   &entry.sSerialNumber,
                   &entry.interfaceNumber,
                   &entry.deviceDescriptorLength,
                   &entry.deviceDescriptor,
                   &entry.configDescriptorLength,
                   &entry.configDescriptor,
                   &entry.endpointCount,
                   &entry.endpoints,
                   &entry.packetSize,
                   &entry.exPacketSize,
                   &entry.fillValue,
                   &entry.exFillValue,
                   &entry.lastResult,
                   &entry.initFlag,
                   &entry.changeReported,
                   &entry.isPresent,
                   &entry.reportedPresent,
                   &entry.callbackInfos});
}

TEST(RecordLayout, OfAnEndpoint) {
    const tagUSB_ENDPOINT_INFO endpoint{};
    expectInOrder({&endpoint.address, &endpoint.direction, &endpoint.attributes, &endpoint.maxPacketSize});
}

TEST(RecordLayout, OfATransfer) {
    const tagUSB_CALLBACK_INFO transfer{};
    EXPECT_EQ(static_cast<const void*>(&transfer), &transfer.pTransfer);
    expectInOrder({&transfer.pTransfer, &transfer.isPending, &transfer.status, &transfer.length,
                   &transfer.actualLength});
}

TEST(RecordLayout, OfAHidDevice) {
    const auto access = std::make_unique<HIDAccessRecord>();
    const HIDAccess& hid = *access;
    EXPECT_EQ(static_cast<const void*>(&hid), &hid.idVendor);
    expectInOrder({&hid.idVendor, &hid.idProduct, &hid.sSerialNumber, &hid.ppDeviceInterface, &hid.ringBuffer,
                   &hid.reportBuffer, &hid.writeIndex, &hid.readIndex, &hid.spare, &hid.threadState,
                   &hid.packetSize, &hid.fillValue, &hid.mutex, &hid.readThread});
}
