#include "app/device_config.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

QJsonObject parse(const char* json)
{
    return QJsonDocument::fromJson(QByteArray(json)).object();
}

DiscoveryDeviceConfig config(const char* json)
{
    DiscoveryDeviceConfig result;
    QString error;
    EXPECT_TRUE(parseDeviceConfig(parse(json), &result, &error)) << error.toStdString();
    return result;
}

} // namespace

TEST(DeviceConfig, MissingAddressIsAnError)
{
    DiscoveryDeviceConfig result;
    QString error;
    EXPECT_FALSE(parseDeviceConfig(parse(R"({"uid":"x","address":"  "})"), &result, &error));
    EXPECT_EQ(error, "Target device is missing an address");
    EXPECT_FALSE(parseDeviceConfig(parse(R"({"address":4840})"), &result, &error));
}

TEST(DeviceConfig, DefaultsAndTrimming)
{
    const DiscoveryDeviceConfig c = config(R"({"uid":" plc-1 ","address":" opc.tcp://10.0.0.5:4840 "})");
    EXPECT_EQ(c.id, -1);
    EXPECT_EQ(c.uid, "plc-1");
    EXPECT_EQ(c.address, "opc.tcp://10.0.0.5:4840");
    EXPECT_EQ(c.fields.keys(), (QStringList{"certificate", "key", "password", "security_mode", "security_policies", "username"}));
    for (const QString& value : c.fields)
        EXPECT_TRUE(value.isEmpty());
}

TEST(DeviceConfig, NumberIsStoredAsDecimalText)
{
    EXPECT_EQ(config(R"({"address":"a","security_mode":3})").fields.value("security_mode"), "3");
}

TEST(DeviceConfig, BlankTopLevelFallsThroughToUserDefinedFields)
{
    const DiscoveryDeviceConfig c =
        config(R"({"address":"a","security_mode":"   ","user_defined_fields":{"security_mode":2,"username":" op "}})");
    EXPECT_EQ(c.fields.value("security_mode"), "2");
    EXPECT_EQ(c.fields.value("username"), "op");
}

TEST(DeviceConfig, TopLevelWinsOverUserDefinedFields)
{
    EXPECT_EQ(config(R"({"address":"a","password":"p1","user_defined_fields":{"password":"p2"}})").fields.value("password"),
              "p1");
}

TEST(DeviceConfig, OtherJsonTypesGiveNothing)
{
    const DiscoveryDeviceConfig c = config(R"({"address":"a","certificate":true,"user_defined_fields":{"certificate":["x"]}})");
    EXPECT_EQ(c.fields.value("certificate"), "");
}
