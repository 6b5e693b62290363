#include "sim/support/plant_fixture.h"

#include "sim/support/node_peer.h"
#include "sim/support/sim_server.h"

#include <QAtomicInt>
#include <QDir>
#include <QRegularExpression>
#include <QStandardPaths>

#include <cerrno>
#include <mutex>
#include <signal.h>
#include <unistd.h>

namespace test_support {

namespace {

// node-opcua hosts take seconds each to start, far more while the suite runs on two cores.
constexpr int upTimeoutMs = 300000;
constexpr int downTimeoutMs = 60000;

QString uniquePlantName()
{
    static QAtomicInt counter;
    return QStringLiteral("t%1_%2").arg(QString::number(::getpid()), QString::number(counter.fetchAndAddOrdered(1) + 1));
}

bool processAlive(qint64 pid)
{
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

// A test process that was killed (a time-out) could not take its plants down; the
// next one does, so that namespaces never pile up.
void removePlantsOfDeadTestProcesses()
{
    static const QRegularExpression testPlant(QStringLiteral("^t(\\d+)_\\d+$"));
    const QStringList names = QDir(QStringLiteral("/run/discover-plant")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& name : names) {
        const QRegularExpressionMatch match = testPlant.match(name);
        if (match.hasMatch() && !processAlive(match.captured(1).toLongLong()))
            runProcess(Plant::script(), {QStringLiteral("--name"), name, QStringLiteral("down")}, {}, downTimeoutMs);
    }
}

} // namespace

Plant::Plant()
    : name_(uniquePlantName())
{
}

Plant::Plant(QString name)
    : name_(std::move(name))
{
}

Plant::~Plant()
{
    down();
}

QString Plant::script()
{
    return sourceDir() + QStringLiteral("/sim/plant");
}

bool Plant::available(QString* why)
{
    if (::geteuid() != 0) {
        *why = QStringLiteral("plants need root (network namespaces)");
        return false;
    }
    if (QStandardPaths::findExecutable(QStringLiteral("ip")).isEmpty()) {
        *why = QStringLiteral("ip (iproute2) is not installed");
        return false;
    }
    if (QStandardPaths::findExecutable(QStringLiteral("python3")).isEmpty()) {
        *why = QStringLiteral("python3 is not installed");
        return false;
    }
    return NodePeer::available(why);
}

ProcessResult Plant::run(const QStringList& args, int timeoutMs) const
{
    return runProcess(script(), QStringList{QStringLiteral("--name"), name_} + args,
                      {{QStringLiteral("OPCUA_SIM"), simExecutable()}}, timeoutMs);
}

bool Plant::up(const QString& plantFile, QString* error)
{
    static std::once_flag sweep;
    std::call_once(sweep, removePlantsOfDeadTestProcesses);
    const ProcessResult result = run({QStringLiteral("up"), plantFile}, upTimeoutMs);
    // sim/plant removes a plant it failed to build, unless it was killed on the way, and it
    // leaves alone a plant of the same name that was up before: only those two are ours.
    up_ = !result.finished || result.exitCode == 0;
    if (result.finished && result.exitCode == 0)
        return true;
    *error = QStringLiteral("sim/plant up %1 failed (exit %2%3): %4")
                 .arg(plantFile, QString::number(result.exitCode),
                      result.finished ? QString() : QStringLiteral(", killed after the time-out"),
                      QString::fromUtf8(result.err).trimmed());
    return false;
}

ProcessResult Plant::execOnGateway(const QString& program, const QStringList& args, int timeoutMs) const
{
    return run(QStringList{QStringLiteral("exec"), QStringLiteral("--"), program} + args, timeoutMs);
}

ProcessResult Plant::status() const
{
    return run({QStringLiteral("status")}, 30000);
}

void Plant::down()
{
    if (!up_)
        return;
    run({QStringLiteral("down")}, downTimeoutMs);
    up_ = false;
}

QStringList Plant::namespaces() const
{
    const ProcessResult result = runProcess(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("list")});
    const QString prefix = QStringLiteral("plant.%1-").arg(name_);
    QStringList out;
    for (const QString& line : QString::fromUtf8(result.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString ns = line.section(QLatin1Char(' '), 0, 0);
        if (ns.startsWith(prefix))
            out << ns;
    }
    return out;
}

} // namespace test_support
