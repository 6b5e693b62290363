#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace test_support {

// Writes bytes to dir/name and returns the path.
QString writeFile(const QString& dir, const QString& name, const QByteArray& bytes);
QString writeJsonFile(const QString& dir, const QString& name, const QJsonObject& object);
QByteArray readFile(const QString& path);
// The permission bits of a file (0600 for owner-only), 0 when it cannot be read.
unsigned fileMode(const QString& path);

// The exact bytes discover writes for a result object: indented JSON.
QByteArray indentedJson(const QJsonObject& object);
// The object as the JSON library indents it when it stands `depth` levels down in a document,
// from its opening brace to its closing one.
QByteArray indentedJsonAtDepth(const QJsonObject& object, int depth);

} // namespace test_support
