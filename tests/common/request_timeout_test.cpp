#include "common/request_timeout.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

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
