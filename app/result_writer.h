#pragma once

#include "app/result_envelope.h"
#include "common/atomic_file.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <functional>

// Writes the result as indented JSON: replaces the file at path as a whole, or goes to
// standard output when path is empty. On failure stores the message in error.
bool writeResult(const QJsonObject& result, const QString& path, QString* error);

// Writes `document` with `count` records: record i is appended to the bytes going out by
// appendRecord(i, bytes), in the document's layout, only when its turn comes, so the document is
// never held whole, however many records it has. The file at path is replaced as a whole with
// the given durability; an empty path is standard output. On failure stores the message in error.
bool writeItemsDocument(const ItemsDocument& document, int count,
                        const std::function<void(int, QByteArray*)>& appendRecord, const QString& path,
                        AtomicFile::Durability durability, QString* error);
