// What stands behind the opaque pointers of the library's interface. Unless said otherwise everything here is
// guarded by sim::state().mutex. That lock is never held while the bus makes calls or user callbacks run.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "LibusbApi.h"
#include "Registry.h"

struct libusb_device {
    libusb_context* context;
    simbus::DeviceInfoPtr info;
    libusb_device_descriptor descriptor;
    bool attached = true;
    int callerReferences = 0;  // of lists and libusb_ref_device
    int ownReferences =
        1;  // of the library: the connection (then its departure's message), handles, transfers
};

struct libusb_device_handle {
    libusb_device* device;
    libusb_context* context;
    std::uint32_t claimed = 0;  // the interfaces that the program claimed by itself, a bit each
};

namespace sim {

struct TransferRecord {
    explicit TransferRecord(int isochronousPackets);
    ~TransferRecord();
    TransferRecord(const TransferRecord&) = delete;
    TransferRecord& operator=(const TransferRecord&) = delete;

    libusb_transfer* const shown;  // what the program fills in

    std::mutex submission;  // held while the bus is asked to take or cancel this transfer; taken before the
                            // state's lock
    simbus::Transfer bus;

    libusb_context* context = nullptr;  // these four as of the last submission
    libusb_device* device = nullptr;    // referenced
    libusb_device_handle* handle = nullptr;
    std::uint8_t interfaceNumber = 0;

    std::uint64_t submissions = 0;
    std::int64_t deadline = 0;  // nanoseconds of the steady clock; 0: none
    bool inFlight = false;
    bool cancelling = false;
    bool timeoutSeen = false;
    bool timedOut = false;
    bool abandoned = false;           // its handle was closed under it: it will not be heard of again
    std::optional<int> forcedStatus;  // by a fault
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
    std::vector<libusb_device*> devices;  // with the null at its end
};

struct ConfigRecord;

}  // namespace sim

struct libusb_context {
    bool inUse = false;
    std::vector<libusb_device*> devices;  // connected, newest first
    std::vector<libusb_device_handle*> handles;
    std::vector<std::shared_ptr<sim::HotplugCallback>> callbacks;  // newest first
    libusb_hotplug_callback_handle nextCallback = 1;

    // Who handles events, and what wakes it.
    std::thread::id eventsOwner;  // of the events lock
    std::condition_variable eventsFree;
    bool handlerActive = false;
    int closing = 0;  // threads that are closing a device and want the events lock
    std::condition_variable wake;
    bool interrupted = false;
    bool deregistered = false;
    bool sourcesChanged = false;  // a device was opened
    std::deque<sim::HotplugMessage> messages;
    std::deque<sim::TransferRecord*> finished;  // completed on the bus, not yet handed to their callbacks
    std::vector<sim::TransferRecord*> flying;   // submitted, callback not yet called

    // The event waiters lock is a lock of its own: programs hold it. Taken before the state's lock.
    std::mutex waitersMutex;
    std::condition_variable waiters;
    std::thread::id waitersOwner;  // guarded by the state's lock
};

namespace sim {

struct State {
    std::mutex mutex;
    Registry<libusb_device> devices;
    Registry<libusb_device_handle> handles;
    Registry<TransferRecord> transfers;
    Registry<DeviceListRecord> lists;
    Registry<ConfigRecord> configs;

    std::vector<std::unique_ptr<libusb_context>> contexts;  // ended ones wait here to be used again
    libusb_context* defaultContext = nullptr;
    int defaultContextUsers = 0;
    // The first one made, which a null context means when there is no default.
    libusb_context* implicitDefault = nullptr;

    // By whom each interface of each connection is claimed.
    std::map<std::pair<simbus::ConnectionId, std::uint8_t>, libusb_device_handle*> claims;
};

// Never freed: threads may call until the very end of the process.
State& state();

using StateLock = std::unique_lock<std::mutex>;

// What the current thread is doing inside the library.
struct ThreadState {
    libusb_context* handling = nullptr;  // whose events it handles
    bool inCallback = false;             // of a transfer or of hotplug
};
ThreadState& threadState();

}  // namespace sim
