#include <gmock/gmock.h>

#include "DescriptorBytes.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/Descriptors.h"

namespace {

class DeviceClass : public ListTest {
 protected:
    /// Whether the library drives a device of this class whose first interfaces are of these classes.
    bool isDriven(int deviceClass, std::initializer_list<int> interfaceClasses) {
        DescriptorBytes interfaces;
        for (const int each : interfaceClasses) {
            interfaces = joined({interfaces, interfaceBytes(0, static_cast<uint8_t>(each))});
        }
        const std::string id = "tool " + std::to_string(++devices_);
        addDevice(deviceJson(id, merged({R"({"deviceClass":)" + std::to_string(deviceClass) + "}",
                                         rawConfiguration(configurationBytes({interfaces}))})));
        const uint32_t list = createSingleCallList(kVendor);
        const bool driven = recordNamed(list, id).isUnsupportedClass == 0;
        LibUSB_ReleaseDeviceList(list);
        return driven;
    }

 private:
    int devices_ = 0;
};

TEST_F(DeviceClass, IsLeftToTheInterfaceByClassZeroAndMiscellaneous) {
    startSession({});
    for (const int deviceClass : {0x00, 0xEF}) {
        for (const int driven : {0x00, 0x03, 0xEF, 0xFE, 0xFF}) {
            EXPECT_TRUE(isDriven(deviceClass, {driven})) << deviceClass << ' ' << driven;
        }
        for (const int other : {0x01, 0x02, 0x08, 0xDC, 0xFD}) {
            EXPECT_FALSE(isDriven(deviceClass, {other})) << deviceClass << ' ' << other;
        }
    }
}

TEST_F(DeviceClass, OfHidAndVendorSpecificDevicesHidesTheInterfaces) {
    startSession({});
    EXPECT_TRUE(isDriven(0x03, {0x08}));
    EXPECT_TRUE(isDriven(0xFF, {0x08}));
}

TEST_F(DeviceClass, OfOtherDevicesIsUnsupportedWhateverTheInterfaces) {
    startSession({});
    for (const int other : {0x01, 0x02, 0x08, 0x09, 0xDC, 0xFE}) {
        EXPECT_FALSE(isDriven(other, {0xFF})) << other;
    }
}

TEST_F(DeviceClass, IsThatOfTheFirstInterfaceOnly) {
    startSession({});
    EXPECT_TRUE(isDriven(0x00, {0xFF, 0x08}));
    EXPECT_FALSE(isDriven(0x00, {0x08, 0xFF}));
}

TEST_F(DeviceClass, IsNotLookedForWithoutAnInterface) {
    startSession({});
    EXPECT_TRUE(isDriven(0x00, {}));
    EXPECT_FALSE(isDriven(0x02, {}));
}

TEST_F(DeviceClass, IsReadFromADescriptorThatReachesIt) {
    DeviceRecord entry{};
    entry.deviceDescriptorLength = 4;
    EXPECT_FALSE(classLeftToInterfaces(entry));
    entry.deviceDescriptorLength = 5;
    EXPECT_TRUE(classLeftToInterfaces(entry));
}

TEST_F(DeviceClass, IsUnknownWhenTheDeviceCannotBeOpened) {
    startSession({deviceJson("tool", R"({"deviceClass":8,"hostFailures":{"open":-3}})")});
    EXPECT_EQ(0U, record(createList({kVendor}), 0).isUnsupportedClass);
}

}  // namespace
