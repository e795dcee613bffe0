#include <gmock/gmock.h>

#include "DescriptorBytes.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"

namespace {

using ::testing::_;
using ::testing::AnyOf;
using ::testing::ElementsAre;

/// A merge patch for deviceJson: interface 0 of class HID, interface 1 of this class with a bulk pair.
std::string toolWith(int secondInterfacesClass, const std::string& secondInterfacesString) {
    return R"({"interfaces":[
        {"number":0,"class":3},
        {"number":1,"class":)" +
           std::to_string(secondInterfacesClass) + R"(,"subClass":255,"string":")" + secondInterfacesString +
           R"(","endpoints":[{"address":"0x85","type":"bulk"},{"address":"0x05","type":"bulk"}]}]})";
}

std::vector<uint32_t> presenceOf(const std::vector<tagUSB_DEVICE_ACCESS_ENTRY*>& records) {
    std::vector<uint32_t> presence;
    for (const tagUSB_DEVICE_ACCESS_ENTRY* entry : records) {
        presence.push_back(entry->isPresent);
    }
    return presence;
}

/// Parent and child of a composite device that is unplugged and plugged in again.
class CompositeUpdate : public ListTest {
 protected:
    void SetUp() override {
        ListTest::SetUp();
        startSession({deviceJson("tool", kSplit)});
        list_ = createList({kVendor});
        parent_ = &record(list_, 0);
        child_ = &record(list_, 1);
    }
    /// Updates although nothing has changed.
    void updateOnceMore() {
        listOf(list_).changePending = true;
        update(list_);
    }
    std::vector<uint32_t> presence() { return presenceOf(recordsOf(list_)); }
    /// No record of the list has a partner outside of it.
    void expectPartnersAreListed() {
        const auto records = recordsOf(list_);
        const auto isListed = [&](const tagUSB_DEVICE_ACCESS_ENTRY* partner) {
            return partner == nullptr || std::find(records.begin(), records.end(), partner) != records.end();
        };
        for (const tagUSB_DEVICE_ACCESS_ENTRY* entry : records) {
            EXPECT_TRUE(isListed(entry->pCompositeParent)) << entry->sSerialNumber;
            EXPECT_TRUE(isListed(entry->pCompositeChild)) << entry->sSerialNumber;
        }
    }

    const std::string kSplit = toolWith(0xFF, "Trace Port");
    const std::string kSplitWithOtherString = toolWith(0xFF, "Other Port");
    const std::string kNotSplit = toolWith(3, "Trace Port");
    uint32_t list_ = 0;
    tagUSB_DEVICE_ACCESS_ENTRY* parent_ = nullptr;
    tagUSB_DEVICE_ACCESS_ENTRY* child_ = nullptr;
};

TEST_F(CompositeUpdate, ParentAndChildGoTogether) {
    unplugAndUpdate("tool", list_);
    EXPECT_THAT(recordsOf(list_), ElementsAre(parent_, child_));
    EXPECT_EQ(0U, parent_->isPresent);
    EXPECT_EQ(0U, child_->isPresent);
    EXPECT_TRUE(g_refCount.empty());
}

TEST_F(CompositeUpdate, ParentAndChildComeBackTogetherOnTheNewDevice) {
    libusb_device* before = parent_->pDevice;
    unplugAndUpdate("tool", list_);
    plugAndUpdate("tool", list_);
    EXPECT_THAT(recordsOf(list_), ElementsAre(parent_, child_));
    EXPECT_EQ(1U, parent_->isPresent);
    EXPECT_EQ(1U, child_->isPresent);
    EXPECT_NE(before, parent_->pDevice);
    EXPECT_EQ(parent_->pDevice, child_->pDevice);
    EXPECT_EQ(1, getRefCount(parent_->pDevice));
    EXPECT_EQ(child_, parent_->pCompositeChild);
    EXPECT_EQ(parent_, child_->pCompositeParent);
}

TEST_F(CompositeUpdate, AnUnchangedBusKeepsBoth) {
    libusb_device* before = parent_->pDevice;
    listOf(list_).changePending = true;
    update(list_);
    EXPECT_THAT(recordsOf(list_), ElementsAre(parent_, child_));
    EXPECT_EQ(before, child_->pDevice);
    EXPECT_EQ(1, getRefCount(before));
}

