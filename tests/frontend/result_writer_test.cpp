#include "app/result_writer.h"
#include "sim/support/files.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

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
