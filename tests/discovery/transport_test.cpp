#include "discovery/posix_net.h"
#include "discovery/transport.h"

#include <gtest/gtest.h>

#include <QDir>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using OpcUaDiscovery::IdentifyResult;
using OpcUaDiscovery::QtTransport;

namespace {

// A TCP peer on 127.0.0.1 and a port of its own. For each accepted connection it
// waits (bounded) for the client's Hello, then runs `reply` on the connection.
class Peer
{
public:
    using Reply = std::function<void(int fd, const QByteArray& hello)>;

    explicit Peer(Reply reply) : m_reply(std::move(reply))
    {
        m_listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = 0;
        if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
            || ::listen(m_listener, 16) != 0)
            return;
        socklen_t length = sizeof address;
        ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { serve(); });
    }

    ~Peer()
    {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
        ::close(m_listener);
    }

    quint16 port() const { return m_port; }
    QByteArray lastHello() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastHello;
    }
    int accepted() const { return m_accepted; }

private:
    void serve()
    {
        while (!m_stop) {
            pollfd pfd{m_listener, POLLIN, 0};
            if (::poll(&pfd, 1, 20) <= 0)
                continue;
            const int fd = ::accept(m_listener, nullptr, nullptr);
            if (fd < 0)
                continue;
            ++m_accepted;
            QByteArray hello;
            // Read until the whole Hello is in (its size is at offset 4), at most 2 s.
            for (int waited = 0; waited < 2000 && !m_stop; waited += 20) {
                pollfd in{fd, POLLIN, 0};
                if (::poll(&in, 1, 20) <= 0)
                    continue;
                char buffer[4096];
                const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
                if (n <= 0)
                    break;
                hello.append(buffer, static_cast<int>(n));
                if (hello.size() >= 8) {
                    quint32 size = 0;
                    std::memcpy(&size, hello.constData() + 4, 4);
                    if (static_cast<quint32>(hello.size()) >= size)
                        break;
                }
            }
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_lastHello = hello;
            }
            m_reply(fd, hello);
            ::close(fd);
        }
    }

    Reply m_reply;
    int m_listener = -1;
    quint16 m_port = 0;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_accepted{0};
    mutable std::mutex m_mutex;
    QByteArray m_lastHello;
    std::thread m_thread;
};

void sendAll(int fd, const QByteArray& data)
{
    ::send(fd, data.constData(), static_cast<size_t>(data.size()), MSG_NOSIGNAL);
}

const QByteArray kAcknowledge = QByteArray::fromHex("41434b46" "1c000000" "00000000" "ffff0000" "ffff0000"
                                                    "00000000" "00000000");
const QByteArray kError = QByteArray("ERRF") + QByteArray::fromHex("1a000000" "0000b080" "0a000000")
                          + QByteArray("no session");

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System | QDir::NoDotAndDotDot).size();
}

IdentifyResult probe(quint16 port, const QString& host = QStringLiteral("127.0.0.1"), int ioTimeoutMs = 400)
{
    QtTransport transport;
    return transport.tcpIdentify(host, port, 80, ioTimeoutMs);
}

} // namespace

TEST(TcpIdentify, AcknowledgeMeansServer)
{
    Peer peer([](int fd, const QByteArray&) { sendAll(fd, kAcknowledge); });
    ASSERT_NE(peer.port(), 0);
    const IdentifyResult r = probe(peer.port());
    EXPECT_TRUE(r.opcUa);
    EXPECT_EQ(r.messageType, QStringLiteral("ACK"));
    EXPECT_EQ(r.endpointUrl, QStringLiteral("opc.tcp://127.0.0.1:%1").arg(peer.port()));
    EXPECT_EQ(peer.lastHello(), OpcUaDiscovery::helloRequest(r.endpointUrl, 0));
}

