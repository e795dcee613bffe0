// Fuzzes the native methods with random arguments, in random order, against a model of their contract.

#include <libusb.h>

#include <atomic>
#include <climits>
#include <optional>

#include "DescriptorBytes.h"
#include "FakeHid.h"
#include "FuzzBus.h"
#include "FuzzInput.h"
#include "JniModel.h"
#include "JniTest.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "hid/HIDAccess.h"

namespace {

constexpr int kMostCalls = 60;
/// In milliseconds: long enough for a read that finds its reports, short for a transfer that does not
/// complete.
constexpr jint kLongTimeout = 60'000;
constexpr int kShortTimeouts = 3;

constexpr std::array<jint, 5> kSessions = {0, 0, 0, -1, 1};
constexpr std::array<jint, 4> kVendors = {kVendor, kSecondVendor, 0x1234, -1};
constexpr std::array<jint, 3> kWatchedVendors = {kVendor, kSecondVendor, 0x1234};
constexpr std::array<jint, 8> kLists = {0, 1, 2, 0, 3, -1, INT_MAX, INT_MIN};
constexpr std::array<jint, 8> kIndexes = {0, 1, 0, 1, 2, 3, -1, INT_MAX};
constexpr std::array<jint, 12> kLengths = {0, 1, 63, 64, 65, 128, 300, 512, 1025, 3000, -1, INT_MIN};
constexpr std::array<jint, 8> kPacketSizes = {64, 64, 1024, 63, 1025, 100, -1, INT_MAX};
constexpr std::array<jint, 14> kSizes = {INT_MIN, -1, 0, 1, 2, 6, 7, 8, 17, 18, 19, 64, 513, INT_MAX};
constexpr std::array<std::size_t, 7> kArraySizes = {0, 1, 7, 8, 18, 64, 3000};
constexpr std::array<uint8_t, 4> kRequestTypes = {0x80, 0x81, 0x82, 0xC0};
constexpr std::array<uint8_t, 5> kRequests = {0, 6, 8, 10, 0x55};  // none that changes the device

/// Endpoint pairs: 1 bulk and 2 interrupt echo, 3 sink and source, 4 silent, 5 stalling.
constexpr const char* kEndpoints = R"({"interfaces": [{"endpoints": [
    {"address": "0x01"}, {"address": "0x81"},
    {"address": "0x02", "type": "interrupt"}, {"address": "0x82", "type": "interrupt"},
    {"address": "0x03", "type": "interrupt", "behaviour": "sink"},
    {"address": "0x83", "type": "interrupt", "behaviour": "source"},
    {"address": "0x04", "type": "interrupt", "behaviour": "silent"},
    {"address": "0x84", "type": "interrupt", "behaviour": "silent"},
    {"address": "0x05", "type": "interrupt", "behaviour": "stall"},
    {"address": "0x85", "type": "interrupt", "behaviour": "stall"}]}]})";
const std::vector<int32_t> kEchoEndpoints = {0x01, 0x81, 0x02, 0x82, 0x03, 0x83, 0x04, 0x84, 0x05, 0x85};
const DescriptorBytes kHidConfiguration = configurationBytes({interfaceBytes(0, 3), endpointBytes(0x81, 3)});

using Place = JniModel::Place;

/// Counts the hotplug events of a session. libusb calls callbacks in the reverse order of their registration:
/// this one is registered before that of the library, so when it is called, the library has been notified.
/// Without it, it would depend on timing whether a list that is created after a change notices it.
class HotplugNews {
 public:
    void listen(libusb_context* context) {
        constexpr int any = LIBUSB_HOTPLUG_MATCH_ANY;
        constexpr int events = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
        require(libusb_hotplug_register_callback(context, events, 0, any, any, any, hear, this, nullptr) ==
                    LIBUSB_SUCCESS,
                "somebody else may listen, too");
    }
    int count() const { return count_.load(); }

 private:
    static int hear(libusb_context* /*context*/, libusb_device* /*device*/, libusb_hotplug_event /*event*/,
                    void* self) {
        ++static_cast<HotplugNews*>(self)->count_;
        return 0;
    }

    std::atomic<int> count_{0};
};

class JniProgram {
    template <class Method, class... Arguments>
    auto call(Method* method, Arguments... arguments) {
        return method(jni_.env(), nullptr, arguments...);
    }

