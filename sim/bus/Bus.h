// The simulated USB bus: devices in memory, for fronts that show them to a program (a drop-in libusb, a
// USB/IP server, ...) and for tests that plug, change and break them.
//
// Three users, three sections of the class below: whoever controls the bus, a front as the host side of it,
// and a front that counts, fails and checks the calls of the program that it serves.
//
// Every function may be called from any thread, also from inside a completion or a subscriber. Completions
// and subscribers are called one at a time, in the order in which things happened on the bus, with no lock of
// the bus held, on whichever thread (one of the bus, or one that is calling the bus) finds them due.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#define SIMBUS_API __attribute__((visibility("default")))

namespace simbus {

using Bytes = std::vector<std::uint8_t>;

// One plug of one device. Counts up from 1 and is never used again: a device that comes back has a new one.
using ConnectionId = std::uint64_t;

enum class Speed { full, high, super };

enum class TransferType : std::uint8_t { control = 0, isochronous = 1, bulk = 2, interrupt = 3 };

enum class Status { completed, stall, noDevice, cancelled, overflow };

// A HID interface, as a host's HID driver finds it in the interface's descriptors.
struct HidInterface {
    std::uint8_t number = 0;
    std::uint8_t inEndpoint = 0;              // interrupt IN, for input reports
    std::optional<std::uint8_t> outEndpoint;  // interrupt OUT; without one, output reports go to endpoint 0
    std::size_t inputBytes = 64;              // of an input report
};

// What a front learns about a device when it is plugged in; never changes while the connection lasts.
struct DeviceInfo {
    ConnectionId connection = 0;
    std::string id;      // the scenario's name of the device
    std::string serial;  // UTF-8, empty when there is none
    Speed speed = Speed::full;
    std::uint8_t busNumber = 1;
    std::uint8_t address = 1;
    std::uint8_t port = 1;
    Bytes deviceDescriptor;  // as the device gives it, 18 bytes unless the scenario says otherwise
    std::vector<Bytes> configurationDescriptors;  // each whole, as the device gives it
    std::vector<HidInterface> hidInterfaces;  // of the configuration that is active at the plug; a host's HID
                                              // driver holds them
    std::map<std::string, int>
        hostFailures;  // operation ("open", "claim", ...) to the code it always fails with
};
using DeviceInfoPtr = std::shared_ptr<const DeviceInfo>;

struct Setup {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;  // of the data stage
};

// One transfer, owned by the front that submits it: it and its data stay where they are until `done` was
// called. It may be submitted again from then on (from inside `done`, too).
struct Transfer {
    // Filled in by the front.
    std::uint8_t endpoint = 0;  // address with direction bit; 0 for a control transfer (0x80 means the same)
    Setup setup;                // control transfers only
    std::uint8_t* data = nullptr;  // the data stage; may be null when length is 0
    std::size_t length = 0;        // bytes at data; for a control transfer at least setup.length
    std::function<void()> done;    // called exactly once for every submission that answered `accepted`

    // Filled in by the bus before `done`.
    Status status = Status::completed;
    std::size_t actual = 0;  // bytes moved, also when it did not complete well

    // The bus's own.
    ConnectionId connection = 0;
    std::int64_t dueNanoseconds = 0;
};

struct ActiveEndpoint {
    std::uint8_t interfaceNumber = 0;
    TransferType type = TransferType::bulk;
};

enum class Submitted { accepted, noDevice, noEndpoint };

// One function of a front that calls are counted, failed and hooked at. Make one static object per function.
class SIMBUS_API CallPoint {
 public:
    // `name` as tests give it ("libusb_open"). It and the object must stay for as long as the process lives.
    explicit CallPoint(const char* name);
    CallPoint(const CallPoint&) = delete;
    CallPoint& operator=(const CallPoint&) = delete;

    // Call at the function's entry, with no lock held: counts, runs the hook, and answers the code to fail
    // with, if any.
    std::optional<int> enter() {
        count_.fetch_add(1, std::memory_order_relaxed);
        return armed_.load(std::memory_order_acquire) ? enterArmed() : std::nullopt;
    }

 private:
    friend class CallLog;
    std::optional<int> enterArmed();

    const char* name_;
    std::atomic<std::uint64_t> count_{0};
    std::atomic<bool> armed_{false};  // there is a hook or a fault for this function
};

class SIMBUS_API Bus {
 public:
    // The one bus of the process. It is made when the library is loaded: the scenario file named by
    // SIMBUS_SCENARIO is read, and a control socket made at SIMBUS_SOCKET. At process exit its threads are
    // stopped and the socket goes.
    // Programs that have more rights than their user are steered by neither.
    static Bus& instance();

