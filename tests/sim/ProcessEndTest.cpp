// A process must end at once whatever its threads do with the bus, and its bus must follow the environment at
// its start.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "SimTest.h"

namespace simtest {
namespace {

class ProcessEnd : public testing::Test {
 protected:
    // The child is a new run of this program, so its bus is created as in any process.
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static bool exists(const std::string& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0;
    }
};

void endWhileEverythingIsAtWork() {
    auto& bus = simbus::Bus::instance();
    bus.loadScenario(R"({"devices": [{"id": "slow", "interfaces": [{"endpoints":
        [{"address": 1, "delayMs": 60000}, {"address": "0x81", "behaviour": "silent"}]}]}]})");
    static libusb_context* context = nullptr;
    libusb_init(&context);
    libusb_device** list = nullptr;
    libusb_get_device_list(context, &list);
    libusb_device_handle* handle = nullptr;
    libusb_open(list[0], &handle);
    for (const std::uint8_t endpoint : Bytes{0x01, 0x81}) {
        auto* transfer = new AsyncTransfer(handle, endpoint, Bytes(8));
        transfer->submit();
    }
    std::thread([] {
        for (;;) {
            libusb_handle_events(context);
        }
    }).detach();
    eventually([] { return libusb_event_handler_active(context) != 0; });
    std::exit(0);
}

void endByExit() {
    simbus::Bus::instance().onCall("libusb_error_name", [] { std::exit(0); });
    libusb_error_name(0);
}

void endInASubscriberOfTheBussOwnThread() {
    auto& bus = simbus::Bus::instance();
    bus.loadScenario(
        R"({"devices": [{"id": "slow", "interfaces": [{"endpoints": [{"address": 1, "delayMs": 1}]}]}]})");
    static simbus::Transfer transfer;
    static std::uint8_t byte = 0;
    transfer.endpoint = 1;
    transfer.data = &byte;
    transfer.length = 1;
    transfer.done = [] { std::exit(0); };
    bus.submit(bus.devices().front()->connection, transfer);
    for (;;) {
        pause();
    }
}

TEST_F(ProcessEnd, WithEverythingAtWork) {
    EXPECT_EXIT(endWhileEverythingIsAtWork(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessEnd, ByExitInsideAHook) {
    EXPECT_EXIT(endByExit(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessEnd, ByExitOnAThreadOfTheBus) {
    EXPECT_EXIT(endInASubscriberOfTheBussOwnThread(), testing::ExitedWithCode(0), "");
}

constexpr int kNoMoreRights = 77;

// The test after this one runs it in a process with more rights than its user; elsewhere the variable is not
// set.
TEST(ProcessWithRights, FindsAnEmptyBus) {
    const char* named = std::getenv("SIMBUS_SCENARIO");
    if (named != nullptr && getegid() == getgid()) {
        std::exit(kNoMoreRights);
    }
    EXPECT_TRUE(named == nullptr || simbus::Bus::instance().devices().empty());
}

TEST(ProcessWithRights, TheEnvironmentNamesNothing) {
    if (getuid() != 0) {
        GTEST_SKIP() << "not run here: takes root";
    }
    const std::string program = testing::TempDir() + "simbus-with-rights-" + std::to_string(getpid());
    constexpr gid_t nobodysGroup = 65534;
    std::filesystem::copy_file("/proc/self/exe", program);
    EXPECT_EQ(chown(program.c_str(), 0, nobodysGroup), 0);
    EXPECT_EQ(chmod(program.c_str(), 02755), 0);
    setenv("SIMBUS_SCENARIO", SIM_SCENARIOS "/demo.json", 1);
    const int status = std::system((program + " --gtest_filter=ProcessWithRights.FindsAnEmptyBus").c_str());
    unsetenv("SIMBUS_SCENARIO");
    std::filesystem::remove(program);
    if (WEXITSTATUS(status) == kNoMoreRights) {
        GTEST_SKIP() << "not run here: takes a system that gives programs the rights of their files";
    }
    EXPECT_EQ(status, 0);
}

TEST_F(ProcessEnd, TheEnvironmentNamesScenarioAndSocket) {
    // The child runs this code, too, with the variables of its parent.
    const char* inherited = std::getenv("SIMBUS_SOCKET");
    const std::string socket =
        inherited != nullptr ? inherited : testing::TempDir() + "simbus-env-" + std::to_string(getpid());
    setenv("SIMBUS_SOCKET", socket.c_str(), 1);
    setenv("SIMBUS_SCENARIO", SIM_SCENARIOS "/demo.json", 1);
    EXPECT_EXIT(
        {
            const bool asAsked = exists(socket) && simbus::Bus::instance().devices().size() == 5;
            std::exit(asAsked ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    unsetenv("SIMBUS_SOCKET");
    unsetenv("SIMBUS_SCENARIO");
    EXPECT_FALSE(exists(socket)) << "the socket goes with the process";
}

TEST_F(ProcessEnd, AScenarioThatCannotBeReadIsTold) {
    setenv("SIMBUS_SCENARIO", "/no/such/file", 1);
    EXPECT_EXIT(std::exit(simbus::Bus::instance().devices().empty() ? 0 : 1), testing::ExitedWithCode(0),
                "simbus: scenario /no/such/file: cannot be read");
    unsetenv("SIMBUS_SCENARIO");
}

}  // namespace
}  // namespace simtest
