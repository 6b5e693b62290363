#include "app/device_config.h"
#include "app/item_records.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QRandomGenerator>

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

QString sha1Part(const QString& identifier)
{
    return QString::fromLatin1(QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex().left(16));
}

ClientCore::BrowseItem item(const QString& nodeId, bool readable = true, bool writable = false)
{
    ClientCore::BrowseItem result;
    result.nodeId = nodeId;
    result.browsePath = "Plant." + nodeId;
    result.description = "OPC UA Variable (Double)";
    result.dataType = "Double";
    result.readable = readable;
    result.writable = writable;
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

TEST(UidHint, IdWinsOverUid)
{
    const QString hint = buildUidHint(config(R"({"id":7,"uid":"plc-1","address":"a"})"), "ns=2;s=Tank.Level");
    EXPECT_EQ(hint, "opcua_7_" + sha1Part("ns=2;s=Tank.Level"));
}

TEST(UidHint, IdZeroWithEmptyUidUsesTheAddress)
{
    const QString hint = buildUidHint(config(R"({"id":0,"uid":"","address":"opc.tcp://10.0.0.5:4840"})"), "i=2258");
    EXPECT_EQ(hint, "opcua_opc_tcp_10_0_0_5_4840_" + sha1Part("i=2258"));
}

TEST(UidHint, UidIsCleanedAndCutToThirtyTwoCharacters)
{
    const QString hint =
        buildUidHint(config(R"({"uid":"Line 4 / Press.Station-07 with a very long name","address":"a"})"), "x");
    EXPECT_EQ(hint, "opcua_Line_4_Press_Station_07_with_a_v_" + sha1Part("x"));
}

TEST(UidHint, NodePartIsSixteenLowerCaseHexDigits)
{
    const QString hint = buildUidHint(config(R"({"uid":"u","address":"a"})"), "ns=1;s=Ä");
    EXPECT_EQ(hint.mid(QString("opcua_u_").size()), sha1Part("ns=1;s=Ä"));
    EXPECT_EQ(hint.mid(QString("opcua_u_").size()).size(), 16);
    EXPECT_EQ(hint, hint.toLower().replace("opcua_u_", "opcua_u_"));
}

TEST(ItemRecord, AllKeysWithTheirConstants)
{
    const DiscoveryDeviceConfig c = config(R"({"id":3,"address":"a"})");
    const QJsonObject record = buildItemCandidate(c, item("ns=2;s=Level"));
    EXPECT_EQ(record.keys(), (QStringList{"data_type", "description", "external_id", "name", "read_write", "uid_hint", "unit",
                                          "user_defined_fields"}));
    EXPECT_EQ(record.value("external_id").toString(), "ns=2;s=Level");
    EXPECT_EQ(record.value("uid_hint").toString(), buildUidHint(c, "ns=2;s=Level"));
    EXPECT_EQ(record.value("name").toString(), "Plant.ns=2;s=Level");
    EXPECT_EQ(record.value("description").toString(), "OPC UA Variable (Double)");
    EXPECT_EQ(record.value("unit"), QJsonValue(""));
    EXPECT_EQ(record.value("data_type").toString(), "Double");
    EXPECT_EQ(record.value("read_write").toString(), "read");
    EXPECT_EQ(QJsonDocument(record.value("user_defined_fields").toObject()).toJson(QJsonDocument::Compact),
              QByteArray(R"({"access_level":"0","floating_point_precision":"4","history_from":"-2000",)"
                         R"("history_no_value_handling":"0","history_to":"0","identifier":"ns=2;s=Level"})"));
}

TEST(ItemRecord, ReadWriteFromAccess)
{
    const DiscoveryDeviceConfig c = config(R"({"address":"a"})");
    EXPECT_EQ(buildItemCandidate(c, item("a", true, true)).value("read_write").toString(), "readwrite");
    EXPECT_EQ(buildItemCandidate(c, item("a", false, true)).value("read_write").toString(), "write");
    EXPECT_EQ(buildItemCandidate(c, item("a", true, false)).value("read_write").toString(), "read");
    EXPECT_EQ(buildItemCandidate(c, item("a", false, false)).value("read_write").toString(), "read");
}

TEST(ItemArray, SortedIgnoringCase)
{
    const QJsonArray array = itemArrayFromBrowse(config(R"({"address":"a"})"), {item("b"), item("A"), item("a2")});
    ASSERT_EQ(array.size(), 3);
    EXPECT_EQ(array.at(0).toObject().value("external_id").toString(), "A");
    EXPECT_EQ(array.at(1).toObject().value("external_id").toString(), "a2");
    EXPECT_EQ(array.at(2).toObject().value("external_id").toString(), "b");
}

TEST(ItemArray, SameNodeTwiceGivesOneRecord)
{
    ClientCore::BrowseItem second = item("ns=2;i=7");
    second.browsePath = "Other.Path";
    const QJsonArray array = itemArrayFromBrowse(config(R"({"address":"a"})"), {item("ns=2;i=7"), item("ns=2;i=1"), second});
    ASSERT_EQ(array.size(), 2);
    EXPECT_EQ(array.at(0).toObject().value("external_id").toString(), "ns=2;i=1");
    EXPECT_EQ(array.at(1).toObject().value("external_id").toString(), "ns=2;i=7");
}

TEST(ItemArray, IdentifiersDifferingOnlyInCaseAreBothKept)
{
    const QJsonArray array = itemArrayFromBrowse(config(R"({"address":"a"})"), {item("ns=1;s=x"), item("ns=1;s=X")});
    EXPECT_EQ(array.size(), 2);
}

TEST(ItemRecord, CompactRecordHasTheJsonLibrarysBytes)
{
    const QString texts[] = {
        QString(),
        QStringLiteral(""),
        QStringLiteral("Plant.Line 4.Temperature"),
        QStringLiteral("quote \" and backslash \\ and slash /"),
        QStringLiteral("tab\tline\nfeed\rbell\a\b\f"),
        QString(QChar(0)) + QStringLiteral("nul"),
        QStringLiteral("del \x7f"),
        QStringLiteral("K\u00fchlwasser \u6e29\u5ea6 \u20ac"),
        QString::fromUtf8("\xf0\x9f\x94\xa5 fire"),
        QString(QChar(0xd800)) + QStringLiteral(" lone high"),
        QStringLiteral("lone low ") + QString(QChar(0xdc00)),
        QString(QChar(0xfffe)) + QString(QChar(0xffff)),
        QStringLiteral("~ !#$%&'()*+,-.:;<=>?@[]^_`{|}"),
    };
    const DiscoveryDeviceConfig configs[] = {config(R"({"id":7,"uid":"u","address":"a"})"),
                                             config(R"({"uid":"Line 4 / Press","address":"a"})"),
                                             config(R"({"address":"opc.tcp://10.0.0.5:4840"})")};
    int compared = 0;
    for (const DiscoveryDeviceConfig& c : configs) {
        for (const QString& text : texts) {
            for (int access = 0; access < 4; ++access) {
                ClientCore::BrowseItem variants[4];
                for (ClientCore::BrowseItem& v : variants) {
                    v = item(QStringLiteral("ns=2;s=plain"), access & 1, access & 2);
                }
                variants[0].nodeId = text;
                variants[1].browsePath = text;
                variants[2].description = text;
                variants[3].dataType = text;
                for (const ClientCore::BrowseItem& v : variants) {
                    EXPECT_EQ(compactItemRecord(c, v),
                              QJsonDocument(buildItemCandidate(c, v)).toJson(QJsonDocument::Compact))
                        << text.toStdString();
                    ++compared;
                }
            }
        }
    }
    EXPECT_EQ(compared, 3 * 13 * 4 * 4);
}

TEST(ItemArray, IdentifierOrderIsQtsCaseInsensitiveOrder)
{
    const QString alphabet = QStringLiteral("aAzZ09_;=.[]`@{~") + QChar(0x212a) + QChar(0x17f) + QChar(0xe4) + QChar(0xc4)
        + QChar(0x3a3) + QChar(0x3c3) + QChar(0xd83d) + QChar(0xde00) + QChar(0x7f) + QChar(0x80);
    QRandomGenerator random(4841);
    QStringList texts{QString(), QStringLiteral(""), QStringLiteral("ns=2;s=V1"), QStringLiteral("NS=2;S=v1")};
    for (int i = 0; i < 400; ++i) {
        QString text;
        const int length = int(random.bounded(6));
        for (int k = 0; k < length; ++k)
            text += alphabet.at(int(random.bounded(alphabet.size())));
        texts.append(text);
    }
    for (const QString& a : texts) {
        for (const QString& b : texts)
            ASSERT_EQ(itemIdentifierLess(a, b), a.compare(b, Qt::CaseInsensitive) < 0) << a.toStdString() << " " << b.toStdString();
    }
}
