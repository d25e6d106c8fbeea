// Repeats reads and writes on descriptors that another process may have made non-blocking.
#pragma once

#include <poll.h>

#include <cerrno>

namespace tavik {

// To be called after read() or write() failed: whether to call it again. If it would have blocked, waits for `event`
// (POLLIN or POLLOUT) first.
inline bool should_retry(int descriptor, short event) {
    if (errno == EINTR) return true;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
    pollfd wait{.fd = descriptor, .events = event, .revents = 0};
    return ::poll(&wait, 1, -1) > 0 || errno == EINTR;
}

}  // namespace tavik
