// A TCP peer that is not a usable OPC UA server, for discover_devices tests.
//   fake_peer --http ADDRESS PORT       answers anything with an HTTP 400 response (a web server)
//   fake_peer --opcua-error ADDRESS PORT answers every Hello with an OPC UA Error message, so the
//                                       probe counts it as a server that then refuses every query
// Closes each connection after its answer. Runs until killed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void putU32(std::string* out, uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8)
        out->push_back(static_cast<char>((value >> shift) & 0xFF));
}

std::string opcUaError()
{
    const uint32_t badTcpEndpointUrlInvalid = 0x80830000u;
    std::string m = "ERRF";
    putU32(&m, 16);
    putU32(&m, badTcpEndpointUrlInvalid);
    putU32(&m, 0xFFFFFFFFu); // null reason
    return m;
}

std::string httpBadRequest()
{
    return "HTTP/1.1 400 Bad Request\r\nContent-Type: text/html\r\nContent-Length: 11\r\nConnection: close\r\n\r\n"
           "Bad Request";
}

void answer(int fd, const std::string& reply)
{
    pollfd p{fd, POLLIN, 0};
    char buffer[4096];
    if (::poll(&p, 1, 2000) > 0)
        (void)!::recv(fd, buffer, sizeof buffer, 0);
    size_t sent = 0;
    while (sent < reply.size()) {
        const ssize_t n = ::send(fd, reply.data() + sent, reply.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            break;
        sent += static_cast<size_t>(n);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4 || (std::strcmp(argv[1], "--http") != 0 && std::strcmp(argv[1], "--opcua-error") != 0)) {
        std::fprintf(stderr, "usage: fake_peer --http|--opcua-error ADDRESS PORT\n");
        return 2;
    }
    const std::string reply = std::strcmp(argv[1], "--http") == 0 ? httpBadRequest() : opcUaError();
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    const int one = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(std::atoi(argv[3])));
    if (::inet_pton(AF_INET, argv[2], &address.sin_addr) != 1
        || ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || ::listen(listener, 64) != 0) {
        std::perror("fake_peer");
        return 1;
    }
    std::printf("ready %s\n", argv[3]);
    std::fflush(stdout);
    for (;;) {
        const int fd = ::accept(listener, nullptr, nullptr);
        if (fd < 0)
            continue;
        answer(fd, reply);
        ::close(fd);
    }
}
