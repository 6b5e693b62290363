#include "app/result_writer.h"
#include "sim/support/files.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

#include <sys/resource.h>

TEST(WriteResult, WritesIndentedJsonToTheFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("out.json");
    const QJsonObject result{{"success", true}};
    QString error;
    ASSERT_TRUE(writeResult(result, path, &error));
    EXPECT_EQ(test_support::readFile(path), test_support::indentedJson(result));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"out.json"});
}

TEST(WriteResult, MissingDirectoryIsAnOpenError)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("missing/out.json");
    QString error;
    EXPECT_FALSE(writeResult(QJsonObject(), path, &error));
    EXPECT_EQ(error, "Unable to open output file: " + path);
}

TEST(WriteResult, ExistingFileIsReplacedWhole)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", QByteArray(4096, 'x'));
    const QJsonObject result{{"success", true}};
    QString error;
    ASSERT_TRUE(writeResult(result, path, &error));
    EXPECT_EQ(test_support::readFile(path), test_support::indentedJson(result));
}

TEST(WriteResult, ShortWriteIsAWriteErrorAndKeepsTheOldFile)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", "old");
    const QJsonObject result{{"job_id", QString(8192, 'j')}};
    QString error;
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit previous{};
    ::getrlimit(RLIMIT_FSIZE, &previous);
    rlimit lowered = previous;
    lowered.rlim_cur = 1024;
    ::setrlimit(RLIMIT_FSIZE, &lowered);
    const bool written = writeResult(result, path, &error);
    ::setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_FALSE(written);
    EXPECT_EQ(error, "Unable to write output file: " + path);
    EXPECT_EQ(test_support::readFile(path), QByteArray("old"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"out.json"});
}

namespace {

QJsonObject record(int i)
{
    return QJsonObject{{"external_id", QStringLiteral("ns=1;s=V%1").arg(i)},
                       {"name", QStringLiteral("Folder \"A\".V%1 \u00e9\u4e2d {x}, [y]: \\\" \t").arg(i)},
                       {"unit", QString()},
                       {"empty", QJsonObject()},
                       {"none", QJsonArray()},
                       {"numbers", QJsonArray{1, -2.5, 1e300, true, false, QJsonValue()}},
                       {"user_defined_fields", QJsonObject{{"identifier", QStringLiteral("ns=1;s=V%1").arg(i)},
                                                           {"nested", QJsonObject{{"deeper", QJsonArray{1, "two", QJsonArray{QJsonObject()}}}}}}}};
}

void appendRecord(int i, JsonLayout layout, QByteArray* out)
{
    if (layout == JsonLayout::Compact)
        out->append(QJsonDocument(record(i)).toJson(QJsonDocument::Compact));
    else
        out->append(test_support::indentedJsonAtDepth(record(i), itemRecordDepth));
}

// The same result with its records held in it, as the JSON library writes it.
QByteArray wholeDocument(QJsonObject result, int count, JsonLayout layout = JsonLayout::Indented)
{
    QJsonArray items;
    for (int i = 0; i < count; ++i)
        items.append(record(i));
    result.insert("items", items);
    return QJsonDocument(result).toJson(layout == JsonLayout::Indented ? QJsonDocument::Indented
                                                                       : QJsonDocument::Compact);
}

QJsonObject envelope()
{
    return QJsonObject{{"success", true},
                       {"devices", QJsonArray()},
                       {"items", QJsonArray()},
                       {"mode", "discover_items"},
                       {"job_id", 17},
                       {"requested_device", QJsonObject{{"items", QJsonArray{QJsonObject{{"a", 1}}}}, {"address", "x"}}},
                       {"warnings", QJsonArray{"b", "a \"quoted\"\nline"}}};
}

} // namespace

TEST(WriteItemsDocument, BytesEqualTheWholeDocumentInEitherLayout)
{
    for (const JsonLayout layout : {JsonLayout::Indented, JsonLayout::Compact}) {
        for (int count : {0, 1, 2, 7, 3000}) {
            QTemporaryDir dir;
            const QString path = dir.filePath("out.json");
            QString error;
            ASSERT_TRUE(writeItemsDocument(
                itemsDocument(envelope(), layout), count,
                [layout](int i, QByteArray* out) { appendRecord(i, layout, out); }, path,
                AtomicFile::Durability::Synced, &error))
                << error.toStdString();
            EXPECT_EQ(test_support::readFile(path), wholeDocument(envelope(), count, layout)) << count;
            EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"out.json"});
        }
    }
}

TEST(WriteItemsDocument, MakesEachRecordOnceInOrder)
{
    QTemporaryDir dir;
    QList<int> asked;
    QString error;
    ASSERT_TRUE(writeItemsDocument(
        itemsDocument(envelope(), JsonLayout::Indented), 5,
        [&asked](int i, QByteArray* out) {
            asked.append(i);
            appendRecord(i, JsonLayout::Indented, out);
        },
        dir.filePath("out.json"), AtomicFile::Durability::Synced, &error));
    EXPECT_EQ(asked, (QList<int>{0, 1, 2, 3, 4}));
}

TEST(WriteItemsDocument, MissingDirectoryIsAnOpenErrorAndNothingIsMade)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("missing/out.json");
    QString error;
    int asked = 0;
    EXPECT_FALSE(writeItemsDocument(
        itemsDocument(envelope(), JsonLayout::Indented), 3,
        [&asked](int i, QByteArray* out) {
            ++asked;
            appendRecord(i, JsonLayout::Indented, out);
        },
        path, AtomicFile::Durability::Synced, &error));
    EXPECT_EQ(error, "Unable to open output file: " + path);
    EXPECT_EQ(asked, 0);
}
