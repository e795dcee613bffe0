// Fuzzes one open HID device: input reports, reads, writes and changed settings, against a model of its ring.

#include <memory>

#include "FakeHid.h"
#include "FuzzInput.h"
#include "HidRingModel.h"
#include "UsbTest.h"
#include "ground/SharedField.h"
#include "hid/HIDAccess.h"

namespace {

constexpr int kMostOperations = 200;
constexpr int kStandardPacket = 64;
constexpr int kStandardFill = 0x5A;
/// In milliseconds: long enough for a read that finds its reports, short for one that does not.
constexpr int kLongTimeout = 60'000;
constexpr int kShortTimeout = 1;

/// Bytes that differ at every position.
std::vector<uint8_t> pattern(std::size_t count, uint8_t seed) {
    std::vector<uint8_t> bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<uint8_t>(seed + i + i / 251);
    }
    return bytes;
}

/// The device under test and its expected state.
class HidProgram {
 public:
    explicit HidProgram(FuzzInput input) : input_(input) {}
    ~HidProgram() { access_->Close(); }
    HidProgram(const HidProgram&) = delete;
    HidProgram& operator=(const HidProgram&) = delete;

    void run() {
        for (int count = 0; count < kMostOperations && !input_.atEnd(); ++count) {
            perform(input_.byte() % 10);
            requireSound();
        }
    }

 private:
    void perform(int operation) {
        switch (operation) {
            case 0:
                return open();
            case 1:
                return close();
            case 2:
                return setPacketSize(input_.word() % 1100);
            case 3:
                return setFill();
            case 4:
                return read(input_.word() % 5000);
            case 5:
                return write();
            case 6:
                return takeOne(input_.word() % 1100 - 10);
            case 7:
                return deliver(1);
            case 8:
                return deliver(input_.byte());
            default:
                return readNothing();
        }
    }

    void open() {
        require(access_->Open() == (isOpen_ ? -105 : 0), "open tells whether it was open");
        if (!isOpen_) {
            model_.opened();
            // Only an open applies the length of reports.
            require(eventually([&] { return loadShared(access_->threadState) == kReadThreadRuns; }),
                    "the read thread starts");
        }
        isOpen_ = true;
    }

    void close() {
        require(access_->Close() == (isOpen_ ? 0 : -109), "close tells whether it was open");
        isOpen_ = false;
    }

    void setPacketSize(int size) {
        const bool fits = size >= 64 && size <= 1024;
        require(access_->SetPacketSize(size) == (fits ? 0 : -114), "packet sizes are 64 to 1024");
        if (fits) {
            model_.setPacketSize(size);
        }
    }

    void setFill() {
        fill_ = input_.byte();
        access_->SetFillValue(fill_);
    }

    /// Sends many reports at once, so that the ring is soon full.
    void deliver(int count) {
        const std::size_t length = input_.word() % 1100;
        const uint8_t seed = input_.byte();
        for (int i = 0; i < count && isOpen_; ++i) {
            const std::vector<uint8_t> report = pattern(length, static_cast<uint8_t>(seed + i));
            hid_.deliver(report);
            model_.deliver(report);
        }
    }

    void read(int size) {
        std::vector<uint8_t> buffer(static_cast<std::size_t>(size));
        const bool enough = size > 0 && model_.isKnown() && model_.reports() * model_.packetSize() >= size;
        const int result = access_->Read(buffer.data(), size, enough ? kLongTimeout : kShortTimeout);
        require(result == size || result == -150, "a read has all or times out");
        if (enough) {
            require(result == size && buffer == model_.read(size), "a read gives the oldest reports");
        } else if (model_.isKnown()) {
            require(result == -150, "a read without enough reports times out");
            forgetReports();  // how many it took, only its time-out knows
        }
    }

    void forgetReports() {
        uint8_t byte = 0;
        while (access_->GetIncomingData(&byte, 1) == 1) {
        }
        model_.clear();
    }

    /// A read with a time-out of 0 or less leaves the reports in the ring.
    void readNothing() {
        uint8_t byte = 0;
        require(access_->Read(&byte, 1, -static_cast<int>(input_.byte())) == -150, "no time, no read");
    }

    void takeOne(int size) {
        std::vector<uint8_t> buffer(static_cast<std::size_t>(std::max(size, 0)));
        const int result = access_->GetIncomingData(buffer.data(), size);
        require(result >= 0 && result <= std::max(size, 0), "as much as asked for at most");
        if (model_.isKnown()) {
            const std::vector<uint8_t> expected = model_.take(std::max(size, 0));
            require(result == static_cast<int>(expected.size()), "one report at most");
            require(std::equal(expected.begin(), expected.end(), buffer.begin()), "the oldest report");
        }
    }

    void write() {
        const int size = input_.word() % 5000 - 5;
        const int sends = input_.byte();
        std::vector<uint8_t> bytes = pattern(static_cast<std::size_t>(std::max(size, 0)), fill_);
        const std::size_t before = hid_.sent().size();
        hid_.sendsBeforeFailure = static_cast<int32_t>(before) + sends;
        const int result = access_->Write(bytes.data(), size, kLongTimeout);
        const int packet = model_.packetSize();
        const int needed = (std::max(size, 0) + packet - 1) / packet;
        const int finished = needed > sends ? -112 : std::max(size, 0);
        require(result == (isOpen_ ? finished : -109), "a write tells what it sent");
        const std::vector<FakeHid::Report> sent = hid_.sent();
        require(sent.size() - before == static_cast<std::size_t>(isOpen_ ? std::min(needed, sends) : 0),
                "as many reports as it takes");
        bytes.resize(static_cast<std::size_t>(needed * packet), fill_);
        for (std::size_t i = before; i < sent.size(); ++i) {
            const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(i - before) * packet;
            require(sent[i] == FakeHid::Report(start, start + packet), "reports carry the bytes and the pad");
        }
    }

    void requireSound() {
        for (const int32_t index : {access_->writeIndex, access_->readIndex}) {
            require(index >= 0 && index < kRingBytes, "the ring's indices stay inside");
        }
        require(access_->spare == 0 && access_->idProduct == 0x3001, "the ring stays inside");
    }

    FuzzInput input_;
    FakeHid hid_;
    std::unique_ptr<HIDAccess, void (*)(HIDAccess*)> access_{
        newHIDAccess(0x6A5C, 0x3001, "HID0001", kStandardPacket, kStandardFill), &deleteHIDAccess};
    HidRingModel model_{kStandardPacket};
    bool isOpen_ = false;
    uint8_t fill_ = kStandardFill;
};

}  // namespace

/// Input: a program of operations, each one byte followed by its arguments.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    HidProgram(FuzzInput(data, size)).run();
    return 0;
}
