#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

// Time-outs that a request gives in milliseconds under "timeout_ms": a number or a numeric
// string, kept within one second and five minutes.

// A numeric text in base 10, trimmed; 0 when it is not one.
int timeoutMsFromText(const QString& text);
// A JSON number that is a whole int, else a numeric string; 0 for anything else.
int timeoutMsFromJson(const QJsonValue& value);
// defaultMs when value is 0 or less; then raised to 1000 and cut to 300000.
int boundedTimeoutMs(int value, int defaultMs);

// The connection time-out of a request: "timeout_ms", else "options"."timeout_ms", else defaultMs.
int readTimeoutMs(const QJsonObject& request, int defaultMs);
