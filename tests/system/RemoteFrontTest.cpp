// The server of USB/IP, with this test in the place of a client.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

#include "Handshake.h"
#include "ProgramClient.h"
#include "RemoteFront.h"
#include "UrbBytes.h"

namespace simbus::usbip {
namespace {

constexpr char remoteScenario[] = R"({"devices": [
    {"id": "tool", "vendorId": "0x6A5C", "productId": "0x1001", "bcdDevice": "0x0203", "serial": "LENT0001",
     "interfaces": [
        {"number": 0, "class": 255, "subClass": 1, "protocol": 2,
         "endpoints": [{"address": "0x81", "type": "bulk", "maxPacketSize": 64, "behaviour": "silent"}]},
        {"number": 1, "class": 3, "subClass": 0, "protocol": 0, "endpoints": []}]},
    {"id": "liar", "vendorId": "0x6A5C", "productId": "0x1002",
     "rawDeviceDescriptor": "12", "rawConfigurationDescriptors": ["0902FFFF01010080320904000000FF"],
     "interfaces": [{"number": 0, "endpoints": []}]},
    {"id": "stuck", "vendorId": "0x6A5C", "productId": "0x1003",
     "rawConfigurationDescriptors": ["0902FFFF010100803200"],
     "interfaces": [{"number": 0, "endpoints": []}]}]})";

constexpr std::size_t deviceBytes = 312;

