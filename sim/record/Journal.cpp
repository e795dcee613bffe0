#include "Journal.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "Forward.h"

namespace simbus::record {

namespace {

std::uint64_t now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

/// Gives an empty file its size and room on the disk. Returns 0 or an error of the system: a full disk is
/// found here, not when the file's memory is written to.
int reserve(int file, std::size_t size) {
#ifdef __APPLE__
    return appendTo(file, std::vector<std::uint8_t>(size).data(), size);
#else
    return posix_fallocate(file, 0, static_cast<off_t>(size));
#endif
}

}  // namespace

int appendTo(int file, const std::uint8_t* bytes, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t written = ::write(file, bytes + done, size - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            const int problem = written == 0 ? ENOSPC : errno;
            struct stat now {};
            if (done != 0 && fstat(file, &now) == 0) {
                static_cast<void>(ftruncate(file, now.st_size - static_cast<off_t>(done)) == 0);
            }
            return problem;
        }
        done += static_cast<std::size_t>(written);
    }
    return 0;
}

bool isRecorded() {
    return !isInside() && Journal::instance().isOpen();
}

Journal& Journal::instance() {
    static auto* const journal = new Journal(recordingFolder());
    return *journal;
}

Journal::Journal(const std::string& folder) : folder_(folder) {
    if (folder_.empty()) {
        return;
    }
    file_ = open((folder_ + "/capture").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (file_ < 0) {
        end(std::strerror(errno));
        return;
    }
    openPart();
    watchForks();
}

void Journal::openPart() {
    std::string path = folder_ + "/parts/XXXXXX";
    const int part = mkostemp(path.data(), O_CLOEXEC);
    const int problem = part < 0 ? errno : reserve(part, sizeof(Part));
    void* memory =
        problem != 0 ? MAP_FAILED : mmap(nullptr, sizeof(Part), PROT_READ | PROT_WRITE, MAP_SHARED, part, 0);
    if (part >= 0) {
        close(part);
    }
    if (memory == MAP_FAILED) {
        end(std::strerror(problem != 0 ? problem : errno));
        return;
    }
    part_ = static_cast<Part*>(memory);  // zeroes
    urb_ = now();                        // counts more slowly than time passes
    open_ = true;
}

void Journal::watchForks() {
    // A child has its own part: it does not share the mutex with its parent, but would share the part.
    pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                   [] {
                       Journal& journal = instance();
                       if (journal.isOpen()) {
                           munmap(journal.part_, sizeof(Part));
                           journal.open_ = false;
                           journal.openPart();
                       }
                       journal.mutex_.unlock();
                   });
}

void Journal::write(capture::Packet& packet) {
    const std::size_t size = blockSize(packet);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!isOpen()) {
        return;
    }
    if (packet.nanoseconds == 0) {
        packet.nanoseconds = now();
    }
    std::size_t used = part_->used.load(std::memory_order_relaxed);
    if (used + size > Part::kRoom) {
        flush();
        used = 0;
    }
    if (!isOpen()) {
        return;
    }
    writeBlock(part_->bytes + used, packet);
    part_->used.store(used + size, std::memory_order_release);
}

void Journal::flush() {
    const int problem = appendTo(file_, part_->bytes, part_->used.load(std::memory_order_relaxed));
    part_->used.store(0, std::memory_order_release);
    if (problem != 0) {
        end(std::strerror(problem));
    }
}

void Journal::end(const char* what) {
    open_ = false;
    std::fprintf(stderr, "simbus-record: the recording ends here, the program goes on: %s\n", what);
}

}  // namespace simbus::record
