#include "sim/support/sim_server.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QThread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

namespace test_support {

namespace {

// A sanitizer build of the simulator fills an address space of 100 000 variables in a few
// seconds on an idle machine, but in far more than 15 s on a machine busy with other builds.
constexpr int readyTimeoutMs = 60000;
constexpr int startAttempts = 5;
constexpr int restartAttempts = 120;
constexpr unsigned long restartPauseMs = 250;

} // namespace

QString simExecutable()
{
    return QStringLiteral(DISCOVER_SIM_EXECUTABLE);
}

quint16 freeLoopbackPort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return 0;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    quint16 port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    ::close(fd);
    return port;
}

SimServer::SimServer(Stats stats)
    : statsMode_(stats)
{
}

SimServer::~SimServer()
{
    stop();
}

bool SimServer::start(const QJsonObject& scenario, QString* error)
{
    if (!dir_.isValid()) {
        *error = QStringLiteral("no temporary directory");
        return false;
    }
    const QString path = dir_.filePath(QStringLiteral("scenario.json"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(QJsonDocument(scenario).toJson()) < 0) {
        *error = QStringLiteral("cannot write %1").arg(path);
        return false;
    }
    file.close();
    return startFile(path, error);
}

bool SimServer::startFile(const QString& scenarioPath, QString* error)
{
    stop();
    if (!dir_.isValid()) {
        *error = QStringLiteral("no temporary directory");
        return false;
    }
    // Another process may take the port between the probe and the simulator's bind.
    for (int attempt = 0; attempt < startAttempts; ++attempt) {
        const quint16 port = freeLoopbackPort();
        if (port != 0 && launch(scenarioPath, port, error))
            return true;
    }
    return false;
}

bool SimServer::launch(const QString& scenarioPath, quint16 port, QString* error)
{
    scenarioPath_ = scenarioPath;
    QStringList args{QStringLiteral("--scenario"), scenarioPath, QStringLiteral("--port"), QString::number(port),
                     QStringLiteral("--listen"), QStringLiteral("127.0.0.1")};
    if (statsMode_ == Stats::File) {
        QFile::remove(statsFilePath());
        args << QStringLiteral("--stats-file") << statsFilePath();
    }
    ServerProcess::Options options;
    options.startTimeoutMs = readyTimeoutMs;
    options.readyTimeoutMs = readyTimeoutMs;
    options.expectedPort = port;
    return process_.start(simExecutable(), args, options, error);
}

void SimServer::stop()
{
    process_.stop();
}

bool SimServer::kill()
{
    return process_.sendSignal(SIGKILL);
}

bool SimServer::freeze()
{
    return process_.sendSignal(SIGSTOP);
}

bool SimServer::thaw()
{
    return process_.sendSignal(SIGCONT);
}

bool SimServer::restart(QString* error)
{
    const quint16 samePort = port();
    if (samePort == 0) {
        *error = QStringLiteral("the simulator was not started");
        return false;
    }
    process_.sendSignal(SIGKILL);
    // The old server's side of a connection keeps the port until its peer closes it too.
    for (int attempt = 0; attempt < restartAttempts; ++attempt) {
        if (launch(scenarioPath_, samePort, error))
            return true;
        QThread::msleep(restartPauseMs);
    }
    return false;
}

bool SimServer::running() const
{
    return process_.running();
}

quint16 SimServer::port() const
{
    return process_.port();
}

QString SimServer::endpointUrl() const
{
    return QStringLiteral("opc.tcp://127.0.0.1:%1").arg(port());
}

QString SimServer::statsFilePath() const
{
    return dir_.filePath(QStringLiteral("stats.json"));
}

QJsonObject SimServer::stats() const
{
    QFile file(statsFilePath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

QJsonObject SimServer::statsOnceSettled(const QString& key, int expected) const
{
    constexpr qint64 patienceMs = 5000;
    QElapsedTimer waited;
    waited.start();
    QJsonObject counters = stats();
    while (counters.value(key).toInt(-1) != expected && waited.elapsed() < patienceMs) {
        QThread::msleep(20);
        counters = stats();
    }
    return counters;
}

} // namespace test_support
