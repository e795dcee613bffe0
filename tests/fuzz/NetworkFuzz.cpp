// The server of USB/IP: whatever clients say, whole or cut, in any order, while the bus changes under them.

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <deque>
#include <map>
#include <string>
#include <thread>

#include "FuzzInput.h"
#include "RemoteFront.h"
#include "UrbBytes.h"

namespace {

using simbus::Bus;
using simbus::Bytes;
using usbiptest::kHeaderBytes;
using usbiptest::kSubmitAnswer;
using usbiptest::kUnlinkAnswer;
using usbiptest::wordAt;

constexpr char kScenario[] = R"({"devices": [
    {"id": "tool", "plugged": true, "vendorId": "0x6A5C", "productId": "0x1001", "serial": "LENT0001",
     "interfaces": [{"number": 0, "class": 255, "endpoints": [
        {"address": "0x01", "type": "bulk", "maxPacketSize": 64, "behaviour": "echo"},
        {"address": "0x81", "type": "bulk", "maxPacketSize": 64, "behaviour": "echo"},
        {"address": "0x02", "type": "bulk", "maxPacketSize": 64, "behaviour": "sink", "record": true},
        {"address": "0x82", "type": "bulk", "maxPacketSize": 64, "behaviour": "source"},
        {"address": "0x83", "type": "interrupt", "maxPacketSize": 8, "behaviour": "silent", "limit": 5},
        {"address": "0x84", "type": "bulk", "maxPacketSize": 64, "behaviour": "stall"}]}]}]})";
constexpr std::array<std::uint8_t, 7> kEndpoints = {0x00, 0x01, 0x81, 0x02, 0x82, 0x83, 0x84};
constexpr int kMostClients = 3;
constexpr std::size_t kPreambleBytes = 8;
constexpr std::size_t kDeviceBytes = 312;
constexpr std::array<std::uint32_t, 8> kLengths = {0, 1, 5, 8, 64, 65, 512, 100000};

simbus::usbip::RemoteFront& front() {
    static auto& only = *new simbus::usbip::RemoteFront();  // the bus may tell it of devices until the end
    return only;
}

/// Does something with a device that may not be plugged in, or not have the endpoint.
template <class Work>
void ifPossible(Work work) {
    try {
        work();
    } catch (const std::exception&) {
        // Refused, with a text that says why.
    }
}

/// One client: what it says, and whether what it hears is an answer to that.
class Client {
 public:
    Client(FuzzInput& input, int socket) : input_(input), socket_(socket) {}

    /// Says what the input has for one client, and then no more.
    void speak() {
        while (!input_.atEnd() && act(input_.byte())) {
        }
        shutdown(socket_, SHUT_WR);
    }

    /// Hears all there is to hear.
    void listen() {
        std::array<std::uint8_t, 65536> buffer;
        for (ssize_t got = 0; (got = recv(socket_, buffer.data(), buffer.size(), 0)) > 0;) {
            heard_.insert(heard_.end(), buffer.begin(), buffer.begin() + got);
        }
    }

    void requireGoodAnswers() {
        if (!isTold_ || !imported_ || heard_.size() < kPreambleBytes + kDeviceBytes) {
            return;
        }
        std::size_t at = kPreambleBytes + kDeviceBytes;
        while (at + kHeaderBytes <= heard_.size()) {
            at += kHeaderBytes + requireGoodAnswer(at);
        }
    }

 private:
    struct Asked {
        bool in;
        std::uint32_t unlinked;
    };

    // False at the end of the client.
    bool act(std::uint8_t choice) {
        switch (choice % 10) {
            case 0:
                import();
                return true;
            case 1:
                sayRaw({0x01, 0x11, 0x80, 0x05, 0, 0, 0, 0});
                return true;
            case 2:
            case 3:
                submit(false);
                return true;
            case 4:
            case 5:
                submit(true);
                return true;
            case 6:
                unlink();
                return true;
            case 7:
                changeBus();
                return true;
            case 8:
                sayRaw(input_.counted());
                return true;
            default:
                return false;
        }
    }

