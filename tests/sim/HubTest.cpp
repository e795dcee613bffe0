// Hubs of a scenario: the places of devices in them, and their common arrival and departure.
#include "SimTest.h"

namespace simtest {
namespace {

using testing::ElementsAre;

class Hub : public LibusbTest {
 protected:
    void SetUp() override {
        LibusbTest::SetUp();
        bus.loadScenario(R"({"devices": [
            {"id": "leaf", "serial": "LEAF", "hub": "inner", "port": 3},
            {"id": "outer", "serial": "OUTER", "bus": 4, "port": 2, "deviceClass": 9},
            {"id": "inner", "serial": "INNER", "hub": "outer", "port": 255, "deviceClass": 9},
            {"id": "spare", "serial": "SPARE", "hub": "inner", "port": 4, "plugged": false},
            {"id": "root", "serial": "ROOT", "bus": 4}]})");
    }

    Bytes portsOf(const std::string& serial) {
        Bytes ports(7);
        const int count = libusb_get_port_numbers(device(serial), ports.data(), 7);
        EXPECT_GE(count, 0);
        ports.resize(static_cast<std::size_t>(std::max(count, 0)));
        return ports;
    }
    std::vector<std::string> plugged() {
        std::vector<std::string> ids;
        for (const auto& info : bus.devices()) {
            ids.push_back(info->id);
        }
        return ids;
    }
    std::string refusal(const std::string& devices) {
        try {
            bus.loadScenario("{\"devices\": [" + devices + "]}");
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "it was accepted";
    }
};

TEST_F(Hub, APathHasThePortsFromTheRoot) {
    EXPECT_THAT(portsOf("LEAF"), ElementsAre(2, 255, 3));
    EXPECT_THAT(portsOf("INNER"), ElementsAre(2, 255));
    EXPECT_THAT(portsOf("OUTER"), ElementsAre(2));
    EXPECT_EQ(libusb_get_port_number(device("LEAF")), 3);
    EXPECT_EQ(libusb_get_bus_number(device("LEAF")), 4);
    EXPECT_THAT(portsOf("ROOT"), ElementsAre(libusb_get_device_address(device("ROOT"))));
    Bytes tooFew(2);
    EXPECT_EQ(libusb_get_port_numbers(device("LEAF"), tooFew.data(), 2), LIBUSB_ERROR_OVERFLOW);
}

TEST_F(Hub, TheParentIsTheHub) {
    EXPECT_EQ(libusb_get_parent(device("LEAF")), device("INNER"));
    EXPECT_EQ(libusb_get_parent(device("INNER")), device("OUTER"));
    EXPECT_EQ(libusb_get_parent(device("OUTER")), nullptr);
    EXPECT_EQ(libusb_get_parent(device("ROOT")), nullptr);
}

TEST_F(Hub, DevicesLeaveAndComeWithTheirHub) {
    EXPECT_THAT(plugged(), testing::UnorderedElementsAre("leaf", "outer", "inner", "root"));
    std::vector<std::string> left;
    const int subscription = bus.subscribe([&](const simbus::DeviceInfoPtr& info, bool arrived) {
        left.push_back((arrived ? "+" : "-") + info->id);
    });
    bus.unplug("outer");
    bus.plug("outer");
    bus.unsubscribe(subscription);
    EXPECT_THAT(left, ElementsAre("-leaf", "-inner", "-outer", "+outer", "+inner", "+leaf"));
    EXPECT_THAT(portsOf("LEAF"), ElementsAre(2, 255, 3));
}

TEST_F(Hub, AWaitingTransferEndsWithTheHub) {
    bus.loadScenario(R"({"devices": [{"id": "hub"}, {"id": "leaf", "hub": "hub",
        "interfaces": [{"endpoints": [{"address": "0x81", "behaviour": "silent"}]}]}]})");
    Exchange wait(connectionOf("leaf"), 0x81, Bytes(64));
    EXPECT_TRUE(wait.waits());
    bus.unplug("hub");
    EXPECT_EQ(wait.status(), simbus::Status::noDevice);
}

TEST_F(Hub, ADeviceIsPluggedIntoAHubThatIsThere) {
    bus.unplug("inner");
    EXPECT_THROW(bus.plug("spare"), std::runtime_error);
    bus.plug("inner");
    bus.plug("spare");
    EXPECT_THAT(portsOf("SPARE"), ElementsAre(2, 255, 4));
    EXPECT_EQ(ask({{"op", "add"}, {"device", {{"id", "lost"}, {"hub", "nobody"}}}})["ok"], false);
}

TEST_F(Hub, AResetOfTheBusPutsAllBack) {
    bus.unplug("outer");
    ask({{"op", "reset"}});
    EXPECT_THAT(plugged(), testing::UnorderedElementsAre("leaf", "outer", "inner", "root"));
    EXPECT_EQ(ask({{"op", "remove"}, {"device", "outer"}})["ok"], true);
    EXPECT_THAT(plugged(), ElementsAre("root"));
    ask({{"op", "reset"}});
    EXPECT_THAT(portsOf("LEAF"), ElementsAre(2, 255, 3));
}

TEST_F(Hub, WrongPlacesAreRefused) {
    EXPECT_EQ(refusal("{\"id\": \"a\",\n\"hub\": \"b\"}"),
              "line 2: devices[0]: \"hub\" is no device of the scenario: b");
    EXPECT_EQ(refusal("{\"id\": \"a\", \"hub\": \"a\"}"),
              "line 1: devices[0]: \"hub\" is at the end of more than 5 hubs");
    const std::string five = R"({"id": "1"}, {"id": "2", "hub": "1"}, {"id": "3", "hub": "2"},
        {"id": "4", "hub": "3"}, {"id": "5", "hub": "4"}, {"id": "leaf", "hub": "5"})";
    EXPECT_EQ(refusal(five), "it was accepted");
    EXPECT_EQ(refusal(five + R"(, {"id": "deeper", "hub": "leaf"})"),
              "line 2: devices[6]: \"hub\" is at the end of more than 5 hubs");
    EXPECT_EQ(refusal(R"({"id": "a", "port": 1}, {"id": "b", "port": 1})"),
              "line 1: devices[1]: \"port\" is that of another device, too: 1");
    EXPECT_EQ(refusal(R"({"id": "a", "port": 0})"), "line 1: devices[0]: \"port\" must be 1 to 255");
    EXPECT_EQ(refusal(R"({"id": "a", "port": 1}, {"id": "b", "port": 1, "bus": 2})"), "it was accepted");
}

}  // namespace
}  // namespace simtest
