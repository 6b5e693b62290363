#pragma once

#include "tests/support/require_netns.h"
#include "sim/support/process_runner.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace devices_test {

// The plant subnet of every LAN of this suite; each LAN lives in its own namespaces,
// so parallel tests never see each other's hosts.
QString lanIp(int lastOctet);
QString lanUrl(int lastOctet, int port, const QString& path = QString());
QString lanUid(int lastOctet, int port, const QString& path = QString());

// One discover run: the raw process result and the parsed document.
struct DiscoverRun
{
    test_support::ProcessResult raw;
    QJsonObject document;
    bool parsed = false;
};

// A /24 LAN: the gateway "gw" at .1 (interface eth0) and the given hosts, each "name=octet".
// Servers are started inside the hosts; discover runs inside the gateway.
class DevicesLan
{
public:
    DevicesLan();
    bool up(const QStringList& hosts, QString* error, const QStringList& extraUpArgs = {});
    // Any LAN: the arguments after "up LAN" of netlan.sh (the gateway must be called "gw").
    bool upWith(const QStringList& upArgs, QString* error);

    // Starts opcua_sim in host at .octet:port with the scenario; its request counters go to a
    // stats file of its own. Waits until it listens.
    bool startSim(const QString& host, int octet, int port, const QJsonObject& scenario, QString* error);
    bool startSimAt(const QString& host, const QString& ip, int port, const QJsonObject& scenario, QString* error);
    QJsonObject simStats(const QString& host, int port) const;

    // Starts any program in host and waits until something listens on port there.
    bool startProgram(const QString& host, int port, const QString& program, const QStringList& args,
                      QString* error);

    // Writes the request, runs `discover --mode discover_devices` inside the gateway.
    DiscoverRun discover(const QJsonObject& request, const QMap<QString, QString>& env = {},
                         int timeoutMs = 120000) const;

    // Writes the request to a file of its own and runs `program REQUEST_FILE args...` inside the
    // gateway.
    test_support::ProcessResult runWithRequest(const QString& program, const QJsonObject& request,
                                               const QStringList& args, int timeoutMs = 120000) const;

    // Runs devices_records inside the gateway: one scan, its records made once per way
    // ("reference", "side_by_side"). The parsed output; empty with an error on failure.
    QJsonObject recordsEachWay(const QJsonObject& request, const QStringList& ways, QString* error) const;

    test_support::NetLan& lan() { return *lan_; }
    QString tempPath(const QString& name) const { return dir_.filePath(name); }

private:
    QString writeRequest(const QJsonObject& request) const;

    QTemporaryDir dir_;
    std::unique_ptr<test_support::NetLan> lan_;
    mutable int requests_ = 0;
};

QString simExecutablePath();

// A device record as discover writes it.
QJsonObject deviceRecord(const QString& address, const QString& name, const QString& description,
                         const QString& uid, const QString& securityMode = QStringLiteral("1"),
                         const QString& securityPolicy = QString());
QString nonePolicyUri();
QString policyUri(const QString& name);

// The records of a result sorted by address, then description (scan order varies).
QJsonArray sortedDevices(const QJsonObject& document);

using test_support::describe;

// Asserts what every run must show: exit 0, only the indented document on standard output,
// nothing on standard error, the envelope keys of discover_devices.
void expectCleanRun(const DiscoverRun& run, const QString& expectedStderr = QString());

} // namespace devices_test
