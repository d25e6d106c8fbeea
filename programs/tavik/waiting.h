// Reading and writing where the other side has made the descriptor one that does not wait.
#pragma once

#include <poll.h>

#include <cerrno>

namespace tavik {

// After a call that failed: it was interrupted, or would have had to wait for `event` (POLLIN, POLLOUT), which has come
// now. It is then to be tried again.
inline bool can_go_on(int descriptor, short event) {
    if (errno == EINTR) return true;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
    pollfd wait{.fd = descriptor, .events = event, .revents = 0};
    return ::poll(&wait, 1, -1) > 0 || errno == EINTR;
}

}  // namespace tavik
