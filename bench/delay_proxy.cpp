// A TCP proxy on loopback that delays every byte by a fixed time in each direction, in order:
// a plant LAN's round-trip time for benchmarks on a kernel without netem.
//
//   delay_proxy --target PORT [--target-host 127.0.0.1] [--port 0] [--delay-ms 0.5] [--max-seconds 3600]
//
// Listens on 127.0.0.1 (--port 0 picks a free port), prints "ready <port>" once it listens and
// forwards each accepted connection to the target, which must be on 127.0.0.0/8. --delay-ms is
// one way, so 0.5 gives 1 ms of round-trip time. Ends after --max-seconds, on SIGTERM or SIGINT.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t running = 1;

void stopRunning(int)
{
    running = 0;
}

struct Packet
{
    Clock::time_point due;
    std::string bytes;
    size_t sent = 0;
};

// One direction of a connection: bytes read from `from` wait until they are due, then go to `to`.
struct Direction
{
    int from = -1;
    int to = -1;
    std::deque<Packet> queue;
    bool eof = false;       // `from` has no more bytes
    bool shutDown = false;  // `to` got its write side shut after the queue drained
};

struct Connection
{
    Direction up;    // client -> target
    Direction down;  // target -> client
    bool dead = false;
};

void setNonBlocking(int fd)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL, 0) | O_NONBLOCK);
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

int connectTarget(const sockaddr_in& target)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
        close(fd);
        return -1;
    }
    setNonBlocking(fd);
    return fd;
}

void readInto(Direction* direction, Clock::duration delay, Connection* connection)
{
    char buffer[65536];
    for (;;) {
        const ssize_t n = read(direction->from, buffer, sizeof buffer);
        if (n > 0) {
            direction->queue.push_back(Packet{Clock::now() + delay, std::string(buffer, static_cast<size_t>(n))});
            continue;
        }
        if (n == 0) {
            direction->eof = true;
        } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
            connection->dead = true;
        }
        return;
    }
}

void writeDue(Direction* direction, Connection* connection)
{
    const Clock::time_point now = Clock::now();
    while (!direction->queue.empty() && direction->queue.front().due <= now) {
        Packet& packet = direction->queue.front();
        const ssize_t n = write(direction->to, packet.bytes.data() + packet.sent, packet.bytes.size() - packet.sent);
        if (n < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
                connection->dead = true;
            return;
        }
        packet.sent += static_cast<size_t>(n);
        if (packet.sent < packet.bytes.size())
            return;
        direction->queue.pop_front();
    }
    if (direction->eof && direction->queue.empty() && !direction->shutDown) {
        shutdown(direction->to, SHUT_WR);
        direction->shutDown = true;
    }
}

bool finished(const Connection& connection)
{
    return connection.dead || (connection.up.shutDown && connection.down.shutDown);
}

double argument(int argc, char** argv, const char* name, double fallback)
{
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], name) == 0)
            return std::atof(argv[i + 1]);
    }
    return fallback;
}

const char* textArgument(int argc, char** argv, const char* name, const char* fallback)
{
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], name) == 0)
            return argv[i + 1];
    }
    return fallback;
}

} // namespace

int main(int argc, char** argv)
{
    const int targetPort = static_cast<int>(argument(argc, argv, "--target", 0));
    const char* targetHost = textArgument(argc, argv, "--target-host", "127.0.0.1");
    const int listenPort = static_cast<int>(argument(argc, argv, "--port", 0));
    const double delayMs = argument(argc, argv, "--delay-ms", 0.5);
    const double maxSeconds = argument(argc, argv, "--max-seconds", 3600);
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(static_cast<uint16_t>(targetPort));
    if (targetPort <= 0 || targetPort > 65535 || inet_pton(AF_INET, targetHost, &target.sin_addr) != 1 ||
        (ntohl(target.sin_addr.s_addr) >> 24) != 127 || delayMs < 0) {
        std::fprintf(stderr, "usage: delay_proxy --target PORT [--target-host 127.x.y.z] [--port N] "
                             "[--delay-ms MS] [--max-seconds S]\n");
        return 2;
    }
    std::signal(SIGTERM, stopRunning);
    std::signal(SIGINT, stopRunning);
    std::signal(SIGPIPE, SIG_IGN);

    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    const int one = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(listenPort));
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener, 16) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        std::perror("delay_proxy: listen");
        return 1;
    }
    setNonBlocking(listener);
    std::printf("ready %d\n", ntohs(address.sin_port));
    std::fflush(stdout);

    const auto delay = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::milli>(delayMs));
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                     std::chrono::duration<double>(maxSeconds));
    std::vector<std::unique_ptr<Connection>> connections;
    while (running && Clock::now() < end) {
        std::vector<pollfd> fds{{listener, POLLIN, 0}};
        Clock::time_point wake = end;
        for (const auto& connection : connections) {
            for (const Direction* direction : {&connection->up, &connection->down}) {
                short events = direction->eof ? 0 : POLLIN;
                fds.push_back({direction->from, events, 0});
                if (!direction->queue.empty()) {
                    const Clock::time_point due = direction->queue.front().due;
                    if (due <= Clock::now())
                        fds.push_back({direction->to, POLLOUT, 0});
                    else if (due < wake)
                        wake = due;
                }
            }
        }
        const auto wait = std::chrono::duration_cast<std::chrono::nanoseconds>(wake - Clock::now());
        timespec timeout{};
        if (wait.count() > 0) {
            timeout.tv_sec = static_cast<time_t>(wait.count() / 1000000000);
            timeout.tv_nsec = static_cast<long>(wait.count() % 1000000000);
        }
        if (ppoll(fds.data(), fds.size(), &timeout, nullptr) < 0 && errno != EINTR)
            break;

        if (fds[0].revents & POLLIN) {
            for (;;) {
                const int client = accept(listener, nullptr, nullptr);
                if (client < 0)
                    break;
                const int upstream = connectTarget(target);
                if (upstream < 0) {
                    close(client);
                    continue;
                }
                setNonBlocking(client);
                auto connection = std::make_unique<Connection>();
                connection->up.from = client;
                connection->up.to = upstream;
                connection->down.from = upstream;
                connection->down.to = client;
                connections.push_back(std::move(connection));
            }
        }
        for (auto& connection : connections) {
            for (Direction* direction : {&connection->up, &connection->down}) {
                if (!direction->eof)
                    readInto(direction, delay, connection.get());
                writeDue(direction, connection.get());
            }
        }
        for (auto it = connections.begin(); it != connections.end();) {
            if (finished(**it)) {
                close((*it)->up.from);
                close((*it)->down.from);
                it = connections.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto& connection : connections) {
        close(connection->up.from);
        close(connection->down.from);
    }
    close(listener);
    return 0;
}
