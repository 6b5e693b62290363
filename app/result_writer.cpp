#include "app/result_writer.h"

#include <QJsonDocument>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// The records go out in pieces of about this size: few system calls, and no copy of the document.
const int writeChunkSize = 256 * 1024;

// Where a document goes: a file, replaced as a whole on commit, or standard output.
class ResultSink
{
public:
    ResultSink(const QString& path, AtomicFile::Durability durability)
        : path_(path)
        , durability_(durability)
    {
    }

    bool open(QString* error)
    {
        if (path_.isEmpty())
            return true;
        file_ = std::make_unique<AtomicFile>(path_, durability_);
        if (file_->open())
            return true;
        if (error)
            *error = QStringLiteral("Unable to open output file: %1").arg(path_);
        return false;
    }

    // False once bytes of the file could not be written: the commit will fail.
    bool write(const QByteArray& bytes)
    {
        if (file_)
            return file_->write(bytes);
        // The text goes out up to its first NUL byte, as a C string would.
        const char* text = bytes.constData();
        std::fwrite(text, 1, std::strlen(text), stdout);
        return true;
    }

    bool commit(QString* error)
    {
        if (!file_) {
            std::fflush(stdout);
            return true;
        }
        if (file_->commit())
            return true;
        if (error)
            *error = QStringLiteral("Unable to write output file: %1").arg(path_);
        return false;
    }

private:
    QString path_;
    AtomicFile::Durability durability_;
    std::unique_ptr<AtomicFile> file_;
};

} // namespace

bool writeResult(const QJsonObject& result, const QString& path, QString* error)
{
    const QByteArray bytes = QJsonDocument(result).toJson(QJsonDocument::Indented);
    ResultSink sink(path, AtomicFile::Durability::Synced);
    if (!sink.open(error))
        return false;
    sink.write(bytes);
    return sink.commit(error);
}

bool writeItemsDocument(const ItemsDocument& document, int count,
                        const std::function<void(int, QByteArray*)>& appendRecord, const QString& path,
                        AtomicFile::Durability durability, QString* error)
{
    ResultSink sink(path, durability);
    if (!sink.open(error))
        return false;
    QByteArray chunk;
    chunk.reserve(writeChunkSize + 16 * 1024);
    chunk.append(document.head);
    bool written = true;
    for (int i = 0; written && i < count; ++i) {
        chunk.append(i == 0 ? document.recordLead : document.recordSeparator);
        appendRecord(i, &chunk);
        if (chunk.size() >= writeChunkSize) {
            written = sink.write(chunk);
            chunk.resize(0);
        }
    }
    if (count > 0)
        chunk.append(document.afterRecords);
    chunk.append(document.tail);
    sink.write(chunk);
    return sink.commit(error);
}
