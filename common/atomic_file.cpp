#include "common/atomic_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The file a path names, symbolic links followed, so that a link stays a link and its target
// is replaced; a link that does not resolve within a sane depth is replaced itself.
QString finalPath(const QString& path)
{
    QFileInfo info(path);
    if (!info.isSymLink())
        return path;
    int depth = 128;
    while (--depth && info.isSymLink())
        info.setFile(info.symLinkTarget());
    return depth > 0 ? info.filePath() : path;
}

QByteArray partPrefix(const QByteArray& target)
{
    return target + ".part-";
}

// One name per process, so that two writers of the same path never share one.
QByteArray partPath(const QByteArray& target)
{
    return partPrefix(target) + QByteArray::number(qint64(::getpid()));
}

bool lacksAnonymousFiles(int error)
{
    return error == EISDIR || error == EOPNOTSUPP || error == EINVAL || error == ENOTSUP;
}

// An anonymous file gets its name through /proc, or without it through a call that only a root
// process may make; anyone else writes a named file from the start.
bool canNameAnonymousFiles()
{
    return ::access("/proc/self/fd", X_OK) == 0 || ::geteuid() == 0;
}

// Gives the anonymous file open at fd the name at path.
bool linkAnonymousFile(int fd, const QByteArray& path)
{
    const QByteArray procPath = "/proc/self/fd/" + QByteArray::number(fd);
    if (::linkat(AT_FDCWD, procPath.constData(), AT_FDCWD, path.constData(), AT_SYMLINK_FOLLOW) == 0)
        return true;
    // Without /proc; needs a capability that a root process has.
    return ::linkat(fd, "", AT_FDCWD, path.constData(), AT_EMPTY_PATH) == 0;
}

} // namespace

AtomicFile::AtomicFile(const QString& path, Durability durability)
    : given_(QFile::encodeName(path)), target_(QFile::encodeName(finalPath(path))), durability_(durability)
{
}

AtomicFile::~AtomicFile()
{
    discard();
}

bool AtomicFile::open()
{
    discard();
    failed_ = false;
    inPlace_ = false;
    // A device or a pipe cannot be replaced by a file without breaking whoever uses it, so it is
    // written in place. The open does not wait for a pipe's reader: without one it fails.
    struct stat given;
    if (::stat(given_.constData(), &given) == 0 && !S_ISREG(given.st_mode) && !S_ISDIR(given.st_mode)) {
        fd_ = ::open(given_.constData(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (fd_ < 0)
            return false;
        ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) & ~O_NONBLOCK);
        inPlace_ = true;
        return true;
    }
    const QFileInfo existing(QFile::decodeName(target_));
    if (existing.isDir() || (existing.exists() && !existing.isWritable()))
        return false;

    const QByteArray directory = QFile::encodeName(existing.path());
    const bool anonymous = canNameAnonymousFiles();
    if (anonymous)
        fd_ = ::open(directory.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (!anonymous || (fd_ < 0 && lacksAnonymousFiles(errno))) {
        partPath_ = partPath(target_);
        ::unlink(partPath_.constData());
        fd_ = ::open(partPath_.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd_ < 0)
            partPath_.clear();
    }
    if (fd_ < 0)
        return false;

    struct stat status;
    if (::stat(target_.constData(), &status) == 0)
        ::fchmod(fd_, status.st_mode & 07777);
    return true;
}

bool AtomicFile::write(const QByteArray& bytes)
{
    if (fd_ < 0 || failed_)
        return false;
    const char* data = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd_, data, size_t(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            failed_ = true;
            return false;
        }
        data += written;
        left -= written;
    }
    return true;
}

bool AtomicFile::commit()
{
    if (fd_ < 0)
        return false;
    if (inPlace_) {
        const int fd = fd_;
        fd_ = -1;
        return ::close(fd) == 0 && !failed_;
    }
    bool placed = !failed_ && (durability_ == Durability::Unsynced || ::fsync(fd_) == 0);
    if (placed && partPath_.isEmpty()) {
        // The name exists only from here to the rename just below.
        const QByteArray name = partPath(target_);
        ::unlink(name.constData());
        placed = linkAnonymousFile(fd_, name);
        if (placed)
            partPath_ = name;
    }
    // Some file systems report a failed write only when the file is closed.
    const int fd = fd_;
    fd_ = -1;
    placed = ::close(fd) == 0 && placed;
    placed = placed && std::rename(partPath_.constData(), target_.constData()) == 0;
    if (placed)
        partPath_.clear();
    discard();
    return placed;
}

void AtomicFile::discard()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    if (!partPath_.isEmpty())
        ::unlink(partPath_.constData());
    partPath_.clear();
}

bool writeFileAtomically(const QString& path, const QByteArray& bytes, AtomicFile::Durability durability)
{
    AtomicFile file(path, durability);
    if (!file.open())
        return false;
    file.write(bytes);
    return file.commit();
}

void removeStaleAtomicFileParts(const QString& path)
{
    const QFileInfo target(finalPath(path));
    const QString prefix = target.fileName() + QStringLiteral(".part-");
    const QDir directory = target.dir();
    const QStringList names = directory.entryList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QString& name : names) {
        if (!name.startsWith(prefix))
            continue;
        const QString digits = name.mid(prefix.size());
        bool numeric = !digits.isEmpty() && digits.size() <= 10;
        for (const QChar c : digits)
            numeric = numeric && c >= QLatin1Char('0') && c <= QLatin1Char('9');
        const qint64 pid = digits.toLongLong();
        if (!numeric || pid <= 0 || pid == qint64(::getpid()))
            continue;
        if (::kill(pid_t(pid), 0) == -1 && errno == ESRCH)
            QFile::remove(directory.filePath(name));
    }
}
