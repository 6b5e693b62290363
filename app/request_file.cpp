#include "app/request_file.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

enum class ReadOutcome { Read, Unopenable, TooLarge, NoData, Unfinished };

enum class SourceKind { None, RegularFile, Pipe, NullDevice };

SourceKind sourceKind(const struct stat& status)
{
    if (S_ISREG(status.st_mode))
        return SourceKind::RegularFile;
    if (S_ISFIFO(status.st_mode))
        return SourceKind::Pipe;
    // A service started with standard input on the null device and "-r /dev/stdin" gets the
    // empty request an empty file gives.
    if (S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3))
        return SourceKind::NullDevice;
    return SourceKind::None;
}

// Reads fd to its end into bytes, at most maxBytes (sizeHint: the size to expect). Only a pipe
// waits, and no longer than waitMs in all. Opened without blocking, a pipe reads an end at once
// while no writer has it open (a FIFO whose writer is still to come) and fails with EAGAIN while
// a writer has it open but sends nothing. poll() reports POLLHUP only once a writer has closed
// it (at once for a pipe whose writer closed before it was opened here), so an end read before
// any data and before a hang-up means a writer still to come.
ReadOutcome readToEnd(int fd, SourceKind kind, qint64 sizeHint, qint64 maxBytes, int waitMs, QByteArray* bytes)
{
    QElapsedTimer clock;
    clock.start();
    bool hungUp = false;
    qint64 filled = 0;
    bytes->resize(int(qMin(maxBytes + 1, sizeHint + 1)));
    for (;;) {
        if (filled == bytes->size()) {
            if (filled > maxBytes)
                return ReadOutcome::TooLarge;
            bytes->resize(int(qMin(maxBytes + 1, filled * 2 + 65536)));
        }
        const ssize_t got = ::read(fd, bytes->data() + filled, size_t(bytes->size() - filled));
        if (got > 0) {
            filled += got;
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        if (got == 0 && (kind != SourceKind::Pipe || filled > 0 || hungUp)) {
            bytes->resize(int(filled));
            return ReadOutcome::Read;
        }
        if (got < 0 && errno != EAGAIN)
            return ReadOutcome::Unopenable;
        const qint64 left = waitMs - clock.elapsed();
        if (left <= 0)
            return filled == 0 ? ReadOutcome::NoData : ReadOutcome::Unfinished;
        struct pollfd ready = {fd, POLLIN, 0};
        const int polled = ::poll(&ready, 1, int(left));
        if (polled < 0 && errno != EINTR)
            return ReadOutcome::Unopenable;
        if (polled > 0 && (ready.revents & POLLHUP))
            hungUp = true;
    }
}

ReadOutcome readSource(const QString& path, qint64 maxBytes, int waitMs, QByteArray* bytes)
{
    // Opening a device can have effects of its own (a watchdog starts counting, a serial line
    // resets its peer), so only what looks like a source that is read is opened; the check
    // after the open covers a swap in between. A FIFO is opened without blocking, so that a
    // writer that never comes is waited for only as long as the read waits.
    const QByteArray name = QFile::encodeName(path);
    struct stat named;
    if (::stat(name.constData(), &named) != 0)
        return ReadOutcome::Unopenable;
    const SourceKind kind = sourceKind(named);
    if (kind == SourceKind::None)
        return ReadOutcome::Unopenable;
    if (kind == SourceKind::RegularFile && named.st_size > maxBytes)
        return ReadOutcome::TooLarge;
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return ReadOutcome::Unopenable;
    struct stat opened;
    ReadOutcome outcome = ReadOutcome::Unopenable;
    if (::fstat(fd, &opened) == 0 && sourceKind(opened) == kind) {
        if (kind == SourceKind::RegularFile && opened.st_size > maxBytes)
            outcome = ReadOutcome::TooLarge;
        else
            outcome = readToEnd(fd, kind, kind == SourceKind::RegularFile ? opened.st_size : 65535, maxBytes, waitMs, bytes);
    }
    ::close(fd);
    if (outcome != ReadOutcome::Read)
        bytes->clear();
    return outcome;
}

} // namespace

bool readRequestFile(const QString& path, QJsonObject* request, QString* error, int waitMs)
{
    QByteArray bytes;
    const QString seconds = QString::number(waitMs / 1000.0);
    switch (readSource(path, maxRequestFileBytes, waitMs, &bytes)) {
    case ReadOutcome::Read:
        break;
    case ReadOutcome::Unopenable:
        *error = QStringLiteral("Unable to open request file: %1").arg(path);
        return false;
    case ReadOutcome::TooLarge:
        *error = QStringLiteral("Request file is larger than %1 MiB: %2")
                     .arg(QString::number(maxRequestFileBytes / (1024 * 1024)), path);
        return false;
    case ReadOutcome::NoData:
        *error = QStringLiteral("Request file gave no data within %1 s: %2").arg(seconds, path);
        return false;
    case ReadOutcome::Unfinished:
        *error = QStringLiteral("Request file did not end within %1 s: %2").arg(seconds, path);
        return false;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        *error = QStringLiteral("Invalid JSON request: %1 at offset %2")
                     .arg(parseError.errorString(), QString::number(parseError.offset));
        return false;
    }
    *request = document.object();
    return true;
}
