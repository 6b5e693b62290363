#include "app/discover_main.h"

#include "app/discover_devices_job.h"
#include "app/discover_items_job.h"
#include "app/front_end.h"
#include "app/request_file.h"
#include "common/atomic_file.h"
#include "ua/versions.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonObject>

#include <csignal>
#include <cstdio>

namespace {

// After the tool's own line (the one the command-line parser prints), the versions of what
// it runs with: the OPC UA stack, the TLS library and Qt, each as running and as built with.
void printVersions()
{
    const QString text = QCoreApplication::applicationName() + QLatin1Char(' ') +
                         QCoreApplication::applicationVersion() + QLatin1Char('\n') + Ua::stackVersionText() +
                         QLatin1Char('\n') + Ua::tlsVersionText() + QLatin1Char('\n') +
                         QStringLiteral("Qt %1 (built with Qt %2)\n")
                             .arg(QString::fromLatin1(qVersion()), QStringLiteral(QT_VERSION_STR));
    std::fputs(text.toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
}

} // namespace

int discoverMain(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("discover"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("OPC UA client discovery."));
    parser.addHelpOption();
    const QCommandLineOption versionOption = parser.addVersionOption();
    const QCommandLineOption modeOption(QStringList{QStringLiteral("m"), QStringLiteral("mode")},
                                        QStringLiteral("Discovery mode: discover_devices or discover_items."),
                                        QStringLiteral("mode"));
    const QCommandLineOption requestOption(QStringList{QStringLiteral("r"), QStringLiteral("request")},
                                           QStringLiteral("Path to a JSON request file."), QStringLiteral("path"));
    const QCommandLineOption outputOption(QStringList{QStringLiteral("o"), QStringLiteral("output")},
                                          QStringLiteral("Path to a JSON output file. Defaults to stdout."),
                                          QStringLiteral("path"));
    parser.addOption(modeOption);
    parser.addOption(requestOption);
    parser.addOption(outputOption);
    // --version, which the parser would answer with the first line alone, wins over every
    // other option, as it does in the parser.
    if (parser.parse(app.arguments()) && parser.isSet(versionOption)) {
        printVersions();
        return ExitOk;
    }
    parser.process(app);
    // A file size limit then fails the write (status 7, the old result kept) instead of
    // killing the process.
    std::signal(SIGXFSZ, SIG_IGN);
    // Likewise a pipe whose reader has gone fails the write instead of killing the process.
    std::signal(SIGPIPE, SIG_IGN);

    QJsonObject request;
    if (parser.isSet(requestOption)) {
        QString error;
        if (!readRequestFile(parser.value(requestOption), &request, &error))
            return failWith(ExitBadRequest, error);
    }

    QString mode = parser.value(modeOption).trimmed();
    if (mode.isEmpty())
        mode = request.value(QStringLiteral("mode")).toString().trimmed();
    if (mode.isEmpty())
        mode = QStringLiteral("discover_items");

    const QString outputPath = parser.value(outputOption);
    if (!outputPath.isEmpty())
        removeStaleAtomicFileParts(outputPath);
    if (mode == QLatin1String("discover_devices"))
        return runDiscoverDevices(request, outputPath);
    if (mode == QLatin1String("discover_items"))
        return runDiscoverItems(request, outputPath);
    return failWith(ExitUnknownMode, QStringLiteral("Unsupported discovery mode: ") + mode);
}
