// Progress snapshots of discover_items: written as the items grow, each must equal the compact
// JSON of the result built from scratch over the same items.
#include "app/item_records.h"
#include "app/item_snapshot.h"
#include "app/result_envelope.h"
#include "tests/support/items_fixture.h"
#include "sim/support/files.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

const QString devicePart = QStringLiteral("7");

DiscoveryDeviceConfig deviceConfig()
{
    DiscoveryDeviceConfig config;
    QString error;
    EXPECT_TRUE(parseDeviceConfig(QJsonObject{{"id", 7}, {"address", "opc.tcp://10.0.0.5:4840"}}, &config, &error));
    return config;
}

QJsonObject itemsRequest()
{
    return QJsonObject{{"job_id", 17},
                       {"device", QJsonObject{{"id", 7}, {"address", "opc.tcp://10.0.0.5:4840"}, {"note", "\"quoted\" \\ é"}}}};
}

const Ua::SupportedType& int32Type()
{
    return *Ua::supportedTypeOfKind(UA_DATATYPEKIND_INT32);
}

// A variable found at a path of dotted segments, or met again there when it was found before.
void browseItem(BrowseItems* items, const QString& nodeId, const QString& path, const Ua::SupportedType& type,
                bool readable = true, bool writable = false)
{
    BrowsePathTree::Ref at = BrowsePathTree::empty;
    for (const QString& segment : path.split('.'))
        at = items->paths().child(at, segment);
    const NodeTable::Key node = items->nodes().add(nodeId);
    if (items->itemOf(node) >= 0)
        items->offerPath(items->itemOf(node), at);
    else
        items->append(node, at, type, readable, writable, false);
}

// Sorted and written here, record by record from the items' texts.
QByteArray fromScratch(const QJsonObject& request, const BrowseItems& items, const QStringList& warnings)
{
    QList<ClientCore::BrowseItem> sorted = expandedItems(items);
    std::stable_sort(sorted.begin(), sorted.end(), [](const ClientCore::BrowseItem& a, const ClientCore::BrowseItem& b) {
        return a.nodeId.compare(b.nodeId, Qt::CaseInsensitive) < 0;
    });
    QJsonArray records;
    for (const ClientCore::BrowseItem& item : sorted)
        records.append(items_test::expectedRecord(devicePart, item));
    return QJsonDocument(buildResult(QStringLiteral("discover_items"), request, records, warningArrayFrom(warnings)))
        .toJson(QJsonDocument::Compact);
}

// Writes the next snapshot and gives the file's bytes.
QByteArray snapshotFile(ItemSnapshot* snapshot, ItemOrder* order, const QJsonObject& request, const BrowseItems& items,
                        const QStringList& warnings)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("snapshot.json");
    EXPECT_TRUE(writeItemSnapshot(snapshot, itemRecordContext(deviceConfig()), request, items, warnings, order, path));
    return test_support::readFile(path);
}

} // namespace

TEST(ItemSnapshot, EmptyBrowseIsTheEmptyResult)
{
    ItemSnapshot snapshot;
    ItemOrder order;
    const BrowseItems items;
    EXPECT_EQ(snapshotFile(&snapshot, &order, itemsRequest(), items, {}), fromScratch(itemsRequest(), items, {}));
}

TEST(ItemSnapshot, RequestWithoutExtrasStillMatches)
{
    BrowseItems items;
    browseItem(&items, "ns=1;s=B", "B", int32Type());
    browseItem(&items, "ns=1;s=a", "a", int32Type());
    ItemSnapshot snapshot;
    ItemOrder order;
    EXPECT_EQ(snapshotFile(&snapshot, &order, QJsonObject(), items, {}), fromScratch(QJsonObject(), items, {}));
}