 public:
    explicit JniProgram(FuzzInput input) : input_(input) {
        plugDevices({deviceJson("echo", kEndpoints), deviceJson("hid", R"({"productId": 12289})"),
                     deviceJson("odd", merged({kEndpoints, R"({"vendorId": 27229, "deviceClass": 2})"}))});
        hid_.devices = {{kVendor, 0x3001, "Talvane", "Echo Tool", "hid"}};
        hid_.configuration = kHidConfiguration;
        jni_.pinsByCopy = (input_.byte() & 1) != 0;
    }
    ~JniProgram() {
        const auto stillOpen = model_.openDevices();
        for (const auto& each : stillOpen) {
            close(each.first);
        }
        for (jint list = 0; list < model_.lists(); ++list) {
            releaseList(list);
        }
        call(usbRelease, 0);
        forgetLists();
        g_DevMap.clear();
        requireNoViolations();
        require(jni_.pins == jni_.releases, "what is pinned is released");
    }
    JniProgram(const JniProgram&) = delete;
    JniProgram& operator=(const JniProgram&) = delete;

    void run() {
        initialize();
        for (int count = 0; count < kMostCalls && !input_.atEnd(); ++count) {
            perform();
        }
    }

 private:
    static void expect(const Expected& expected, jint result) {
        if (!expected.allows(result)) {
            std::fprintf(stderr, "returned %d, expected", result);
            for (const int32_t code : expected.codes) {
                std::fprintf(stderr, " %d", code);
            }
            std::fprintf(stderr, " or 0 to %d\n", expected.most);
        }
        require(expected.allows(result), "the result is one that the contract allows");
    }

    void perform() {
        static constexpr std::array operations = {
            &JniProgram::session,  &JniProgram::createList,  &JniProgram::createList2,
            &JniProgram::lists,    &JniProgram::information, &JniProgram::open,
            &JniProgram::open,     &JniProgram::closeAny,    &JniProgram::resets,
            &JniProgram::control,  &JniProgram::transfer,    &JniProgram::transfer,
            &JniProgram::transfer, &JniProgram::descriptor,  &JniProgram::endpoints,
            &JniProgram::deliver,  &JniProgram::plugOrUnplug};
        (this->*input_.oneOf(operations))();
    }

    Place place() {
        const jint list = input_.oneOf(kLists);
        return {list, input_.oneOf(kIndexes)};
    }
    /// Sometimes a null array.
    std::optional<FakeByteArray> array() {
        const uint8_t choice = input_.byte();
        if (choice % 16 == 0) {
            return std::nullopt;
        }
        return std::optional<FakeByteArray>(
            std::in_place, std::vector<jbyte>(kArraySizes[choice % kArraySizes.size()], 0x33));
    }
    static jbyteArray java(std::optional<FakeByteArray>& array) { return array ? array->java() : nullptr; }

    void initialize() {
        const jint result = call(usbInitialize);
        expect(model_.usbInitialize(), result);
        if (result == 0) {
            news_.listen(g_pContext);
        }
    }

    void session() {
        const uint8_t choice = input_.byte();
        if (choice % 2 == 0) {
            return initialize();
        }
        const jint id = input_.oneOf(kSessions);
        expect(model_.usbRelease(id), call(usbRelease, id));
    }

    void createList() {
        const jint id = input_.oneOf(kSessions);
        const jint vendor = input_.oneOf(kVendors);
        expect(model_.usbCreateDeviceList(id, vendor), call(usbCreateDeviceList, id, vendor));
    }

    void createList2() {
        const jint id = input_.oneOf(kSessions);
        std::vector<jint> vendors(input_.byte() % 20);
        for (jint& vendor : vendors) {
            vendor = input_.oneOf(kWatchedVendors);
        }
        FakeIntArray array(vendors);
        expect(model_.usbCreateDeviceList2(id, vendors),
               call(usbCreateDeviceList2, id, vendors.empty() ? nullptr : array.java()));
    }

    void lists() {
        const jint list = input_.oneOf(kLists);
        if (input_.byte() % 4 == 0) {
            return releaseList(list);
        }
        expect(model_.usbUpdateDeviceList(list), call(usbUpdateDeviceList, list, 7));
        expect(model_.usbGetDeviceListCount(list), call(usbGetDeviceListCount, list));
    }

