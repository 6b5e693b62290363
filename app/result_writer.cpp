#include "app/result_writer.h"

#include "common/atomic_file.h"

#include <QJsonDocument>

#include <cstdio>
#include <cstring>

bool writeResult(const QJsonObject& result, const QString& path, QString* error)
{
    const QByteArray bytes = QJsonDocument(result).toJson(QJsonDocument::Indented);
    if (!path.isEmpty()) {
        AtomicFile file(path, AtomicFile::Durability::Synced);
        if (!file.open()) {
            if (error)
                *error = QStringLiteral("Unable to open output file: %1").arg(path);
            return false;
        }
        file.write(bytes);
        if (!file.commit()) {
            if (error)
                *error = QStringLiteral("Unable to write output file: %1").arg(path);
            return false;
        }
        return true;
    }
    const char* text = bytes.constData();
    std::fwrite(text, 1, std::strlen(text), stdout);
    std::fflush(stdout);
    return true;
}
