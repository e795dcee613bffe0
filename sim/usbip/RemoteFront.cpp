#include "RemoteFront.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "Handshake.h"
#include "SocketBytes.h"

namespace simbus::usbip {
namespace {

constexpr int kPatienceSeconds = 5;  // for a client that has no device yet
constexpr int kWaitingClients = 16;
constexpr std::chrono::milliseconds kPauseAfterError{100};  // usually too many open files or threads

void setPatience(int socket, int seconds) {
    const timeval patience{seconds, 0};  // 0 means no limit
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

void sendMessage(int socket, const Bytes& message) {
    sendWhole(socket, message.data(), message.size());
}

DeviceInfoPtr findDevice(const std::string& busId) {
    const std::vector<DeviceInfoPtr> devices = Bus::instance().devices();
    const auto found = std::find_if(devices.begin(), devices.end(),
                                    [&](const DeviceInfoPtr& each) { return busIdOf(*each) == busId; });
    return found == devices.end() ? nullptr : *found;
}

int listeningSocket(std::uint16_t port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, kWaitingClients) != 0) {
        const int problem = errno;
        ::close(listener);
        throw std::system_error(problem, std::generic_category(), "port " + std::to_string(port));
    }
    return listener;
}

/// Returns false when the system cannot create a thread.
template <class Work>
bool startThread(Work work) {
    try {
        std::thread(work).detach();
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

}  // namespace

RemoteFront::RemoteFront() {
    Bus& bus = Bus::instance();
    bus.setFront(Bus::Front::kernel);
    bus.subscribe([this](const DeviceInfoPtr& device, bool arrived) {
        if (!arrived) {
            hangUpOn(device->connection);
        }
    });
}

void RemoteFront::serve(int client) {
    const int yes = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);  // answers are small and urgent
    setPatience(client, kPatienceSeconds);
    Preamble preamble;
    const bool spoke = receiveWhole(client, preamble.data(), preamble.size());
    switch (spoke ? parseOperation(preamble) : Operation::unknown) {
        case Operation::list:
            sendMessage(client, listAnswer(Bus::instance().devices()));
            ::close(client);
            break;
        case Operation::import:
            lend(client);
            break;
        case Operation::unknown:
            ::close(client);
            break;
    }
}

void RemoteFront::lend(int client) {
    BusIdField wanted;
    const bool named = receiveWhole(client, wanted.data(), wanted.size());
    const DeviceInfoPtr device = named ? findDevice(parseBusId(wanted)) : nullptr;
    const std::shared_ptr<DeviceLink> link = device == nullptr ? nullptr : lendTo(client, device);
    if (link == nullptr) {
        const ImportStatus why = device == nullptr ? ImportStatus::noDevice : ImportStatus::deviceBusy;
        sendMessage(client, importAnswer(why, nullptr));
        ::close(client);
        return;
    }
    if (findDevice(busIdOf(*device)) != device) {
        link->hangUp();  // unplugged before it was recorded as lent
    }
    setPatience(client, 0);
    sendMessage(client, importAnswer(ImportStatus::granted, device.get()));
    link->serve();
    const std::lock_guard<std::mutex> lock(mutex_);
    lent_.erase(device->connection);
}

/// Returns null when another client has the device.
std::shared_ptr<DeviceLink> RemoteFront::lendTo(int client, const DeviceInfoPtr& device) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (closed_ || lent_.count(device->connection) != 0) {
        return nullptr;
    }
    return lent_[device->connection] = std::make_shared<DeviceLink>(device->connection, client);
}

void RemoteFront::hangUpOn(ConnectionId connection) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = lent_.find(connection);
    if (found != lent_.end()) {
        found->second->hangUp();
    }
}

void RemoteFront::listen(std::uint16_t port) {
    const int listener = listeningSocket(port);
    std::thread([this, listener] {
        while (true) {
            const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0 || !startThread([this, client] { serve(client); })) {
                ::close(client);
                std::this_thread::sleep_for(kPauseAfterError);
            }
        }
    }).detach();
}

void RemoteFront::close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    for (const auto& [connection, link] : lent_) {
        link->hangUp();
    }
}

}  // namespace simbus::usbip
