// Who has claimed which interface of which device. State's lock held.
#pragma once

#include "Objects.h"

namespace sim {

int claimInterface(libusb_device_handle& handle, std::uint8_t interfaceNumber);
// For what claimInterface() has claimed only, not for what claimForTransfer() has.
bool hasClaimed(const libusb_device_handle& handle, std::uint8_t interfaceNumber);
void dropClaim(libusb_device_handle& handle, std::uint8_t interfaceNumber);
// Claims the interface that a transfer's endpoint belongs to, as the kernel does for a program that did not.
// Answers LIBUSB_ERROR_IO when there is no such endpoint, it is of another type, or somebody else has the
// interface.
int claimForTransfer(TransferRecord& record);
// A HID driver of the system has the interface; programs reach the device through hidapi.
bool heldByHidDriver(const libusb_device& device, std::uint8_t interfaceNumber);
// By a handle or by the HID driver.
bool anyClaimed(const libusb_device& device);
void dropClaims(const libusb_device_handle& handle);

}  // namespace sim
