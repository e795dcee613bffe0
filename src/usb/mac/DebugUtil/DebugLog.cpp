#include "DebugUtil/DebugLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "ground/SharedField.h"
#include "hid/TickCount.h"

timespec timestamp_origin{};

bool isDebugEnabled() {
    return std::getenv("ORVEXCOMM_DEBUG") != nullptr;
}

namespace {

/// Formats one line, cut at kSize - 1 characters, and passes it to DN_WriteStr.
template <std::size_t kSize, class... Values>
void writeFormatted(int newline, const char* format, Values... values) {
    char text[kSize];
    std::snprintf(text, sizeof text, format, values...);
    DN_WriteStr(text, newline);
}

}  // namespace

void debug_log(const char* format, ...) {
    if (!isDebugEnabled()) {
        return;
    }
    timespec now{};
    if (loadShared(timestamp_origin.tv_sec) == 0) {
        clock_gettime(CLOCK_MONOTONIC, &now);
        storeShared(timestamp_origin.tv_nsec, now.tv_nsec);
        storeShared(timestamp_origin.tv_sec, now.tv_sec);
    }
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long seconds = now.tv_sec - loadShared(timestamp_origin.tv_sec);
    // Deliberate: the fraction is that of the clock, not of the elapsed time, so that lines match other logs
    // of the same clock. Within one elapsed second it may seem to run backwards.
    const long microseconds = now.tv_nsec / 1000;

    flockfile(stderr);  // keeps the lines of concurrent threads apart
    std::fprintf(stderr, "[ORVEXCOMM_DBG] [%2ld.%06ld] ", seconds, microseconds);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    funlockfile(stderr);
}

void DN_WriteStr(const char* str, int newline) {
    if (!isDebugEnabled()) {
        return;
    }
    char prefix[128];
    std::snprintf(prefix, sizeof prefix, "[%lu] ", getTickCount());
    flockfile(stderr);
    std::fputs(prefix, stderr);
    std::fputs(str, stderr);
    if (newline != 0) {
        std::fputc('\n', stderr);
    }
    funlockfile(stderr);
}

void DN_WriteStrStr(const char* name, const char* value, int newline) {
    if (!isDebugEnabled()) {
        return;
    }
    if (value == nullptr) {
        writeFormatted<2048>(newline, "%s : <NULL>", name);
    } else {
        writeFormatted<2048>(newline, "%s : '%s'", name, value);
    }
}

void DN_WriteStrUInt(const char* name, uint32_t value, int newline) {
    if (isDebugEnabled()) {
        writeFormatted<1024>(newline, "%s : %u (0x%04X)", name, value, value);
    }
}

void DN_WriteStrULong(const char* name, unsigned long value, int newline) {
    if (isDebugEnabled()) {
        writeFormatted<1024>(newline, "%s : %lu (0x%08lX)", name, value, value);
    }
}

void DN_WriteAddress(const char* name, const void* address, int newline) {
    if (isDebugEnabled()) {
        writeFormatted<1024>(newline, "%s : %p\n", name, address);
    }
}
