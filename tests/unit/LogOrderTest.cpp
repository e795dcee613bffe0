// Which log lines are written before the libusb call that they describe, and which after it.
#include <gmock/gmock.h>

#include "DebugUtil/DebugLog.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"

namespace {

using ::testing::ElementsAre;

using Lines = std::vector<std::string>;

class LogOrder : public ListTest {
 protected:
    /// From now on each call of one of these functions adds a line to the log, such as "<libusb_open>",
    /// before the function begins.
    void logCallsOf(const Lines& functions) {
        for (const std::string& function : functions) {
            bus.onCall(function, [function] { debug_log("<%s>", function.c_str()); });
        }
    }
    /// A session with one device and a list of it; calls of these functions are logged.
    void listTool(const Lines& functions) {
        startSession({deviceJson("tool")});
        list_ = createList({kVendor});
        logCallsOf(functions);
    }
    libusb_device* device() { return record(list_, 0).pDevice; }
    std::string deviceText() { return pointerText(device()); }
    /// The line of an open or close, such as that of "[tlvn_libusb_open]".
    static std::string lineOf(const std::string& wrapper, const std::string& about,
                              const std::string& device) {
        return "[tlvn_libusb_" + wrapper + "] " + about + " dev: " + device;
    }

    uint32_t list_ = 0;
};

/// The lines of the log up to their first colon and without the prefix of numbered steps; consecutive equal
/// lines appear once.
Lines labels(const Lines& lines) {
    const std::string step = "LibUSB_CreateDeviceList2 ";
    Lines result;
    for (const std::string& line : lines) {
        const size_t begin = line.rfind(step, 0) == 0 ? step.size() : 0;
        const std::string label = line.substr(begin, line.find_first_of(" :", begin) - begin);
        if (result.empty() || result.back() != label) {
            result.push_back(label);
        }
    }
    return result;
}

}  // namespace

TEST_F(LogOrder, OfAListThatIsMade) {
    startSession({deviceJson("tool")});
    logCallsOf({"libusb_hotplug_register_callback", "libusb_get_device_list", "libusb_get_device_descriptor",
                "libusb_get_bus_number", "libusb_get_device_address", "libusb_open",
                "libusb_control_transfer", "libusb_get_active_config_descriptor", "libusb_close",
                "libusb_free_device_list"});
    const Lines expected = {
        "",
        "01",
        "<libusb_hotplug_register_callback>",
        "[registerForHotplug]",
        "<libusb_get_device_list>",
        "libusb_get_device_list",
        "02",
        "<libusb_get_device_descriptor>",
        "03",
        "04",
        "[tlvn_libusb_ref_device]",
        "05",
        "06",
        "<libusb_get_bus_number>",
        "libusb_get_bus_number",
        "<libusb_get_device_address>",
        "libusb_get_device_address",
        "[tlvn_libusb_open]",
        "<libusb_open>",
        "07",
        "<libusb_control_transfer>",
        "08",
        "<libusb_control_transfer>",
        "09",
        "<libusb_control_transfer>",
        "10",
        "<libusb_get_device_descriptor>",
        "11",
        "<libusb_get_device_descriptor>",
        "<libusb_get_active_config_descriptor>",
        "<libusb_control_transfer>",
        "13",
        "14",
        "15",
        "16",
        "18",
        "[tlvn_libusb_close]",
        "<libusb_close>",
        "20",
        "<libusb_free_device_list>",
    };
    EXPECT_EQ(expected, labels(debugLinesOf([&] { createList({kVendor}); })));
}

TEST_F(LogOrder, OfASingleCallList) {
    startSession({deviceJson("tool")});
    logCallsOf({"libusb_open", "libusb_close"});
    EXPECT_THAT(labels(debugLinesOf([&] { createSingleCallList(kVendor); })),
                ElementsAre("[tlvn_libusb_open]", "<libusb_open>", "[tlvn_libusb_close]", "<libusb_close>"));
}

