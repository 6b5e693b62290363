// Runs the scan engine with the socket transport in the calling process's network
// namespace and prints the outcome as JSON. Only for use inside test namespaces.
// Usage: scan_driver --interface NAME [--ports LIST] [--timeout MS] [--existing UID]... [--host ADDR]...
#include "discovery/options.h"
#include "discovery/scan_engine.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <thread>

namespace {

int entriesIn(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    OpcUaDiscovery::Options options;
    const QStringList args = app.arguments().mid(1);
    for (int i = 0; i + 1 < args.size(); i += 2) {
        const QString& key = args.at(i);
        const QString& value = args.at(i + 1);
        if (key == QLatin1String("--interface"))
            options.networkInterface = value;
        else if (key == QLatin1String("--ports"))
            options.tcpPorts = OpcUaDiscovery::parsePortList(value, OpcUaDiscovery::Options::defaultTcpPorts());
        else if (key == QLatin1String("--timeout"))
            options.timeoutMs = value.toInt();
        else if (key == QLatin1String("--existing"))
            options.existingUids << value;
        else if (key == QLatin1String("--host"))
            options.extraHosts << value;
        else {
            std::fprintf(stderr, "scan_driver: unknown option %s\n", qPrintable(key));
            return 2;
        }
    }

    // The thread sanitizer starts a helper thread of its own with the first thread created.
    std::thread([] {}).join();
    const int threadsBefore = entriesIn(QStringLiteral("/proc/self/task"));
    const int fdsBefore = entriesIn(QStringLiteral("/proc/self/fd"));
    OpcUaDiscovery::QtTransport transport;
    QStringList warnings;
    const QList<OpcUaDiscovery::Candidate> found = OpcUaDiscovery::discoverDevices(options, transport, &warnings, nullptr);
    const int threadsAfter = entriesIn(QStringLiteral("/proc/self/task"));
    const int fdsAfter = entriesIn(QStringLiteral("/proc/self/fd"));

    QJsonArray candidates;
    for (const OpcUaDiscovery::Candidate& c : found) {
        QJsonObject o;
        o.insert(QStringLiteral("host"), c.host);
        o.insert(QStringLiteral("port"), c.port);
        o.insert(QStringLiteral("endpointUrl"), c.endpointUrl);
        o.insert(QStringLiteral("source"), c.source);
        candidates.append(o);
    }
    QJsonObject out;
    out.insert(QStringLiteral("candidates"), candidates);
    out.insert(QStringLiteral("warnings"), QJsonArray::fromStringList(warnings));
    out.insert(QStringLiteral("threadsBefore"), threadsBefore);
    out.insert(QStringLiteral("threadsAfter"), threadsAfter);
    out.insert(QStringLiteral("fdsBefore"), fdsBefore);
    out.insert(QStringLiteral("fdsAfter"), fdsAfter);
    const QByteArray json = QJsonDocument(out).toJson(QJsonDocument::Compact);
    std::fwrite(json.constData(), 1, static_cast<size_t>(json.size()), stdout);
    std::fputc('\n', stdout);
    return 0;
}
