#include "discovery/transport.h"

#include "discovery/candidate.h"
#include "discovery/posix_net.h"

#include <QElapsedTimer>
#include <QHostAddress>

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace OpcUaDiscovery {

namespace {

void appendUInt32(QByteArray* out, quint32 value)
{
    for (int shift = 0; shift < 32; shift += 8)
        out->append(static_cast<char>((value >> shift) & 0xFF));
}

// Closes the probe's socket on every way out of tcpIdentify.
class SocketGuard
{
public:
    explicit SocketGuard(int fd) : m_fd(fd) {}
    ~SocketGuard() { close(); }
    SocketGuard(const SocketGuard&) = delete;
    SocketGuard& operator=(const SocketGuard&) = delete;
    int fd() const { return m_fd; }
    void close()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd;
};

bool resolveIpv4(const QString& host, in_addr* address)
{
    const QByteArray text = host.toUtf8();
    if (::inet_pton(AF_INET, text.constData(), address) == 1)
        return true;

    const QHostAddress parsed(host);
    if (!parsed.isNull()) {
        bool isIpv4 = false;
        const quint32 value = parsed.toIPv4Address(&isIpv4);
        if (isIpv4) {
            address->s_addr = htonl(value);
            return true;
        }
    }

    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(text.constData(), nullptr, &hints, &found) != 0 || !found)
        return false;
    bool ok = false;
    if (found->ai_family == AF_INET && found->ai_addr) {
        *address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
        ok = true;
    }
    ::freeaddrinfo(found);
    return ok;
}

bool connectWithin(int fd, const in_addr& address, quint16 port, int timeoutMs)
{
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    target.sin_addr = address;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&target), sizeof target) == 0)
        return true;
    if (errno != EINPROGRESS)
        return false;

    pollfd pfd{};
    pfd.fd = fd;
    pfd.events = POLLOUT;
    if (::poll(&pfd, 1, timeoutMs < 0 ? 0 : timeoutMs) <= 0)
        return false;
    if ((pfd.revents & (POLLERR | POLLHUP | POLLNVAL)) && !(pfd.revents & POLLOUT))
        return false;

    int pending = 0;
    socklen_t length = sizeof pending;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &length) != 0)
        return false;
    return pending == 0;
}

bool sendWithin(int fd, const QByteArray& message, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    int sent = 0;
    while (sent < message.size()) {
        const qint64 left = timeoutMs - timer.elapsed();
        if (left < 1)
            return false;
        pollfd pfd{};
        pfd.fd = fd;
        pfd.events = POLLOUT;
        if (::poll(&pfd, 1, static_cast<int>(left)) <= 0)
            return false;
        if ((pfd.revents & (POLLERR | POLLHUP | POLLNVAL)) && !(pfd.revents & POLLOUT))
            return false;
        const ssize_t n = ::send(fd, message.constData() + sent, static_cast<size_t>(message.size() - sent),
                                 MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            return false;
        }
        sent += static_cast<int>(n);
    }
    return true;
}

} // namespace

QByteArray helloRequest(const QString& endpointUrl, quint32)
{
    const QByteArray url = endpointUrl.toUtf8();
    const quint32 urlLength = static_cast<quint32>(url.size());
    QByteArray message;
    message.reserve(32 + url.size());
    message.append("HELF", 4);
    appendUInt32(&message, 32 + urlLength);
    appendUInt32(&message, 0);      // protocol version
    appendUInt32(&message, 65535);  // receive buffer size
    appendUInt32(&message, 65535);  // send buffer size
    appendUInt32(&message, 0);      // max message size
    appendUInt32(&message, 0);      // max chunk count
    appendUInt32(&message, urlLength);
    message.append(url);
    return message;
}

bool parseHelloResponse(const QByteArray& data, IdentifyResult* result)
{
    if (data.size() < 8)
        return false;
    const QByteArray type = data.left(3);
    if (type != "ACK" && type != "ERR")
        return false;
    if (!result)
        return true;
    result->opcUa = true;
    result->endpointUrl.clear();
    result->messageType = QString::fromLatin1(type);
    return true;
}

IdentifyResult QtTransport::tcpIdentify(const QString& host, quint16 port, int connectTimeoutMs, int ioTimeoutMs)
{
    SocketGuard socket(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    if (socket.fd() < 0)
        return {};

    const int flags = ::fcntl(socket.fd(), F_GETFL, 0);
    if (flags < 0 || ::fcntl(socket.fd(), F_SETFL, flags | O_NONBLOCK) < 0)
        return {};

    const int noDelay = 1;
    ::setsockopt(socket.fd(), IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);

    in_addr address{};
    if (!resolveIpv4(host, &address))
        return {};
    if (!connectWithin(socket.fd(), address, port, connectTimeoutMs))
        return {};

    const QString endpointUrl = endpointFor(host, port);
    if (!sendWithin(socket.fd(), helloRequest(endpointUrl, 0), ioTimeoutMs))
        return {};

    const QByteArray answer = posix_net::tcpRecvAll(socket.fd(), ioTimeoutMs);
    socket.close();

    IdentifyResult result;
    if (parseHelloResponse(answer, &result))
        result.endpointUrl = endpointUrl;
    return result;
}

} // namespace OpcUaDiscovery
