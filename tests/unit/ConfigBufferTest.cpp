#include <gmock/gmock.h>
#include <libusb.h>

#include "CallArguments.h"
#include "DescriptorBytes.h"
#include "FakeConfiguration.h"
#include "MacOSXUSBAccess/records/Descriptors.h"
#include "UsbTest.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;

/// An open record, and a buffer that is filled with 0xEE before fillConfigBuffer.
class ConfigBuffer : public UsbTest {
 protected:
    void openWith(const std::string& overrides) {
        startSession({deviceJson("tool", overrides)});
        entry_ = &openFirst();
        bus.clearCalls();
    }
    int32_t fill(int32_t size = 512) {
        buffer_.assign(static_cast<std::size_t>(std::max(size, 0)), 0xEE);
        int32_t result = 0;
        lines_ = debugLinesOf([&] { result = fillConfigBuffer(entry_, buffer_.data(), size); });
        return result;
    }
    /// The number of libusb calls that read descriptors.
    uint64_t descriptorCalls() {
        return bus.calls()["libusb_get_device_descriptor"] + bus.calls()["libusb_control_transfer"];
    }
    DescriptorBytes first(std::ptrdiff_t count) const { return {buffer_.begin(), buffer_.begin() + count}; }
    DescriptorBytes behind(std::ptrdiff_t count) const { return {buffer_.begin() + count, buffer_.end()}; }

    tagUSB_DEVICE_ACCESS_ENTRY* entry_ = nullptr;
    DescriptorBytes buffer_;
    std::vector<std::string> lines_;
};

/// A well-formed configuration of this many bytes, from 20 on.
DescriptorBytes configurationOfSize(std::size_t size) {
    DescriptorBytes padding;
    while (padding.size() + 18 < size) {
        DescriptorBytes one(std::min<std::size_t>(size - 18 - padding.size(), 100), 0xAB);
        one[0] = static_cast<uint8_t>(one.size());
        padding = joined({padding, one});
    }
    return configurationBytes({interfaceBytes(0), padding});
}

TEST_F(ConfigBuffer, HoldsTheConfigurationAsTheDeviceGivesIt) {
    const DescriptorBytes bytes = configurationBytes({interfaceBytes(0), {3, 0x30, 7}, endpointBytes(0x81)});
    openWith(rawConfiguration(bytes));
    EXPECT_EQ(28, fill());
    EXPECT_EQ(bytes, first(28));
    EXPECT_THAT(behind(28), Each(0));
    EXPECT_THAT(lines_, ElementsAre());
}

TEST_F(ConfigBuffer, AConfigurationOfExactlyItsSizeFits) {
    const DescriptorBytes bytes = configurationOfSize(512);
    openWith(rawConfiguration(bytes));
    EXPECT_EQ(512, fill());
    EXPECT_EQ(bytes, buffer_);
    EXPECT_THAT(lines_, ElementsAre());
}

TEST_F(ConfigBuffer, ALongerConfigurationIsClamped) {
    const DescriptorBytes bytes = configurationOfSize(600);
    openWith(rawConfiguration(bytes));
    EXPECT_EQ(512, fill());
    EXPECT_EQ(DescriptorBytes(bytes.begin(), bytes.begin() + 512), buffer_);
    EXPECT_THAT(lines_, ElementsAre("[fillConfigBuffer] 600 > 512 (maxBufLen): clamping to 512"));
}

TEST_F(ConfigBuffer, ASmallBufferClampsToo) {
    openWith("{}");
    EXPECT_EQ(9, fill(9));
    EXPECT_EQ(88, buffer_[2]);
    EXPECT_THAT(lines_, ElementsAre("[fillConfigBuffer] 88 > 9 (maxBufLen): clamping to 9"));
}

TEST_F(ConfigBuffer, AClaimOf65535BytesIsClamped) {
    openWith(rawConfiguration(configurationBytes({interfaceBytes(0)}, 65535)));
    EXPECT_EQ(18, fill());
    EXPECT_THAT(behind(18), Each(0));
    EXPECT_THAT(lines_, ElementsAre("[fillConfigBuffer] 65535 > 512 (maxBufLen): clamping to 512"));
}

TEST_F(ConfigBuffer, AClaimOfNoBytesGivesNothing) {
    openWith("{}");
    const FakeConfiguration nothing(0);
    EXPECT_EQ(0, fill());
    EXPECT_THAT(buffer_, Each(0));
    EXPECT_EQ(0U, bus.calls()["libusb_control_transfer"]);
    EXPECT_THAT(lines_, ElementsAre());
}

