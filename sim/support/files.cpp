#include "sim/support/files.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

namespace test_support {

QString writeFile(const QString& dir, const QString& name, const QByteArray& bytes)
{
    const QString path = QDir(dir).filePath(name);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(bytes);
    return path;
}

QString writeJsonFile(const QString& dir, const QString& name, const QJsonObject& object)
{
    return writeFile(dir, name, QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

QByteArray indentedJson(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

} // namespace test_support
