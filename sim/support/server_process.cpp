#include "sim/support/server_process.h"

#include <QElapsedTimer>
#include <QProcess>

#include <csignal>
#include <sys/types.h>

namespace test_support {

namespace {

// The port of a "ready <port>" line, or 0.
quint16 readyPort(const QByteArray& line)
{
    if (!line.startsWith("ready "))
        return 0;
    bool ok = false;
    const uint port = line.mid(6).toUInt(&ok);
    return ok && port <= 65535 ? static_cast<quint16>(port) : 0;
}

} // namespace

ServerProcess::ServerProcess() = default;

ServerProcess::~ServerProcess()
{
    stop();
}

bool ServerProcess::start(const QString& program, const QStringList& args, const Options& options, QString* error)
{
    stop();
    process_ = std::make_unique<QProcess>();
    process_->setProgram(program);
    process_->setArguments(args);
    if (!options.workingDirectory.isEmpty())
        process_->setWorkingDirectory(options.workingDirectory);
    process_->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_->setReadChannel(QProcess::StandardOutput);
    process_->start();
    if (!process_->waitForStarted(options.startTimeoutMs)) {
        *error = QStringLiteral("cannot start %1: %2").arg(program, process_->errorString());
        process_.reset();
        return false;
    }
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < options.readyTimeoutMs) {
        while (process_->canReadLine()) {
            const quint16 port = readyPort(process_->readLine().trimmed());
            if (port != 0 && (options.expectedPort == 0 || port == options.expectedPort)) {
                port_ = port;
                return true;
            }
        }
        if (process_->state() == QProcess::NotRunning)
            break;
        process_->waitForReadyRead(50);
    }
    *error = QStringLiteral("%1 did not get ready (exit code %2; its messages are on standard error)")
                 .arg(program, QString::number(exitCode()));
    stop();
    return false;
}

void ServerProcess::stop()
{
    if (process_) {
        if (process_->state() != QProcess::NotRunning) {
            ::kill(pid_t(process_->processId()), SIGCONT);
            process_->terminate();
            if (!process_->waitForFinished(10000)) {
                process_->kill();
                process_->waitForFinished(5000);
            }
        }
        process_.reset();
    }
    port_ = 0;
}

bool ServerProcess::sendSignal(int signal)
{
    if (!running() || ::kill(pid_t(process_->processId()), signal) != 0)
        return false;
    if (signal == SIGKILL)
        process_->waitForFinished(10000);
    return true;
}

bool ServerProcess::running() const
{
    return process_ && process_->state() == QProcess::Running;
}

int ServerProcess::exitCode() const
{
    return process_ && process_->state() == QProcess::NotRunning ? process_->exitCode() : -1;
}

} // namespace test_support
