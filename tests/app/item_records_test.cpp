#include "app/device_config.h"
#include "app/item_records.h"
#include "tests/support/items_fixture.h"
#include "sim/support/files.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QRandomGenerator>

#include <gtest/gtest.h>

using items_test::addItem;
using items_test::expectedRecord;

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

// The record of a walk that found only this variable.
QJsonObject recordOf(const DiscoveryDeviceConfig& c, const QString& nodeId, bool readable, bool writable)
{
    BrowseItems items;
    return buildItemCandidate(c, items, addItem(&items, nodeId, readable, writable));
}

} // namespace

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
    BrowseItems items;
    const QJsonObject record = buildItemCandidate(c, items, addItem(&items, "ns=2;s=Level"));
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
    EXPECT_EQ(recordOf(c, "a", true, true).value("read_write").toString(), "readwrite");
    EXPECT_EQ(recordOf(c, "a", false, true).value("read_write").toString(), "write");
    EXPECT_EQ(recordOf(c, "a", true, false).value("read_write").toString(), "read");
    EXPECT_EQ(recordOf(c, "a", false, false).value("read_write").toString(), "read");
}

TEST(ItemArray, SortedIgnoringCase)
{
    BrowseItems items;
    for (const char* id : {"b", "A", "a2"})
        addItem(&items, id);
    const QJsonArray array = itemArrayFromBrowse(config(R"({"address":"a"})"), items);
    ASSERT_EQ(array.size(), 3);
    EXPECT_EQ(array.at(0).toObject().value("external_id").toString(), "A");
    EXPECT_EQ(array.at(1).toObject().value("external_id").toString(), "a2");
    EXPECT_EQ(array.at(2).toObject().value("external_id").toString(), "b");
}

TEST(ItemArray, SameNodeTwiceGivesOneRecord)
{
    BrowseItems items;
    addItem(&items, "ns=2;i=7");
    addItem(&items, "ns=2;i=1");
    // The same node again, on another path: a node has one item.
    const NodeTable::Key again = items.nodes().add("ns=2;i=7");
    EXPECT_FALSE(items.append(again, items.paths().child(BrowsePathTree::empty, "Other"), Ua::supportedTypes()[0], true,
                              false, false));
    const QJsonArray array = itemArrayFromBrowse(config(R"({"address":"a"})"), items);
    ASSERT_EQ(array.size(), 2);
    EXPECT_EQ(array.at(0).toObject().value("external_id").toString(), "ns=2;i=1");
    EXPECT_EQ(array.at(1).toObject().value("external_id").toString(), "ns=2;i=7");
}

TEST(ItemArray, IdentifiersDifferingOnlyInCaseAreBothKept)
{
    BrowseItems items;
    addItem(&items, "ns=1;s=x");
    addItem(&items, "ns=1;s=X");
    const QJsonArray array = itemArrayFromBrowse(config(R"({"address":"a"})"), items);
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
    const QString deviceParts[] = {"7", "Line_4_Press", "opc_tcp_10_0_0_5_4840"};
    int compared = 0;
    for (int device = 0; device < 3; ++device) {
        const DiscoveryDeviceConfig& c = configs[device];
        const ItemRecordContext context = itemRecordContext(c);
        for (const QString& text : texts) {
            for (int access = 0; access < 4; ++access) {
                // The text as identifier, as a variable's own name, as another path in the
                // description and as one segment of the path, with every type and array form.
                for (int variant = 0; variant < 4; ++variant) {
                    BrowseItems items;
                    BrowsePathTree& paths = items.paths();
                    const BrowsePathTree::Ref plant = paths.child(BrowsePathTree::empty, "Plant");
                    const BrowsePathTree::Ref plain = paths.child(plant, "plain");
                    const NodeTable::Key node = items.nodes().add(variant == 0 ? text : QStringLiteral("ns=2;s=plain"));
                    const BrowsePathTree::Ref path =
                        variant == 1 ? paths.literal(text) : (variant == 3 ? paths.child(plant, text) : plain);
                    const int row = (4 * access + variant) % 16;
                    ASSERT_TRUE(items.append(node, path, Ua::supportedTypes()[size_t(row)], access & 1, access & 2,
                                             row % 2 == 1));
                    if (variant == 2)
                        items.offerPath(0, paths.literal(text));
                    QByteArray compact;
                    appendItemRecord(context, items, 0, JsonLayout::Compact, &compact);
                    const QJsonObject expected = expectedRecord(deviceParts[device], items.at(0));
                    EXPECT_EQ(compact, QJsonDocument(expected).toJson(QJsonDocument::Compact)) << text.toStdString();
                    QByteArray indented;
                    appendItemRecord(context, items, 0, JsonLayout::Indented, &indented);
                    EXPECT_EQ(indented, test_support::indentedJsonAtDepth(expected, itemRecordDepth)) << text.toStdString();
                    EXPECT_EQ(buildItemCandidate(c, items, 0), expected);
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
    // As the walk holds identifiers: UTF-8 of what the stack gave, which has no lone surrogates.
    QList<QByteArray> held;
    for (const QString& text : texts)
        held.append(text.toUtf8());
    for (const QByteArray& a : held) {
        const QString qa = utf8View(a).toQString();
        for (const QByteArray& b : held)
            ASSERT_EQ(itemIdentifierLess(utf8View(a), utf8View(b)), qa.compare(utf8View(b).toQString(), Qt::CaseInsensitive) < 0)
                << a.toStdString() << " " << b.toStdString();
    }
}
