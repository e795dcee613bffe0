// The control socket, used by clients in the same process.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <utility>

#include "ControlSocket.h"
#include "SimTest.h"
#include "SocketClient.h"

namespace simtest {
namespace {

using Client = SocketClient;

// Every client is answered in the same way.
simbus::ControlSocket::Greet always(simbus::ControlSocket::Answer answer) {
    return [answer = std::move(answer)](const simbus::ControlSocket::Tell& /*tell*/) { return answer; };
}

class ControlSocketTest : public testing::Test {
 protected:
    void SetUp() override {
        path = testing::TempDir() + "simbus-test-" + std::to_string(getpid());
        ASSERT_TRUE(socket.open(path, always([](const std::string& line) { return "<" + line + ">"; })));
    }
    void TearDown() override { socket.close(); }

    static bool exists(const std::string& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0;
    }

    // A socket as a process leaves it that ends by a signal: nobody listens there.
    static int boundTo(const std::string& path) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return fd;
    }

    std::string path;
    simbus::ControlSocket socket;
};

TEST_F(ControlSocketTest, EveryLineIsAnswered) {
    Client client(path);
    client.send("one\ntwo\nth");
    EXPECT_EQ(client.line(), "<one>");
    EXPECT_EQ(client.line(), "<two>");
    client.send("ree\n");
    EXPECT_EQ(client.line(), "<three>");
}

TEST_F(ControlSocketTest, ClientsDoNotDisturbEachOther) {
    Client one(path);
    Client other(path);
    one.send("half");
    other.send("whole\n");
    EXPECT_EQ(other.line(), "<whole>");
    one.send(" done\n");
    EXPECT_EQ(one.line(), "<half done>");
}

TEST_F(ControlSocketTest, ALateAnswerReachesAClientThatHasEndedSending) {
    Client client(path);
    client.send("last\n");
    client.endSending();
    EXPECT_EQ(client.line(), "<last>");
    EXPECT_EQ(client.line(), "");
}

TEST_F(ControlSocketTest, AnAnswerOfAnyLengthArrivesWhole) {
    const std::string large(3U << 20U, 'x');
    Client client(path);
    std::thread sender([&] { client.send(large + "\n"); });
    EXPECT_EQ(client.line(), "<" + large + ">");
    sender.join();
}

TEST_F(ControlSocketTest, AClientThatLeavesIsForgotten) {
    for (int i = 0; i < 50; ++i) {
        Client client(path);
        client.send("x");
    }
    Client client(path);
    client.send("still there\n");
    EXPECT_EQ(client.line(), "<still there>");
}

TEST_F(ControlSocketTest, AClientIsToldWhatItHasNotAskedFor) {
    const std::string talking = path + "-talking";
    std::promise<simbus::ControlSocket::Tell> greeted;
    std::promise<void> left;
    simbus::ControlSocket other;
    ASSERT_TRUE(other.open(talking, [&](const simbus::ControlSocket::Tell& tell) {
        greeted.set_value(tell);
        const std::shared_ptr<void> end(nullptr, [&left](void*) { left.set_value(); });
        return [end](const std::string& line) { return line; };
    }));
    simbus::ControlSocket::Tell tell;
    {
        Client client(talking);
        tell = greeted.get_future().get();
        tell("news");
        EXPECT_EQ(client.line(), "news");
        client.send("question\n");
        EXPECT_EQ(client.line(), "question");
    }
    EXPECT_EQ(left.get_future().wait_for(deadline), std::future_status::ready) << "its end is noticed";
    tell("too late");
    other.close();
}

TEST_F(ControlSocketTest, AClientThatDoesNotReadIsDroppedAndHoldsUpNobody) {
    const std::string large(64U << 20U, 'x');
    const std::string talking = path + "-unread";
    std::promise<simbus::ControlSocket::Tell> greeted;
    simbus::ControlSocket other;
    ASSERT_TRUE(other.open(talking, [&](const simbus::ControlSocket::Tell& tell) {
        greeted.set_value(tell);
        return [](const std::string& line) { return line; };
    }));
    Client client(talking);
    const simbus::ControlSocket::Tell tell = greeted.get_future().get();
    for (int i = 0; i < 7; ++i) {
        tell(large);
    }
    client.waitUntilDropped();
    other.close();
}

TEST_F(ControlSocketTest, TheFileGoesInTheEnd) {
    socket.close();
    EXPECT_FALSE(exists(path));
}

TEST_F(ControlSocketTest, ASocketThatNobodyAnswersOnIsReplaced) {
    const std::string old = path + "-old";
    const int left = boundTo(old);
    ::close(left);
    simbus::ControlSocket newer;
    ASSERT_TRUE(newer.open(old, always([](const std::string&) { return "newer"; })));
    {
        Client client(old);
        client.send("x\n");
        EXPECT_EQ(client.line(), "newer");
    }
    newer.close();
    EXPECT_FALSE(exists(old));
}

TEST_F(ControlSocketTest, ASocketThatSomebodyAnswersOnIsLeftAlone) {
    simbus::ControlSocket second;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(second.open(path, {}));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr(path + ": Address already in use"));
    second.close();
    Client client(path);
    client.send("x\n");
    EXPECT_EQ(client.line(), "<x>");
}

TEST_F(ControlSocketTest, AFileThatIsNoSocketIsLeftAlone) {
    const std::string file = path + "-file";
    const std::string link = path + "-link";
    std::ofstream(file) << "precious";
    ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
    simbus::ControlSocket bad;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(bad.open(file, {}));
    EXPECT_FALSE(bad.open(link, {}));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr(file + ": File exists"));
    std::string text;
    std::ifstream(link) >> text;
    EXPECT_EQ(text, "precious");
    unlink(link.c_str());
    unlink(file.c_str());
}

TEST_F(ControlSocketTest, OnlyItsUserMayCommandTheBus) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        const std::string own = path + "-own";
        simbus::ControlSocket mine;
        const mode_t before = umask(mask);
        EXPECT_TRUE(mine.open(own, {}));
        umask(before);
        struct stat status {};
        EXPECT_EQ(stat(own.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U);
        mine.close();
    }
}

TEST_F(ControlSocketTest, APathThatCannotBeIsTold) {
    simbus::ControlSocket bad;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(bad.open("/nowhere/at/all", {}));
    EXPECT_FALSE(bad.open(std::string(200, 'x'), {}));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("no control socket at /nowhere/at/all"));
}

}  // namespace
}  // namespace simtest
