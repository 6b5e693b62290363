#include "app/result_writer.h"

#include "common/atomic_file.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
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

void appendIndent(QByteArray* out, int level)
{
    out->append(4 * level, ' ');
}

// The indented layout of the JSON library for a value written compactly, as it appears `level`
// levels down: members and elements one to a line, four spaces a level, ": " after a key. The
// compact text has no blanks outside strings, which are copied as they are.
void appendIndented(const QByteArray& compact, int level, QByteArray* out)
{
    const char* data = compact.constData();
    const int size = compact.size();
    for (int i = 0; i < size; ++i) {
        const char c = data[i];
        switch (c) {
        case '"': {
            int end = i + 1;
            while (end < size && data[end] != '"')
                end += data[end] == '\\' ? 2 : 1;
            out->append(data + i, std::min(end, size - 1) - i + 1);
            i = end;
            break;
        }
        case '{':
        case '[':
            out->append(c);
            out->append('\n');
            ++level;
            if (i + 1 < size && data[i + 1] != '}' && data[i + 1] != ']')
                appendIndent(out, level);
            break;
        case '}':
        case ']':
            --level;
            if (i > 0 && data[i - 1] != '{' && data[i - 1] != '[')
                out->append('\n');
            appendIndent(out, level);
            out->append(c);
            break;
        case ',':
            out->append(",\n");
            appendIndent(out, level);
            break;
        case ':':
            out->append(": ");
            break;
        default:
            out->append(c);
        }
    }
}

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

bool writeResultWithItems(const QJsonObject& result, int count, const std::function<QByteArray(int)>& compactRecord,
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
    // Records are objects two levels down, separated by a comma and a line break.
    const int chunkSize = 256 * 1024;
    QByteArray chunk;
    chunk.reserve(chunkSize + 8192);
    for (int i = 0; i < count; ++i) {
        if (i > 0)
            chunk.append(",\n");
        appendIndent(&chunk, 2);
        appendIndented(compactRecord(i), 2, &chunk);
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
