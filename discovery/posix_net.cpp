#include "discovery/posix_net.h"

#include <QElapsedTimer>

#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>

namespace posix_net {

QByteArray tcpRecvAll(int fd, int timeoutMs)
{
    QByteArray data;
    if (fd < 0)
        return data;

    pollfd pfd{};
    pfd.fd = fd;
    pfd.events = POLLIN;
    int ready = ::poll(&pfd, 1, timeoutMs < 0 ? 0 : timeoutMs);
    if (ready <= 0)
        return data;
    if ((pfd.revents & (POLLERR | POLLHUP | POLLNVAL)) && !(pfd.revents & POLLIN))
        return data;

    // A peer that never stops sending must not keep a scan worker forever: what arrives within
    // the time-out, and at most a few buffers of it, is plenty for an eight-byte answer.
    const qint64 maxBytes = 64 * 1024;
    QElapsedTimer elapsed;
    elapsed.start();
    char buffer[4096];
    while (data.size() < maxBytes && elapsed.elapsed() <= qMax(timeoutMs, 0)) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (n == 0)
            break;
        data.append(buffer, static_cast<int>(n));

        pfd.revents = 0;
        ready = ::poll(&pfd, 1, 0);
        if (ready <= 0)
            break;
        const bool errorBits = pfd.revents & (POLLERR | POLLHUP | POLLNVAL);
        if (errorBits && !(pfd.revents & POLLIN))
            break;
    }
    return data;
}

} // namespace posix_net