TEST_F(ConfigBuffer, ReadsNoMoreThanTheDeviceClaims) {
    openWith(configurationReply(configurationOfSize(100)));
    EXPECT_EQ(88, fill());
    EXPECT_THAT(behind(88), Each(0));
}

TEST_F(ConfigBuffer, AShorterAnswerCountsAsItIs) {
    openWith(configurationReply({9, 2, 88}));
    EXPECT_EQ(3, fill());
    EXPECT_EQ((DescriptorBytes{9, 2, 88}), first(3));
    EXPECT_THAT(behind(3), Each(0));
}

TEST_F(ConfigBuffer, OfSeveralConfigurationsTheFirstIsRead) {
    openWith(R"({"interfaces":null,"activeConfiguration":2,"configurations":[
        {"value":1,"attributes":"0xC0","interfaces":[{"number":0}]},
        {"value":2,"attributes":"0x80","interfaces":[{"number":0}]}]})");
    EXPECT_EQ(18, fill());
    EXPECT_EQ(1, buffer_[5]);
    EXPECT_THAT(lines_,
                ElementsAre("[fillConfigBuffer] more than one configuration: 2, using first one (index 0)"));
}

TEST_F(ConfigBuffer, ClampsBeforeItCountsConfigurations) {
    openWith(R"({"interfaces":null,"configurations":[{"value":1,"interfaces":[{"number":0}]},
        {"value":2},{"value":3}]})");
    EXPECT_EQ(10, fill(10));
    EXPECT_THAT(lines_,
                ElementsAre("[fillConfigBuffer] 18 > 10 (maxBufLen): clamping to 10",
                            "[fillConfigBuffer] more than one configuration: 3, using first one (index 0)"));
}

TEST_F(ConfigBuffer, NoBufferIsRefused) {
    openWith("{}");
    EXPECT_THAT(debugLinesOf([this] { EXPECT_EQ(-170, fillConfigBuffer(entry_, nullptr, 512)); }),
                ElementsAre("[fillConfigBuffer] pBuffer was NULL"));
    EXPECT_EQ(0U, descriptorCalls());
}

TEST_F(ConfigBuffer, ADeviceThatIsNotOpenIsRefusedWithAZeroedBuffer) {
    openWith("{}");
    libusb_device_handle* handle = std::exchange(entry_->hDevice, nullptr);
    EXPECT_EQ(-103, fill());
    EXPECT_THAT(buffer_, Each(0));
    EXPECT_THAT(lines_, ElementsAre());
    EXPECT_EQ(0U, descriptorCalls());
    entry_->hDevice = handle;
}

