#include "app/front_end.h"

#include <QJsonDocument>
#include <QJsonValue>
#include <QSaveFile>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace {

int timeoutValue(const QJsonValue& value)
{
    if (value.isUndefined())
        return 0;
    if (value.isDouble())
        return value.toInt(0);
    bool ok = false;
    const int parsed = value.toString().trimmed().toInt(&ok, 10);
    return ok ? parsed : 0;
}

} // namespace

int failWith(int status, const QString& message)
{
    const QByteArray line = message.toUtf8() + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
    std::fflush(stderr);
    return status;
}

int readTimeoutMs(const QJsonObject& request, int defaultMs)
{
    int timeout = timeoutValue(request.value(QStringLiteral("timeout_ms")));
    if (timeout <= 0) {
        const QJsonValue options = request.value(QStringLiteral("options"));
        if (options.isObject())
            timeout = timeoutValue(options.toObject().value(QStringLiteral("timeout_ms")));
        if (timeout <= 0)
            timeout = defaultMs;
    }
    return std::clamp(timeout, 1000, 300000);
}

QJsonArray warningArrayFrom(const QStringList& warnings)
{
    QStringList distinct;
    QSet<QString> seen;
    for (const QString& warning : warnings) {
        if (!seen.contains(warning)) {
            seen.insert(warning);
            distinct.append(warning);
        }
    }
    std::sort(distinct.begin(), distinct.end(), [](const QString& a, const QString& b) {
        return a.compare(b, Qt::CaseInsensitive) < 0;
    });
    return QJsonArray::fromStringList(distinct);
}

QJsonObject buildResult(const QString& mode, const QJsonObject& request, const QJsonArray& items,
                        const QJsonArray& warnings)
{
    QJsonObject result;
    result.insert(QStringLiteral("success"), true);
    result.insert(QStringLiteral("devices"), QJsonArray());
    result.insert(QStringLiteral("items"), items);
    result.insert(QStringLiteral("warnings"), warnings);
    if (!mode.isEmpty())
        result.insert(QStringLiteral("mode"), mode);
    if (request.contains(QStringLiteral("job_id")))
        result.insert(QStringLiteral("job_id"), request.value(QStringLiteral("job_id")));
    // "device" wins whenever the key exists, even when it holds no object.
    const QString deviceKey = request.contains(QStringLiteral("device")) ? QStringLiteral("device")
                                                                          : QStringLiteral("target_device");
    const QJsonValue device = request.value(deviceKey);
    if (device.isObject())
        result.insert(QStringLiteral("requested_device"), device);
    return result;
}

bool writeResult(const QJsonObject& result, const QString& path, QString* error)
{
    const QByteArray bytes = QJsonDocument(result).toJson(QJsonDocument::Indented);
    if (!path.isEmpty()) {
        QSaveFile file(path);
        // Unbuffered, so that a failing write (disk full, file size limit) fails the commit
        // instead of committing a truncated document over the previous one.
        if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Unbuffered)) {
            if (error)
                *error = QStringLiteral("Unable to open output file: %1").arg(path);
            return false;
        }
        file.write(bytes);
        if (!file.commit()) {
            if (error)
                *error = QStringLiteral("Unable to write output file: %1").arg(path);
            return false;
        }
        return true;
    }
    const char* text = bytes.constData();
    std::fwrite(text, 1, std::strlen(text), stdout);
    std::fflush(stdout);
    return true;
}

ScopedStdoutSilencer::ScopedStdoutSilencer()
{
    // Whatever is still buffered belongs to the real standard output.
    std::fflush(stdout);
    savedFd_ = ::dup(1);
    if (savedFd_ < 0)
        return;
    nullFd_ = ::open("/dev/null", O_WRONLY);
    if (nullFd_ < 0)
        return;
    if (::dup2(nullFd_, 1) == 1)
        active_ = true;
}

ScopedStdoutSilencer::~ScopedStdoutSilencer()
{
    restore();
}

void ScopedStdoutSilencer::restore()
{
    // Output the stack buffered while silenced must not reach the real descriptor later.
    if (active_)
        std::fflush(stdout);
    if (savedFd_ >= 0) {
        if (active_)
            ::dup2(savedFd_, 1);
        ::close(savedFd_);
        savedFd_ = -1;
    }
    if (nullFd_ >= 0) {
        ::close(nullFd_);
        nullFd_ = -1;
    }
    active_ = false;
}

void silentOpcUaLog(void* context, UA_LogLevel level, UA_LogCategory category, const char* message, va_list args)
{
    Q_UNUSED(context);
    Q_UNUSED(level);
    Q_UNUSED(category);
    Q_UNUSED(message);
    Q_UNUSED(args);
}
