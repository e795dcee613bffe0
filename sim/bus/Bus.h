// The simulated USB bus: devices in memory, for fronts that present them to a program (a drop-in libusb, a
// USB/IP server, ...) and for tests that plug, change and break them.
//
// The class below has three sections for its three users: the code that controls the bus, a front as the host
// side, and a front that counts, fails and checks the calls of the program it serves.
//
// Every function is thread-safe and may be called from inside a completion or a subscriber. Completions and
// subscribers are called one at a time, in the order of the events on the bus, with no lock of the bus held,
// on whichever thread (one of the bus, or one that is calling the bus) finds them due.
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

/// One plug of one device. Counts up from 1; a device that is plugged in again gets a new number.
using ConnectionId = std::uint64_t;

enum class Speed { full, high, super };

enum class TransferType : std::uint8_t { control = 0, isochronous = 1, bulk = 2, interrupt = 3 };

enum class Status { completed, stall, noDevice, cancelled, overflow };

/// A HID interface as a host's HID driver finds it in the descriptors.
struct HidInterface {
    std::uint8_t number = 0;
    std::uint8_t inEndpoint = 0;              ///< interrupt IN, for input reports
    std::optional<std::uint8_t> outEndpoint;  ///< interrupt OUT; without one, output reports go to endpoint 0
    std::size_t inputBytes = 64;              ///< of an input report
};

/// The description of a device that a front gets at the plug; constant while the connection lasts.
struct DeviceInfo {
    ConnectionId connection = 0;
    std::string id;      ///< the scenario's name of the device
    std::string serial;  ///< UTF-8, empty when there is none
    Speed speed = Speed::full;
    std::uint8_t busNumber = 1;
    std::uint8_t address = 1;
    Bytes ports{1};          ///< from the root to the device
    ConnectionId hub = 0;    ///< that it is plugged into; 0: the root
    Bytes deviceDescriptor;  ///< as the device gives it, 18 bytes unless the scenario says otherwise
    std::vector<Bytes> configurationDescriptors;  ///< each whole, as the device gives it
    std::vector<HidInterface> hidInterfaces;  ///< of the configuration that is active at the plug; a host's
                                              ///< HID driver holds them
    std::map<std::string, int>
        hostFailures;  ///< operation ("open", "claim", ...) to the code it always fails with
};
using DeviceInfoPtr = std::shared_ptr<const DeviceInfo>;

struct Setup {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;  ///< of the data stage
};

/// One transfer, owned by the front that submits it. The transfer and its data must stay in place until
/// `done` has been called; from then on, also inside `done`, it may be submitted again.
struct Transfer {
    // Filled in by the front.
    std::uint8_t endpoint = 0;     ///< address with direction bit; 0 or 0x80 for a control transfer
    Setup setup;                   ///< control transfers only
    std::uint8_t* data = nullptr;  ///< the data stage; may be null when length is 0
    std::size_t length = 0;        ///< bytes at data; for a control transfer at least setup.length
    std::function<void()> done;    ///< called exactly once for every submission that answered `accepted`

    // Filled in by the bus before `done`.
    Status status = Status::completed;
    std::size_t actual = 0;  ///< bytes transferred, also when it failed

    // Private to the bus.
    ConnectionId connection = 0;
    std::int64_t dueNanoseconds = 0;
    bool postponed = false;  ///< by the delay of a rule
};

struct ActiveEndpoint {
    std::uint8_t interfaceNumber = 0;
    TransferType type = TransferType::bulk;
};

enum class Submitted { accepted, noDevice, noEndpoint };

/// A function of a front whose calls are counted, failed and hooked. One static object per function.
class SIMBUS_API CallPoint {
 public:
    /// `name` is the name that tests use ("libusb_open"). It and the object must outlive all calls of the
    /// process.
    explicit CallPoint(const char* name);
    CallPoint(const CallPoint&) = delete;
    CallPoint& operator=(const CallPoint&) = delete;

    /// To be called at the function's entry with no lock held: counts the call, runs the hook, and returns
    /// the code to fail with, if any.
    std::optional<int> enter() {
        count_.fetch_add(1, std::memory_order_relaxed);
        return armed_.load(std::memory_order_acquire) ? enterArmed() : std::nullopt;
    }

 private:
    friend class CallLog;
    std::optional<int> enterArmed();

    const char* name_;
    std::atomic<std::uint64_t> count_{0};
    std::atomic<bool> armed_{false};  ///< the function has a hook or a fault
};

class SIMBUS_API Bus {
 public:
    /// The one bus of the process. It is created when the library is loaded, reads the scenario file named by
    /// SIMBUS_SCENARIO and creates a control socket at SIMBUS_SOCKET. If SIMBUS_BUS names the control socket
    /// of another process, the devices are those of the bus there, and SIMBUS_SCENARIO is ignored. The
    /// threads of the bus stop and the socket is removed at process exit. The variables are ignored in
    /// programs that have more rights than their user.
    static Bus& instance();

    /// Whether there is a control socket, of the environment or of openControlSocket().
    bool hasControlSocket() const;
    /// Creates a control socket, if there is none yet. On failure returns false and writes the reason to
    /// standard error.
    bool openControlSocket(const std::string& path);
    /// Whether the environment names a scenario that could not be loaded and no other has been loaded since,
    /// or a bus that does not answer.
    virtual bool lacksScenario() const;

    // Control. These throw std::runtime_error with a readable text when the request does not apply (no such
    // device, already plugged in, ...).

