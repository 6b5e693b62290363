#pragma once

// The listening side that the raw OPC UA TCP peers share: bind, announce the port as opcua_sim
// does ("ready <port>"), and serve every connection from one poll loop.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace raw_peer {

// Listens on address:port (0: any free port) and prints "ready <port>"; -1 after a message on
// standard error when that fails. *boundPort receives the port.
inline int listenAndAnnounce(const char* program, const char* address, const char* portText, int* boundPort)
{
    const int port = std::atoi(portText);
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    const int one = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in bound{};
    bound.sin_family = AF_INET;
    bound.sin_port = htons(static_cast<uint16_t>(port));
    if (port < 0 || port > 65535 || ::inet_pton(AF_INET, address, &bound.sin_addr) != 1
        || ::bind(listener, reinterpret_cast<sockaddr*>(&bound), sizeof bound) != 0 || ::listen(listener, 64) != 0) {
        std::fprintf(stderr, "%s: cannot listen on %s:%s: %s\n", program, address, portText, std::strerror(errno));
        return -1;
    }
    socklen_t length = sizeof bound;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&bound), &length);
    *boundPort = ntohs(bound.sin_port);
    std::printf("ready %d\n", *boundPort);
    std::fflush(stdout);
    return listener;
}

// Accepts connections for ever (at most maxConnections open, the oldest closed first) and calls
// serve(connection) whenever one has something to read; a false answer closes it. Connection
// holds the descriptor in `fd`; accepted(fd) makes a new one. Returns only on a poll failure.
template <typename Connection, typename Accepted, typename Serve>
int serveConnections(int listener, size_t maxConnections, Accepted accepted, Serve serve)
{
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
                connections.push_back(accepted(fd));
            }
        }
    }
}

} // namespace raw_peer
