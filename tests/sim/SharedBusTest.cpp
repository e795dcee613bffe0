// The bus as a program of another process has it, over the control socket.
#include "SocketHost.h"

namespace simtest {
namespace {

class SharedBusTest : public LibusbTest {
 protected:
    void SetUp() override {
        LibusbTest::SetUp();
        ASSERT_TRUE(bus.openControlSocket(socketPath()));
    }
};

void expectRefused(const Json& answer, const std::string& why) {
    EXPECT_EQ(answer["ok"], false) << answer;
    EXPECT_THAT(answer.value("error", ""), testing::HasSubstr(why));
}

TEST_F(SharedBusTest, TellsAllThatAHostHasToKnowOfADevice) {
    Host host;
    const Json devices = host.ask({{"op", "connections"}})["connections"];
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0]["connection"], connectionOf("echo"));
    EXPECT_EQ(devices[0]["deviceDescriptor"].get<std::string>().substr(0, 4), "1201");
    EXPECT_EQ(devices[1]["configurationDescriptors"].size(), 2U);
}

TEST_F(SharedBusTest, DataOfOneHostReachTheOther) {
    Host one;
    Host other;
    const auto connection = connectionOf("echo");
    EXPECT_EQ(other.submit(connection, 5, {{"address", 0x81}, {"length", 64}})["submitted"], "accepted");
    EXPECT_EQ(one.submit(connection, 5, {{"address", 1}, {"data", "010203"}})["submitted"], "accepted");
    const Json read = other.event("ended");
    EXPECT_EQ(read["transfer"], 5);
    EXPECT_EQ(read["status"], "completed");
    EXPECT_EQ(read["data"], "010203");
    EXPECT_EQ(one.event("ended")["actual"], 3);
}

TEST_F(SharedBusTest, AHostHearsOfPlugsOnceItAsks) {
    Host host;
    host.ask({{"op", "subscribe"}});
    host.ask({{"op", "subscribe"}});
    bus.plug("away");
    EXPECT_EQ(host.event("arrived")["device"]["device"], "away");
    bus.unplug("away");
    EXPECT_EQ(host.event("left")["device"]["device"], "away") << "it is told once only";
}

TEST_F(SharedBusTest, AHostThatLeavesLeavesNothingBehind) {
    const auto connection = connectionOf("echo");
    {
        Host host;
        host.ask({{"op", "subscribe"}});
        host.submit(connection, 1, {{"address", 0x81}, {"length", 64}});
        EXPECT_EQ(host.ask({{"op", "claim"}, {"connection", connection}, {"interface", 0}})["claimed"], true);
        EXPECT_EQ(bus.pending("echo", 0x81), 1U);
    }
    EXPECT_TRUE(eventually([&] { return bus.pending("echo", 0x81) == 0 && bus.claim(connection, 0); }));
    bus.release(connection, 0);
}

TEST_F(SharedBusTest, AnInterfaceHasOneOwner) {
    Host host;
    const Json claim = {{"op", "claim"}, {"connection", connectionOf("echo")}, {"interface", 0}};
    EXPECT_EQ(host.ask(claim)["claimed"], true);
    EXPECT_EQ(host.ask(claim)["claimed"], true) << "its own";
    Host other;
    EXPECT_EQ(other.ask(claim)["claimed"], false);
    libusb_device_handle* handle = open("ECHO0001");
    EXPECT_EQ(libusb_claim_interface(handle, 0), LIBUSB_ERROR_BUSY);
    AsyncTransfer transfer(handle, 0x01, counting(4));
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO) << "as a kernel has it without a claim";
    other.ask({{"op", "release"}, {"connection", connectionOf("echo")}, {"interface", 0}});
    EXPECT_EQ(libusb_claim_interface(handle, 0), LIBUSB_ERROR_BUSY) << "it was not theirs to release";
    host.ask({{"op", "release"}, {"connection", connectionOf("echo")}, {"interface", 0}});
    EXPECT_EQ(libusb_claim_interface(handle, 0), 0);
    EXPECT_EQ(other.ask(claim)["claimed"], false);
    close(handle);
    EXPECT_EQ(other.ask(claim)["claimed"], true);
}

TEST_F(SharedBusTest, ATransferCanBeCancelled) {
    Host host;
    host.submit(connectionOf("echo"), 7, {{"address", 0x81}, {"length", 64}});
    EXPECT_EQ(host.ask({{"op", "cancel"}, {"transfer", 7}})["cancelled"], true);
    EXPECT_EQ(host.ask({{"op", "cancel"}, {"transfer", 7}})["cancelled"], false);
    EXPECT_EQ(host.submit(connectionOf("echo"), 7, {{"address", 0x81}, {"length", 64}})["submitted"],
              "accepted")
        << "its number is free again";
}

TEST_F(SharedBusTest, WrongRequestsAreRefused) {
    Host host;
    const auto connection = connectionOf("echo");
    const Json in = {{"address", 0x81}, {"length", 64}};
    host.submit(connection, 1, in);
    expectRefused(host.submit(connection, 1, in), "a transfer of that number is waiting");
    expectRefused(host.submit(connection, 2, {{"address", 0x81}}), "\"length\" is missing");
    expectRefused(host.submit(connection, 2, {{"address", 0x81}, {"length", 0x7FFFFFFF}}), "too long");
    expectRefused(host.submit(connection, 2, {{"address", 0}, {"setup", "80"}}),
                  "\"setup\" is not of 8 bytes");
    expectRefused(host.submit(connection, 2, {{"address", 1}, {"data", "0"}}), "\"data\"");
    expectRefused(host.ask({{"op", "submit"}, {"transfer", 4}, {"address", 0x81}, {"length", 64}}),
                  "\"connection\" is missing");
    EXPECT_EQ(host.submit(connection, 4, in)["submitted"], "accepted")
        << "a refused one has not taken its number";
    expectRefused(host.ask({{"op", "configuration"}}), "\"connection\" is missing");
    expectRefused(host.ask({{"op", "claim"}, {"connection", connection}, {"interface", 256}}),
                  "out of range");
    expectRefused(host.ask({{"op", 7}}), "\"op\" is not a string");
    EXPECT_EQ(host.submit(connection, 3, {{"address", 5}, {"data", ""}})["submitted"], "noEndpoint");
    EXPECT_EQ(host.submit(connection + 99, 3, in)["submitted"], "noDevice");
    EXPECT_EQ(host.ask({{"op", "resetDevice"}, {"connection", connection + 99}})["status"], "noDevice");
}

TEST_F(SharedBusTest, AControlRequestThatAsksForMoreThanItHasRoomForGetsLess) {
    Host host;
    host.submit(connectionOf("echo"), 1, {{"address", 0}, {"setup", "8006000100001200"}, {"length", 4}});
    const Json answer = host.event("ended");
    EXPECT_EQ(answer["actual"], 4);
    EXPECT_EQ(answer["data"].get<std::string>().size(), 8U);
}

}  // namespace
}  // namespace simtest