TEST_F(ConfigBuffer, AnUnreadableDeviceDescriptorIsLogged) {
    openWith("{}");
    bus.failCall("libusb_get_device_descriptor", 1, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(-131, fill());
    EXPECT_THAT(buffer_, Each(0));
    EXPECT_THAT(lines_, ElementsAre(std::string("[fillConfigBuffer] libusb_get_device_descriptor error: ") +
                                    libusb_strerror(LIBUSB_ERROR_NO_DEVICE)));
    EXPECT_EQ(0U, bus.calls()["libusb_get_active_config_descriptor"]);
}

TEST_F(ConfigBuffer, AMissingActiveConfigurationIsLogged) {
    openWith("{}");
    bus.failCall("libusb_get_active_config_descriptor", 1, LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(-131, fill());
    EXPECT_THAT(buffer_, Each(0));
    EXPECT_THAT(lines_,
                ElementsAre(std::string("[fillConfigBuffer] libusb_get_active_config_descriptor error: ") +
                            libusb_strerror(LIBUSB_ERROR_NOT_FOUND)));
    EXPECT_EQ(0U, bus.calls()["libusb_control_transfer"]);
}

TEST_F(ConfigBuffer, AFailedReadIsLoggedAndLeavesTheBufferZero) {
    openWith("{}");
    bus.failCall("libusb_control_transfer", 1, LIBUSB_ERROR_PIPE);
    EXPECT_EQ(-131, fill());
    EXPECT_THAT(buffer_, Each(0));
    EXPECT_THAT(lines_, ElementsAre(std::string("[fillConfigBuffer] libusb_get_descriptor error: ") +
                                    libusb_strerror(LIBUSB_ERROR_PIPE)));
}

TEST_F(ConfigBuffer, AnEmptyAnswerIsAFailedRead) {
    openWith(configurationReply({}));
    EXPECT_EQ(-131, fill());
    EXPECT_THAT(lines_, ElementsAre(std::string("[fillConfigBuffer] libusb_get_descriptor error: ") +
                                    libusb_strerror(LIBUSB_SUCCESS)));
}

TEST_F(ConfigBuffer, ADeviceThatDoesNotAnswerIsGivenUpAfterASecond) {
    openWith(R"({"control":[{"requestType":"0x80","request":6,"value":"0x0200","silent":true}]})");
    EXPECT_EQ(-131, fill());
    EXPECT_THAT(lines_, ElementsAre(std::string("[fillConfigBuffer] libusb_get_descriptor error: ") +
                                    libusb_strerror(LIBUSB_ERROR_TIMEOUT)));
}

TEST_F(ConfigBuffer, NoRoomIsAFailedRead) {
    openWith("{}");
    uint8_t byte = 0xEE;
    EXPECT_EQ(-131, fillConfigBuffer(entry_, &byte, 0));
    EXPECT_EQ(-131, fillConfigBuffer(entry_, &byte, -1));
    EXPECT_EQ(0xEE, byte);
}

TEST_F(ConfigBuffer, AHidRecordWithoutHidObjectIsReadThroughLibusb) {
    openWith("{}");
    entry_->isHid = 1;
    EXPECT_EQ(88, fill());
    entry_->isHid = 0;
}

TEST_F(ConfigBuffer, TheParsedConfigurationIsNotGivenBack) {
    openWith("{}");
    const int64_t before = bus.tally("config descriptors not freed");
    fill();
    EXPECT_EQ(before + 1, bus.tally("config descriptors not freed"));
}

TEST_F(ConfigBuffer, DeviceDescriptorBytesAreCopiedUpToEighteen) {
    openWith("{}");
    const DescriptorBytes whole(entry_->deviceDescriptor, entry_->deviceDescriptor + 18);
    for (const std::size_t size : {0U, 1U, 8U, 17U, 18U, 19U, 64U}) {
        DescriptorBytes buffer(64, 0xEE);
        const auto count = static_cast<std::ptrdiff_t>(std::min<std::size_t>(size, 18));
        EXPECT_EQ(count, fillDevDescBuffer(entry_, buffer.data(), size));
        EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + count, whole.begin())) << size;
        EXPECT_THAT(DescriptorBytes(buffer.begin() + count, buffer.end()), Each(0xEE));
    }
}

TEST_F(ConfigBuffer, AnUnreadableDeviceDescriptorIsNotCopied) {
    openWith("{}");
    bus.failCall("libusb_get_device_descriptor", 1, LIBUSB_ERROR_IO);
    DescriptorBytes buffer(18, 0xEE);
    EXPECT_EQ(-131, fillDevDescBuffer(entry_, buffer.data(), buffer.size()));
    EXPECT_THAT(buffer, Each(0xEE));
}

TEST_F(ConfigBuffer, AsksForTheFirstConfigurationAndGivesTheRequestASecond) {
    openWith("{}");
    const CallArguments arguments;
    fill();
    EXPECT_THAT(CallArguments::of("libusb_control_transfer"),
                ElementsAre(ElementsAre(0x80, 6, 0x0200, 0, 88, 1000)));
}

TEST_F(ConfigBuffer, AClaimOfNoBytesIsAnsweredBeforeConfigurationsAreCounted) {
    openWith(R"({"interfaces":null,"configurations":[{"value":1,"interfaces":[{"number":0}]},{"value":2}]})");
    const FakeConfiguration nothing(0);
    EXPECT_EQ(0, fill());
    EXPECT_THAT(lines_, ElementsAre());
}

TEST_F(ConfigBuffer, AClaimOfNoBytesIsAMissingConfigurationToAList) {
    startSession({deviceJson("tool")});
    const FakeConfiguration nothing(0);
    EXPECT_THAT(debugLinesOf([&] { createList({kVendor}); }),
                ::testing::IsSupersetOf({"LibUSB_CreateDeviceList2 19a", "LibUSB_CreateDeviceList2 19b"}));
}

TEST_F(ConfigBuffer, NoBufferIsRefusedBeforeTheDeviceIsLookedAt) {
    openWith("{}");
    libusb_device_handle* handle = std::exchange(entry_->hDevice, nullptr);
    EXPECT_EQ(-170, fillConfigBuffer(entry_, nullptr, 512));
    entry_->hDevice = handle;
}

}  // namespace