TEST_F(CompositeUpdate, ParentAndChildAreEachLoggedAsFound) {
    listOf(list_).changePending = true;
    const auto lines = debugLinesOf([this] { update(list_); });
    const auto foundLine = [&](const std::string& serial) {
        return std::find(lines.begin(), lines.end(), "UDL-05 DETemp is already in list : '" + serial + "'");
    };
    ASSERT_NE(lines.end(), foundLine("tool_01"));
    EXPECT_LT(foundLine("tool"), foundLine("tool_01"));
}

TEST_F(CompositeUpdate, AReplugLeavesNeitherOpen) {
    ASSERT_EQ(0, LibUSB_OpenDevice(parent_));
    ASSERT_EQ(0, LibUSB_OpenDevice(child_));
    bus.unplug("tool");
    plugAndUpdate("tool", list_);
    EXPECT_EQ(0U, parent_->isOpen);
    EXPECT_EQ(0U, child_->isOpen);
}

TEST_F(CompositeUpdate, AChildWhoseInterfaceIsNoLongerSplitTakesTheParentsDevice) {
    replugChanged("tool", kNotSplit, list_);
    EXPECT_THAT(recordsOf(list_), ElementsAre(parent_, child_));
    EXPECT_EQ(parent_->pDevice, child_->pDevice);
    EXPECT_EQ(1U, parent_->isPresent);
    EXPECT_EQ(1U, child_->isPresent);
}

TEST_F(CompositeUpdate, AChildThatChangedIsAppendedAndBelongsToTheOldParent) {
    replugChanged("tool", kSplitWithOtherString, list_);
    const auto records = recordsOf(list_);
    ASSERT_EQ(3U, records.size());
    EXPECT_STREQ("Other Port", records[2]->sProduct);
    EXPECT_EQ(parent_, records[2]->pCompositeParent);
    EXPECT_EQ(child_, parent_->pCompositeChild);
    EXPECT_EQ(parent_->pDevice, records[2]->pDevice);
    EXPECT_EQ(1U, child_->isPresent);  // present with its parent, even without its interface
}

TEST_F(CompositeUpdate, AChildThatChangedStaysBesideTheOldOneOverFurtherUpdates) {
    replugChanged("tool", kSplitWithOtherString, list_);
    for (int round = 0; round < 3; ++round) {
        updateOnceMore();
        EXPECT_THAT(presence(), ElementsAre(1, 1, 1)) << round;
        EXPECT_EQ(child_, parent_->pCompositeChild) << round;
        EXPECT_EQ(1, getRefCount(parent_->pDevice)) << round;
        expectPartnersAreListed();
    }
    unplugAndUpdate("tool", list_);
    EXPECT_THAT(presence(), ElementsAre(0, 0, 0));
    EXPECT_TRUE(g_refCount.empty());
    plugAndUpdate("tool", list_);
    EXPECT_THAT(presence(), ElementsAre(1, 1, 1));
}

TEST_F(CompositeUpdate, AParentThatChangedIsAppendedAndHasTheOldChild) {
    replugChanged("tool", R"({"product":"New Tool"})", list_);
    const auto records = recordsOf(list_);
    ASSERT_EQ(3U, records.size());
    EXPECT_EQ(0U, parent_->isPresent);
    EXPECT_STREQ("New Tool", records[2]->sProduct);
    EXPECT_EQ(kCompositeParent, records[2]->familyStatus);
    EXPECT_EQ(child_, records[2]->pCompositeChild);
    EXPECT_EQ(1U, child_->isPresent);
    EXPECT_EQ(records[2]->pDevice, child_->pDevice);
    EXPECT_NE(parent_->pDevice, child_->pDevice);
}

