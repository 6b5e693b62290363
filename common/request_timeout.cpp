#include "common/request_timeout.h"

#include <algorithm>

int timeoutMsFromText(const QString& text)
{
    bool ok = false;
    const int parsed = text.trimmed().toInt(&ok, 10);
    return ok ? parsed : 0;
}

int timeoutMsFromJson(const QJsonValue& value)
{
    if (value.isUndefined())
        return 0;
    if (value.isDouble())
        return value.toInt(0);
    return timeoutMsFromText(value.toString());
}

int boundedTimeoutMs(int value, int defaultMs)
{
    return std::clamp(value > 0 ? value : defaultMs, 1000, 300000);
}

int readTimeoutMs(const QJsonObject& request, int defaultMs)
{
    int timeout = timeoutMsFromJson(request.value(QStringLiteral("timeout_ms")));
    if (timeout <= 0) {
        const QJsonValue options = request.value(QStringLiteral("options"));
        if (options.isObject())
            timeout = timeoutMsFromJson(options.toObject().value(QStringLiteral("timeout_ms")));
    }
    return boundedTimeoutMs(timeout, defaultMs);
}
