#include "app/request_file.h"
#include "sim/support/files.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const char kRequest[] = R"({"mode":"discover_devices"})";

QString openError(const QString& path)
{
    return "Unable to open request file: " + path;
}

QString readError(const QString& path, int waitMs = requestWaitMs)
{
    QJsonObject request;
    QString error;
    readRequestFile(path, &request, &error, waitMs);
    return error;
}

QString modeRead(const QString& path, QString* error)
{
    QJsonObject request;
    if (!readRequestFile(path, &request, error))
        return QString();
    return request.value("mode").toString();
}

// Writes all bytes to fd and closes it. A reader that leaves early fails the write instead
// of killing the test with SIGPIPE.
void writeAndClose(int fd, const QByteArray& bytes)
{
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
    qint64 written = 0;
    while (written < bytes.size()) {
        const ssize_t sent = ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            break;
        written += sent;
    }
    ::close(fd);
}

// A writer of a FIFO in its own thread: it opens the FIFO after delayMs, as soon as a reader
// has it open (giving up after ten seconds), and writes bytes.
class FifoWriter
{
public:
    FifoWriter(const QString& path, const QByteArray& bytes, int delayMs = 0)
        : thread_([path, bytes, delayMs] {
              QThread::msleep(static_cast<unsigned long>(delayMs));
              const QByteArray name = QFile::encodeName(path);
              QElapsedTimer clock;
              clock.start();
              int fd = -1;
              while ((fd = ::open(name.constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0 && errno == ENXIO
                     && clock.elapsed() < 10000)
                  QThread::msleep(5);
              if (fd < 0)
                  return;
              ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
              writeAndClose(fd, bytes);
          })
    {
    }
    ~FifoWriter() { thread_.join(); }

private:
    std::thread thread_;
};

// An anonymous pipe, named by its reading end as /dev/stdin or a process substitution name it.
class Pipe
{
public:
    Pipe() { EXPECT_EQ(::pipe2(fds_, O_CLOEXEC), 0); }
    ~Pipe()
    {
        closeWriter();
        ::close(fds_[0]);
        if (writer_.joinable())
            writer_.join();
    }
    QString path() const { return QStringLiteral("/proc/self/fd/%1").arg(fds_[0]); }
    int writer() const { return fds_[1]; }
    void closeWriter()
    {
        if (fds_[1] >= 0)
            ::close(fds_[1]);
        fds_[1] = -1;
    }
    // Writes bytes from a thread of its own and then closes the writing end.
    void send(const QByteArray& bytes)
    {
        const int fd = fds_[1];
        fds_[1] = -1;
        writer_ = std::thread([fd, bytes] { writeAndClose(fd, bytes); });
    }

private:
    int fds_[2] = {-1, -1};
    std::thread writer_;
};

QString makeFifo(const QTemporaryDir& dir)
{
    const QString path = dir.filePath("request.fifo");
    EXPECT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    return path;
}

// The request padded with blanks to exactly size bytes.
QByteArray paddedRequest(qint64 size)
{
    QByteArray bytes(int(size), ' ');
    bytes.replace(0, int(sizeof kRequest - 1), kRequest);
    return bytes;
}

} // namespace

TEST(RequestFile, RegularFileIsRead)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "request.json", kRequest);
    QString error;
    EXPECT_EQ(modeRead(path, &error), "discover_devices") << error.toStdString();
}

TEST(RequestFile, PipeIsReadToItsEnd)
{
    Pipe pipe;
    pipe.send(kRequest);
    QString error;
    EXPECT_EQ(modeRead(pipe.path(), &error), "discover_devices") << error.toStdString();
}

TEST(RequestFile, PipeWhoseWriterHasAlreadyClosedIsRead)
{
    Pipe pipe;
    ASSERT_EQ(::write(pipe.writer(), kRequest, sizeof kRequest - 1), ssize_t(sizeof kRequest - 1));
    pipe.closeWriter();
    QString error;
    EXPECT_EQ(modeRead(pipe.path(), &error), "discover_devices") << error.toStdString();
}

TEST(RequestFile, PipeClosedWithoutDataIsAnEmptyRequest)
{
    Pipe pipe;
    pipe.closeWriter();
    EXPECT_EQ(readError(pipe.path()), "Invalid JSON request: illegal value at offset 0");
}

TEST(RequestFile, FifoWithAWriterIsRead)
{
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir);
    FifoWriter writer(fifo, kRequest);
    QString error;
    EXPECT_EQ(modeRead(fifo, &error), "discover_devices") << error.toStdString();
}