TEST(TcpIdentify, ErrorMessageMeansServer)
{
    Peer peer([](int fd, const QByteArray&) { sendAll(fd, kError); });
    const IdentifyResult r = probe(peer.port());
    EXPECT_TRUE(r.opcUa);
    EXPECT_EQ(r.messageType, QStringLiteral("ERR"));
    EXPECT_EQ(r.endpointUrl, QStringLiteral("opc.tcp://127.0.0.1:%1").arg(peer.port()));
}

TEST(TcpIdentify, FirstEightBytesOfAnAnswerAreEnough)
{
    // The rest of the Acknowledge comes after the probe has given up reading.
    Peer peer([](int fd, const QByteArray&) {
        sendAll(fd, kAcknowledge.left(8));
        ::usleep(500 * 1000);
        sendAll(fd, kAcknowledge.mid(8));
    });
    const IdentifyResult r = probe(peer.port());
    EXPECT_TRUE(r.opcUa);
    EXPECT_EQ(r.messageType, QStringLiteral("ACK"));
}

TEST(TcpIdentify, AnswerThatStaysOpenAfterTheAcknowledgeIsAccepted)
{
    Peer peer([](int fd, const QByteArray&) {
        sendAll(fd, kAcknowledge);
        ::usleep(600 * 1000);  // the peer keeps the connection open past the probe's I/O time
    });
    EXPECT_TRUE(probe(peer.port()).opcUa);
}

TEST(TcpIdentify, HttpStatusLineIsNoServer)
{
    Peer peer([](int fd, const QByteArray&) { sendAll(fd, "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n"); });
    const IdentifyResult r = probe(peer.port());
    EXPECT_FALSE(r.opcUa);
    EXPECT_TRUE(r.endpointUrl.isEmpty());
    EXPECT_TRUE(r.messageType.isEmpty());
}

TEST(TcpIdentify, SilentPeerIsNoServerAfterTheIoTimeout)
{
    Peer peer([](int, const QByteArray&) { ::usleep(300 * 1000); });
    const IdentifyResult r = probe(peer.port(), QStringLiteral("127.0.0.1"), 100);
    EXPECT_FALSE(r.opcUa);
    EXPECT_TRUE(r.endpointUrl.isEmpty());
    EXPECT_EQ(peer.accepted(), 1);
}

TEST(TcpIdentify, SevenByteAnswerIsNoServer)
{
    Peer peer([](int fd, const QByteArray&) { sendAll(fd, kAcknowledge.left(7)); });
    EXPECT_FALSE(probe(peer.port()).opcUa);
}

TEST(TcpIdentify, PeerClosingWithoutAnswerIsNoServer)
{
    Peer peer([](int, const QByteArray&) {});
    EXPECT_FALSE(probe(peer.port()).opcUa);
}

