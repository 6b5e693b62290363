#include "discovery/posix_net.h"

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

    char buffer[4096];
    for (;;) {
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
