#include <gmock/gmock.h>
#include <libusb.h>

#include "CallArguments.h"
#include "DescriptorBytes.h"
#include "MacOSXUSBAccess/records/Descriptors.h"
#include "UsbTest.h"

namespace {

using ::testing::ElementsAre;

constexpr uint8_t kString = 3;
constexpr uint8_t kIndex = 9;
constexpr int32_t kNoString = -1;

/// A string descriptor with these bytes after its two own; its length is correct unless `length` is given.
DescriptorBytes stringOf(const DescriptorBytes& units, int length = -1) {
    const auto whole = static_cast<int>(units.size()) + 2;
    return joined({{static_cast<uint8_t>(length < 0 ? whole : length), kString}, units});
}

/// An open device whose string of index 9 is read.
class StringDescriptor : public UsbTest {
 protected:
    void openWith(const std::string& overrides) {
        startSession({deviceJson("tool", overrides)});
        handle_ = openFirst().hDevice;
        bus.clearCalls();
    }
    void openWithAnswer(const DescriptorBytes& bytes) { openWith(descriptorReply(kString, kIndex, bytes)); }
    void openWithText(const std::string& text) { openWith(R"({"strings":{"9":")" + text + R"("}})"); }

    /// Reads into a buffer of exactly `length` bytes that are all 'x' before; `text_` receives its contents
    /// up to the first NUL.
    int32_t read(int32_t length = 126, uint8_t index = kIndex) {
        std::vector<uint8_t> buffer(static_cast<std::size_t>(length), 'x');
        const int32_t result =
            legacy_libusb_get_string_descriptor_ascii(handle_, index, buffer.data(), length);
        text_.assign(buffer.begin(), std::find(buffer.begin(), buffer.end(), 0));
        return result;
    }

    libusb_device_handle* handle_ = nullptr;
    std::string text_;
};

TEST_F(StringDescriptor, GivesTheTextAndItsLength) {
    openWithText("Trace Port");
    EXPECT_EQ(10, read());
    EXPECT_EQ("Trace Port", text_);
}

TEST_F(StringDescriptor, ReadsTheLanguageThenTheString) {
    openWithText("Trace Port");
    read();
    EXPECT_EQ(2U, bus.calls()["libusb_control_transfer"]);
}

TEST_F(StringDescriptor, AsksForTheDevicesFirstLanguage) {
    openWith(R"({"languages":[1031,1033],"control":[
        {"requestType":"0x80","request":6,"value":"0x0309","index":1031,"reply":"06034A006100"},
        {"requestType":"0x80","request":6,"value":"0x0309","reply":"040378"}]})");
    EXPECT_EQ(2, read());
    EXPECT_EQ("Ja", text_);
}

TEST_F(StringDescriptor, AsksForTheLanguagesWithIndexZero) {
    openWith(R"({"strings":{"9":"Port"},"control":[
        {"requestType":"0x80","request":6,"value":"0x0300","index":0,"reply":"04030904"},
        {"requestType":"0x80","request":6,"value":"0x0300","stall":true}]})");
    EXPECT_EQ(4, read());
}

TEST_F(StringDescriptor, UnitsBelow0x100GiveTheirLowByte) {
    openWithAnswer(stringOf({'A', 0, 0x7F, 0, 0x80, 0, 0xE4, 0, 0xFF, 0}));
    EXPECT_EQ(5, read());
    EXPECT_EQ("A\x7F\x80\xE4\xFF", text_);
}

TEST_F(StringDescriptor, OtherUnitsGiveAQuestionMark) {
    openWithAnswer(stringOf({'A', 0, 0x00, 0x01, 0xAC, 0x20, 0x3D, 0xD8, 'B', 0}));
    EXPECT_EQ(5, read());
    EXPECT_EQ("A???B", text_);
}

TEST_F(StringDescriptor, HoldsOneCharacterLessThanTheBuffer) {
    openWithText("Trace Port");
    EXPECT_EQ(10, read(11));
    EXPECT_EQ("Trace Port", text_);
    EXPECT_EQ(9, read(10));
    EXPECT_EQ("Trace Por", text_);
    EXPECT_EQ(1, read(2));
    EXPECT_EQ("T", text_);
}

TEST_F(StringDescriptor, HoldsAtMost125CharactersInARecord) {
    openWith(R"({"product":")" + std::string(126, 'p') + R"("})");
    EXPECT_EQ(125, read(126, 2));
    EXPECT_EQ(std::string(125, 'p'), text_);
}

TEST_F(StringDescriptor, ABufferOfOneByteGetsTheEmptyText) {
    openWithText("Trace Port");
    EXPECT_EQ(0, read(1));
    EXPECT_EQ("", text_);
}

TEST_F(StringDescriptor, ABufferOfNoBytesIsNotTouched) {
    openWithText("Trace Port");
    uint8_t byte = 'x';
    EXPECT_EQ(0, legacy_libusb_get_string_descriptor_ascii(handle_, kIndex, &byte, 0));
    EXPECT_EQ(0, legacy_libusb_get_string_descriptor_ascii(handle_, kIndex, &byte, -1));
    EXPECT_EQ('x', byte);
}

