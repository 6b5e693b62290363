#pragma once

#include "sim/support/process_runner.h"

#include <QString>
#include <QStringList>

namespace test_support {

// One private test LAN built by sim/support/netlan.sh out of network namespaces:
// a switch namespace with a bridge and one namespace per host. The LAN's name is
// unique per process and instance; the destructor takes the LAN down.
class NetLan
{
public:
    explicit NetLan(QString prefix);
    ~NetLan();
    NetLan(const NetLan&) = delete;
    NetLan& operator=(const NetLan&) = delete;

    // Arguments after "up LAN", e.g. {"--subnet", "10.1.2.0/24", "--host", "a=10.1.2.5/24"}.
    bool up(const QStringList& upArgs, QString* error);
    // Runs a program inside the namespace of host (exit status passed through).
    ProcessResult exec(const QString& host, const QString& program, const QStringList& args,
                       int timeoutMs = 30000) const;
    // Starts a program in the background inside host; its pid, or -1. down() ends it.
    qint64 spawn(const QString& host, const QString& program, const QStringList& args);
    // Waits until something listens on TCP port inside host's namespace.
    bool waitForTcpListener(const QString& host, quint16 port, int timeoutMs) const;
    // Output of spawned processes of host, concatenated (for failure messages).
    QString spawnLogs(const QString& host) const;
    void down();

    QString name() const { return m_name; }
    QString namespaceOf(const QString& host) const { return m_name + QLatin1Char('-') + host; }

    static QString script();
    // True when namespaces can be built here: running as root with `ip` installed.
    static bool available(QString* why);

private:
    QString m_name;
    bool m_up = false;
};

} // namespace test_support
