#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <string>

namespace test_support {

struct ProcessResult
{
    bool finished = false;   // false: it did not end within the time-out and was killed
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

// Runs a program to its end (or kills it after timeoutMs) and collects its output.
// Variables in env are added to the test's own environment; an empty value removes one.
ProcessResult runProcess(const QString& program, const QStringList& arguments,
                         const QMap<QString, QString>& env = {}, int timeoutMs = 60000);

// Runs the built discover executable.
ProcessResult runDiscover(const QStringList& arguments, const QMap<QString, QString>& env = {},
                          int timeoutMs = 60000);

// Exit status and both outputs of a run, for failure messages.
std::string describe(const ProcessResult& r);

QString discoverExecutable();
QString sourceDir();
QString binaryDir();

// True when the suite runs in CI, where a test must never skip silently.
bool runningInCi();

} // namespace test_support
