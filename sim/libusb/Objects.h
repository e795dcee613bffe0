// The objects behind the opaque pointers of the library's interface. Unless stated otherwise, all of it is
// guarded by sim::state().mutex, which is never held while the bus makes calls or user callbacks run.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LibusbApi.h"
#include "Options.h"
#include "PollFds.h"
#include "Registry.h"

struct libusb_device {
    libusb_context* context;
    simbus::DeviceInfoPtr info;
    libusb_device_descriptor descriptor;
    bool attached = true;
    int callerReferences = 0;  ///< from lists and libusb_ref_device
    int ownReferences =
        1;  ///< of the library: the connection (then its departure's message), handles, transfers
    /// Its manufacturer, product and serial number as UTF-8, each from the first time that it is read.
    std::array<std::optional<std::string>, 3> strings{};
};

struct libusb_device_handle {
    libusb_device* device;
    libusb_context* context;
    std::uint32_t claimed = 0;     ///< interfaces that the program has claimed itself, one bit each
    bool detachesDrivers = false;  ///< a claim detaches the kernel driver, and a release attaches it
};

namespace sim {

struct TransferRecord {
    explicit TransferRecord(int isochronousPackets);
    ~TransferRecord();
    TransferRecord(const TransferRecord&) = delete;
    TransferRecord& operator=(const TransferRecord&) = delete;

    libusb_transfer* const shown;  ///< the part that the program fills in
    std::uint32_t stream = 0;      ///< as the program has set it

    std::mutex submission;  ///< held while the transfer is submitted to the bus or cancelled there; taken
                            ///< before the state's lock
    simbus::Transfer bus;

    libusb_context* context = nullptr;  ///< these four as of the last submission
    libusb_device* device = nullptr;    ///< referenced
    libusb_device_handle* handle = nullptr;
    std::uint8_t interfaceNumber = 0;

    std::uint64_t submissions = 0;
    std::int64_t deadline = 0;  ///< nanoseconds of the steady clock; 0 for none
    bool inFlight = false;
    bool cancelling = false;
    bool timeoutSeen = false;
    bool timedOut = false;
    bool abandoned = false;           ///< its handle was closed meanwhile; no callback will run
    std::optional<int> forcedStatus;  ///< set by a fault
};

struct HotplugCallback {
    libusb_hotplug_callback_handle handle;
    int events;
    int vendorId;
    int productId;
    int deviceClass;
    libusb_hotplug_callback_fn function;
    void* userData;
    bool removed = false;
};

struct HotplugMessage {
    libusb_device* device;
    libusb_hotplug_event event;
};

struct DeviceListRecord {
    libusb_context* context;
    std::vector<libusb_device*> devices;  ///< including the terminating null
};

struct ConfigRecord;

}  // namespace sim

struct libusb_context {
    bool inUse = false;
    sim::Options options;
    std::vector<libusb_device*> devices;  ///< connected, newest first
    std::vector<libusb_device_handle*> handles;
    std::vector<std::shared_ptr<sim::HotplugCallback>> callbacks;  ///< newest first
    libusb_hotplug_callback_handle nextCallback = 1;

    /// The thread that handles events, and what wakes it.
    std::thread::id eventsOwner;  ///< of the events lock
    std::condition_variable eventsFree;
    bool handlerActive = false;
    int closing = 0;  ///< threads that are closing a device and wait for the events lock
    std::condition_variable wake;
    bool interrupted = false;
    bool deregistered = false;
    bool sourcesChanged = false;  ///< a device was opened
    std::deque<sim::HotplugMessage> messages;
    std::deque<sim::TransferRecord*> finished;  ///< completed on the bus, callback not yet called
    std::vector<sim::TransferRecord*> flying;   ///< submitted, callback not yet called

    /// Null until the program asks for them.
    std::unique_ptr<sim::PollFds> pollFds;
    std::atomic<bool> polled{false};  ///< they are not null; without the lock
    libusb_pollfd_removed_cb pollFdRemoved = nullptr;
    void* pollFdUserData = nullptr;

    /// The event waiters lock is a separate lock, because programs hold it. Taken before the state's lock.
    std::mutex waitersMutex;
    std::condition_variable waiters;
    std::thread::id waitersOwner;  ///< guarded by the state's lock
};

namespace sim {

struct State {
    std::mutex mutex;
    Registry<libusb_device> devices;
    Registry<libusb_device_handle> handles;
    Registry<TransferRecord> transfers;
    Registry<DeviceListRecord> lists;
    Registry<ConfigRecord> configs;

    std::vector<std::unique_ptr<libusb_context>> contexts;  ///< including ended ones, kept for reuse
    Options options;                                        ///< of the contexts to come
    libusb_context* defaultContext = nullptr;
    int defaultContextUsers = 0;
    /// The first context, which a null context means when there is no default.
    libusb_context* implicitDefault = nullptr;

    /// The handle that has claimed each interface of each connection.
    std::map<std::pair<simbus::ConnectionId, std::uint8_t>, libusb_device_handle*> claims;
};

/// Never freed: threads may call until the process has ended.
State& state();

using StateLock = std::unique_lock<std::mutex>;

/// What the current thread is doing inside the library.
struct ThreadState {
    libusb_context* handling = nullptr;  ///< the context whose events it handles
    bool inCallback = false;             ///< in a transfer or hotplug callback
};
ThreadState& threadState();

}  // namespace sim
