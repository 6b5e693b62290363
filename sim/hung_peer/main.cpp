// opcua_hung_peer: a server that hangs. It answers the OPC UA Hello with an Acknowledge, so a
// scan counts it as a server, and then never answers anything else on that connection: no
// OpenSecureChannel, no service request, no close. Connections stay open until the client
// closes them, so every client call ends in its own time-out.
//   opcua_hung_peer ADDRESS PORT      (PORT 0: any free port)
// Prints "ready <port>" once it listens (as opcua_sim does) and runs until SIGTERM or SIGINT.
#include "sim/support/raw_peer.h"
#include "sim/support/uacp_messages.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

constexpr size_t maxConnections = 512;

struct Connection
{
    int fd = -1;
    std::string received;
    bool acknowledged = false;
};

// Reads what arrived; answers a complete Hello once. False when the client has gone.
bool serve(Connection* connection)
{
    char buffer[4096];
    const ssize_t n = ::recv(connection->fd, buffer, sizeof buffer, 0);
    if (n <= 0)
        return n < 0 && (errno == EINTR || errno == EAGAIN);
    if (connection->acknowledged)
        return true;
    connection->received.append(buffer, static_cast<size_t>(n));
    if (connection->received.size() < 8)
        return true;
    if (connection->received.compare(0, 3, "HEL") != 0)
        return false;
    uint32_t size = 0;
    std::memcpy(&size, connection->received.data() + 4, 4);
    if (connection->received.size() < size)
        return true;
    const std::string ack = uacp::acknowledge();
    connection->acknowledged = true;
    connection->received.clear();
    return ::send(connection->fd, ack.data(), ack.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(ack.size());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: opcua_hung_peer ADDRESS PORT\n");
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    int port = 0;
    const int listener = raw_peer::listenAndAnnounce("opcua_hung_peer", argv[1], argv[2], &port);
    if (listener < 0)
        return 1;
    return raw_peer::serveConnections<Connection>(
        listener, maxConnections, [](int fd) { return Connection{fd, {}, false}; }, serve);
}