    void releaseList(jint list) {
        expect(model_.usbReleaseDeviceList(list), call(usbReleaseDeviceList, list));
    }

    void information() {
        const auto [list, index] = place();
        call(usbGetDeviceInfo, list, index);
        require(jni_.strings.back() == model_.usbGetDeviceInfo({list, index}), "the information line");
        call(usbGetChangeInfo, list, index);
        require(jni_.strings.back().empty(), "there is no change list");
        expect(347, call(usbGetLibVersion));
    }

    void open() {
        const Place place = this->place();
        const JniModel::RecordPtr record = model_.listed(place);
        const JniModel::RecordPtr before = model_.open(place);
        if (before != nullptr && before != record) {
            close(place);  // the map would lose the record that was released while open
        }
        const bool taken = record != nullptr && record->device->isHid && hidOwner_ != nullptr &&
                           hidOwner_ != record && !record->isOpen;
        if (taken) {
            return;  // the HID interface in memory has one device
        }
        const jint result = call(usbOpenDevice, place.first, place.second);
        expect(model_.usbOpenDevice(place), result);
        if (result == 0) {
            model_.opened(place);
            hidOwner_ = record->device->isHid ? record : hidOwner_;
        }
    }

    void closeAny() { close(place()); }
    void close(Place place) {
        if (hidOwner_ != nullptr && model_.open(place) == hidOwner_) {
            hidOwner_ = nullptr;
        }
        expect(model_.usbCloseDevice(place), call(usbCloseDevice, place.first, place.second));
    }

    void resets() {
        const auto [list, index] = place();
        const jint endpoint = input_.word() % 0x200;
        expect(model_.usbResetDevice({list, index}), call(usbResetDevice, list, index));
        expect(model_.usbRestartDevice({list, index}), call(usbRestartDevice, list, index));
        expect(model_.usbResetPipe({list, index}), call(usbResetPipe, list, index, endpoint));
        expect(model_.usbCancelPipeTransfer({list, index}, endpoint),
               call(usbCancelPipeTransfer, list, index, endpoint));
    }

    void control() {
        const auto [list, index] = place();
        const bool writes = (input_.byte() & 1) != 0;
        std::optional<FakeByteArray> buffer = array();
        jint dataBytes = 0;
        if (buffer && buffer->bytes.size() >= 8) {
            const uint8_t lengthLow = input_.byte();
            const uint8_t setup[] = {input_.oneOf(kRequestTypes),
                                     input_.oneOf(kRequests),
                                     input_.byte(),
                                     static_cast<uint8_t>(input_.byte() % 4),
                                     0,
                                     0,
                                     lengthLow,
                                     static_cast<uint8_t>(input_.byte() % 4)};
            std::copy(std::begin(setup), std::end(setup), buffer->bytes.begin());
            dataBytes = setup[6] | setup[7] << 8;
        } else if (buffer) {
            std::fill(buffer->bytes.begin(), buffer->bytes.end(), jbyte{0});
        }
        auto* method = writes ? usbWriteControlPipe : usbReadControlPipe;
        expect(model_.control({list, index}, writes, buffer.has_value(), dataBytes),
               call(method, list, index, 0, kLongTimeout, java(buffer)));
    }

    void transfer() {
        const Place place = this->place();
        const uint8_t kind = input_.byte();
        std::optional<FakeByteArray> buffer = array();
        const jint endpoint = input_.byte() % 16 == 0 ? input_.byte() : input_.byte() & 0x87;
        const ModelTransfer asked{
            (kind & 1) != 0,        (kind & 2) != 0,    (kind & 4) != 0,           endpoint,
            input_.oneOf(kLengths), buffer.has_value(), input_.oneOf(kPacketSizes)};
        const Expected expected = model_.transfer(place, asked);
        const JniModel::RecordPtr record = model_.open(place);
        const bool comes = expected.codes == std::set<int32_t>{asked.length} && asked.length >= 0;
        const jint timeout = comes ? kLongTimeout : 1 + input_.byte() % kShortTimeouts;
        const jint result = start(place, asked, timeout, java(buffer), input_.byte());
        expect(expected, result);
        if (record != nullptr && record->isOpen && record->device->isHid && asked.isInterrupt) {
            noteReports(place, *record, asked, result);
        }
    }

