// Pulls a device at every stage of its use, on a real kernel: before the first call into the kernel that the
// library makes for it, before the second, ... until a whole job (open, write, read, close) has fewer. After
// each the device is plugged in again. Once the call is made when the kernel has taken the device away, once
// while it does so. Prints one line "ok NAME" or "not ok NAME", and what each job answered.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "BusControl.h"
#include "Expect.h"
#include "ListedDevice.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/session/Session.h"

namespace {

/// Counts the calls into the kernel for a device, and does something before one of them.
class KernelCalls {
 public:
    using Action = std::function<void(const std::string& node)>;

    void watch(long call, Action action) {
        const std::lock_guard lock(mutex_);
        left_ = call;
        action_ = std::move(action);
        said_.clear();
    }

    /// What the call was, before which something was done; empty when there were fewer calls.
    std::string said() {
        const std::lock_guard lock(mutex_);
        return said_;
    }
    std::string endWatch() {
        const std::lock_guard lock(mutex_);
        left_ = 0;
        return said_;
    }

    void beforeOpening(const std::string& path) {
        if (path.rfind("/dev/bus/usb/", 0) == 0 || path.rfind("/dev/hidraw", 0) == 0) {
            const std::lock_guard lock(mutex_);
            node_ = path;
            before("open");
        }
    }

    void beforeControl(unsigned long request) {
        if (_IOC_TYPE(request) == 'U' || _IOC_TYPE(request) == 'H') {  // usbdevfs, hidraw
            const std::lock_guard lock(mutex_);
            before("ioctl " + std::to_string(_IOC_NR(request)));
        }
    }

 private:
    void before(const std::string& call) {
        if (left_ != 0 && --left_ == 0) {
            said_ = call;
            action_(node_);
        }
    }

    std::mutex mutex_;
    long left_ = 0;
    Action action_;
    std::string node_;
    std::string said_;
};

KernelCalls g_calls;

int openedAs(const char* path, int flags, mode_t mode) {
    g_calls.beforeOpening(path);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

}  // namespace

// libusb and hidapi come to these instead of those of the C library, since the program is searched first.
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return openedAs(path, flags, mode);
}

int __open_2(const char* path, int flags) {  // NOLINT: open, as it is compiled with _FORTIFY_SOURCE
    return openedAs(path, flags, 0);
}

