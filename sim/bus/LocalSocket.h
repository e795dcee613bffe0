// Stream sockets of this machine, by their path.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace simbus {

// For send(): without the signal that ends a program whose other side has gone.
#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

/// A socket that programs started by this one do not get, and that raises no signal; -1, with errno set, when
/// there is none.
int newLocalSocket();

/// Returns false, with errno set, when the path is too long.
bool setPath(sockaddr_un& address, const std::string& path);

/// Returns a socket whose reads and writes wait; -1, with errno set, when nobody listens at the path.
int connectTo(const std::string& path);

/// Ends both directions: whoever waits in a read or a write of it returns.
void disconnect(int socket);

/// Returns false when the other side is gone.
bool sendAll(int socket, const std::string& text);

}  // namespace simbus