// One client and the server's thread for it.
class Client {
 public:
    explicit Client(RemoteFront& front) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        socket_ = ends[1];
        const timeval deadline{20, 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
        server_ = std::thread([&front, end = ends[0]] { front.serve(end); });
    }
    ~Client() { hangUp(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Returns when the server is done with this client, too.
    void hangUp() {
        shutdown(socket_, SHUT_RDWR);
        if (server_.joinable()) {
            server_.join();
            close(socket_);
        }
    }

    // No more is to come; what the server says can still be read.
    void saysNoMore() const { shutdown(socket_, SHUT_WR); }

    void send(const Bytes& bytes) const {
        ASSERT_EQ(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    void import(const std::string& busId) const {
        Bytes message{0x01, 0x11, 0x80, 0x03, 0, 0, 0, 0};
        message.insert(message.end(), busId.begin(), busId.end());
        message.resize(8 + 32);
        send(message);
    }

    Bytes receive(std::size_t length) const {
        Bytes bytes(length);
        const ssize_t got = recv(socket_, bytes.data(), length, MSG_WAITALL);
        EXPECT_EQ(got, static_cast<ssize_t>(length));
        return bytes;
    }

    bool wasHungUpOn() const {
        std::uint8_t byte = 0;
        return recv(socket_, &byte, 1, 0) == 0;
    }

 private:
    int socket_ = -1;
    std::thread server_;
};

class RemoteFrontTest : public testing::Test {
 protected:
    void SetUp() override { Bus::instance().loadScenario(remoteScenario); }

    static RemoteFront& front() {
        static auto& only = *new RemoteFront();  // the bus may tell it of devices until the end
        return only;
    }

    static std::string busId(std::size_t device) { return busIdOf(*Bus::instance().devices().at(device)); }

    static Bytes importAnswered(std::uint8_t status) { return {0x01, 0x11, 0x00, 0x03, 0, 0, 0, status}; }

    Client client_{front()};
};

unsigned halfWordAt(const Bytes& bytes, std::size_t at) {
    return static_cast<unsigned>(bytes.at(at) << 8 | bytes.at(at + 1));
}

std::string textAt(const Bytes& bytes, std::size_t at) {
    return reinterpret_cast<const char*>(bytes.data() + at);
}

void expectTool(const Bytes& device) {
    EXPECT_EQ(textAt(device, 256), busIdOf(*Bus::instance().devices().at(0)));
    EXPECT_EQ(halfWordAt(device, 298), 2U) << "full speed";
    EXPECT_EQ(halfWordAt(device, 300), 0x6A5CU);
    EXPECT_EQ(halfWordAt(device, 302), 0x1001U);
    EXPECT_EQ(halfWordAt(device, 304), 0x0203U);
    EXPECT_EQ(Bytes(device.begin() + 306, device.begin() + 312), (Bytes{0, 0, 0, 1, 1, 2}))
        << "class, configuration, number of configurations and of interfaces";
}

TEST_F(RemoteFrontTest, AListTellsOfDevicesAndTheirInterfaces) {
    client_.send({0x01, 0x11, 0x80, 0x05, 0, 0, 0, 0});
    EXPECT_EQ(client_.receive(12), (Bytes{0x01, 0x11, 0x00, 0x05, 0, 0, 0, 0, 0, 0, 0, 3}));
    expectTool(client_.receive(deviceBytes));
    EXPECT_EQ(client_.receive(8), (Bytes{255, 1, 2, 0, 3, 0, 0, 0}));
    const Bytes liar = client_.receive(deviceBytes);
    EXPECT_EQ(halfWordAt(liar, 300), 0U) << "beyond the end of its descriptor";
    EXPECT_EQ(liar.back(), 0) << "no whole interface descriptor";
    EXPECT_EQ(client_.receive(deviceBytes).back(), 0) << "a descriptor of length 0";
    EXPECT_TRUE(client_.wasHungUpOn());
}

TEST_F(RemoteFrontTest, TheNameOfADeviceIsThePathToIt) {
    DeviceInfo device;
    device.busNumber = 2;
    device.ports = {1, 40, 3};
    EXPECT_EQ(busIdOf(device), "2-1.40.3");
}

TEST_F(RemoteFrontTest, AnImportedDeviceTakesTransfers) {
    client_.import(busId(0));
    EXPECT_EQ(client_.receive(8), importAnswered(0));
    expectTool(client_.receive(deviceBytes));
    client_.send(usbiptest::submitIn(1, 0, 18, {0x80, 6, 0, 1, 0, 0, 18, 0}));
    client_.receive(usbiptest::kHeaderBytes);
    EXPECT_EQ(client_.receive(18), Bus::instance().devices().at(0)->deviceDescriptor);
}

TEST_F(RemoteFrontTest, AProgramAnswersForAnImportedDevice) {
    usbiptest::ProgramClient program("tool");
    client_.import(busId(0));
    client_.receive(8 + deviceBytes);
    client_.send(usbiptest::submitIn(1, 0, 4, {0xC0, 7, 0, 0, 0, 0, 4, 0}));
    program.reply(program.event("control"), R"("data":"0102")");
    client_.receive(usbiptest::kHeaderBytes);
    EXPECT_EQ(client_.receive(2), (Bytes{1, 2}));
    client_.send(usbiptest::submitIn(2, 0, 4, {0xC0, 7, 0, 0, 0, 0, 4, 0}));
    const std::string late = program.event("control");
    client_.hangUp();
    program.event("cancelled");
    program.reply(late, R"("data":"03")");
    Client second(front());
    second.import(busId(0));
    EXPECT_EQ(second.receive(8), importAnswered(0)) << "the device is there for others";
}

TEST_F(RemoteFrontTest, ADeviceIsLentToOneClientAtATime) {
    client_.import(busId(0));
    EXPECT_EQ(client_.receive(8), importAnswered(0));
    Client second(front());
    second.import(busId(0));
    EXPECT_EQ(second.receive(8), importAnswered(2));
    EXPECT_TRUE(second.wasHungUpOn());
    client_.hangUp();
    Client third(front());
    third.import(busId(0));
    EXPECT_EQ(third.receive(8), importAnswered(0));
}

TEST_F(RemoteFrontTest, AnUnplugHangsUp) {
    client_.import(busId(0));
    client_.receive(8 + deviceBytes);
    Bus::instance().unplug("tool");
    EXPECT_TRUE(client_.wasHungUpOn());
}

TEST_F(RemoteFrontTest, AnUnknownDeviceIsRefused) {
    client_.import("9-9");
    EXPECT_EQ(client_.receive(8), importAnswered(4));
    EXPECT_TRUE(client_.wasHungUpOn());
}

TEST_F(RemoteFrontTest, ANameWithoutAnEndNamesNoDevice) {
    client_.import(std::string(32, '1'));
    EXPECT_EQ(client_.receive(8), importAnswered(4));
}

TEST_F(RemoteFrontTest, AnotherVersionIsHungUpOn) {
    client_.send({0x01, 0x06, 0x80, 0x05, 0, 0, 0, 0});
    EXPECT_TRUE(client_.wasHungUpOn());
}

TEST_F(RemoteFrontTest, AnUnknownOperationIsHungUpOn) {
    client_.send({0x01, 0x11, 0x80, 0x07, 0, 0, 0, 0});
    EXPECT_TRUE(client_.wasHungUpOn());
}

TEST_F(RemoteFrontTest, ARequestThatIsCutOffIsHungUpOn) {
    client_.send({0x01, 0x11, 0x80});
    client_.saysNoMore();
    EXPECT_TRUE(client_.wasHungUpOn());
}

TEST_F(RemoteFrontTest, ANameThatIsCutOffNamesNoDevice) {
    client_.send({0x01, 0x11, 0x80, 0x03, 0, 0, 0, 0, '1', '-'});
    client_.saysNoMore();
    EXPECT_EQ(client_.receive(8), importAnswered(4));
}

TEST_F(RemoteFrontTest, APortThatIsTakenIsTold) {
    const int taken = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(taken, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(taken, 1), 0);
    ASSERT_EQ(getsockname(taken, reinterpret_cast<sockaddr*>(&address), &length), 0);
    EXPECT_THROW(front().listen(ntohs(address.sin_port)), std::system_error);
    close(taken);
}

}  // namespace
}  // namespace simbus::usbip
