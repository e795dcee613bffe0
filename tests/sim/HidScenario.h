// Devices with HID interfaces, for the tests of all fronts that present them.
#pragma once

#include "SimTest.h"

namespace simtest {

// A bus with: "hid" (HIDT0001; a HID interface with reports of 64 bytes that are echoed), "plain" (HIDT0002;
// interface 0 with bulk endpoints, interface 1 HID without an OUT endpoint), and "nameless" (HID, of another
// vendor, without any strings); and a libusb context.
class HidInterfaces : public LibusbTest {
 protected:
    void SetUp() override {
        LibusbTest::SetUp();
        bus.loadScenario(R"({"devices": [
 {"id": "hid", "vendorId": "0x6A5C", "productId": "0x1020", "bcdDevice": "0x0102",
  "manufacturer": "Talvane", "product": "HID Tool", "serial": "HIDT0001",
  "interfaces": [{"hid": {}, "endpoints": [
    {"address": "0x81", "type": "interrupt", "interval": 1}, {"address": "0x01", "type": "interrupt", "interval": 1}]}]},
 {"id": "plain", "vendorId": "0x6A5C", "productId": "0x1021", "serial": "HIDT0002",
  "interfaces": [
    {"number": 0, "endpoints": [{"address": "0x02"}, {"address": "0x82"}]},
    {"number": 1, "hid": {"input": 512, "output": 8}, "endpoints": [
      {"address": "0x83", "type": "interrupt", "interval": 1}]}]},
 {"id": "nameless", "vendorId": "0x1209", "productId": "0x0001",
  "interfaces": [{"hid": {}, "endpoints": [{"address": "0x81", "type": "interrupt", "interval": 1}]}]}
]})");
    }
};

}  // namespace simtest
