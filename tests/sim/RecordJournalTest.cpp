// The journal of a recording: what a process leaves behind, and its children.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "capture/CaptureFile.h"
#include "record/Journal.h"

namespace {

namespace fs = std::filesystem;
using simbus::capture::Bytes;
using simbus::capture::Packet;
using simbus::record::Journal;
using simbus::record::Part;
using ::testing::ElementsAre;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

/// The folder of a recording. Each test is in a process of its own, as there is one journal in each.
class RecordJournal : public ::testing::Test {
 protected:
    void SetUp() override {
        std::string path = fs::temp_directory_path() / "journal-XXXXXX";
        ASSERT_NE(mkdtemp(path.data()), nullptr);
        folder_ = path;
        fs::create_directory(folder_ / "parts");
        const Bytes header = simbus::capture::captureHeader("");
        std::ofstream(folder_ / "capture", std::ios::binary)
            .write(reinterpret_cast<const char*>(header.data()), static_cast<std::streamsize>(header.size()));
        setenv("SIMBUS_RECORD", folder_.c_str(), 1);
    }
    void TearDown() override { fs::remove_all(folder_); }

    static void write(const Bytes& data) {
        Packet packet;
        packet.endpoint = 1;
        packet.length = static_cast<std::uint32_t>(data.size());
        packet.data = data.data();
        packet.size = data.size();
        packet.urb = Journal::instance().nextUrb();
        Journal::instance().write(packet);
    }
    static Bytes contents(const fs::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    /// The data of the packets in the file, followed by those of one part; no packet is damaged.
    std::vector<Bytes> dataWith(const fs::path& part) const {
        Bytes bytes = contents(folder_ / "capture");
        const Bytes more = part.empty() ? Bytes() : contents(part);
        std::uint64_t used = 0;
        if (!more.empty()) {
            std::memcpy(&used, more.data() + offsetof(Part, used), sizeof used);
            const auto start = more.begin() + offsetof(Part, bytes);
            bytes.insert(bytes.end(), start, start + static_cast<std::ptrdiff_t>(used));
        }
        const auto capture = simbus::capture::readCapture(bytes);
        EXPECT_THAT(capture.problems, SizeIs(0));
        std::vector<Bytes> all;
        for (const Packet& packet : capture.packets) {
            all.push_back(packet.bytes());
        }
        return all;
    }
    std::vector<fs::path> parts() const {
        return {fs::directory_iterator(folder_ / "parts"), fs::directory_iterator()};
    }

    fs::path folder_;
};

TEST_F(RecordJournal, WhatIsWrittenIsInThePartAtOnce) {
    write({1, 2, 3});
    ASSERT_THAT(parts(), SizeIs(1));
    EXPECT_THAT(dataWith(parts()[0]), ElementsAre(Bytes{1, 2, 3}));
    EXPECT_THAT(dataWith({}), SizeIs(0));
}

TEST_F(RecordJournal, AFullPartGoesToTheFile) {
    const Bytes much(100'000, 7);
    for (int i = 0; i < 5; ++i) {
        write(much);
    }
    EXPECT_THAT(dataWith({}), SizeIs(4));
    EXPECT_THAT(dataWith(parts()[0]), ElementsAre(much, much, much, much, much));
}

TEST_F(RecordJournal, AChildHasAPartOfItsOwn) {
    write({1});
    const auto before = parts();
    const pid_t child = fork();
    if (child == 0) {
        write({2});
        _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    write({3});
    std::vector<std::vector<Bytes>> all;
    for (const fs::path& part : parts()) {
        all.push_back(dataWith(part));
    }
    EXPECT_THAT(all, UnorderedElementsAre(ElementsAre(Bytes{1}, Bytes{3}), ElementsAre(Bytes{2})));
}

TEST_F(RecordJournal, NumbersOfTransfersAreUsedOnce) {
    const std::uint64_t first = Journal::instance().nextUrb(3);
    EXPECT_EQ(Journal::instance().nextUrb(), first + 3);
}

TEST_F(RecordJournal, AFullDiskEndsTheRecordingAndLeavesAWholeFile) {
    std::signal(SIGXFSZ, SIG_IGN);
    const Bytes much(100'000, 7);
    write(much);
    const rlimit limit = {150'000, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    ::testing::internal::CaptureStderr();
    for (int i = 0; i < 5; ++i) {
        write(much);
    }
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(said, "simbus-record: the recording ends here, the program goes on: File too large\n");
    EXPECT_FALSE(Journal::instance().isOpen());
    EXPECT_THAT(dataWith({}), SizeIs(0));
}

TEST_F(RecordJournal, WithoutAFolderNothingIsRecorded) {
    unsetenv("SIMBUS_RECORD");
    EXPECT_FALSE(Journal::instance().isOpen());
    write({1});
    EXPECT_THAT(parts(), SizeIs(0));
}

}  // namespace
