// Many threads on one device, with cancels and closes at awkward moments. The faults that these tests look
// for are detected by the thread and address sanitizers and by the strict checks of the drop-in libusb.
#include <gmock/gmock.h>
#include <libusb.h>

#include <random>

#include "IoTest.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"

namespace {

constexpr int kPairs = 6;

class Stress : public IoTest {
 protected:
    /// "tool" with echo pairs 1 to kPairs and a silent pair 15.
    void openPairs() {
        std::string endpoints;
        for (int pair = 1; pair <= kPairs; ++pair) {
            endpoints += endpointPair(pair, "echo") + ",";
        }
        openTool(R"({"interfaces":[{"number":0,"endpoints":[)" + endpoints + endpointPair(15, "silent") +
                 "]}]," + R"("control":[{"requestType":"0xC0","request":1,"reply":"0102"}]})");
    }

    static std::string endpointPair(int number, const std::string& behaviour) {
        const auto one = [&](int address) {
            return R"({"type":"bulk","behaviour":")" + behaviour + R"(","address":)" +
                   std::to_string(address) + "}";
        };
        return one(number) + "," + one(number | 0x80);
    }

    using Threads = std::vector<std::unique_ptr<BackgroundCall>>;

    /// Runs `call` on a thread that is joined at the end of the test; its result is ignored.
    static void start(Threads& threads, std::function<int32_t()> call) {
        threads.push_back(std::make_unique<BackgroundCall>(std::move(call)));
    }

    /// Writes and reads back `rounds` times; returns the number of correct echoes.
    int32_t echo(int32_t endpoint, int rounds) {
        int32_t right = 0;
        for (int round = 0; round < rounds; ++round) {
            uint8_t sent[64];
            uint8_t received[64] = {};
            std::fill(std::begin(sent), std::end(sent), static_cast<uint8_t>(round));
            LibUSB_WriteBulkPipe(&tool(), endpoint, 63, 20'000, sent);
            const int32_t count = LibUSB_ReadBulkPipe(&tool(), endpoint, 64, 20'000, received);
            right += count == 63 && std::equal(sent, sent + 63, received) ? 1 : 0;
        }
        return right;
    }
};

}  // namespace

TEST_F(Stress, ManyThreadsEchoOnEndpointsOfTheirOwn) {
    openPairs();
    constexpr int kRounds = 300;
    Threads threads;
    for (int pair = 1; pair <= kPairs; ++pair) {
        start(threads, [this, pair] { return echo(pair, kRounds); });
    }
    start(threads, [this] {
        int32_t right = 0;
        for (int round = 0; round < kRounds; ++round) {
            uint8_t buffer[10] = {0xC0, 1, 0, 0, 0, 0, 2, 0, 0, 0};
            right += LibUSB_ReadControlPipe(&tool(), 0, 20'000, buffer) == 2 && buffer[9] == 2 ? 1 : 0;
        }
        return right;
    });
    for (const auto& thread : threads) {
        EXPECT_EQ(kRounds, thread->result());
    }
}

TEST_F(Stress, TransfersCancelledAtAnyMomentComeBack) {
    openPairs();
    std::atomic<bool> stop{false};
    Threads readers;
    for (const int32_t endpoint : {0x0F, 0x01, 0x02}) {
        start(readers, [this, &stop, endpoint] {
            int32_t worst = 0;
            while (!stop.load()) {
                uint8_t bytes[64];
                worst = std::min(worst, LibUSB_ReadBulkPipe(&tool(), endpoint, sizeof bytes, 0, bytes));
            }
            return worst;
        });
    }
    for (int round = 0; round < 500; ++round) {
        for (const int32_t address : {0x8F, 0x81, 0x82}) {
            const int32_t result = LibUSB_CancelPipeTransfer(&tool(), address);
            ASSERT_TRUE(result == 0 || result == LIBUSB_ERROR_NOT_FOUND) << result;
        }
    }
    stop.store(true);
    for (const auto& reader : readers) {
        // A reader may have begun another read after the last cancel.
        EXPECT_TRUE(eventually([&] {
            for (const int32_t address : {0x8F, 0x81, 0x82}) {
                LibUSB_CancelPipeTransfer(&tool(), address);
            }
            return reader->hasReturned();
        }));
        EXPECT_EQ(0, reader->result());
    }
}

TEST_F(Stress, ClosesAmongTransfersAtAnyMomentAreClean) {
    openPairs();
    std::atomic<bool> stop{false};
    Threads threads;
    for (int pair = 1; pair <= kPairs; ++pair) {
        start(threads, [this, &stop, pair] {
            while (!stop.load()) {
                echo(pair, 1);
            }
            return 0;
        });
    }
    start(threads, [this, &stop] {
        while (!stop.load()) {
            LibUSB_CancelPipeTransfer(&tool(), 0x8F);
            uint8_t bytes[8];
            LibUSB_ReadBulkPipe(&tool(), 0x0F, sizeof bytes, 1, bytes);
            LibUSB_ResetDevice(&tool());
        }
        return 0;
    });
    std::mt19937 random(20231);
    for (int round = 0; round < 60; ++round) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500));  // a random moment
        EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
        EXPECT_EQ(0, LibUSB_OpenDevice(&tool()));
    }
    stop.store(true);
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    for (const auto& thread : threads) {
        EXPECT_EQ(0, thread->result());
    }
}

TEST_F(Stress, PlugCyclesUnderAReaderLeaveNothingBehind) {
    openPairs();
    for (int cycle = 0; cycle < 25; ++cycle) {
        const auto read = blockedRead(0x8F);
        unplugAndWait("tool", list());
        EXPECT_EQ(0, read->result());
        ASSERT_EQ(0, LibUSB_UpdateDeviceList(list(), 0));
        plugAndWait("tool", list());
        ASSERT_EQ(0, LibUSB_UpdateDeviceList(list(), 0));
        ASSERT_EQ(0, LibUSB_OpenDevice(&tool()));
        EXPECT_EQ(1, echo(1, 1));
    }
    EXPECT_EQ(callsOf("libusb_open") - 1, callsOf("libusb_close")) << "all but the one that is open";
}

TEST_F(Stress, AListReleaseUnderManyReadersIsClean) {
    for (int round = 0; round < 10; ++round) {
        openPairs();
        Threads threads;
        for (int pair = 1; pair <= kPairs; ++pair) {
            threads.push_back(blockedRead(static_cast<uint8_t>(pair | 0x80)));
        }
        EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
        for (const auto& thread : threads) {
            EXPECT_EQ(0, thread->result());
        }
        endSession();
    }
}
