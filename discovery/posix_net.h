#pragma once

#include <QByteArray>

namespace posix_net {

// Reads what arrives within timeoutMs, plus what is immediately readable after each read.
QByteArray tcpRecvAll(int fd, int timeoutMs);

} // namespace posix_net
