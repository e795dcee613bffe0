// Control requests and the devices' answers.
#include "SimTest.h"

namespace simtest {
namespace {

using simbus::Status;

class ControlPipe : public SimTest {
 protected:
    struct Answer {
        Status status;
        Bytes data;
    };

    Answer request(const std::string& id, const simbus::Setup& setup, Bytes data = {}) {
        data.resize(setup.length);
        simbus::Transfer transfer;
        transfer.setup = setup;
        transfer.data = data.data();
        transfer.length = data.size();
        int completions = 0;
        transfer.done = [&] { ++completions; };
        EXPECT_EQ(bus.submit(connectionOf(id), transfer), simbus::Submitted::accepted);
        EXPECT_EQ(completions, 1);
        data.resize(transfer.actual);
        return {transfer.status, data};
    }
};

TEST_F(ControlPipe, DescriptorsAreCutToWhatIsAskedFor) {
    EXPECT_EQ(request("echo", {0x80, 6, 0x0100, 0, 18}).data, bus.devices()[0]->deviceDescriptor);
    EXPECT_EQ(request("echo", {0x80, 6, 0x0100, 0, 8}).data.size(), 8U);
    EXPECT_EQ(request("echo", {0x80, 6, 0x0200, 0, 512}).data, bus.devices()[0]->configurationDescriptors[0]);
    EXPECT_EQ(request("double", {0x80, 6, 0x0201, 0, 512}).data,
              bus.devices()[1]->configurationDescriptors[1]);
    EXPECT_EQ(request("double", {0x80, 6, 0x0202, 0, 512}).status, Status::stall);
    EXPECT_EQ(request("echo", {0x80, 6, 0x0600, 0, 10}).status, Status::stall);
}

TEST_F(ControlPipe, StringsAreGivenByIndex) {
    EXPECT_EQ(request("echo", {0x80, 6, 0x0300, 0, 255}).data, (Bytes{4, 3, 9, 4}));
    EXPECT_EQ(request("echo", {0x80, 6, 0x0303, 0x0409, 255}).data,
              (Bytes{18, 3, 'E', 0, 'C', 0, 'H', 0, 'O', 0, '0', 0, '0', 0, '0', 0, '1', 0}));
    EXPECT_EQ(request("echo", {0x80, 6, 0x0309, 0x0409, 255}).status, Status::stall);
}

TEST_F(ControlPipe, ConfigurationsAndInterfacesCanBeAskedAndSet) {
    EXPECT_EQ(request("double", {0x80, 8, 0, 0, 1}).data, Bytes{1});
    EXPECT_EQ(request("double", {0x01, 11, 1, 1, 0}).status, Status::completed);
    EXPECT_EQ(request("double", {0x81, 10, 0, 1, 1}).data, Bytes{1});
    EXPECT_EQ(request("double", {0x81, 10, 0, 7, 1}).status, Status::stall);
    EXPECT_EQ(request("double", {0x00, 9, 2, 0, 0}).status, Status::completed);
    EXPECT_EQ(request("double", {0x80, 8, 0, 0, 1}).data, Bytes{2});
    EXPECT_EQ(request("double", {0x00, 9, 9, 0, 0}).status, Status::stall);
}

TEST_F(ControlPipe, StatusTellsPowerAndHalts) {
    EXPECT_EQ(request("echo", {0x80, 0, 0, 0, 2}).data, (Bytes{0, 0}));
    EXPECT_EQ(request("echo", {0x82, 0, 0, 0x81, 2}).data, (Bytes{0, 0}));
    EXPECT_EQ(request("echo", {0x02, 3, 0, 0x81, 0}).status, Status::completed);
    EXPECT_EQ(request("echo", {0x82, 0, 0, 0x81, 2}).data, (Bytes{1, 0}));
    EXPECT_EQ(request("echo", {0x02, 1, 0, 0x81, 0}).status, Status::completed);
    EXPECT_EQ(request("echo", {0x82, 0, 0, 0x81, 2}).data, (Bytes{0, 0}));
    EXPECT_EQ(request("echo", {0x82, 0, 0, 0x8F, 2}).status, Status::stall);
    EXPECT_EQ(request("echo", {0x00, 3, 1, 0, 0}).status, Status::completed);
}

TEST_F(ControlPipe, VendorRequestsFollowTheScenario) {
    EXPECT_EQ(request("echo", {0xC0, 2, 0, 0, 3}).data, (Bytes{0x0A, 0x0B, 0x0C}));
    EXPECT_EQ(request("echo", {0xC0, 3, 0, 0, 3}).status, Status::stall);
    EXPECT_EQ(request("echo", {0xC0, 99, 0, 0, 3}).status, Status::stall);
    EXPECT_EQ(request("echo", {0x40, 1, 0, 0, 4}, counting(4)).status, Status::completed);
    EXPECT_EQ(request("echo", {0xC0, 1, 0, 0, 64}).data, counting(4));
}

TEST_F(ControlPipe, ARuleMatchesByAllThatItNames) {
    ask({{"op", "add"},
         {"device",
          {{"id", "picky"},
           {"control",
            {{{"request", 5}, {"value", 1}, {"index", 2}, {"reply", "AA"}},
             {{"request", 5}, {"reply", "BB"}}}}}}});
    EXPECT_EQ(request("picky", {0xC0, 5, 1, 2, 1}).data, Bytes{0xAA});
    EXPECT_EQ(request("picky", {0xC0, 5, 1, 3, 1}).data, Bytes{0xBB});
    EXPECT_EQ(request("picky", {0xC0, 5, 9, 2, 1}).data, Bytes{0xBB});
}

TEST_F(ControlPipe, ASilentRequestWaitsUntilItIsCancelled) {
    Bytes data(4);
    simbus::Transfer transfer;
    transfer.setup = {0xC0, 4, 0, 0, 4};
    transfer.data = data.data();
    transfer.length = data.size();
    int completions = 0;
    transfer.done = [&] { ++completions; };
    ASSERT_EQ(bus.submit(connectionOf("echo"), transfer), simbus::Submitted::accepted);
    EXPECT_EQ(completions, 0);
    EXPECT_EQ(bus.pending("echo", 0x00), 1U);
    EXPECT_TRUE(bus.cancel(transfer));
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(request("echo", {0x80, 8, 0, 0, 1}).data, Bytes{1}) << "the pipe works again";
}

}  // namespace
}  // namespace simtest