TEST_F(StringDescriptor, ADescriptorWithoutUnitsIsTheEmptyText) {
    openWith(R"({"strings":{"9":{"hex":"0203"},"10":{"hex":"0103"},"11":{"hex":"0003"}}})");
    for (const uint8_t index : std::initializer_list<uint8_t>{9, 10, 11}) {
        EXPECT_EQ(0, read(126, index));
        EXPECT_EQ("", text_);
    }
}

TEST_F(StringDescriptor, BytesBehindItsLengthAreNotText) {
    openWithAnswer(stringOf({'A', 0, 'B', 0, 'C', 0}, 6));
    EXPECT_EQ(2, read());
    EXPECT_EQ("AB", text_);
}

TEST_F(StringDescriptor, AUnitCutByTheLengthStillCounts) {
    openWithAnswer(stringOf({'A', 0, 'B', 1}, 5));
    EXPECT_EQ(2, read());
    EXPECT_EQ("A?", text_);
}

TEST_F(StringDescriptor, AUnitCutByTheLongestAnswerHasNoHighByte) {
    DescriptorBytes units(253, 0);
    std::fill(units.begin(), units.end(), uint8_t{'A'});
    openWithAnswer(stringOf(units, 255));
    EXPECT_EQ(127, read(255));
    EXPECT_EQ(std::string(126, '?') + "A", text_);
}

TEST_F(StringDescriptor, AnAnswerOfAnotherTypeIsNoString) {
    openWithAnswer({4, 2, 'A', 0});
    EXPECT_EQ(kNoString, read());
    EXPECT_EQ(std::string(126, 'x'), text_);
}

TEST_F(StringDescriptor, AnAnswerShorterThanItsLengthIsNoString) {
    openWithAnswer(stringOf({'A', 0, 'B', 0}, 7));
    EXPECT_EQ(kNoString, read());
    EXPECT_EQ(std::string(126, 'x'), text_);
}

TEST_F(StringDescriptor, AnAnswerOfOneByteOrNoneIsNoString) {
    openWith(R"({"strings":{"9":{"hex":""},"10":{"hex":"00"}}})");
    EXPECT_EQ(kNoString, read(126, 9));
    EXPECT_EQ(kNoString, read(126, 10));
}

TEST_F(StringDescriptor, ALanguageTableBelowFourBytesIsNoString) {
    openWith(descriptorReply(kString, 0, {4, 3, 9}));
    EXPECT_EQ(kNoString, read(126, 2));
    endSession();
    openWith(descriptorReply(kString, 0, {}));
    EXPECT_EQ(kNoString, read(126, 2));
    EXPECT_EQ(1U, bus.calls()["libusb_control_transfer"]);
    EXPECT_EQ(std::string(126, 'x'), text_);
}

TEST_F(StringDescriptor, AFailingLanguageReadGivesLibusbsCode) {
    openWithText("Trace Port");
    bus.failCall("libusb_control_transfer", 1, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(LIBUSB_ERROR_TIMEOUT, read());
    EXPECT_EQ(1U, bus.calls()["libusb_control_transfer"]);
    EXPECT_EQ(std::string(126, 'x'), text_);
}

TEST_F(StringDescriptor, AFailingStringReadGivesLibusbsCode) {
    openWithText("Trace Port");
    bus.failCall("libusb_control_transfer", 2, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, read());
    EXPECT_EQ(std::string(126, 'x'), text_);
}

TEST_F(StringDescriptor, AStringThatTheDeviceDoesNotHaveStalls) {
    openWith("{}");
    EXPECT_EQ(LIBUSB_ERROR_PIPE, read());
}

TEST_F(StringDescriptor, IndexZeroIsReadAsWritten) {
    openWith(R"({"languages":[65,1033]})");
    EXPECT_EQ(2, read(126, 0));
    EXPECT_EQ("A?", text_);
}

TEST_F(StringDescriptor, ADeviceThatDoesNotAnswerTimesOutAfterASecond) {
    openWith(R"({"control":[{"requestType":"0x80","request":6,"value":"0x0309","silent":true}]})");
    EXPECT_EQ(LIBUSB_ERROR_TIMEOUT, read());
}

TEST_F(StringDescriptor, AsksForTheLongestAnswerAndGivesEachRequestASecond) {
    openWithText("Trace Port");
    const CallArguments arguments;
    read();
    EXPECT_THAT(CallArguments::of("libusb_control_transfer"),
                ElementsAre(ElementsAre(0x80, 6, 0x0300, 0, 255, 1000),
                            ElementsAre(0x80, 6, 0x0309, 0x0409, 255, 1000)));
}

TEST_F(StringDescriptor, ALanguageRequestWithoutAnswerTimesOut) {
    openWith(R"({"control":[{"requestType":"0x80","request":6,"value":"0x0300","silent":true}]})");
    EXPECT_EQ(LIBUSB_ERROR_TIMEOUT, read());
    EXPECT_EQ(1U, callsOf("libusb_control_transfer"));
}

}  // namespace
