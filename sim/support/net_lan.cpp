#include "sim/support/net_lan.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>
#include <QElapsedTimer>

#include <atomic>

#include <unistd.h>

namespace test_support {

namespace {

std::atomic<int> lanCounter{0};

QString sanitizedPrefix(QString prefix)
{
    prefix.remove(QRegularExpression(QStringLiteral("[^A-Za-z0-9_.]")));
    return prefix.isEmpty() ? QStringLiteral("lan") : prefix;
}

ProcessResult runScript(const QStringList& args, int timeoutMs)
{
    return runProcess(QStringLiteral("bash"), QStringList{NetLan::script()} + args, {}, timeoutMs);
}

} // namespace

NetLan::NetLan(QString prefix)
    : m_name(QStringLiteral("%1%2_%3")
                 .arg(sanitizedPrefix(prefix), QString::number(::getpid()), QString::number(lanCounter++)))
{
}

NetLan::~NetLan()
{
    down();
}

QString NetLan::script()
{
    return sourceDir() + QStringLiteral("/sim/support/netlan.sh");
}

bool NetLan::available(QString* why)
{
    if (::geteuid() != 0) {
        if (why)
            *why = QStringLiteral("network namespaces need root");
        return false;
    }
    const QStringList paths{QStringLiteral("/usr/sbin"), QStringLiteral("/sbin"), QStringLiteral("/usr/bin"),
                            QStringLiteral("/bin")};
    if (QStandardPaths::findExecutable(QStringLiteral("ip")).isEmpty()
        && QStandardPaths::findExecutable(QStringLiteral("ip"), paths).isEmpty()) {
        if (why)
            *why = QStringLiteral("the `ip` program (iproute2) is not installed");
        return false;
    }
    return true;
}

bool NetLan::up(const QStringList& upArgs, QString* error)
{
    // Marked first: a half-built LAN that the script failed to remove still gets a down().
    m_up = true;
    const ProcessResult r = runScript(QStringList{QStringLiteral("up"), m_name} + upArgs, 60000);
    if (r.finished && r.exitCode == 0)
        return true;
    if (error)
        *error = QStringLiteral("netlan.sh up %1 failed (exit %2): %3")
                     .arg(m_name, QString::number(r.exitCode), QString::fromUtf8(r.err).trimmed());
    return false;
}

ProcessResult NetLan::exec(const QString& host, const QString& program, const QStringList& args,
                           int timeoutMs) const
{
    return runScript(QStringList{QStringLiteral("exec"), m_name, host, QStringLiteral("--"), program} + args,
                     timeoutMs);
}

qint64 NetLan::spawn(const QString& host, const QString& program, const QStringList& args)
{
    const ProcessResult r =
        runScript(QStringList{QStringLiteral("spawn"), m_name, host, QStringLiteral("--"), program} + args, 30000);
    if (!r.finished || r.exitCode != 0)
        return -1;
    bool ok = false;
    const qint64 pid = QString::fromUtf8(r.out).trimmed().toLongLong(&ok);
    return ok ? pid : -1;
}

bool NetLan::waitForTcpListener(const QString& host, quint16 port, int timeoutMs) const
{
    // /proc/net/tcp shows the sockets of the reading process's namespace; state 0A is LISTEN.
    const QString local = QStringLiteral(":%1").arg(port, 4, 16, QLatin1Char('0')).toUpper();
    QElapsedTimer timer;
    timer.start();
    do {
        const ProcessResult r = exec(host, QStringLiteral("cat"), {QStringLiteral("/proc/net/tcp")}, 5000);
        const QStringList lines = QString::fromUtf8(r.out).split(QLatin1Char('\n'));
        for (const QString& line : lines) {
            const QStringList f = line.simplified().split(QLatin1Char(' '));
            if (f.size() > 3 && f.at(1).endsWith(local) && f.at(3) == QLatin1String("0A"))
                return true;
        }
        QThread::msleep(20);
    } while (timer.elapsed() < timeoutMs);
    return false;
}

QString NetLan::spawnLogs(const QString& host) const
{
    QString text;
    const QDir dir(QStringLiteral("/run/netlan/") + m_name);
    const QStringList logs = dir.entryList({host + QStringLiteral(".*.log")}, QDir::Files, QDir::Name);
    for (const QString& log : logs) {
        QFile file(dir.filePath(log));
        if (file.open(QIODevice::ReadOnly))
            text += log + QStringLiteral(":\n") + QString::fromUtf8(file.readAll());
    }
    return text;
}

void NetLan::down()
{
    if (!m_up)
        return;
    runScript(QStringList{QStringLiteral("down"), m_name}, 60000);
    m_up = false;
}

} // namespace test_support