TEST_F(LogOrder, OfTheStringOfACompositeDevicesPart) {
    startSession({deviceJson("tool", R"({"interfaces":[{"number":0,"class":3},
        {"number":1,"class":255,"subClass":255,"string":"Trace Port",
         "endpoints":[{"address":"0x85","type":"bulk"},{"address":"0x05","type":"bulk"}]}]})")});
    logCallsOf({"libusb_open", "libusb_control_transfer", "libusb_close", "libusb_free_device_list"});
    const Lines lines = labels(debugLinesOf([&] { list_ = createList({kVendor}); }));
    EXPECT_THAT(Lines(std::find(lines.begin(), lines.end(), "<libusb_free_device_list>"), lines.end()),
                ElementsAre("<libusb_free_device_list>", "[tlvn_libusb_open]", "<libusb_open>",
                            "<libusb_control_transfer>", "[tlvn_libusb_close]", "<libusb_close>"));
}

TEST_F(LogOrder, OfACountedReference) {
    listTool({"libusb_ref_device", "libusb_unref_device"});
    EXPECT_THAT(debugLinesOf([this] { tlvn_libusb_ref_device(nullptr, device()); }),
                ElementsAre("[tlvn_libusb_ref_device] ref_count: before 1, after: 2, " + deviceText(),
                            "<libusb_ref_device>"));
    EXPECT_THAT(debugLinesOf([this] { tlvn_libusb_unref_device(&record(list_, 0), device()); }),
                ElementsAre("<libusb_unref_device>",
                            "[tlvn_libusb_unref_device] ref_count: before: 2, after: 1, " + deviceText()));
    tlvn_libusb_unref_device(&record(list_, 0), device());
    EXPECT_THAT(debugLinesOf([this] { tlvn_libusb_ref_device(nullptr, device()); }),
                ElementsAre("[tlvn_libusb_ref_device] ref_count: before 0, after: 1, " + deviceText(),
                            "<libusb_ref_device>"));
}

TEST_F(LogOrder, OfAnUnpluggedDevice) {
    listTool({"libusb_unref_device"});
    record(list_, 0).isPresent = 0;
    const Lines lines = debugLinesOf([this] { unref_unplugged_devices(&listOf(list_)); });
    EXPECT_EQ("[unref_unplugged_devices] unref device: " + deviceText(), lines.front());
    EXPECT_THAT(Lines(lines.end() - 2, lines.end()),
                ElementsAre("<libusb_unref_device>",
                            "[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + deviceText()));
}

TEST_F(LogOrder, OfAnUpdateThatFindsTheDeviceBehindAnother) {
    listTool({"libusb_open", "libusb_close"});
    const std::string before = deviceText();
    unplugAndWait("tool", list_);
    listOf(list_).changePending = false;
    plugAndWait("tool", list_);
    const Lines lines = debugLinesOf([this] { update(list_); });
    EXPECT_THAT(lines,
                ElementsAre(lineOf("open", "?: 0.256 interface: 0", deviceText()), "<libusb_open>",
                            lineOf("close", "tool: 0.256 interface: 0", deviceText()), "<libusb_close>",
                            "UDL-05 DETemp is already in list : 'tool'",
                            "[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + before,
                            "[tlvn_libusb_ref_device] ref_count: before 0, after: 1, " + deviceText()));
}

TEST_F(LogOrder, OfAReleaseOfAnOpenDevice) {
    listTool({});
    ASSERT_EQ(0, LibUSB_OpenDevice(&record(list_, 0)));
    logCallsOf({"libusb_close", "libusb_unref_device"});
    const std::string text = deviceText();
    const Lines lines = debugLinesOf([this] { LibUSB_ReleaseDeviceList(list_); });
    EXPECT_THAT(lines, ElementsAre(lineOf("close", "tool: 1.256 interface: 0", text), "<libusb_close>",
                                   "<libusb_unref_device>",
                                   "[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + text,
                                   "<libusb_unref_device>"));
}
