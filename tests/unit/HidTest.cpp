#include "HidTest.h"

#include "UsbTest.h"
#include "ground/SharedField.h"

HidTest::~HidTest() {
    hid.reportsStop = false;
    if (access != nullptr) {
        access->Close();
    }
    g_hidThreadWaitMs = waitBefore_;
}

void HidTest::open(int packetSize) {
    ASSERT_EQ(0, access->SetPacketSize(packetSize));
    ASSERT_EQ(0, access->Open());
    waitForState(kReadThreadRuns);
}

void HidTest::waitForState(int32_t state) const {
    EXPECT_TRUE(eventually([&] { return threadState() == state; })) << threadState();
}

int32_t HidTest::threadState() const {
    return loadShared(access->threadState);
}

int64_t HidTest::nextNumber() {
    uint8_t bytes[4] = {};
    const int count = access->GetIncomingData(bytes, 4);
    return count == 0 ? -1 : int64_t{bytes[0]} | bytes[1] << 8 | bytes[2] << 16 | bytes[3] << 24;
}

int HidTest::read(int size, int timeout) {
    received.assign(static_cast<size_t>(std::max(size, 0)), 0xEE);
    return access->Read(received.data(), size, timeout);
}

int HidTest::write(const std::vector<uint8_t>& bytes, int timeout) {
    std::vector<uint8_t> copy = bytes;
    return access->Write(copy.data(), static_cast<int>(copy.size()), timeout);
}
