// The drop-in: options, log messages and languages.
#include <cstring>

#include "LibusbNewer.h"
#include "SimTest.h"

namespace simtest {
namespace {

class LibusbOptions : public LibusbTest {
 protected:
    void SetUp() override {
        LibusbTest::SetUp();
        messages().clear();
    }
    void TearDown() override {
        libusb_set_log_cb(nullptr, nullptr, LIBUSB_LOG_CB_GLOBAL);
        libusb_set_option(nullptr, LIBUSB_OPTION_LOG_LEVEL, LIBUSB_LOG_LEVEL_NONE);
        LibusbTest::TearDown();
    }

    static std::vector<std::string>& messages() {
        static std::vector<std::string> all;
        return all;
    }
    static void take(libusb_context* /*context*/, libusb_log_level /*level*/, const char* text) {
        messages().emplace_back(text);
    }
};

TEST_F(LibusbOptions, MessagesReachTheCallbackOfTheContextAtTheirLevel) {
    libusb_set_log_cb(context, take, LIBUSB_LOG_CB_CONTEXT);
    open("ECHO0001");
    EXPECT_THAT(messages(), testing::IsEmpty());
    EXPECT_EQ(libusb_set_option(context, LIBUSB_OPTION_LOG_LEVEL, LIBUSB_LOG_LEVEL_DEBUG), 0);
    open("ECHO0001");
    EXPECT_THAT(messages(), testing::ElementsAre(testing::HasSubstr("libusb: debug [libusb_open] open 1.")));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    libusb_set_debug(context, LIBUSB_LOG_LEVEL_NONE);
#pragma GCC diagnostic pop
    open("ECHO0001");
    EXPECT_EQ(messages().size(), 1U);
}

TEST_F(LibusbOptions, MessagesOfNewContextsReachTheCallbackOfTheProcess) {
    libusb_set_log_cb(nullptr, take, LIBUSB_LOG_CB_GLOBAL);
    EXPECT_EQ(libusb_set_option(nullptr, LIBUSB_OPTION_LOG_LEVEL, LIBUSB_LOG_LEVEL_DEBUG), 0);
    libusb_context* other = nullptr;
    ASSERT_EQ(libusb_init(&other), 0);
    EXPECT_THAT(messages(), testing::ElementsAre(testing::HasSubstr("[libusb_init]")));
    libusb_exit(other);
}

TEST_F(LibusbOptions, AContextStartsWithItsOptions) {
    libusb_init_option level{};
    level.option = LIBUSB_OPTION_LOG_LEVEL;
    level.value.ival = LIBUSB_LOG_LEVEL_DEBUG;
    libusb_init_option callback{};
    callback.option = static_cast<libusb_option>(LIBUSB_OPTION_LOG_CB);
    callback.value.log_cbval = take;
    libusb_init_option empty{};
    empty.option = LIBUSB_OPTION_NO_DEVICE_DISCOVERY;
    const std::vector<libusb_init_option> options{level, callback, empty};
    libusb_context* other = nullptr;
    ASSERT_EQ(libusb_init_context(&other, options.data(), 3), 0);
    EXPECT_EQ(messages().size(), 1U);
    libusb_device** list = nullptr;
    bus.plug("away");
    EXPECT_EQ(libusb_get_device_list(other, &list), 0);
    libusb_free_device_list(list, 1);
    libusb_exit(other);
    level.value.ival = 5;
    EXPECT_EQ(libusb_init_context(&other, &level, 1), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(serials().size(), 3U);
}

TEST_F(LibusbOptions, UnknownOptionsAndValuesAreRefused) {
    EXPECT_EQ(libusb_set_option(context, LIBUSB_OPTION_LOG_LEVEL, 5), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_set_option(context, LIBUSB_OPTION_LOG_LEVEL, -1), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_set_option(context, LIBUSB_OPTION_USE_USBDK), LIBUSB_ERROR_NOT_SUPPORTED);
    libusb_option unknown{};
    std::memset(&unknown, 99, sizeof unknown);
    EXPECT_EQ(libusb_set_option(context, unknown), LIBUSB_ERROR_INVALID_PARAM);
}

TEST_F(LibusbOptions, LanguagesOfTheRealLibraryAreTaken) {
    EXPECT_EQ(libusb_setlocale("en"), 0);
    EXPECT_EQ(libusb_setlocale("DE_de.UTF-8"), 0);
    EXPECT_EQ(libusb_setlocale("eo"), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_setlocale("english"), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_setlocale("e"), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_setlocale(nullptr), LIBUSB_ERROR_INVALID_PARAM);
}

}  // namespace
}  // namespace simtest