    void import() {
        Bytes message{0x01, 0x11, 0x80, 0x03, 0, 0, 0, 0};
        const auto devices = Bus::instance().devices();
        const std::string id = devices.empty() ? "9-9"
                                               : std::to_string(devices[0]->busNumber) + "-" +
                                                     std::to_string(devices[0]->ports.back());
        message.insert(message.end(), id.begin(), id.end());
        message.resize(kPreambleBytes + 32);
        isTold_ = isTold_ && !imported_ && said_ == 0;
        imported_ = true;
        say(message);
    }

    void submit(bool in) {
        const std::uint32_t number = input_.byte() % 8;
        const std::uint32_t endpoint = input_.byte() % 6;
        const std::uint32_t length = in ? input_.oneOf(kLengths) : input_.byte();
        Bytes setup(8);
        if (endpoint == 0) {
            setup = input_.bytes(8);
            setup.resize(8);
        }
        const Bytes data = in ? Bytes() : input_.bytes(length);
        asked_[{kSubmitAnswer, number}].push_back({in, 0});
        say(in ? usbiptest::submitIn(number, endpoint, length, setup)
               : usbiptest::submitOut(number, endpoint, data, setup));
    }

    void unlink() {
        const std::uint32_t number = input_.byte() % 8;
        const std::uint32_t unlinked = input_.byte() % 8;
        asked_[{kUnlinkAnswer, number}].push_back({false, unlinked});
        say(usbiptest::unlink(number, unlinked));
    }

    void changeBus() {
        const std::uint8_t choice = input_.byte() % 8;
        const std::uint8_t endpoint = input_.byte();
        const Bytes data = input_.counted();
        ifPossible([&] {
            switch (choice) {
                case 0:
                    return Bus::instance().unplug("tool");
                case 1:
                    return Bus::instance().plug("tool");
                default:
                    return Bus::instance().feed("tool", endpoint, data);
            }
        });
    }

    /// From here on it is not known what belongs to what.
    void sayRaw(const Bytes& bytes) {
        isTold_ = false;
        say(bytes);
    }

    void say(const Bytes& bytes) {
        said_ += bytes.size();
        send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    /// The number of bytes behind the answer's header.
    std::size_t requireGoodAnswer(std::size_t at) {
        const std::uint32_t kind = wordAt(heard_, at);
        const Asked asked = answered(kind, wordAt(heard_, at + 4));
        const auto status = static_cast<std::int32_t>(wordAt(heard_, at + 20));
        require(status <= 0, "a status is 0 or an error");
        if (kind == kUnlinkAnswer && status == -ECONNRESET) {
            answered(kSubmitAnswer, asked.unlinked);  // what was taken back has no answer of its own
        }
        return kind == kSubmitAnswer && asked.in ? wordAt(heard_, at + 24) : 0;
    }

    Asked answered(std::uint32_t kind, std::uint32_t number) {
        auto& asked = asked_[{kind, number}];
        require(!asked.empty(), "what is answered was asked, and was not answered before");
        const Asked first = asked.front();
        asked.pop_front();
        return first;
    }

    FuzzInput& input_;
    int socket_;
    std::size_t said_ = 0;
    bool imported_ = false;
    bool isTold_ = true;  // nothing was said that is not kept in asked_
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::deque<Asked>> asked_;  // by kind and number
    Bytes heard_;
};

void serveOne(FuzzInput& input) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "there are sockets");
    Client client(input, ends[1]);
    std::thread speaker([&] { client.speak(); });
    std::thread listener([&] { client.listen(); });
    front().serve(ends[0]);
    speaker.join();
    listener.join();
    close(ends[1]);
    client.requireGoodAnswers();
}

}  // namespace

/// Programs of clients, one after the other.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    Bus::instance().loadScenario(kScenario);
    for (int count = 0; count < kMostClients && !input.atEnd(); ++count) {
        serveOne(input);
    }
    for (const std::uint8_t endpoint : kEndpoints) {
        ifPossible([&] {
            require(Bus::instance().pending("tool", endpoint) == 0,
                    "nothing waits for a client that is gone");
        });
    }
    Bus::instance().loadScenario(R"({"devices": []})");
    return 0;
}
