#pragma once

#include <memory>
#include <string>

#include "BackgroundCall.h"
#include "UsbTest.h"

struct libusb_transfer;

constexpr unsigned kForEver = 1'000'000;  ///< as the number of calls that fail

/// A test on one open device, "tool" (deviceJson).
class IoTest : public UsbTest {
 protected:
    /// Starts the session and opens the device, with a JSON merge patch on it.
    void openTool(const std::string& overrides = "{}");
    /// The open record.
    tagUSB_DEVICE_ACCESS_ENTRY& tool() { return *tool_; }
    uint32_t list() const { return tool_->pDeviceList->handle; }

    /// The transfer record and the libusb transfer of an endpoint address.
    tagUSB_CALLBACK_INFO& transferRecord(uint8_t address) { return *tool_->callbackInfos.at(address); }
    libusb_transfer& libusbTransfer(uint8_t address) { return *transferRecord(address).pTransfer; }

    /// Starts a bulk read without time-out on a thread of its own; returns once it waits in the device.
    std::unique_ptr<BackgroundCall> blockedRead(uint8_t endpoint = 0x84);
    /// Changes an endpoint's behaviour (JSON as in a scenario) at once.
    void setBehaviour(const std::string& endpoint, const std::string& settings);

 private:
    tagUSB_DEVICE_ACCESS_ENTRY* tool_ = nullptr;
    std::vector<uint8_t> blockedBuffer_ = std::vector<uint8_t>(64);
};
