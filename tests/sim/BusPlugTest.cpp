// Plug, unplug, reset and configurations of the devices of the bus, as a host sees them.
#include <fstream>
#include <mutex>

#include "SimTest.h"

namespace simtest {
namespace {

using simbus::Status;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class BusPlug : public SimTest {
 protected:
    std::vector<std::string> plugged() {
        std::vector<std::string> ids;
        for (const auto& device : bus.devices()) {
            ids.push_back(device->id);
        }
        return ids;
    }
};

TEST_F(BusPlug, DevicesAreThoseThatArePluggedIn) {
    EXPECT_THAT(plugged(), ElementsAre("echo", "double"));
}

TEST_F(BusPlug, AReplugIsANewConnectionWithANewAddress) {
    const auto before = bus.devices().front();
    bus.unplug("echo");
    EXPECT_THAT(plugged(), ElementsAre("double"));
    bus.plug("echo");
    const auto after = bus.devices().back();
    EXPECT_EQ(after->id, "echo");
    EXPECT_GT(after->connection, before->connection);
    EXPECT_NE(after->address, before->address);
}

TEST_F(BusPlug, AddressesComeRoundWithoutMeeting) {
    const auto other = bus.devices().back()->address;
    for (int i = 0; i < 300; ++i) {
        bus.unplug("echo");
        bus.plug("echo");
        const auto address = bus.devices().back()->address;
        ASSERT_GE(address, 1);
        ASSERT_LE(address, 127);
        ASSERT_NE(address, other);
    }
}

TEST_F(BusPlug, PluggingTwiceOrUnpluggingTwiceIsAnError) {
    EXPECT_THROW(bus.plug("echo"), std::runtime_error);
    EXPECT_THROW(bus.unplug("away"), std::runtime_error);
    EXPECT_THROW(bus.plug("nobody"), std::runtime_error);
}

TEST_F(BusPlug, SubscribersHearOfEveryPlugInOrder) {
    std::vector<std::string> news;
    const int subscription = bus.subscribe([&](const simbus::DeviceInfoPtr& device, bool arrived) {
        news.push_back((arrived ? "+" : "-") + device->id);
    });
    bus.plug("away");
    bus.unplug("echo");
    bus.plug("echo");
    bus.unsubscribe(subscription);
    bus.unplug("away");
    EXPECT_THAT(news, ElementsAre("+away", "-echo", "+echo"));
}

TEST_F(BusPlug, PlugMayBeCalledFromInsideASubscriber) {
    std::vector<std::string> news;
    const int subscription = bus.subscribe([&](const simbus::DeviceInfoPtr& device, bool arrived) {
        news.push_back((arrived ? "+" : "-") + device->id);
        if (device->id == "echo" && !arrived) {
            bus.plug("away");
        }
    });
    bus.unplug("echo");
    bus.unsubscribe(subscription);
    EXPECT_THAT(news, ElementsAre("-echo", "+away"));
}

TEST_F(BusPlug, PlugReturnsAfterItWasToldAlsoWithSeveralThreadsAtWork) {
    std::mutex mutex;
    std::vector<simbus::ConnectionId> told;
    const int subscription = bus.subscribe([&](const simbus::DeviceInfoPtr& device, bool arrived) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (arrived) {
            told.push_back(device->connection);
        }
    });
    const auto cycle = [&](const std::string& id) {
        for (int i = 0; i < 100; ++i) {
            bus.plug(id);
            const auto connection = connectionOf(id);
            {
                const std::lock_guard<std::mutex> lock(mutex);
                ASSERT_THAT(told, testing::Contains(connection));
            }
            bus.unplug(id);
        }
    };
    bus.unplug("echo");
    std::thread other([&] { cycle("away"); });
    cycle("echo");
    other.join();
    bus.unsubscribe(subscription);
    EXPECT_EQ(told.size(), 200U);
}

TEST_F(BusPlug, UnplugEndsEverythingThatWaits) {
    std::vector<simbus::Transfer> transfers(3);
    std::vector<std::uint8_t> buffer(64);
    int ended = 0;
    for (auto& transfer : transfers) {
        transfer.endpoint = 0x81;
        transfer.data = buffer.data();
        transfer.length = buffer.size();
        transfer.done = [&] { ++ended; };
        ASSERT_EQ(bus.submit(connectionOf("echo"), transfer), simbus::Submitted::accepted);
    }
    bus.unplug("echo");
    EXPECT_EQ(ended, 3);
    for (const auto& transfer : transfers) {
        EXPECT_EQ(transfer.status, Status::noDevice);
    }
}

TEST_F(BusPlug, ConfigurationsAndAlternatesDecideWhichEndpointsThereAre) {
    const auto connection = connectionOf("double");
    const auto interfaceOf = [&](std::uint8_t address) {
        const auto endpoint = bus.activeEndpoint(connection, address);
        return endpoint ? endpoint->interfaceNumber : -1;
    };
    EXPECT_EQ(bus.configuration(connection), 1);
    EXPECT_EQ(interfaceOf(0x81), 0);
    EXPECT_EQ(interfaceOf(0x83), -1);

    EXPECT_EQ(bus.setAlternate(connection, 1, 1), Status::completed);
    EXPECT_EQ(bus.alternate(connection, 1), 1);
    EXPECT_EQ(interfaceOf(0x83), 1);
    EXPECT_EQ(interfaceOf(0x81), 0) << "another interface's endpoints stay";
    EXPECT_EQ(bus.setAlternate(connection, 1, 2), Status::stall);

    EXPECT_EQ(bus.setConfiguration(connection, 2), Status::completed);
    EXPECT_EQ(interfaceOf(0x81), -1);
    EXPECT_EQ(interfaceOf(0x82), 0);
    EXPECT_EQ(bus.alternate(connection, 1), std::nullopt);
    EXPECT_EQ(bus.setConfiguration(connection, 3), Status::stall);

    EXPECT_EQ(bus.setConfiguration(connection, 0), Status::completed);
    EXPECT_EQ(bus.configuration(connection), 0);
    EXPECT_EQ(interfaceOf(0x82), -1);

    EXPECT_EQ(bus.setConfiguration(connection + 1000, 1), Status::noDevice);
    EXPECT_EQ(bus.configuration(connection + 1000), std::nullopt);
}

TEST_F(BusPlug, ResetReplugsOnlyWhatDiffers) {
    const auto echo = connectionOf("echo");
    const auto twin = connectionOf("double");
    bus.plug("away");
    ask({{"op", "add"}, {"device", {{"id", "new"}}}});
    ask({{"op", "endpoint"}, {"device", "echo"}, {"address", "0x81"}, {"set", {{"behaviour", "stall"}}}});
    bus.feed("echo", 0x82, counting(3));
    bus.setAlternate(twin, 1, 1);

    bus.reset();
    EXPECT_THAT(plugged(), UnorderedElementsAre("echo", "double"));
    EXPECT_EQ(connectionOf("echo"), echo) << "behaviours are put back in place";
    EXPECT_NE(connectionOf("double"), twin) << "its setting had been changed";
    EXPECT_EQ(bus.pending("echo", 0x82), 0U);
}

TEST_F(BusPlug, ResetBringsBackWhatWasTakenAway) {
    const auto echo = connectionOf("echo");
    bus.unplug("echo");
    ask({{"op", "remove"}, {"device", "double"}});
    bus.reset();
    EXPECT_THAT(plugged(), UnorderedElementsAre("echo", "double"));
    EXPECT_NE(connectionOf("echo"), echo);
}

TEST_F(BusPlug, ResetReplugsADeviceThatWasPluggedInChanged) {
    ask({{"op", "change"}, {"device", "echo"}, {"set", {{"serial", "OTHER"}}}});
    bus.unplug("echo");
    bus.plug("echo");
    EXPECT_EQ(bus.devices().back()->serial, "OTHER");
    bus.reset();
    EXPECT_EQ(bus.devices().back()->serial, "ECHO0001");
}

TEST_F(BusPlug, ResetPutsBackABehaviourAlsoWhenTheScenarioIsAsItWasLoaded) {
    const auto setBehaviour = [&](const Json& behaviour) {
        ask({{"op", "endpoint"},
             {"device", "echo"},
             {"address", "0x01"},
             {"set", {{"behaviour", behaviour}}}});
    };
    const auto written = [&] { return Exchange(connectionOf("echo"), 0x01, counting(3)).status(); };
    setBehaviour("stall");
    bus.unplug("echo");
    bus.plug("echo");
    setBehaviour(nullptr);
    ASSERT_EQ(bus.setConfiguration(connectionOf("echo"), 1), Status::completed);
    EXPECT_EQ(written(), Status::stall) << "a configuration has the behaviours of the plug";
    bus.reset();
    EXPECT_EQ(written(), Status::completed);
}

TEST_F(BusPlug, AScenarioThatIsWrongAnywhereChangesNothing) {
    const auto echo = connectionOf("echo");
    EXPECT_THROW(bus.loadScenario(R"({"devices": [{"id": "a"}, {"id": "b", "speed": "warp"}]})"),
                 std::runtime_error);
    EXPECT_THROW(bus.loadScenario("{"), std::exception);
    EXPECT_THROW(bus.loadScenario(R"({"devices": 5})"), std::runtime_error);
    EXPECT_EQ(connectionOf("echo"), echo);
}

TEST_F(BusPlug, TheDemoScenarioHasWhatItPromises) {
    std::ifstream file(SIM_SCENARIOS "/demo.json");
    bus.loadScenario({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
    std::vector<std::string> serials;
    for (const auto& device : bus.devices()) {
        serials.push_back(device->serial);
    }
    EXPECT_THAT(serials, ElementsAre("HID00001", "ECHO0001", "ECHO0002", "COMP0001", "OTHER001"));
    bus.plug("echo3");
    EXPECT_EQ(bus.devices().back()->serial, "ECHO0003");
}

}  // namespace
}  // namespace simtest