    /// Replaces everything on the bus with the devices of a scenario (JSON text).
    virtual void loadScenario(const std::string& json);
    /// The same with the text of a file; what is thrown names the file, and the line in it.
    void loadScenarioFile(const std::string& path);
    virtual void plug(const std::string& id);
    virtual void unplug(const std::string& id);
    /// Returns to the loaded scenario and clears faults, hooks, calls, violations and records.
    virtual void reset();

    /// Queues bytes to be read from an IN endpoint; they are cut into packets when they are read.
    virtual void feed(const std::string& id, std::uint8_t endpoint, const Bytes& data);
    /// What the OUT endpoint has received since the plug, one entry per transfer. Only the latest megabytes
    /// are kept.
    virtual std::vector<Bytes> received(const std::string& id, std::uint8_t endpoint);
    virtual void clearReceived(const std::string& id, std::uint8_t endpoint);
    /// The number of transfers that are waiting on the endpoint.
    virtual std::size_t pending(const std::string& id, std::uint8_t endpoint);

    /// Executes one request of the control protocol: a JSON object in, one out, both without line end. Never
    /// throws.
    virtual std::string command(const std::string& jsonLine);

    // Host side, for fronts.

    /// The devices that are plugged in, oldest connection first.
    virtual std::vector<DeviceInfoPtr> devices();

    /// Calls `subscriber` for every device that is plugged in (true) or unplugged (false) from now on. plug()
    /// and unplug() return after that call, unless they are called from inside a completion or subscriber.
    /// After unsubscribe() the subscriber may run once more on another thread.
    using Subscriber = std::function<void(const DeviceInfoPtr&, bool arrived)>;
    virtual int subscribe(Subscriber subscriber);
    virtual void unsubscribe(int subscription);

    /// Submits a transfer to the device. If it is accepted, transfer.done is called once, possibly before
    /// this returns. The caller must not hold a lock that its `done` takes.
    virtual Submitted submit(ConnectionId connection, Transfer& transfer);
    /// Ends a waiting transfer: done is called with `cancelled`. Returns false when it was not waiting (any
    /// more).
    virtual bool cancel(Transfer& transfer);

    /// Requests that a host's driver makes on behalf of a program. Each returns completed, stall (no such
    /// configuration, interface or setting) or noDevice. Transfers on endpoints that are removed are
    /// cancelled.
    virtual Status setConfiguration(ConnectionId connection, std::uint8_t value);  ///< 0 unconfigures
    virtual Status setAlternate(ConnectionId connection, std::uint8_t interfaceNumber,
                                std::uint8_t alternate);
    virtual Status clearHalt(ConnectionId connection, std::uint8_t endpoint);
    /// Cancels all waiting transfers, empties all queues and clears all halts; keeps the configuration and
    /// alternate settings.
    virtual Status resetDevice(ConnectionId connection);

    /// The active configuration, setting or endpoint; empty when there is no such device, configuration or
    /// interface.
    virtual std::optional<std::uint8_t> configuration(ConnectionId connection);  ///< 0 when unconfigured
    virtual std::optional<std::uint8_t> alternate(ConnectionId connection, std::uint8_t interfaceNumber);
    /// An endpoint of the active settings.
    virtual std::optional<ActiveEndpoint> activeEndpoint(ConnectionId connection, std::uint8_t endpoint);

    /// Reserves an interface for one owner: a process with this bus (null: the one that it is in). Returns
    /// false when another owner has it.
    virtual bool claim(ConnectionId connection, std::uint8_t interfaceNumber, const void* owner = nullptr);
    virtual void release(ConnectionId connection, std::uint8_t interfaceNumber, const void* owner = nullptr);
    void releaseAll(const void* owner);

    /// Attaches the system's HID driver to an interface, or detaches it, which ends the driver's transfers
    /// with noDevice. Returns stall when it is not a HID interface or already in that state.
    virtual Status setDriver(ConnectionId connection, std::uint8_t interfaceNumber, bool attached);
    /// True when the HID driver has the interface. It has all HID interfaces at the plug.
    virtual bool hasDriver(ConnectionId connection, std::uint8_t interfaceNumber);

    /// Only in memory can calls be counted, failed and checked: a kernel's are not seen here, and those of
    /// the processes that share this bus are counted there. The control protocol reports that.
    enum class Front { memory, kernel, shared };
    void setFront(Front front);

    // Calls of the program under test, for fronts in memory and for tests.

    /// The nth next call (1 = the next) of a function, and the times-1 calls after it, return `code`.
    void failCall(const std::string& function, unsigned nth, int code, unsigned times = 1);
    void clearFaults();
    /// Runs `hook` at every entry of the function, on the calling thread, with no lock held. An empty hook
    /// removes it.
    void onCall(const std::string& function, std::function<void()> hook);
    void clearHooks();
    /// Calls per function since the start or the last clearCalls(); functions that were not called are
    /// missing.
    std::map<std::string, std::uint64_t> calls();
    void clearCalls();
    /// Wrong uses that a front has found in its caller, oldest first; at most 1000 are kept.
    std::vector<std::string> violations();
    void addViolation(const std::string& text);
    void clearViolations();
    /// Numbers that a front keeps by name ("config descriptors not freed"); they are not violations.
    std::int64_t tally(const std::string& name);
    void addToTally(const std::string& name, std::int64_t amount);

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

 protected:
    Bus();
    virtual ~Bus() = default;
    virtual void stop();

 private:
    friend struct BusEnd;
    friend class ControlProtocol;
    struct Parts;
    static Bus* create();
    template <class Action>
    Status onDevice(ConnectionId connection, Action action);

    Parts* parts_;  ///< never freed: threads of the program may call until the process has ended
};

}  // namespace simbus
