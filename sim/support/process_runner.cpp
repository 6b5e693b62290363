#include "sim/support/process_runner.h"

#include <QProcess>
#include <QProcessEnvironment>

namespace test_support {

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
    return result;
}

ProcessResult runDiscover(const QStringList& arguments, const QMap<QString, QString>& env, int timeoutMs)
{
    return runProcess(discoverExecutable(), arguments, env, timeoutMs);
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
