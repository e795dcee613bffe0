// The claims on interfaces. The state's lock is held.
#pragma once

#include "Objects.h"

namespace sim {

int claimInterface(libusb_device_handle& handle, std::uint8_t interfaceNumber);
/// Only for claims of claimInterface(), not for those of claimForTransfer().
bool hasClaimed(const libusb_device_handle& handle, std::uint8_t interfaceNumber);
void dropClaim(libusb_device_handle& handle, std::uint8_t interfaceNumber);
/// Claims the interface of a transfer's endpoint, as the kernel does for a program that has not claimed it.
/// Returns LIBUSB_ERROR_IO when the endpoint does not exist or has another type, or the interface is claimed
/// elsewhere.
int claimForTransfer(TransferRecord& record);
/// True when the system's HID driver has the interface; programs reach the device through hidapi.
bool heldByHidDriver(const libusb_device& device, std::uint8_t interfaceNumber);
/// True when a handle or the HID driver has claimed any interface.
bool anyClaimed(const libusb_device& device);
void dropClaims(const libusb_device_handle& handle);

}  // namespace sim
