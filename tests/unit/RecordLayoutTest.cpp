// The order and types of the record fields, checked at compile time.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <type_traits>

#include "ground/DeviceRecords.h"
#include "hid/HIDAccess.h"

namespace {

void expectInOrder(std::initializer_list<const void*> fields) {
    const auto wrong = std::adjacent_find(fields.begin(), fields.end(), std::greater_equal<>());
    EXPECT_EQ(fields.end(), wrong) << "field " << wrong - fields.begin() << " stands behind the next one";
}

template <class Record, class Type, class... Fields>
constexpr bool haveType(Fields Record::*... /*fields*/) {
    return (std::is_same_v<Type, Fields> && ...);
}

using List = tagUSB_DEVICE_LIST;
static_assert(haveType<List, uint32_t>(&List::handle));
static_assert(haveType<List, std::atomic<bool>>(&List::changePending) && sizeof(List::changePending) == 1);
static_assert(haveType<List, libusb_context*>(&List::pContext));
static_assert(haveType<List, libusb_device**>(&List::ppDevList));
static_assert(haveType<List, int32_t>(&List::vidCount));
static_assert(haveType<List, int32_t[16]>(&List::vidList));
static_assert(haveType<List, tagUSB_DEVICE_ACCESS_ENTRY*>(&List::pFirst));
static_assert(haveType<List, List*>(&List::pPrevList, &List::pNextList));

using Entry = tagUSB_DEVICE_ACCESS_ENTRY;
static_assert(haveType<Entry, Entry*>(&Entry::pPrev, &Entry::pNext, &Entry::pCompositeParent,
                                      &Entry::pCompositeChild));
static_assert(haveType<Entry, List*>(&Entry::pDeviceList));
static_assert(haveType<Entry, libusb_device*>(&Entry::pDevice));
static_assert(haveType<Entry, libusb_device_handle*>(&Entry::hDevice));
static_assert(haveType<Entry, HIDAccess*>(&Entry::pHIDAccess));
static_assert(haveType<Entry, uint64_t>(&Entry::reserved));
static_assert(haveType<Entry, int32_t>(&Entry::familyStatus, &Entry::isHid, &Entry::interfaceNumber,
                                       &Entry::deviceDescriptorLength, &Entry::configDescriptorLength,
                                       &Entry::endpointCount, &Entry::lastResult));
static_assert(haveType<Entry, uint32_t>(&Entry::isOpen, &Entry::idVendor, &Entry::idProduct,
                                        &Entry::bcdDevice, &Entry::isUnsupportedClass,
                                        &Entry::kernelDriverDetached, &Entry::packetSize,
                                        &Entry::exPacketSize, &Entry::fillValue, &Entry::exFillValue,
                                        &Entry::initFlag, &Entry::changeReported, &Entry::isPresent,
                                        &Entry::reportedPresent));
static_assert(haveType<Entry, uint8_t>(&Entry::busNumber));
static_assert(haveType<Entry, char[128]>(&Entry::sManufacturer, &Entry::sProduct, &Entry::sSerialNumber));
static_assert(haveType<Entry, uint8_t[32]>(&Entry::deviceDescriptor));
static_assert(haveType<Entry, uint8_t[512]>(&Entry::configDescriptor));
static_assert(haveType<Entry, tagUSB_ENDPOINT_INFO[16]>(&Entry::endpoints));
static_assert(haveType<Entry, std::map<uint8_t, tagUSB_CALLBACK_INFO*>>(&Entry::callbackInfos));

using EndpointInfo = tagUSB_ENDPOINT_INFO;
static_assert(haveType<EndpointInfo, int32_t>(&EndpointInfo::address, &EndpointInfo::direction,
                                              &EndpointInfo::attributes, &EndpointInfo::maxPacketSize));
static_assert(sizeof(EndpointInfo) == 16);

using CallbackInfo = tagUSB_CALLBACK_INFO;
static_assert(haveType<CallbackInfo, libusb_transfer*>(&CallbackInfo::pTransfer));
static_assert(haveType<CallbackInfo, int32_t>(&CallbackInfo::isPending, &CallbackInfo::status,
                                              &CallbackInfo::length, &CallbackInfo::actualLength));
static_assert(sizeof(CallbackInfo) == sizeof(void*) + 16);

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

TEST(RecordLayout, TakesAsManyBytesAsThePagesTell) {
    const auto rounded = [](std::size_t bytes, std::size_t unit) { return (bytes + unit / 2) / unit; };
    EXPECT_EQ(2U, rounded(sizeof(DeviceRecord), 1024));
    EXPECT_EQ(66U, rounded(sizeof(DeviceRecord) + sizeof(HIDAccessRecord), 1024));
    EXPECT_EQ(120U, 10 * rounded(sizeof(tagUSB_DEVICE_LIST), 10));
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
