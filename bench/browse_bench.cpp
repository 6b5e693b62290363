// Browses the simulator's synthetic address space (50 000 variables in folders of 100 by default)
// over loopback with the client core and prints the browse rate and the peak memory.
//
//   browse_bench [--count N] [--folder-size N] [--timeout-ms N] [--source reference|batched] [--url URL]
//
// --source picks how the walk fetches (default reference: one request per question). With --url
// the bench browses that server (a simulator started elsewhere, perhaps behind delay_proxy)
// instead of starting its own; --count then only checks the number of items when given.

#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "sim/support/sim_server.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <sys/resource.h>

#include <cstdio>

namespace {

long peakRssKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

int intArgument(const QStringList& arguments, const QString& name, int fallback)
{
    const int index = arguments.indexOf(name);
    if (index < 0 || index + 1 >= arguments.size())
        return fallback;
    bool ok = false;
    const int value = arguments.at(index + 1).toInt(&ok);
    return ok ? value : fallback;
}

void silence(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int count = intArgument(arguments, "--count", 50000);
    const int folderSize = intArgument(arguments, "--folder-size", 100);
    const int timeoutMs = intArgument(arguments, "--timeout-ms", 30000);
    const int sourceIndex = arguments.indexOf("--source");
    const bool batched = sourceIndex > 0 && sourceIndex + 1 < arguments.size() && arguments.at(sourceIndex + 1) == "batched";
    const ClientCore::BrowseFetch fetch = batched ? ClientCore::BrowseFetch::Batched : ClientCore::BrowseFetch::OneByOne;
    const int urlIndex = arguments.indexOf("--url");
    const QString url = urlIndex > 0 && urlIndex + 1 < arguments.size() ? arguments.at(urlIndex + 1) : QString();
    const bool checkCount = url.isEmpty() || arguments.contains("--count");

    QTemporaryDir dir;
    QProcess sim;
    quint16 port = 0;
    if (url.isEmpty()) {
        const QString scenarioPath = dir.filePath("scenario.json");
        QFile scenarioFile(scenarioPath);
        const QJsonObject scenario{{"address_space", QJsonObject{{"hide_server_object", true},
                                                                 {"synthetic_count", count},
                                                                 {"synthetic_folder_size", folderSize}}}};
        if (!scenarioFile.open(QIODevice::WriteOnly) || scenarioFile.write(QJsonDocument(scenario).toJson()) < 0) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(scenarioPath));
            return 1;
        }
        scenarioFile.close();

        // Started by hand and without a stats file, so that no per-request file write skews the rate.
        port = test_support::freeLoopbackPort();
        sim.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        sim.start(test_support::simExecutable(), {"--scenario", scenarioPath, "--port", QString::number(port),
                                                  "--listen", "127.0.0.1"});
        QElapsedTimer startTimer;
        startTimer.start();
        bool ready = false;
        while (!ready && startTimer.elapsed() < 60000 && sim.state() != QProcess::NotRunning) {
            sim.waitForReadyRead(100);
            while (sim.canReadLine())
                ready = ready || sim.readLine().trimmed() == "ready " + QByteArray::number(port);
        }
        if (!ready) {
            std::fprintf(stderr, "opcua_sim did not get ready\n");
            sim.kill();
            sim.waitForFinished(5000);
            return 1;
        }
    }

    qInstallMessageHandler(&silence);
    DeviceInstancePlugin plugin;
    plugin.instanceName = "bench";
    plugin.address = url.isEmpty() ? QStringLiteral("127.0.0.1:%1").arg(port) : url;
    plugin.settings["security_mode"] = "1";
    plugin.settings["security_policies"] = "http://opcfoundation.org/UA/SecurityPolicy#None";

    int exitCode = 0;
    {
        ClientCore core(plugin, QString(), "browse_bench", timeoutMs);
        if (!core.isConnected()) {
            std::fprintf(stderr, "could not connect: %s\n", qPrintable(plugin.statusText));
            exitCode = 1;
        } else {
            BrowseItems items;
            QStringList warnings;
            int progressCalls = 0;
            QElapsedTimer timer;
            timer.start();
            const bool ok = core.browseNodes(&items, &warnings, [&progressCalls] { ++progressCalls; }, fetch);
            const qint64 elapsedMs = timer.elapsed();
            const double seconds = elapsedMs / 1000.0;
            std::printf("browse_bench: %s, %s source\n",
                        url.isEmpty() ? qPrintable(QStringLiteral("%1 variables in folders of %2 over loopback")
                                                       .arg(count)
                                                       .arg(folderSize))
                                      : qPrintable(url),
                        batched ? "batched" : "reference");
            std::printf("result %s, items %d, warnings %d, progress calls %d\n", ok ? "true" : "false",
                        int(items.size()), int(warnings.size()), progressCalls);
            std::printf("elapsed %.2f s, %.0f items/s\n", seconds, seconds > 0 ? items.size() / seconds : 0.0);
            std::printf("peak memory (ru_maxrss) %ld KiB\n", peakRssKiB());
            if (!ok || (checkCount && items.size() != count))
                exitCode = 1;
        }
    }

    if (sim.state() == QProcess::NotRunning)
        return exitCode;
    sim.terminate();
    if (!sim.waitForFinished(10000)) {
        sim.kill();
        sim.waitForFinished(5000);
    }
    return exitCode;
}
