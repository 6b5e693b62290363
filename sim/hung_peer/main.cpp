// opcua_hung_peer: a server that hangs. It answers the OPC UA Hello with an Acknowledge, so a
// scan counts it as a server, and then never answers anything else on that connection: no
// OpenSecureChannel, no service request, no close. Connections stay open until the client
// closes them, so every client call ends in its own time-out.
//   opcua_hung_peer ADDRESS PORT      (PORT 0: any free port)
// Prints "ready <port>" once it listens (as opcua_sim does) and runs until SIGTERM or SIGINT.
#include "sim/support/uacp_messages.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

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
    const int port = std::atoi(argv[2]);
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    const int one = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (port < 0 || port > 65535 || ::inet_pton(AF_INET, argv[1], &address.sin_addr) != 1
        || ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || ::listen(listener, 64) != 0) {
        std::fprintf(stderr, "opcua_hung_peer: cannot listen on %s:%s: %s\n", argv[1], argv[2], std::strerror(errno));
        return 1;
    }
    socklen_t length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::printf("ready %d\n", ntohs(address.sin_port));
    std::fflush(stdout);

    std::vector<Connection> connections;
    for (;;) {
        std::vector<pollfd> watched{{listener, POLLIN, 0}};
        for (const Connection& c : connections)
            watched.push_back({c.fd, POLLIN, 0});
        if (::poll(watched.data(), watched.size(), -1) < 0) {
            if (errno == EINTR)
                continue;
            return 1;
        }
        std::vector<Connection> kept;
        for (size_t i = 0; i < connections.size(); ++i) {
            Connection& c = connections[i];
            if ((watched[i + 1].revents & (POLLIN | POLLHUP | POLLERR)) && !serve(&c)) {
                ::close(c.fd);
                continue;
            }
            kept.push_back(std::move(c));
        }
        connections.swap(kept);
        if (watched[0].revents & POLLIN) {
            const int fd = ::accept(listener, nullptr, nullptr);
            if (fd >= 0) {
                if (connections.size() >= maxConnections) {
                    ::close(connections.front().fd);
                    connections.erase(connections.begin());
                }
                connections.push_back(Connection{fd, {}, false});
            }
        }
    }
}