    jint start(Place place, const ModelTransfer& asked, jint timeout, jbyteArray bytes, jint fill) {
        const auto [list, index] = place;
        if (asked.isExtended) {
            auto* method = asked.isInterrupt
                               ? (asked.writes ? usbWriteInterruptPipeEx : usbReadInterruptPipeEx)
                               : (asked.writes ? usbWriteBulkPipeEx : usbReadBulkPipeEx);
            return call(method, list, index, asked.endpoint, asked.length, timeout, bytes, asked.packetSize,
                        fill);
        }
        auto* method = asked.isInterrupt ? (asked.writes ? usbWriteInterruptPipe : usbReadInterruptPipe)
                                         : (asked.writes ? usbWriteBulkPipe : usbReadBulkPipe);
        return call(method, list, index, asked.endpoint, asked.length, timeout, bytes);
    }

    /// Updates the model of a HID device's unread reports after an interrupt transfer.
    void noteReports(Place place, ModelRecord& record, const ModelTransfer& asked, jint result) {
        if (asked.isExtended && asked.packetSize != 64) {
            record.knowsReports = false;  // with slots of two sizes a ring may never look empty again
        }
        if (asked.writes || result == -114 || result == asked.submissionFailure()) {
            return;
        }
        record.reports -= result > 0 ? (result + 63) / 64 : 0;
        if (result < 0 && record.knowsReports) {  // how many it took, only its time-out knows
            uint8_t byte = 0;
            while (g_DevMap[place.first][place.second]->pHIDAccess->GetIncomingData(&byte, 1) == 1) {
            }
            record.reports = 0;
        }
    }

    void deliver() {
        const int count = input_.byte() % 8;
        for (int i = 0; i < count && hidOwner_ != nullptr; ++i) {
            hid_.deliverNumber(static_cast<uint32_t>(i));
            ++hidOwner_->reports;
        }
    }

    void descriptor() {
        const auto [list, index] = place();
        const jint type = input_.byte() % 8 - 1;
        const jint which = input_.byte() % 4 == 0 ? input_.byte() : input_.byte() & 0x87;
        const jint size = input_.oneOf(kSizes);
        std::optional<FakeByteArray> buffer = array();
        expect(model_.usbGetDeviceDescriptor({list, index}, type, which, size),
               call(usbGetDeviceDescriptor, list, index, type, which, size, java(buffer)));
    }

    void endpoints() {
        const auto [list, index] = place();
        std::optional<FakeByteArray> buffer = array();
        expect(model_.usbGetEndpointList({list, index}), call(usbGetEndpointList, list, index, java(buffer)));
    }

    void plugOrUnplug() {
        const std::size_t number = input_.byte() % 3;
        const ModelDevice& device = model_.device(number);
        const jint flagged = model_.change(number);
        const int heard = news_.count();
        simbus::Bus& bus = simbus::Bus::instance();
        device.plugged ? bus.plug(device.id) : bus.unplug(device.id);
        require(g_SessionId < 0 || eventually([&] { return news_.count() > heard; }),
                "the session hears of the change");
        int32_t status = 0;
        tagUSB_DEVICE_LIST* list =
            flagged < 0 ? nullptr : findDeviceList(static_cast<uint32_t>(flagged), status);
        require(list == nullptr || list->changePending.load(), "the list that watches is flagged");
    }

    FuzzInput input_;
    HotplugNews news_;
    FakeConfiguration configuration_{kConfigDescriptorBytes};
    FakeHid hid_;
    FakeJni jni_;
    JniModel::RecordPtr hidOwner_;  ///< the record whose HID device is open
    JniModel model_{
        {{"echo", kVendor, 0x1001, false, false, kEchoEndpoints, 88},
         {"hid", kVendor, 0x3001, true, false, {0x81}, static_cast<int32_t>(kHidConfiguration.size())},
         {"odd", kSecondVendor, 0x1001, false, true, kEchoEndpoints, 88}}};
};

}  // namespace

/// Input: a program of calls, each one byte followed by its arguments. It starts with an open session.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    JniProgram(input).run();
    return 0;
}