TEST(TcpIdentify, ClosedPortIsNoServer)
{
    // A bound socket that does not listen keeps the port ours and refuses connections.
    const int holder = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(holder, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t length = sizeof address;
    ::getsockname(holder, reinterpret_cast<sockaddr*>(&address), &length);
    const IdentifyResult r = probe(ntohs(address.sin_port));
    ::close(holder);
    EXPECT_FALSE(r.opcUa);
    EXPECT_TRUE(r.endpointUrl.isEmpty());
    EXPECT_TRUE(r.messageType.isEmpty());
}

TEST(TcpIdentify, NameWithoutIpv4AddressIsNoServer)
{
    EXPECT_FALSE(probe(4840, QStringLiteral("no-such-host.invalid")).opcUa);
    EXPECT_FALSE(probe(4840, QStringLiteral("")).opcUa);
}

TEST(TcpIdentify, IPv6LiteralIsNoServer)
{
    Peer peer([](int fd, const QByteArray&) { sendAll(fd, kAcknowledge); });
    EXPECT_FALSE(probe(peer.port(), QStringLiteral("::1")).opcUa);
    EXPECT_EQ(peer.accepted(), 0);
}

TEST(TcpIdentify, IPv4MappedAddressIsProbed)
{
    Peer peer([](int fd, const QByteArray&) { sendAll(fd, kAcknowledge); });
    const IdentifyResult r = probe(peer.port(), QStringLiteral("::ffff:127.0.0.1"));
    EXPECT_TRUE(r.opcUa);
    EXPECT_EQ(r.endpointUrl, QStringLiteral("opc.tcp://::ffff:127.0.0.1:%1").arg(peer.port()));
}

TEST(TcpIdentify, LocalhostNameResolves)
{
    Peer peer([](int fd, const QByteArray&) { sendAll(fd, kAcknowledge); });
    const IdentifyResult r = probe(peer.port(), QStringLiteral("localhost"));
    EXPECT_TRUE(r.opcUa);
    EXPECT_EQ(r.endpointUrl, QStringLiteral("opc.tcp://localhost:%1").arg(peer.port()));
}

TEST(TcpIdentify, NoDescriptorIsLeftOpen)
{
    // The resolver may keep state of its own after its first use; that is not the probe's.
    probe(4840, QStringLiteral("no-such-host.invalid"));
    const int before = openDescriptors();
    {
        Peer ack([](int fd, const QByteArray&) { sendAll(fd, kAcknowledge); });
        Peer http([](int fd, const QByteArray&) { sendAll(fd, "HTTP/1.1 200 OK\r\n\r\n"); });
        Peer silent([](int, const QByteArray&) { ::usleep(150 * 1000); });
        const int holder = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(::bind(holder, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        ::getsockname(holder, reinterpret_cast<sockaddr*>(&address), &length);
        const quint16 closedPort = ntohs(address.sin_port);
        for (int round = 0; round < 5; ++round) {
            EXPECT_TRUE(probe(ack.port()).opcUa);
            EXPECT_FALSE(probe(http.port()).opcUa);
            EXPECT_FALSE(probe(silent.port(), QStringLiteral("127.0.0.1"), 50).opcUa);
            EXPECT_FALSE(probe(closedPort).opcUa);
            EXPECT_FALSE(probe(closedPort, QStringLiteral("no-such-host.invalid")).opcUa);
        }
        ::close(holder);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(TcpIdentify, OneTransportServesManyThreads)
{
    Peer peer([](int fd, const QByteArray&) { sendAll(fd, kAcknowledge); });
    QtTransport transport;
    std::atomic<int> servers{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < 3; ++j)
                if (transport.tcpIdentify(QStringLiteral("127.0.0.1"), peer.port(), 500, 2000).opcUa)
                    ++servers;
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(servers.load(), 24);
}

TEST(TcpRecvAll, NegativeDescriptorGivesNothing)
{
    EXPECT_TRUE(posix_net::tcpRecvAll(-1, 10).isEmpty());
}

TEST(TcpRecvAll, TakesEverythingAlreadyArrived)
{
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const QByteArray big(10000, 'z');
    sendAll(pair[1], "ACK");
    sendAll(pair[1], big);
    ::close(pair[1]);
    EXPECT_EQ(posix_net::tcpRecvAll(pair[0], 100), QByteArray("ACK") + big);
    ::close(pair[0]);
}

TEST(TcpRecvAll, NothingWithinTheTimeoutGivesNothing)
{
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    EXPECT_TRUE(posix_net::tcpRecvAll(pair[0], 20).isEmpty());
    EXPECT_TRUE(posix_net::tcpRecvAll(pair[0], -5).isEmpty());
    ::close(pair[0]);
    ::close(pair[1]);
}

TEST(TcpRecvAll, ClosedPeerWithoutDataGivesNothing)
{
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    ::close(pair[1]);
    EXPECT_TRUE(posix_net::tcpRecvAll(pair[0], 100).isEmpty());
    ::close(pair[0]);
}

TEST(TcpRecvAll, DataOfAnOpenPeerIsReturnedWithoutWaitingForMore)
{
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    sendAll(pair[1], "ERRF1234");
    EXPECT_EQ(posix_net::tcpRecvAll(pair[0], 100), QByteArray("ERRF1234"));
    ::close(pair[0]);
    ::close(pair[1]);
}
