#include "sim/support/files.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <sys/stat.h>

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

QByteArray indentedJsonAtDepth(const QJsonObject& object, int depth)
{
    QByteArray text = indentedJson(object);
    text.chop(1);   // the document's closing line break
    return text.replace("\n", "\n" + QByteArray(4 * depth, ' '));
}

unsigned fileMode(const QString& path)
{
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return 0;
    return status.st_mode & 07777;
}

} // namespace test_support
