// The drop-in: hotplug callbacks.
#include "SimTest.h"

namespace simtest {
namespace {

using testing::ElementsAre;

constexpr auto arrived = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED;
constexpr auto left = LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
constexpr auto any = LIBUSB_HOTPLUG_MATCH_ANY;

// One registration that records its events: "+0x1001" for an arrival of that product.
struct Listener {
    static int hear(libusb_context*, libusb_device* device, libusb_hotplug_event event, void* self) {
        auto* listener = static_cast<Listener*>(self);
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(device, &descriptor);
        listener->heard.push_back((event == arrived ? "+" : "-") + std::to_string(descriptor.idProduct));
        listener->calledOn = std::this_thread::get_id();
        ++listener->count;
        if (listener->onEvent) {
            listener->onEvent(device);
        }
        return listener->answer;
    }

    int listen(libusb_context* context, int events = arrived | left, int flags = 0, int vendor = any,
               int product = any, int deviceClass = any) {
        return libusb_hotplug_register_callback(context, events, flags, vendor, product, deviceClass, hear,
                                                this, &handle);
    }

    std::vector<std::string> heard;
    std::thread::id calledOn;
    std::atomic<int> count{0};
    std::function<void(libusb_device*)> onEvent;
    int answer = 0;
    libusb_hotplug_callback_handle handle = 0;
};

using LibusbHotplug = LibusbTest;

TEST_F(LibusbHotplug, EventsAreHeardWhenEventsAreHandled) {
    Listener listener;
    ASSERT_EQ(listener.listen(context), 0);
    bus.plug("away");
    bus.unplug("double");
    EXPECT_THAT(listener.heard, ElementsAre());
    handleEvents();
    EXPECT_THAT(listener.heard, ElementsAre("+4097", "-8193"));
}

TEST_F(LibusbHotplug, CallbacksRunOnTheThreadThatHandlesEvents) {
    Listener listener;
    ASSERT_EQ(listener.listen(context), 0);
    EventThread events(context, {3600, 0});
    bus.plug("away");
    EXPECT_TRUE(eventually([&] { return listener.count == 1; }));
    EXPECT_EQ(listener.calledOn, events.id());
}

TEST_F(LibusbHotplug, EnumerateTellsOfDevicesThatAreThere) {
    Listener listener;
    ASSERT_EQ(listener.listen(context, arrived, LIBUSB_HOTPLUG_ENUMERATE), 0);
    EXPECT_THAT(listener.heard, ElementsAre("+8193", "+4097"));
    EXPECT_EQ(listener.calledOn, std::this_thread::get_id());
    Listener onlyLeft;
    ASSERT_EQ(onlyLeft.listen(context, left, LIBUSB_HOTPLUG_ENUMERATE), 0);
    EXPECT_THAT(onlyLeft.heard, ElementsAre());
}

TEST_F(LibusbHotplug, CallbacksHearWhatTheyMatch) {
    Listener vendor;
    Listener otherVendor;
    Listener product;
    Listener deviceClass;
    Listener arrivals;
    ASSERT_EQ(vendor.listen(context, arrived | left, 0, 0x6A5C), 0);
    ASSERT_EQ(otherVendor.listen(context, arrived | left, 0, 0x6A5D), 0);
    ASSERT_EQ(product.listen(context, arrived | left, 0, any, 0x1001), 0);
    ASSERT_EQ(deviceClass.listen(context, arrived | left, 0, any, any, 0x09), 0);
    ASSERT_EQ(arrivals.listen(context, arrived), 0);
    bus.plug("away");
    bus.unplug("away");
    handleEvents();
    EXPECT_EQ(vendor.count, 2);
    EXPECT_EQ(otherVendor.count, 0);
    EXPECT_EQ(product.count, 2);
    EXPECT_EQ(deviceClass.count, 0);
    EXPECT_EQ(arrivals.count, 1);
}

TEST_F(LibusbHotplug, ACallbackThatAnswersNonZeroIsDropped) {
    Listener once;
    Listener always;
    once.answer = 1;
    ASSERT_EQ(once.listen(context), 0);
    ASSERT_EQ(always.listen(context), 0);
    bus.plug("away");
    handleEvents();
    bus.unplug("away");
    handleEvents();
    EXPECT_EQ(once.count, 1);
    EXPECT_EQ(always.count, 2);
    libusb_hotplug_deregister_callback(context, once.handle);
}

TEST_F(LibusbHotplug, ADeregisteredCallbackHearsNothingMore) {
    Listener listener;
    ASSERT_EQ(listener.listen(context), 0);
    bus.plug("away");
    libusb_hotplug_deregister_callback(context, listener.handle);
    handleEvents();
    EXPECT_EQ(listener.count, 0);
}

TEST_F(LibusbHotplug, DeregisteringMakesTheHandlerReturn) {
    Listener listener;
    ASSERT_EQ(listener.listen(context), 0);
    auto handler = std::async(std::launch::async, [&] { return libusb_handle_events(context); });
    ASSERT_TRUE(eventually([&] { return libusb_event_handler_active(context) != 0; }));
    libusb_hotplug_deregister_callback(context, listener.handle);
    EXPECT_EQ(handler.get(), 0);
}

TEST_F(LibusbHotplug, HandlesCountUpFromOne) {
    Listener one;
    Listener two;
    ASSERT_EQ(one.listen(context), 0);
    ASSERT_EQ(two.listen(context), 0);
    EXPECT_EQ(one.handle, 1);
    EXPECT_EQ(two.handle, 2);
    EXPECT_EQ(
        libusb_hotplug_register_callback(context, arrived, 0, any, any, any, Listener::hear, &one, nullptr),
        0);
}

TEST_F(LibusbHotplug, SenselessRegistrationsAreRefused) {
    Listener listener;
    EXPECT_EQ(listener.listen(context, 0), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(listener.listen(context, 4), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(listener.listen(context, arrived, 2), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(listener.listen(context, arrived, 0, 0x10000), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(listener.listen(context, arrived, 0, any, -5), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(listener.listen(context, arrived, 0, any, any, 0x100), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_hotplug_register_callback(context, arrived, 0, any, any, any, nullptr, nullptr, nullptr),
              LIBUSB_ERROR_INVALID_PARAM);
}

TEST_F(LibusbHotplug, ADeviceCanBeReferencedInACallback) {
    Listener listener;
    libusb_device* kept = nullptr;
    listener.onEvent = [&](libusb_device* device) { kept = libusb_ref_device(device); };
    ASSERT_EQ(listener.listen(context, left), 0);
    bus.unplug("echo");
    handleEvents();
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(libusb_get_bus_number(kept), 1);
    libusb_unref_device(kept);
}

TEST_F(LibusbHotplug, EveryPlugIsHeard) {
    Listener listener;
    ASSERT_EQ(listener.listen(context), 0);
    EventThread events(context);
    for (int i = 0; i < 100; ++i) {
        bus.plug("away");
        bus.unplug("away");
    }
    EXPECT_TRUE(eventually([&] { return listener.count == 200; }));
}

}  // namespace
}  // namespace simtest
