#pragma once

#include <QJsonObject>
#include <QString>

// The largest request that is read from any source; a gateway's requests are a few kilobytes.
constexpr qint64 maxRequestFileBytes = 64 * 1024 * 1024;

// How long a pipe or FIFO may take to deliver the whole request. Its writer may open it after
// the tool has started, but a writer that never comes or never closes must not hold the job.
constexpr int requestWaitMs = 10 * 1000;

// Reads the request document at path: a regular file, a pipe or FIFO (also /dev/stdin and
// process substitutions, which name one) or the null device, which reads as empty. At most
// maxRequestFileBytes are read, and a pipe is waited for at most waitMs. Anything else (a
// directory, a socket, any other device) fails at once without being read. On failure stores
// the message for the user in error: "Unable to open request file: ...", "Request file is
// larger than 64 MiB: ...", "Request file gave no data within 10 s: ...", "Request file did
// not end within 10 s: ..." or "Invalid JSON request: ...".
bool readRequestFile(const QString& path, QJsonObject* request, QString* error, int waitMs = requestWaitMs);
