// Fuzzes string descriptors: the strings in the list, in the information line and in string queries.

#include <cstring>
#include <optional>
#include <string>

#include "DescriptorBytes.h"
#include "FuzzBus.h"
#include "FuzzInput.h"
#include "JniTest.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"

namespace {

constexpr std::size_t kLargestDescriptor = 255;
constexpr std::size_t kMostCharacters = 125;
constexpr int kTexts = 3;

/// The device's response to a request for one string; empty if it refuses.
using Answer = std::optional<DescriptorBytes>;

Answer readAnswer(FuzzInput& input, bool refuses) {
    DescriptorBytes bytes = input.counted();
    return refuses ? Answer() : Answer(std::move(bytes));
}

/// The control rules of a device with these responses to requests for the strings 0, 1, 2, ...
std::string stringRules(const std::vector<Answer>& answers) {
    std::string rules;
    for (std::size_t index = 0; index < answers.size(); ++index) {
        const std::string outcome =
            answers[index] ? R"("reply": ")" + hexOf(*answers[index]) + "\"" : R"("stall": true)";
        rules += (index == 0 ? "" : ",") + (R"({"requestType": 128, "request": 6, "value": )" +
                                            std::to_string(0x300 + index) + ", " + outcome + "}");
    }
    return R"({"control": [)" + rules + "]}";
}

/// The expected text of a string descriptor; "?" if it cannot be read.
std::string expectedText(const Answer& languages, const Answer& answer) {
    if (!languages || languages->size() < 4 || !answer) {
        return "?";
    }
    DescriptorBytes bytes = *answer;
    const std::size_t received = bytes.size();
    bytes.resize(kLargestDescriptor + 1);
    if (bytes[1] != 3 || received < bytes[0]) {
        return "?";
    }
    std::string text;
    for (std::size_t at = 2; bytes[0] >= 3 && at < bytes[0] && text.size() < kMostCharacters; at += 2) {
        text += bytes[at + 1] == 0 ? static_cast<char>(bytes[at]) : '?';
    }
    return text.substr(0, text.find('\0'));
}

/// The text in the encoding of JNI, each byte from 0x80 on as one character.
std::string encoded(const std::string& text) {
    std::string all;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte >= 0x80) {
            all += static_cast<char>(byte >= 0xC0 ? 0xC3 : 0xC2);
        }
        all += static_cast<char>(byte >= 0xC0 ? byte - 0x40 : byte);
    }
    return all;
}

void requireStringQuery(FakeJni& jni, jint index, const std::string& text, jint size) {
    FakeByteArray array(std::vector<jbyte>(static_cast<std::size_t>(size), 0x55));
    const jint result = usbGetDeviceDescriptor(jni.env(), nullptr, 0, 0, 3, index, size, array.java());
    const auto length = static_cast<jint>(text.size());
    require(result == std::min(length, size), "a string query tells the length");
    const std::string given =
        length < size ? text : text.substr(0, static_cast<std::size_t>(std::max(size - 1, 0)));
    require(size < 2 || std::memcmp(array.bytes.data(), given.c_str(), given.size() + 1) == 0,
            "a string query gives the text");
}

}  // namespace

/// Input: flags (bit n: string n is refused), then the responses for the strings 0 to 3, each preceded by its
/// length.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const uint8_t refused = input.byte();
    std::vector<Answer> answers;
    for (int index = 0; index <= kTexts; ++index) {
        answers.push_back(readAnswer(input, (refused >> index & 1) != 0));
    }
    const jint smallSize = input.byte();
    FuzzSession session({deviceJson("tool", stringRules(answers))}, kConfigDescriptorBytes);
    require(LibUSB_CreateDeviceList2(session.context, 1, &kVendor) == 0, "the first list is list 0");

    FakeJni jni;
    std::string line = "1:=6A5C:=1001:=0100";
    for (int index = 1; index <= kTexts; ++index) {
        const std::string text = expectedText(answers[0], answers[static_cast<std::size_t>(index)]);
        line += ":=" + encoded(text);
        requireStringQuery(jni, index, text, smallSize);
        requireStringQuery(jni, index, text, static_cast<jint>(text.size()));
        requireStringQuery(jni, index, text, static_cast<jint>(text.size() + 1));
    }
    usbGetDeviceInfo(jni.env(), nullptr, 0, 0);
    require(jni.strings.back() == line + ":=x:=b:=0:=0:=end", "the information line tells the texts");
    return 0;
}
