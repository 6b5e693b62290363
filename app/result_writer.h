#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <functional>

// Writes the result as indented JSON: replaces the file at path as a whole, or goes to
// standard output when path is empty. On failure stores the message in error.
bool writeResult(const QJsonObject& result, const QString& path, QString* error);

// Writes exactly the bytes writeResult writes for `result` with `count` records under "items"
// (the result's own "items" is not used). Record i comes as its compact JSON from
// `compactRecord(i)`, only when its turn comes, and is written in the indented layout: the
// document is never held whole, however many records it has.
bool writeResultWithItems(const QJsonObject& result, int count, const std::function<QByteArray(int)>& compactRecord,
                          const QString& path, QString* error);
