#include "DeviceLink.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "SocketBytes.h"

namespace simbus::usbip {
namespace {

constexpr std::size_t kLargestTransfer = std::size_t{64} << 20;
constexpr std::size_t kMostWaitingBytes = 2 * kLargestTransfer;
constexpr std::size_t kMostIsoPackets = 1024;
constexpr std::size_t kIsoDescriptorBytes = 16;

int errnoOf(Status status) {
    switch (status) {
        case Status::completed:
            return 0;
        case Status::stall:
            return -EPIPE;
        case Status::overflow:
            return -EOVERFLOW;
        case Status::noDevice:
            return -ESHUTDOWN;
        case Status::cancelled:  // by the device, not by an unlink
            return -EPROTO;
    }
    return -EPROTO;
}

}  // namespace

DeviceLink::DeviceLink(ConnectionId connection, int socket)
    : connection_(connection), socket_(socket), writer_(socket) {}

DeviceLink::~DeviceLink() {
    close(socket_);
}

void DeviceLink::hangUp() {
    writer_.stop();
    shutdown(socket_, SHUT_RDWR);
}

void DeviceLink::serve() {
    std::thread writer;
    try {
        writer = std::thread([this] { writer_.run(); });
    } catch (const std::system_error&) {
        return hangUp();  // the system has no thread for it
    }
    serveRequests();
    hangUp();
    takeBackAll();
    writer.join();
}

void DeviceLink::serveRequests() {
    Request request;
    Bytes data;
    bool makesSense = true;
    while (makesSense && readRequest(request, data)) {
        if (request.kind == Request::Kind::submit) {
            makesSense = submit(request, std::move(data));
        } else {
            makesSense = unlink(request);
        }
    }
}

/// Returns false at the end of the link, and at an invalid message: the data after it could not be read
/// either.
bool DeviceLink::readRequest(Request& request, Bytes& data) {
    Header header;
    if (!receiveWhole(socket_, header.data(), header.size())) {
        return false;
    }
    request = parseRequest(header);
    if (request.kind == Request::Kind::unlink) {
        return true;
    }
    if (request.kind != Request::Kind::submit || request.length > kLargestTransfer ||
        request.isoPackets > kMostIsoPackets) {
        return false;
    }
    data.assign(request.length, 0);
    Bytes isoDescriptors(request.isoPackets * kIsoDescriptorBytes);
    return (request.in || receiveWhole(socket_, data.data(), request.length)) &&
           receiveWhole(socket_, isoDescriptors.data(), isoDescriptors.size());
}

/// Returns false when the request is invalid.
bool DeviceLink::submit(const Request& request, Bytes data) {
    if (request.isoPackets > 0) {
        const std::lock_guard<std::mutex> lock(mutex_);
        send(submitAnswer(request.number, -EINVAL, 0), nullptr, 0);
        return hasRoomFor(0);
    }
    auto urb = std::make_shared<Urb>();
    urb->data = std::move(data);
    urb->in = request.in;
    urb->transfer.endpoint = request.endpoint;
    urb->transfer.setup = request.setup;
    urb->transfer.setup.length =
        static_cast<std::uint16_t>(std::min<std::size_t>(request.setup.length, urb->data.size()));
    urb->transfer.data = urb->data.data();
    urb->transfer.length = urb->data.size();
    urb->transfer.done = [self = shared_from_this(), number = request.number] { self->completed(number); };
    if (!noteAsWaiting(request.number, urb)) {
        return false;
    }
    const Submitted submitted = Bus::instance().submit(connection_, urb->transfer);
    if (submitted != Submitted::accepted) {
        urb->transfer.status = submitted == Submitted::noDevice ? Status::noDevice : Status::stall;
        completed(request.number);
    }
    return true;
}

/// Whether a client may make that many more bytes wait, here or to be read by it. The mutex is held.
bool DeviceLink::hasRoomFor(std::size_t bytes) const {
    return waitingBytes_ + writer_.unsent() + bytes <= kMostWaitingBytes;
}

/// Returns false for a number that is already waiting, whose answers could not be told apart, and when more
/// is waiting than any kernel allows.
bool DeviceLink::noteAsWaiting(std::uint32_t number, const std::shared_ptr<Urb>& urb) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t bytes = sizeof(Urb) + urb->data.size();
    if (!hasRoomFor(bytes) || !waiting_.emplace(number, urb).second) {
        return false;
    }
    waitingBytes_ += bytes;
    return true;
}

/// Returns false when the client does not read its answers.
bool DeviceLink::unlink(const Request& request) {
    std::shared_ptr<Urb> urb;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = waiting_.find(request.unlinked);
        if (found == waiting_.end()) {
            send(unlinkAnswer(request.number, 0), nullptr, 0);
            return hasRoomFor(0);
        }
        urb = found->second;
        urb->unlinkedBy = request.number;
    }
    // Whether it is cancelled or completes at this moment, completed() sends the answer.
    Bus::instance().cancel(urb->transfer);
    return true;
}

void DeviceLink::completed(std::uint32_t number) {
    const auto keep = shared_from_this();  // the end of the transfer drops its reference to this link
    std::shared_ptr<Urb> urb;
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = waiting_.find(number);
    if (found == waiting_.end()) {
        return;
    }
    urb = std::move(found->second);
    waiting_.erase(found);
    waitingBytes_ -= sizeof(Urb) + urb->data.size();

    const Transfer& transfer = urb->transfer;
    if (transfer.status == Status::noDevice) {
        return;  // no answer from a device that is gone; the link is about to be closed
    }
    const bool takenBack = urb->unlinkedBy != 0 && transfer.status == Status::cancelled;
    // The answer to an unlink carries no data, so a transfer that has moved some is answered itself first.
    if (!takenBack || transfer.actual > 0) {
        const int status = takenBack ? -ECONNRESET : errnoOf(transfer.status);
        send(submitAnswer(number, status, transfer.actual), transfer.data, urb->in ? transfer.actual : 0);
    }
    if (urb->unlinkedBy != 0) {
        send(unlinkAnswer(urb->unlinkedBy, takenBack && transfer.actual == 0 ? -ECONNRESET : 0), nullptr, 0);
    }
}

void DeviceLink::takeBackAll() {
    std::vector<std::shared_ptr<Urb>> urbs;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [number, urb] : waiting_) {
            urbs.push_back(urb);
        }
    }
    for (const auto& urb : urbs) {
        Bus::instance().cancel(urb->transfer);
    }
}

void DeviceLink::send(const Header& header, const std::uint8_t* data, std::size_t length) {
    Bytes message(header.begin(), header.end());
    message.insert(message.end(), data, data + length);
    writer_.send(std::move(message));
}

}  // namespace simbus::usbip