int ioctl(int file, unsigned long request, ...) noexcept {
    va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    g_calls.beforeControl(request);
    return static_cast<int>(syscall(SYS_ioctl, file, request, argument));
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

constexpr int32_t kVendor = 0x6A5C;
constexpr int32_t kBytes = 64;
constexpr int32_t kTimeoutMs = 10'000;
constexpr int32_t kNotOpen = -109;

/// A device of the bus, and what may be told of it when it is pulled.
struct Device {
    const char* id;
    const char* serial;
    decltype(&LibUSB_WriteBulkPipe) write;
    decltype(&LibUSB_ReadBulkPipe) read;
    std::vector<int32_t> opened;
    bool closesUnopened;  ///< an open that failed answers 0, and the close that it is not open
};

const Device kPlain{"echo1", "ECHO0001", LibUSB_WriteBulkPipe, LibUSB_ReadBulkPipe, {0, -107, -108, -130},
                    false};
const Device kHid{"hid", "HID00001", LibUSB_WriteInterruptPipe, LibUSB_ReadInterruptPipe, {0}, true};

struct Answers {
    int32_t opened = 0;
    int32_t wrote = 0;
    int32_t read = 0;
    int32_t closed = 0;
    bool pulledInOpen = false;

    bool allWell() const { return opened == 0 && wrote == kBytes && read == kBytes && closed == 0; }
};

std::ostream& operator<<(std::ostream& out, const Answers& answers) {
    return out << "open " << answers.opened << ", write " << answers.wrote << ", read " << answers.read
               << ", close " << answers.closed;
}

auto entriesOf(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

class Pulls {
 public:
    Pulls() {
        expect(LibUSB_Initialize(&context_) == 0, "libusb does not start");
        list_ = LibUSB_CreateDeviceList2(context_, 1, &kVendor);
    }
    ~Pulls() {
        LibUSB_ReleaseDeviceList(list_);
        LibUSB_Release(&context_);
    }
    Pulls(const Pulls&) = delete;
    Pulls& operator=(const Pulls&) = delete;

    bool check(const std::string& name, const Device& device, bool untilGone) {
        lines_.clear();
        std::string problem;
        try {
            sweep(device, untilGone);
        } catch (const std::exception& thrown) {
            problem = thrown.what();
        }
        std::cout << (problem.empty() ? "ok " : "not ok ") << name << "\n" << lines_;
        std::cout << (problem.empty() ? "" : "# " + problem + "\n") << std::flush;
        return problem.empty();
    }

 private:
    void sweep(const Device& device, bool untilGone) {
        tagUSB_DEVICE_ACCESS_ENTRY* record = findDevice(list_, device.serial);
        expect(record != nullptr, std::string("no device ") + device.serial);
        expect(job(device, *record).allWell(), "the job does not succeed");
        const auto files = entriesOf("/proc/self/fd");
        const auto threads = entriesOf("/proc/self/task");
        long calls = 0;
        while (pulledBefore(++calls, device, *record, untilGone)) {
        }
        expect(calls > 1, "no call into the kernel was seen");
        expect(entriesOf("/proc/self/fd") == files, "file descriptors are left over");
        expect(entriesOf("/proc/self/task") == threads, "threads are left over");
    }

    /// False when the job had fewer calls, and so went well.
    bool pulledBefore(long call, const Device& device, tagUSB_DEVICE_ACCESS_ENTRY& record, bool untilGone) {
        g_calls.watch(call, [&](const std::string& node) {
            bus_({{"op", "unplug"}, {"device", device.id}});
            if (untilGone) {
                waitFor(node + " to go", [&] { return !std::filesystem::exists(node); });
            }
        });
        const Answers answers = job(device, record);
        const std::string before = g_calls.endWatch();
        std::ostringstream line;
        line << "# call " << call << ", " << (before.empty() ? "not made" : before) << ": " << answers
             << "\n";
        lines_ += line.str();
        if (before.empty()) {
            expect(answers.allWell(), "a job with the device in place did not succeed");
            return false;
        }
        expectAllowed(device, answers);
        const bool opens = device.closesUnopened || !answers.pulledInOpen || !untilGone;
        expect(opens || answers.opened != 0, "a device that was gone was opened");
        updateUntilPresent(record, 0);
        bus_({{"op", "plug"}, {"device", device.id}});
        updateUntilPresent(record, 1);
        return true;
    }

    static Answers job(const Device& device, tagUSB_DEVICE_ACCESS_ENTRY& record) {
        uint8_t sent[kBytes] = {1, 2, 3};
        uint8_t received[kBytes] = {};
        Answers answers;
        answers.opened = LibUSB_OpenDevice(&record);
        answers.pulledInOpen = !g_calls.said().empty();
        if (answers.opened == 0) {
            answers.wrote = device.write(&record, 1, kBytes, kTimeoutMs, sent);
        }
        if (answers.wrote == kBytes) {
            answers.read = device.read(&record, 1, kBytes, kTimeoutMs, received);
        }
        answers.closed = LibUSB_CloseDevice(&record);
        expect(answers.read != kBytes || std::equal(std::begin(sent), std::end(sent), std::begin(received)),
               "other bytes came back");
        return answers;
    }

    static void expectAllowed(const Device& device, const Answers& answers) {
        const auto& opened = device.opened;
        expect(std::find(opened.begin(), opened.end(), answers.opened) != opened.end(), "a wrong open");
        expect(answers.wrote <= 0 || answers.wrote == kBytes, "a wrong write");
        expect(answers.read <= 0 || answers.read == kBytes, "a wrong read");
        const bool closed = answers.closed == (answers.opened == 0 ? 0 : kNotOpen);
        expect(closed || (device.closesUnopened && answers.closed == kNotOpen), "a wrong close");
    }

    void updateUntilPresent(const tagUSB_DEVICE_ACCESS_ENTRY& record, uint32_t present) {
        waitFor("the list to follow", [&] {
            LibUSB_UpdateDeviceList(list_, 0);
            return record.isPresent == present;
        });
    }

    BusControl bus_;
    libusb_context* context_ = nullptr;
    uint32_t list_ = 0;
    std::string lines_;
};

}  // namespace

int main() {
    try {
        Pulls pulls;
        bool passed = true;
        for (const bool gone : {true, false}) {
            const std::string when =
                gone ? " is gone before any call into the kernel" : " goes during any call";
            passed = pulls.check("a plain device" + when, kPlain, gone) && passed;
            passed = pulls.check("a HID device" + when, kHid, gone) && passed;
        }
        return passed ? 0 : 1;
    } catch (const std::exception& problem) {
        std::cout << "not ok pulls: " << problem.what() << "\n";
        return 1;
    }
}
