#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <open62541/plugin/log.h>

#include <cstdarg>

// Exit statuses of the discover process.
enum ExitStatus {
    ExitOk = 0,
    ExitBadRequest = 1,
    ExitUnknownMode = 2,
    ExitNoTargetDevice = 3,
    ExitNoAddress = 4,
    ExitConnectFailed = 5,
    ExitBrowseFailed = 6,
    ExitWriteFailed = 7,
};

// Prints the one-line failure message to standard error and returns the status.
int failWith(int status, const QString& message);

int readTimeoutMs(const QJsonObject& request, int defaultMs);
QJsonArray warningArrayFrom(const QStringList& warnings);
QJsonObject buildResult(const QString& mode, const QJsonObject& request, const QJsonArray& items,
                        const QJsonArray& warnings);
bool writeResult(const QJsonObject& result, const QString& path, QString* error);

// Points descriptor 1 at /dev/null while the OPC UA stack may print, so that
// standard output carries only the result document.
class ScopedStdoutSilencer
{
public:
    ScopedStdoutSilencer();
    ~ScopedStdoutSilencer();
    ScopedStdoutSilencer(const ScopedStdoutSilencer&) = delete;
    ScopedStdoutSilencer& operator=(const ScopedStdoutSilencer&) = delete;

    void restore();
    bool active() const { return active_; }

private:
    int savedFd_ = -1;
    int nullFd_ = -1;
    bool active_ = false;
};

void silentOpcUaLog(void* context, UA_LogLevel level, UA_LogCategory category, const char* message, va_list args);
