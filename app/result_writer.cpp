#include "app/result_writer.h"

#include "common/atomic_file.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// Where the result goes: the output file, replaced as a whole on commit, or standard output.
class ResultSink
{
public:
    explicit ResultSink(const QString& path)
        : path_(path)
    {
    }

    bool open(QString* error)
    {
        if (path_.isEmpty())
            return true;
        file_ = std::make_unique<AtomicFile>(path_, AtomicFile::Durability::Synced);
        if (file_->open())
            return true;
        if (error)
            *error = QStringLiteral("Unable to open output file: %1").arg(path_);
        return false;
    }

    void write(const QByteArray& bytes)
    {
        if (file_) {
            file_->write(bytes);
            return;
        }
        // The text goes out up to its first NUL byte, as a C string would.
        const char* text = bytes.constData();
        std::fwrite(text, 1, std::strlen(text), stdout);
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
    std::unique_ptr<AtomicFile> file_;
};

// Where the records go in the indented document of a result whose "items" is empty.
const char emptyItems[] = "\n    \"items\": [\n    ]";
const int recordsStart = int(sizeof "\n    \"items\": [\n") - 1;

} // namespace

bool writeResult(const QJsonObject& result, const QString& path, QString* error)
{
    const QByteArray bytes = QJsonDocument(result).toJson(QJsonDocument::Indented);
    ResultSink sink(path);
    if (!sink.open(error))
        return false;
    sink.write(bytes);
    return sink.commit(error);
}

bool writeResultWithItems(const QJsonObject& result, int count, const std::function<QJsonObject(int)>& record,
                          const QString& path, QString* error)
{
    QJsonObject withoutItems = result;
    withoutItems.insert(QStringLiteral("items"), QJsonArray());
    const QByteArray envelope = QJsonDocument(withoutItems).toJson(QJsonDocument::Indented);
    // "devices" is the only key before "items", so the first match is the envelope's own array.
    const int at = envelope.indexOf(emptyItems);
    if (count == 0 || at < 0)
        return writeResult(withoutItems, path, error);

    ResultSink sink(path);
    if (!sink.open(error))
        return false;
    const int split = at + recordsStart;
    sink.write(envelope.left(split));
    // Each record is an object two levels down: its own indented text, every line moved right by
    // eight spaces, records separated by a comma and a line break.
    const int chunkSize = 256 * 1024;
    QByteArray chunk;
    chunk.reserve(chunkSize + 4096);
    for (int i = 0; i < count; ++i) {
        const QByteArray text = QJsonDocument(record(i)).toJson(QJsonDocument::Indented);
        if (i > 0)
            chunk.append(",\n");
        chunk.append("        ");
        // Every line break but the last one is followed by the deeper indentation.
        int from = 0;
        for (int end = text.indexOf('\n'); end >= 0 && end + 1 < text.size(); end = text.indexOf('\n', from)) {
            chunk.append(text.constData() + from, end + 1 - from);
            chunk.append("        ");
            from = end + 1;
        }
        chunk.append(text.constData() + from, text.size() - from - (text.endsWith('\n') ? 1 : 0));
        if (chunk.size() >= chunkSize) {
            sink.write(chunk);
            chunk.resize(0);
        }
    }
    chunk.append('\n');
    chunk.append(envelope.mid(split));
    sink.write(chunk);
    return sink.commit(error);
}
