// A minimal OPC UA peer for scan tests: listens on the given TCP ports and answers
// every Hello with an Acknowledge (or, with --error, an Error message), then closes.
// Usage: ack_responder [--error] PORT...
// Runs until killed. Writes "ready" to standard output once all ports listen.
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void putU32(std::string* out, uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8)
        out->push_back(static_cast<char>((value >> shift) & 0xFF));
}

std::string acknowledge()
{
    std::string m = "ACKF";
    putU32(&m, 28);
    putU32(&m, 0);
    putU32(&m, 65535);
    putU32(&m, 65535);
    putU32(&m, 0);
    putU32(&m, 0);
    return m;
}

std::string errorMessage()
{
    const std::string reason = "responder refuses";
    std::string m = "ERRF";
    putU32(&m, static_cast<uint32_t>(16 + reason.size()));
    putU32(&m, 0x80B00000u);  // BadTcpInternalError
    putU32(&m, static_cast<uint32_t>(reason.size()));
    return m + reason;
}

// Reads the Hello (bounded to one second) and answers it.
void serveConnection(int fd, const std::string& answer)
{
    std::string hello;
    for (int waited = 0; waited < 1000; waited += 50) {
        pollfd in{fd, POLLIN, 0};
        if (::poll(&in, 1, 50) <= 0)
            continue;
        char buffer[1024];
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0)
            return;
        hello.append(buffer, static_cast<size_t>(n));
        if (hello.size() >= 8) {
            uint32_t size = 0;
            std::memcpy(&size, hello.data() + 4, 4);
            if (hello.size() >= size)
                break;
        }
    }
    if (hello.compare(0, 3, "HEL") == 0)
        ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::string answer = acknowledge();
    std::vector<pollfd> listeners;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--error") == 0) {
            answer = errorMessage();
            continue;
        }
        const int port = std::atoi(argv[i]);
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        const int yes = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        if (port <= 0 || port > 65535 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
            || ::listen(fd, 64) != 0) {
            std::fprintf(stderr, "ack_responder: cannot listen on %s: %s\n", argv[i], std::strerror(errno));
            return 1;
        }
        listeners.push_back({fd, POLLIN, 0});
    }
    std::printf("ready\n");
    std::fflush(stdout);
    for (;;) {
        if (::poll(listeners.data(), listeners.size(), -1) < 0 && errno != EINTR)
            return 1;
        for (pollfd& l : listeners) {
            if (!(l.revents & POLLIN))
                continue;
            const int fd = ::accept(l.fd, nullptr, nullptr);
            if (fd < 0)
                continue;
            serveConnection(fd, answer);
            ::close(fd);
        }
    }
}