    // Whether the control socket that the environment asks for could be made.
    bool hasControlSocket() const;
    // Whether the environment names a scenario that could not be loaded, and no other was loaded since.
    bool lacksScenario() const;

    // Control. These throw std::runtime_error with a text for people when something is not so (no such
    // device, already plugged in, ...).

    // Replaces everything on the bus by the devices of a scenario (JSON text).
    void loadScenario(const std::string& json);
    void plug(const std::string& id);
    void unplug(const std::string& id);
    // Back to the loaded scenario; also forgets faults, hooks, calls, violations and records.
    void reset();

    // Bytes to be read from an IN endpoint, cut into packets when they are read.
    void feed(const std::string& id, std::uint8_t endpoint, const Bytes& data);
    // What the OUT endpoint took since the plug, one entry per transfer; the oldest fall off after some
    // megabytes.
    std::vector<Bytes> received(const std::string& id, std::uint8_t endpoint);
    void clearReceived(const std::string& id, std::uint8_t endpoint);
    // Transfers that wait on the endpoint now.
    std::size_t pending(const std::string& id, std::uint8_t endpoint);

    // The whole control protocol: one JSON object in, one out (both without line end). Never throws.
    std::string command(const std::string& jsonLine);

    // Host side, for fronts.

    // The devices that are plugged in, oldest connection first.
    std::vector<DeviceInfoPtr> devices();

    // Tells of every device that comes (true) and goes (false) from now on. plug() and unplug() return after
    // it was told, unless they are called from inside a completion or subscriber. After unsubscribe() it may
    // still run once more on another thread.
    using Subscriber = std::function<void(const DeviceInfoPtr&, bool arrived)>;
    int subscribe(Subscriber subscriber);
    void unsubscribe(int subscription);

    // Hands a transfer to the device. When accepted, transfer.done is called once, possibly before this
    // returns. A front must not hold a lock here that its `done` takes.
    Submitted submit(ConnectionId connection, Transfer& transfer);
    // Ends a transfer that waits: done is called with `cancelled`. False when it was not waiting (any more).
    bool cancel(Transfer& transfer);

    // The requests that a host's driver makes on behalf of a program. Each answers completed, stall (there is
    // no such configuration, interface or setting) or noDevice. Transfers on endpoints that go away are
    // cancelled.
    Status setConfiguration(ConnectionId connection, std::uint8_t value);  // 0 unconfigures
    Status setAlternate(ConnectionId connection, std::uint8_t interfaceNumber, std::uint8_t alternate);
    Status clearHalt(ConnectionId connection, std::uint8_t endpoint);
    // Cancels everything that waits, empties all queues and clears all halts; keeps configuration and
    // alternates.
    Status resetDevice(ConnectionId connection);

    // What is active now; nothing when there is no such device, configuration or interface.
    std::optional<std::uint8_t> configuration(ConnectionId connection);  // 0 when unconfigured
    std::optional<std::uint8_t> alternate(ConnectionId connection, std::uint8_t interfaceNumber);
    // An endpoint of the active settings.
    std::optional<ActiveEndpoint> activeEndpoint(ConnectionId connection, std::uint8_t endpoint);

    // A front to a real kernel cannot count, fail or check calls; the control protocol then says so.
    enum class Front { memory, kernel };
    void setFront(Front front);

    // Calls of the program under test, for fronts in memory and for tests.

    // The nth next call (1 = the next) of a function and the times-1 after it answer `code`.
    void failCall(const std::string& function, unsigned nth, int code, unsigned times = 1);
    void clearFaults();
    // Run at every entry of the function, on the calling thread, with no lock held. An empty hook takes it
    // away.
    void onCall(const std::string& function, std::function<void()> hook);
    void clearHooks();
    // Calls per function since the start or the last clearCalls(); functions not called are left out.
    std::map<std::string, std::uint64_t> calls();
    void clearCalls();
    // What a front found wrong in its caller, oldest first; at most 1000 are kept.
    std::vector<std::string> violations();
    void addViolation(const std::string& text);
    void clearViolations();
    // Numbers that a front keeps by name ("config descriptors not freed"); not violations.
    std::int64_t tally(const std::string& name);
    void addToTally(const std::string& name, std::int64_t amount);

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

 private:
    friend struct BusEnd;
    friend class ControlProtocol;
    struct Parts;
    Bus();
    void stop();
    template <class Action>
    Status onDevice(ConnectionId connection, Action action);

    Parts* parts_;  // never freed: threads of the program may call until the very end of the process
};

}  // namespace simbus
