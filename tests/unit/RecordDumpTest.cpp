#include <gtest/gtest.h>

#include <cstdlib>

#include "DebugUtil/RecordDump.h"
#include "FakeClock.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "UsbTest.h"

namespace {

/// The debug log, enabled, with a tick that counts the lines: 1, 2, 3, ...
class RecordDump : public ::testing::Test {
 protected:
    void SetUp() override {
        setenv("ORVEXCOMM_DEBUG", "1", 1);
        clock_.getTimeOfDay = [this](timeval& time) {
            time = {0, ++lines_ * 1000L};
            if (lines_ == lastLine_) {
                unsetenv("ORVEXCOMM_DEBUG");
            }
            return 0;
        };
        formatText(entry_.sManufacturer, "Talvane");
        formatText(entry_.sProduct, "Echo Tool");
        formatText(entry_.sSerialNumber, "ECHO0001");
    }
    void TearDown() override { unsetenv("ORVEXCOMM_DEBUG"); }

    std::string dump() {
        return standardErrorOf([this] { DN_WriteDAE(&entry_); });
    }
    std::string addressLine() const {
        char text[64];
        std::snprintf(text, sizeof text, "DAE : 0x%08lX\n", reinterpret_cast<unsigned long>(&entry_));
        return text;
    }

    DeviceRecord entry_{};
    int lastLine_ = 0;  ///< the variable is unset while this line is written; 0 for never

 private:
    FakeClock clock_;
    int lines_ = 0;
};

TEST_F(RecordDump, WritesNothingWhileTheVariableIsUnset) {
    unsetenv("ORVEXCOMM_DEBUG");
    EXPECT_EQ("", dump());
}

TEST_F(RecordDump, WritesARuleAndElevenLinesEachWithAStampOfItsOwn) {
    entry_.idVendor = 0x6A5C;
    entry_.idProduct = 0x1001;
    entry_.bcdDevice = 0x0100;
    entry_.familyStatus = 2;
    entry_.interfaceNumber = 3;
    entry_.isHid = 1;
    entry_.pHIDAccess = reinterpret_cast<HIDAccess*>(0x1234ABCDEFUL);  // NOLINT(performance-no-int-to-ptr)
    EXPECT_EQ(
        "[1] ============================================================\n"
        "[2] " +
            addressLine() +
            "[3]    familyStatus = 2\n"
            "[4]      pHIDAccess = 0x1234ABCDEF\n"
            "[5]        idVendor = 0x6A5C\n"
            "[6]       idProduct = 0x1001\n"
            "[7]       bcdDevice = 0100\n"
            "[8]   sManufacturer = 'Talvane'\n"
            "[9]        sProduct = 'Echo Tool'\n"
            "[10]   sSerialNumber = 'ECHO0001'\n"
            "[11] interfaceNumber = 3\n"
            "[12]           isHid = 1\n",
        dump());
}

TEST_F(RecordDump, ShowsNoHidObjectAsEightZeros) {
    EXPECT_NE(std::string::npos, dump().find("]      pHIDAccess = 0x00000000\n"));
}

TEST_F(RecordDump, ShowsSmallNumbersWithFourDigits) {
    entry_.idVendor = 1;
    entry_.idProduct = 2;
    entry_.bcdDevice = 3;
    const std::string text = dump();
    EXPECT_NE(std::string::npos, text.find("idVendor = 0x0001\n"));
    EXPECT_NE(std::string::npos, text.find("idProduct = 0x0002\n"));
    EXPECT_NE(std::string::npos, text.find("bcdDevice = 0003\n"));
}

TEST_F(RecordDump, StopsWhenTheVariableGoesAwayInTheMiddle) {
    lastLine_ = 3;
    EXPECT_EQ(
        "[1] ============================================================\n"
        "[2] " +
            addressLine() + "[3]    familyStatus = 0\n",
        dump());
}

TEST_F(RecordDump, ALineIsCutAt511Bytes) {
    // An unterminated text continues in the fields after it.
    char* text = entry_.sSerialNumber;
    std::fill_n(text, 600, 's');
    EXPECT_NE(std::string::npos,
              dump().find("[10]   sSerialNumber = '" + std::string(511 - 19, 's') + "[11] interfaceNumber"));
}

}  // namespace
