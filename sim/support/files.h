#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace test_support {

// Writes bytes to dir/name and returns the path.
QString writeFile(const QString& dir, const QString& name, const QByteArray& bytes);
QString writeJsonFile(const QString& dir, const QString& name, const QJsonObject& object);
QByteArray readFile(const QString& path);

// The exact bytes discover writes for a result object: indented JSON.
QByteArray indentedJson(const QJsonObject& object);

} // namespace test_support
