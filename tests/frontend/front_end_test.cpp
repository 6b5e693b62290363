#include "app/front_end.h"
#include "tests/support/files.h"

#include <QDir>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

namespace {

QJsonObject parse(const char* json)
{
    return QJsonDocument::fromJson(QByteArray(json)).object();
}

} // namespace

TEST(ReadTimeout, NumericStringIsParsed)
{
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":"2500"})"), 5000), 2500);
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":" 2500 "})"), 5000), 2500);
}

TEST(ReadTimeout, SmallNumberIsRaisedToOneSecond)
{
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":10})"), 5000), 1000);
}

TEST(ReadTimeout, LargeNumberIsCutToFiveMinutes)
{
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":999999})"), 5000), 300000);
}

TEST(ReadTimeout, NonNumericTopLevelFallsBackToOptions)
{
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":"soon","options":{"timeout_ms":700}})"), 5000), 1000);
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":0,"options":{"timeout_ms":"42000"}})"), 5000), 42000);
}

TEST(ReadTimeout, NeitherKeyGivesTheDefault)
{
    EXPECT_EQ(readTimeoutMs(QJsonObject(), 5000), 5000);
    EXPECT_EQ(readTimeoutMs(parse(R"({"options":"fast"})"), 5000), 5000);
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":-3,"options":{"timeout_ms":-1}})"), 5000), 5000);
}

TEST(ReadTimeout, FractionalNumberCountsAsMissing)
{
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":2500.5})"), 5000), 5000);
}

TEST(ReadTimeout, OtherJsonTypesCountAsMissing)
{
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":true})"), 5000), 5000);
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":[1]})"), 5000), 5000);
    EXPECT_EQ(readTimeoutMs(parse(R"({"timeout_ms":null,"options":{"timeout_ms":"3000"}})"), 5000), 3000);
}

TEST(WarningArray, RepeatsGoAndOrderIgnoresCase)
{
    const QJsonArray warnings = warningArrayFrom({"b", "A", "b", "a"});
    ASSERT_EQ(warnings.size(), 3);
    EXPECT_EQ(warnings.at(2).toString(), "b");
    const QString first = warnings.at(0).toString();
    const QString second = warnings.at(1).toString();
    EXPECT_TRUE((first == "A" && second == "a") || (first == "a" && second == "A"));
}

TEST(WarningArray, EmptyListGivesEmptyArray)
{
    EXPECT_TRUE(warningArrayFrom({}).isEmpty());
}

TEST(BuildResult, KeysAppearInAscendingOrder)
{
    const QJsonObject request = parse(R"({"job_id":17,"device":{"address":"opc.tcp://h:1"}})");
    const QJsonObject result = buildResult("discover_items", request, QJsonArray{}, QJsonArray{"w"});
    EXPECT_EQ(QJsonDocument(result).toJson(QJsonDocument::Compact),
              QByteArray(R"({"devices":[],"items":[],"job_id":17,"mode":"discover_items",)"
                         R"("requested_device":{"address":"opc.tcp://h:1"},"success":true,"warnings":["w"]})"));
}

TEST(BuildResult, JobIdKeepsItsJsonType)
{
    EXPECT_TRUE(buildResult("m", parse(R"({"job_id":17})"), {}, {}).value("job_id").isDouble());
    EXPECT_EQ(buildResult("m", parse(R"({"job_id":"17"})"), {}, {}).value("job_id").toString(), "17");
    EXPECT_TRUE(buildResult("m", parse(R"({"job_id":null})"), {}, {}).contains("job_id"));
    EXPECT_FALSE(buildResult("m", QJsonObject(), {}, {}).contains("job_id"));
}

TEST(BuildResult, DeviceKeyWinsEvenWhenItHoldsNoObject)
{
    const QJsonObject request = parse(R"({"device":"x","target_device":{"address":"a"}})");
    EXPECT_FALSE(buildResult("discover_items", request, {}, {}).contains("requested_device"));
}

TEST(BuildResult, TargetDeviceIsEchoedWhenDeviceIsAbsent)
{
    const QJsonObject request = parse(R"({"target_device":{"address":"a"}})");
    EXPECT_EQ(buildResult("discover_items", request, {}, {}).value("requested_device").toObject().value("address"),
              "a");
}

TEST(BuildResult, EmptyModeIsLeftOut)
{
    EXPECT_FALSE(buildResult(QString(), QJsonObject(), {}, {}).contains("mode"));
}

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

class StdoutCapture
{
public:
    StdoutCapture()
    {
        std::fflush(stdout);
        saved_ = ::dup(1);
        if (::pipe(pipe_) == 0)
            ::dup2(pipe_[1], 1);
    }
    QByteArray finish()
    {
        std::fflush(stdout);
        ::dup2(saved_, 1);
        ::close(saved_);
        ::close(pipe_[1]);
        QByteArray bytes;
        char buffer[256];
        ssize_t n;
        while ((n = ::read(pipe_[0], buffer, sizeof buffer)) > 0)
            bytes.append(buffer, static_cast<int>(n));
        ::close(pipe_[0]);
        return bytes;
    }

private:
    int saved_ = -1;
    int pipe_[2] = {-1, -1};
};

TEST(StdoutSilencer, DiscardsWritesUntilRestored)
{
    StdoutCapture capture;
    {
        ScopedStdoutSilencer silencer;
        EXPECT_TRUE(silencer.active());
        std::printf("stack noise\n");
        (void)!::write(1, "raw noise\n", 10);
        silencer.restore();
        EXPECT_FALSE(silencer.active());
        std::printf("result\n");
        silencer.restore();
    }
    EXPECT_EQ(capture.finish(), QByteArray("result\n"));
}

TEST(StdoutSilencer, DestructorRestores)
{
    StdoutCapture capture;
    {
        ScopedStdoutSilencer silencer;
        std::printf("hidden\n");
    }
    std::printf("shown\n");
    EXPECT_EQ(capture.finish(), QByteArray("shown\n"));
}

TEST(StdoutSilencer, BufferedOutputBeforeEngagingIsKept)
{
    StdoutCapture capture;
    std::printf("before");
    {
        ScopedStdoutSilencer silencer;
        std::printf("during");
    }
    EXPECT_EQ(capture.finish(), QByteArray("before"));
}
