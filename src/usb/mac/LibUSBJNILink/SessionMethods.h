#pragma once

#include <cstdint>

struct libusb_context;

extern int32_t g_SessionId;         ///< -1 no session, 0 a session is open; no other value
extern int32_t g_LastError;         ///< reserved; nothing reads or writes it
extern libusb_context* g_pContext;  ///< the session's context; stale between a release and the next start