TEST_F(CompositeUpdate, AChildThatPrecedesItsNewParentKeepsTheParentThatItWasListedWith) {
    replugChanged("tool", R"({"product":"New Tool"})", list_);
    const tagUSB_DEVICE_ACCESS_ENTRY* added = recordsOf(list_).at(2);
    for (int round = 0; round < 2; ++round) {
        updateOnceMore();
        EXPECT_THAT(presence(), ElementsAre(0, 1, 1)) << round;
        EXPECT_EQ(child_, added->pCompositeChild) << round;
        EXPECT_EQ(parent_, child_->pCompositeParent) << round;
        EXPECT_EQ(1, getRefCount(child_->pDevice)) << round;
        expectPartnersAreListed();
    }
    replugChanged("tool", R"({"product":"Echo Tool"})", list_);
    EXPECT_THAT(presence(), ElementsAre(1, 1, 0));
}

TEST_F(CompositeUpdate, AnInterfaceThatAppearsIsAppendedBelowTheOldParent) {
    replugChanged("tool", merged({R"({"serial":"second"})", kNotSplit}), list_);
    tagUSB_DEVICE_ACCESS_ENTRY& second = recordNamed(list_, "second");
    EXPECT_EQ(nullptr, second.pCompositeChild);
    replugChanged("tool", kSplit, list_);
    const tagUSB_DEVICE_ACCESS_ENTRY& added = recordNamed(list_, "second_01");
    EXPECT_EQ(&second, added.pCompositeParent);
    EXPECT_EQ(second.pDevice, added.pDevice);
}

TEST_F(CompositeUpdate, AnInterfaceThatAppearedGoesWithoutItsParent) {
    replugChanged("tool", merged({R"({"serial":"second"})", kNotSplit}), list_);
    const tagUSB_DEVICE_ACCESS_ENTRY& second = recordNamed(list_, "second");
    replugChanged("tool", kSplit, list_);
    const tagUSB_DEVICE_ACCESS_ENTRY& added = recordNamed(list_, "second_01");
    for (int round = 0; round < 2; ++round) {
        updateOnceMore();
        EXPECT_THAT(presence(), ElementsAre(0, 0, 1, 1)) << round;
        EXPECT_EQ(nullptr, second.pCompositeChild) << round;
        EXPECT_EQ(&second, added.pCompositeParent) << round;
    }
    replugChanged("tool", kNotSplit, list_);
    EXPECT_THAT(presence(), ElementsAre(0, 0, 1, 0));
    EXPECT_EQ(1, getRefCount(second.pDevice));
    updateOnceMore();
    EXPECT_EQ(1, getRefCount(second.pDevice));
    replugChanged("tool", kSplit, list_);
    EXPECT_THAT(presence(), ElementsAre(0, 0, 1, 1));
    expectPartnersAreListed();
}

TEST_F(CompositeUpdate, ADeviceThatLooksLikeAPartNeverBecomesOne) {
    addDevice(deviceJson("double", R"({"serial":"tool_01","product":"Trace Port"})"));
    const uint32_t list = createList({kVendor, kSecondVendor});
    ASSERT_EQ(3U, recordsOf(list).size());
    tagUSB_DEVICE_ACCESS_ENTRY& whole = recordNamed(list, "tool");
    tagUSB_DEVICE_ACCESS_ENTRY& alike = recordNamed(list, "tool_01");
    tagUSB_DEVICE_ACCESS_ENTRY& part = record(list, 2);
    ASSERT_EQ(kPlainDevice, alike.familyStatus);
    unplugAndWait("double", list_);
    for (int round = 0; round < 2; ++round) {
        listOf(list).changePending = true;
        update(list);
        EXPECT_THAT(presenceOf(recordsOf(list)), ElementsAre(1, 1, 1)) << "one part is taken for both";
        EXPECT_EQ(nullptr, alike.pCompositeParent);
        EXPECT_EQ(&part, whole.pCompositeChild);
        EXPECT_EQ(&whole, part.pCompositeParent);
    }
}

TEST_F(CompositeUpdate, AReplugCanBeRepeated) {
    for (int round = 0; round < 3; ++round) {
        unplugAndUpdate("tool", list_);
        plugAndUpdate("tool", list_);
    }
    EXPECT_THAT(recordsOf(list_), ElementsAre(parent_, child_));
    EXPECT_EQ(1, getRefCount(parent_->pDevice));
}

TEST_F(CompositeUpdate, AReleaseDropsOneReferenceForTwoRecords) {
    const std::string pointer = pointerText(parent_->pDevice);
    EXPECT_THAT(debugLinesOf([this] { LibUSB_ReleaseDeviceList(list_); }),
                ElementsAre("[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + pointer,
                            "[tlvn_libusb_unref_device] device " + pointer + " not found: tool_01"));
}