TEST(ItemSnapshot, GrowingBrowseMatchesAFreshBuildEveryTime)
{
    const QJsonObject request = itemsRequest();
    QRandomGenerator random(4840);
    const QStringList stems{"b", "A", "a2", "Tank\"1\\Level", "Ünit", "tab\there", "x\u0001y", "Δp"};
    const Ua::SupportedType& doubleType = *Ua::supportedTypeOfKind(UA_DATATYPEKIND_DOUBLE);
    const Ua::SupportedType& textType = *Ua::supportedTypeOfKind(UA_DATATYPEKIND_LOCALIZEDTEXT);
    BrowseItems items;
    QStringList warnings;
    ItemSnapshot snapshot;
    ItemOrder order;
    for (int round = 0; round < 60; ++round) {
        const int added = int(random.bounded(1, 25));
        for (int i = 0; i < added; ++i) {
            const QString stem = stems.at(int(random.bounded(stems.size())));
            // Identifiers met again (on another path), and ones that differ only in case.
            const int number = int(random.bounded(200));
            QString nodeId = QStringLiteral("ns=1;s=%1.%2").arg(stem, QString::number(number));
            if (random.bounded(4) == 0)
                nodeId = nodeId.toUpper();
            const QString path = (random.bounded(3) == 0 ? QStringLiteral("Other.") : QString()) + stem
                + QStringLiteral(".V") + QString::number(number);
            browseItem(&items, nodeId, path, random.bounded(2) ? doubleType : textType, random.bounded(3) != 0,
                       random.bounded(2) == 0);
        }
        // A variable found again on a deeper path changes name and description in place.
        if (items.size() > 0 && random.bounded(3) == 0) {
            const BrowseItems::Item changed = BrowseItems::Item(random.bounded(items.size()));
            browseItem(&items, items.nodeId(changed).toQString(), QStringLiteral("Deeper.") + items.browsePath(changed),
                       doubleType);
        }
        if (random.bounded(2) == 0)
            warnings.append(QStringLiteral("Skipping ns=1;s=W%1 because it is neither readable nor writable")
                                .arg(random.bounded(10)));
        ASSERT_EQ(snapshotFile(&snapshot, &order, request, items, warnings), fromScratch(request, items, warnings))
            << "round " << round;
    }
}

TEST(ItemSnapshot, ShrunkOrReplacedBrowseStartsOver)
{
    const QJsonObject request = itemsRequest();
    ItemSnapshot snapshot;
    ItemOrder order;
    BrowseItems items;
    for (const char* id : {"A", "B", "C"})
        browseItem(&items, QStringLiteral("ns=1;s=%1").arg(id), id, int32Type());
    snapshotFile(&snapshot, &order, request, items, {});

    // Another walk into the same items: fewer of them.
    items.clear();
    for (const char* id : {"A", "B"})
        browseItem(&items, QStringLiteral("ns=1;s=%1").arg(id), id, int32Type());
    EXPECT_EQ(snapshotFile(&snapshot, &order, request, items, {}), fromScratch(request, items, {}));

    // And another one with others, more than before.
    items.clear();
    for (const char* id : {"Z", "B", "A", "C"})
        browseItem(&items, QStringLiteral("ns=1;s=%1").arg(id), id, int32Type());
    EXPECT_EQ(snapshotFile(&snapshot, &order, request, items, {"w"}), fromScratch(request, items, {"w"}));
}

TEST(ItemSnapshot, FileHoldsExactlyTheSnapshot)
{
    BrowseItems items;
    for (int i = 0; i < 3000; ++i)
        browseItem(&items, QStringLiteral("ns=1;s=Synthetic.V%1").arg(i), QStringLiteral("Synthetic.V%1").arg(i),
                   int32Type());
    ItemSnapshot snapshot;
    ItemOrder order;
    EXPECT_EQ(snapshotFile(&snapshot, &order, itemsRequest(), items, {"b", "A", "b", "a"}),
              fromScratch(itemsRequest(), items, {"b", "A", "b", "a"}));
}

TEST(ItemSnapshot, MissingDirectoryFailsQuietly)
{
    QTemporaryDir dir;
    ItemSnapshot snapshot;
    ItemOrder order;
    BrowseItems items;
    browseItem(&items, "ns=1;s=A", "A", int32Type());
    EXPECT_FALSE(writeItemSnapshot(&snapshot, itemRecordContext(deviceConfig()), itemsRequest(), items, {}, &order,
                                   dir.filePath("missing/snapshot.json")));
    EXPECT_FALSE(QDir(dir.filePath("missing")).exists());
}

TEST(SnapshotPacing, FirstSnapshotAfterTwentyItems)
{
    const SnapshotPacing pacing;
    EXPECT_FALSE(pacing.due(19));
    EXPECT_TRUE(pacing.due(20));
}

TEST(SnapshotPacing, ExpensiveSnapshotWaitsFourTimesItsCostWhateverTheItems)
{
    SnapshotPacing pacing;
    pacing.begin(20);
    QThread::msleep(100);
    pacing.end();
    // Twenty new items and past 400 ms would be due by themselves; four times 100 ms are not over.
    EXPECT_FALSE(pacing.due(1000));
    QElapsedTimer waited;
    waited.start();
    while (!pacing.due(1000) && waited.elapsed() < 5000)
        QThread::msleep(10);
    EXPECT_TRUE(pacing.due(1000));
}

TEST(SnapshotPacing, CheapSnapshotsKeepTheTwentyItemRule)
{
    SnapshotPacing pacing;
    pacing.begin(20);
    pacing.end();
    QElapsedTimer waited;
    waited.start();
    while (!pacing.due(40) && waited.elapsed() < 5000)
        QThread::msleep(1);
    EXPECT_TRUE(pacing.due(40));
}
