#pragma once

#include <cstdint>
#include <ctime>

// The debug log: lines on standard error, written only while the environment variable ORVEXCOMM_DEBUG is set
// (to any value, even an empty one; it is read at every call). Any thread may call any of these functions.

/// Monotonic time of the first logged line; zero until then, never reset. Shared fields.
extern timespec timestamp_origin;

/// True while ORVEXCOMM_DEBUG is set.
bool isDebugEnabled();

/// Writes "[ORVEXCOMM_DBG] [<seconds since the first line>.<microseconds of the clock>] ", the message and a
/// line feed. `format` does not end in a line feed.
void debug_log(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The writers below start their line with "[<getTickCount()>] " and end it with a line feed when `newline` is
// not 0.

/// Writes `str`.
void DN_WriteStr(const char* str, int newline);
/// Writes "name : 'value'", or "name : <NULL>" for a null value; cut at 2047 characters.
void DN_WriteStrStr(const char* name, const char* value, int newline);
/// Writes "name : 10 (0x000A)"; cut at 1023 characters.
void DN_WriteStrUInt(const char* name, uint32_t value, int newline);
/// Writes "name : 10 (0x0000000A)"; cut at 1023 characters.
void DN_WriteStrULong(const char* name, unsigned long value, int newline);
/// Writes "name : address" and a line feed; cut at 1023 characters.
/// Deliberate: a non-zero `newline` adds an empty line.
void DN_WriteAddress(const char* name, const void* address, int newline);
