#include "app/request_file.h"

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The whole content of a regular file of at most maxBytes; false for anything else.
bool readRegularFile(const QString& path, qint64 maxBytes, QByteArray* bytes)
{
    // Opening a device can have effects of its own (a watchdog starts counting), so only what
    // looks like a regular file is opened; the check after the open covers a swap in between.
    const QByteArray name = QFile::encodeName(path);
    struct stat named;
    if (::stat(name.constData(), &named) != 0 || !S_ISREG(named.st_mode))
        return false;
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return false;
    struct stat status;
    bool ok = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= maxBytes;
    if (ok) {
        // The file may change while it is read: never more than the limit, and to its real end.
        bytes->resize(int(status.st_size) + 1);
        qint64 filled = 0;
        while (ok) {
            if (filled == bytes->size()) {
                if (filled > maxBytes) {
                    ok = false;
                    break;
                }
                bytes->resize(int(qMin(maxBytes + 1, filled * 2 + 4096)));
            }
            const ssize_t got = ::read(fd, bytes->data() + filled, size_t(bytes->size() - filled));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0) {
                ok = got == 0;
                break;
            }
            filled += got;
        }
        ok = ok && filled <= maxBytes;
        bytes->resize(ok ? int(filled) : 0);
    }
    ::close(fd);
    return ok;
}

} // namespace

bool readRequestFile(const QString& path, QJsonObject* request, QString* error)
{
    QByteArray bytes;
    if (!readRegularFile(path, maxRequestFileBytes, &bytes)) {
        *error = QStringLiteral("Unable to open request file: %1").arg(path);
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
