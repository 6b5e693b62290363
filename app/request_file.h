#pragma once

#include <QJsonObject>
#include <QString>

// The largest request file that is read; a gateway's requests are a few kilobytes.
constexpr qint64 maxRequestFileBytes = 64 * 1024 * 1024;

// Reads the request document at path. Only a regular file of at most maxRequestFileBytes is
// read, and opening never blocks (a FIFO without a writer, a device, a socket all fail at once).
// On failure stores "Unable to open request file: ..." or "Invalid JSON request: ..." in error.
bool readRequestFile(const QString& path, QJsonObject* request, QString* error);
