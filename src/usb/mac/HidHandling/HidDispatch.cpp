#include "HidHandling/HidDispatch.h"

#include "ground/ResultCodes.h"
#include "ground/SharedField.h"
#include "hid/HIDAccess.h"

namespace {

/// Sets the report settings of the next call. The read thread may still be using the old ones.
HIDAccess& withSettings(tagUSB_DEVICE_ACCESS_ENTRY& entry, uint32_t packetSize, uint32_t fillValue) {
    storeShared(entry.exPacketSize, packetSize);
    storeShared(entry.exFillValue, fillValue);
    storeShared(entry.pHIDAccess->packetSize, packetSize);
    storeShared(entry.pHIDAccess->fillValue, fillValue);
    return *entry.pHIDAccess;
}

HIDAccess& withStandingSettings(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    return withSettings(entry, entry.packetSize, entry.fillValue);
}

HIDAccess& withGivenSettings(tagUSB_DEVICE_ACCESS_ENTRY& entry, int32_t packetSize, int32_t fillValue) {
    return withSettings(entry, static_cast<uint32_t>(packetSize), static_cast<uint32_t>(fillValue));
}

}  // namespace

int32_t HID_OpenDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    return entry->pHIDAccess->Open();
}

int32_t HID_CloseDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    return entry->pHIDAccess->Close();
}

int32_t HID_WriteControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* /*entry*/, int32_t /*ignored*/, int32_t /*timeout*/,
                             uint8_t* /*buffer*/) {
    return kNotOffered;
}

int32_t HID_ReadControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* /*entry*/, int32_t /*ignored*/, int32_t /*timeout*/,
                            uint8_t* /*buffer*/) {
    return kNotOffered;
}

int32_t HID_WriteInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t /*endpoint*/, int32_t size,
                               int32_t timeout, uint8_t* buffer) {
    return withStandingSettings(*entry).Write(buffer, size, timeout);
}

int32_t HID_ReadInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t /*endpoint*/, int32_t size,
                              int32_t timeout, uint8_t* buffer) {
    return withStandingSettings(*entry).Read(buffer, size, timeout);
}

int32_t HID_WriteInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t /*endpoint*/, int32_t size,
                                 int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue) {
    return withGivenSettings(*entry, packetSize, fillValue).Write(buffer, size, timeout);
}

int32_t HID_ReadInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t /*endpoint*/, int32_t size,
                                int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue) {
    return withGivenSettings(*entry, packetSize, fillValue).Read(buffer, size, timeout);
}
