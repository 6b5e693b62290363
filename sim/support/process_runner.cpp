#include "sim/support/process_runner.h"

#include <QAtomicInt>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>

#include <algorithm>

namespace test_support {

namespace {

// With DISCOVER_RESULT_DUMP_DIR set, every result document a successful discover run wrote
// (to --output or standard output) is copied there, so that the schema check can validate
// what the suites produced. discover may be the program or run under a wrapper (env, ip netns).
void dumpDiscoverResult(const QString& program, const QStringList& arguments, const ProcessResult& result)
{
    const QString dumpDir = qEnvironmentVariable("DISCOVER_RESULT_DUMP_DIR");
    if (dumpDir.isEmpty() || !result.finished || result.exitCode != 0)
        return;
    const QStringList words = QStringList{program} + arguments;
    const int at = static_cast<int>(std::find_if(words.begin(), words.end(), [](const QString& w) {
                                        return QFileInfo(w).fileName() == QLatin1String("discover");
                                    }) - words.begin());
    if (at == words.size())
        return;
    QByteArray document = result.out;
    for (int i = at + 1; i + 1 < words.size(); ++i) {
        if (words[i] == QLatin1String("-o") || words[i] == QLatin1String("--output")) {
            // A pipe or a device as the output has nothing left to copy, and opening a pipe
            // would wait for a writer.
            if (!QFileInfo(words[i + 1]).isFile())
                return;
            QFile file(words[i + 1]);
            document = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        }
    }
    if (!QJsonDocument::fromJson(document).isObject())
        return;
    static QAtomicInt counter;
    QDir().mkpath(dumpDir);
    const QString name = QStringLiteral("result-%1-%2.json")
                             .arg(QCoreApplication::applicationPid())
                             .arg(counter.fetchAndAddRelaxed(1));
    QFile out(QDir(dumpDir).filePath(name));
    if (out.open(QIODevice::WriteOnly))
        out.write(document);
}

} // namespace

ProcessResult runProcess(const QString& program, const QStringList& arguments, const QMap<QString, QString>& env,
                         int timeoutMs)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto it = env.constBegin(); it != env.constEnd(); ++it) {
        if (it.value().isEmpty())
            environment.remove(it.key());
        else
            environment.insert(it.key(), it.value());
    }
    process.setProcessEnvironment(environment);
    process.setProgram(program);
    process.setArguments(arguments);
    process.start();

    ProcessResult result;
    if (!process.waitForStarted(10000))
        return result;
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(5000);
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError();
        return result;
    }
    result.finished = process.exitStatus() == QProcess::NormalExit;
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    dumpDiscoverResult(program, arguments, result);
    return result;
}

ProcessResult runDiscover(const QStringList& arguments, const QMap<QString, QString>& env, int timeoutMs)
{
    return runProcess(discoverExecutable(), arguments, env, timeoutMs);
}

qint64 endedProcessId()
{
    QProcess process;
    process.start(QStringLiteral("/bin/true"), QStringList());
    const qint64 pid = process.processId();
    process.waitForFinished(10000);
    return pid;
}

QString discoverExecutable()
{
    return QStringLiteral(DISCOVER_EXECUTABLE);
}

QString sourceDir()
{
    return QStringLiteral(DISCOVER_SOURCE_DIR);
}

QString binaryDir()
{
    return QStringLiteral(DISCOVER_BINARY_DIR);
}

bool runningInCi()
{
    return !qEnvironmentVariableIsEmpty("CI");
}

std::string describe(const ProcessResult& r)
{
    return "exit " + std::to_string(r.exitCode) + (r.finished ? "" : " (killed)") + "\nstdout: "
        + r.out.toStdString() + "\nstderr: " + r.err.toStdString();
}

} // namespace test_support
