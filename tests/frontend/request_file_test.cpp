#include "app/request_file.h"
#include "sim/support/files.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

QString openError(const QString& path)
{
    return "Unable to open request file: " + path;
}

QString readError(const QString& path)
{
    QJsonObject request;
    QString error;
    readRequestFile(path, &request, &error);
    return error;
}

} // namespace

TEST(RequestFile, RegularFileIsRead)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "request.json", R"({"mode":"discover_devices"})");
    QJsonObject request;
    QString error;
    ASSERT_TRUE(readRequestFile(path, &request, &error));
    EXPECT_EQ(request.value("mode").toString(), "discover_devices");
}

TEST(RequestFile, FifoWithoutAWriterFailsAtOnce)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    EXPECT_EQ(readError(path), openError(path));
}

TEST(RequestFile, DevicesAndDirectoriesAreNotRead)
{
    QTemporaryDir dir;
    EXPECT_EQ(readError("/dev/zero"), openError("/dev/zero"));
    EXPECT_EQ(readError("/dev/null"), openError("/dev/null"));
    EXPECT_EQ(readError(dir.path()), openError(dir.path()));
}

TEST(RequestFile, FileOverTheLimitIsNotRead)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "big.json", "{}");
    ASSERT_EQ(::truncate(QFile::encodeName(path).constData(), maxRequestFileBytes + 1), 0);
    EXPECT_EQ(readError(path), openError(path));
}

TEST(RequestFile, FileAtTheLimitIsRead)
{
    QTemporaryDir dir;
    QByteArray bytes(int(maxRequestFileBytes), ' ');
    bytes.replace(0, 2, "{}");
    const QString path = test_support::writeFile(dir.path(), "limit.json", bytes);
    QJsonObject request;
    QString error;
    EXPECT_TRUE(readRequestFile(path, &request, &error)) << error.toStdString();
}

TEST(RequestFile, SymbolicLinkToARegularFileIsRead)
{
    QTemporaryDir dir;
    const QString target = test_support::writeFile(dir.path(), "request.json", "{}");
    const QString link = dir.filePath("link.json");
    ASSERT_TRUE(QFile::link(target, link));
    QJsonObject request;
    QString error;
    EXPECT_TRUE(readRequestFile(link, &request, &error));
}
