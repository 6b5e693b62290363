#include "app/result_envelope.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

QJsonObject parse(const char* json)
{
    return QJsonDocument::fromJson(QByteArray(json)).object();
}

} // namespace

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

TEST(BuildDevicesResult, WarningsKeepOrderAndRepeats)
{
    const QJsonObject result = buildDevicesResult(QJsonObject(), QJsonArray{}, {"b", "A", "b", "a"});
    EXPECT_EQ(result.value("warnings").toArray(), (QJsonArray{"b", "A", "b", "a"}));
}

TEST(BuildDevicesResult, ModeJobIdAndNoRequestedDevice)
{
    const QJsonObject request = parse(R"({"job_id":"j","device":{"address":"a"}})");
    const QJsonObject result = buildDevicesResult(request, QJsonArray{QJsonObject{{"uid_hint", "u"}}}, {});
    EXPECT_EQ(QJsonDocument(result).toJson(QJsonDocument::Compact),
              QByteArray(R"({"devices":[{"uid_hint":"u"}],"items":[],"job_id":"j","mode":"discover_devices",)"
                         R"("success":true,"warnings":[]})"));
}