TEST(RequestFile, FifoWhoseWriterComesLaterIsRead)
{
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir);
    FifoWriter writer(fifo, kRequest, 300);
    QString error;
    EXPECT_EQ(modeRead(fifo, &error), "discover_devices") << error.toStdString();
}

TEST(RequestFile, FifoWhoseWriterSendsNothingIsAnEmptyRequest)
{
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir);
    FifoWriter writer(fifo, QByteArray());
    EXPECT_EQ(readError(fifo), "Invalid JSON request: illegal value at offset 0");
}

TEST(RequestFile, SymbolicLinkToAFifoIsRead)
{
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir);
    const QString link = dir.filePath("request.json");
    ASSERT_TRUE(QFile::link(fifo, link));
    FifoWriter writer(fifo, kRequest);
    QString error;
    EXPECT_EQ(modeRead(link, &error), "discover_devices") << error.toStdString();
}

TEST(RequestFile, FifoWithoutAWriterGivesNoDataWithinTheWait)
{
    QTemporaryDir dir;
    const QString fifo = makeFifo(dir);
    EXPECT_EQ(readError(fifo, 200), "Request file gave no data within 0.2 s: " + fifo);
}

TEST(RequestFile, SilentPipeGivesNoDataWithinTheWait)
{
    Pipe pipe;
    EXPECT_EQ(readError(pipe.path(), 200), "Request file gave no data within 0.2 s: " + pipe.path());
}

TEST(RequestFile, PipeThatStopsSendingDoesNotEndWithinTheWait)
{
    Pipe pipe;
    ASSERT_EQ(::write(pipe.writer(), "{\"mode\":", 8), 8);
    EXPECT_EQ(readError(pipe.path(), 200), "Request file did not end within 0.2 s: " + pipe.path());
}

TEST(RequestFile, PipeAtTheLimitIsRead)
{
    Pipe pipe;
    pipe.send(paddedRequest(maxRequestFileBytes));
    QString error;
    EXPECT_EQ(modeRead(pipe.path(), &error), "discover_devices") << error.toStdString();
}

TEST(RequestFile, PipeOverTheLimitIsNotRead)
{
    Pipe pipe;
    pipe.send(paddedRequest(maxRequestFileBytes + 1));
    EXPECT_EQ(readError(pipe.path()), "Request file is larger than 64 MiB: " + pipe.path());
}

TEST(RequestFile, NullDeviceIsAnEmptyRequest)
{
    EXPECT_EQ(readError("/dev/null"), "Invalid JSON request: illegal value at offset 0");
}

TEST(RequestFile, OtherDevicesDirectoriesAndSocketsAreNotRead)
{
    QTemporaryDir dir;
    EXPECT_EQ(readError("/dev/zero"), openError("/dev/zero"));
    EXPECT_EQ(readError("/dev/full"), openError("/dev/full"));
    EXPECT_EQ(readError(dir.path()), openError(dir.path()));

    const QString socketPath = dir.filePath("request.sock");
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(listener, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(socketPath);
    ASSERT_LT(size_t(name.size()), sizeof address.sun_path);
    std::copy(name.begin(), name.end(), address.sun_path);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    EXPECT_EQ(readError(socketPath), openError(socketPath));
    ::close(listener);
}

TEST(RequestFile, MissingFileCannotBeOpened)
{
    QTemporaryDir dir;
    EXPECT_EQ(readError(dir.filePath("missing.json")), openError(dir.filePath("missing.json")));
}

TEST(RequestFile, FileOverTheLimitIsNotRead)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "big.json", "{}");
    ASSERT_EQ(::truncate(QFile::encodeName(path).constData(), maxRequestFileBytes + 1), 0);
    EXPECT_EQ(readError(path), "Request file is larger than 64 MiB: " + path);
}

TEST(RequestFile, FileAtTheLimitIsRead)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "limit.json", paddedRequest(maxRequestFileBytes));
    QString error;
    EXPECT_EQ(modeRead(path, &error), "discover_devices") << error.toStdString();
}

TEST(RequestFile, SymbolicLinkToARegularFileIsRead)
{
    QTemporaryDir dir;
    const QString target = test_support::writeFile(dir.path(), "request.json", "{}");
    const QString link = dir.filePath("link.json");
    ASSERT_TRUE(QFile::link(target, link));
    QJsonObject request;
    QString error;
    EXPECT_TRUE(readRequestFile(link, &request, &error));
}
