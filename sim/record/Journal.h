// The file of a recording, as the programs that are recorded write it. Packets gather in a part of memory
// that outlives the program, in a file of the recording's folder: a program that crashes loses nothing.
// simbus-record appends what is left there at the end.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "capture/CaptureFile.h"

namespace simbus::record {

/// The contents of a file in the folder `parts`.
struct Part {
    static constexpr std::size_t kRoom = std::size_t{256} * 1024;
    std::atomic<std::uint64_t> used;  ///< bytes that are there and not yet in the capture
    std::uint8_t bytes[kRoom];
};

class Journal {
 public:
    /// The one of this library in this process. It lasts until the process has ended.
    static Journal& instance();

    /// False when there is nothing to record to, or no more: a full disk ends the recording, not the program.
    bool isOpen() const { return open_.load(std::memory_order_relaxed); }
    /// Writes a packet, with the time of now unless it has one.
    void write(capture::Packet& packet);
    /// A number for a transfer, and for `count` - 1 after it: of no other transfer, in any process.
    std::uint64_t nextUrb(std::uint64_t count = 1) {
        return urb_.fetch_add(count, std::memory_order_relaxed);
    }

 private:
    explicit Journal(const std::string& folder);
    void openPart();
    void flush();
    void end(const char* what);
    void watchForks();

    const std::string folder_;
    std::mutex mutex_;
    std::atomic<bool> open_{false};
    std::atomic<std::uint64_t> urb_{0};
    int file_ = -1;
    Part* part_ = nullptr;
};

/// Whether what this thread does now is to be recorded.
bool isRecorded();

/// Appends to a file; what does not fit whole is taken back. Returns 0 or an error of the system.
int appendTo(int file, const std::uint8_t* bytes, std::size_t size);

}  // namespace simbus::record
