#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class QProcess;

namespace test_support {

// A server program that writes "ready <port>" on standard output once it listens.
// Its standard error is forwarded, so that a chatty server never blocks on a full pipe.
// Stops the process when it goes out of scope.
class ServerProcess
{
public:
    struct Options
    {
        QString workingDirectory;  // empty: the test's own
        int startTimeoutMs = 10000;
        int readyTimeoutMs = 15000;
        quint16 expectedPort = 0;  // 0: whatever port the ready line names
    };

    ServerProcess();
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // Starts the program and waits until its ready line; false (and stopped) when it
    // does not start, ends or stays silent for readyTimeoutMs.
    bool start(const QString& program, const QStringList& args, const Options& options, QString* error);
    // Terminates the process (a stopped one is continued first), kills it when it does not end,
    // and waits for it.
    void stop();
    // Sends the signal to the running process: SIGKILL (then waits until it has ended), SIGSTOP,
    // SIGCONT. False when it does not run.
    bool sendSignal(int signal);
    bool running() const;

    quint16 port() const { return port_; }
    // The exit code once the process has ended; -1 while it runs or when it never started.
    int exitCode() const;

private:
    std::unique_ptr<QProcess> process_;
    quint16 port_ = 0;
};

} // namespace test_support