TEST_F(CompositeUpdate, AReleasedListIsSplitAgainWhenItIsFilled) {
    LibUSB_ReleaseDeviceList(list_);
    bus.unplug("tool");
    plugAndUpdate("tool", list_);
    EXPECT_THAT(serialsOf(list_), ElementsAre("tool", "tool_01"));
    EXPECT_EQ(&record(list_, 0), record(list_, 1).pCompositeParent);
}

/// Two composite devices without serial numbers that differ in their product strings; their interfaces are
/// identical.
class TwinInterfaces : public CompositeUpdate {
 protected:
    void SetUp() override {
        ListTest::SetUp();
        startSession({twin("first"), twin("second")});
        list_ = createList({kVendor});
        before_ = recordsOf(list_);
        ASSERT_EQ(4U, before_.size());
        ASSERT_STREQ(before_[2]->sSerialNumber, before_[3]->sSerialNumber);
    }
    std::string twin(const std::string& product) {
        return deviceJson(product, R"({"serial":null,"product":")" + product + "\"," + kSplit.substr(1));
    }
    /// The id on the bus of the device behind a record.
    static std::string idOf(const tagUSB_DEVICE_ACCESS_ENTRY& entry) { return entry.sProduct; }
    /// Further updates change nothing but the presence, and every present device stays referenced.
    void expectStays(const std::vector<uint32_t>& presence) {
        for (int round = 0; round < 3; ++round) {
            EXPECT_EQ(before_, recordsOf(list_));
            EXPECT_EQ(presence, presenceOf(before_)) << round;
            EXPECT_EQ(before_[2], before_[0]->pCompositeChild) << round;
            EXPECT_EQ(before_[3], before_[1]->pCompositeChild) << round;
            for (size_t parent = 0; parent < 2; ++parent) {
                EXPECT_EQ(presence[parent] == 1, getRefCount(before_[parent]->pDevice) >= 1)
                    << round << " " << parent;
            }
            updateOnceMore();
        }
    }

    std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> before_;
};

TEST_F(TwinInterfaces, WhenTheLaterIsPulledItsInterfaceIsAbsent) {
    unplugAndUpdate(idOf(*before_[1]), list_);
    expectStays({1, 0, 1, 0});
}

TEST_F(TwinInterfaces, WhenTheEarlierIsPulledTheOthersInterfaceStandsForBoth) {
    unplugAndUpdate(idOf(*before_[0]), list_);
    expectStays({0, 1, 1, 1});
    EXPECT_EQ(before_[1]->pDevice, before_[2]->pDevice);
    EXPECT_EQ(before_[1]->pDevice, before_[3]->pDevice);
}

TEST_F(TwinInterfaces, APulledOneMayComeBack) {
    for (const size_t pulled : {0U, 1U}) {
        const std::string id = idOf(*before_[pulled]);
        unplugAndUpdate(id, list_);
        plugAndUpdate(id, list_);
        expectStays({1, 1, 1, 1});
    }
}

TEST_F(TwinInterfaces, OneThatComesBackWithAnotherNameHasAnInterfaceOfTheList) {
    const std::string renamed = idOf(*before_[0]);
    const std::string other = idOf(*before_[1]);
    replugChanged(renamed, R"({"product":"third"})", list_);
    ASSERT_EQ(5U, recordsOf(list_).size());
    EXPECT_THAT(recordsOf(list_)[4]->pCompositeChild, AnyOf(before_[2], before_[3]));
    for (int round = 0; round < 2; ++round) {
        EXPECT_THAT(presence(), ElementsAre(0, 1, 1, 1, 1)) << round;
        expectPartnersAreListed();
        updateOnceMore();
    }
    unplugAndUpdate(other, list_);
    EXPECT_THAT(presence(), ElementsAre(0, 0, 1, _, 1));
    unplugAndUpdate(renamed, list_);
    EXPECT_THAT(presence(), ElementsAre(0, 0, 0, 0, 0));
    updateOnceMore();
    EXPECT_TRUE(g_refCount.empty());
}

}  // namespace
