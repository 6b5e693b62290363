// Progress snapshots of discover_items: built piece by piece, they must always equal the
// compact JSON of the result built from scratch over the same items.
#include "app/item_records.h"
#include "app/item_snapshot.h"
#include "app/result_envelope.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

namespace {

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

ClientCore::BrowseItem browseItem(const QString& nodeId, const QString& path)
{
    ClientCore::BrowseItem item;
    item.nodeId = nodeId;
    item.browsePath = path;
    item.dataType = QStringLiteral("Int32");
    item.description = QStringLiteral("OPC UA Variable (Int32)");
    return item;
}

QByteArray fromScratch(const DiscoveryDeviceConfig& config, const QJsonObject& request,
                       const QList<ClientCore::BrowseItem>& items, const QStringList& warnings)
{
    return QJsonDocument(buildResult(QStringLiteral("discover_items"), request, itemArrayFromBrowse(config, items),
                                     warningArrayFrom(warnings)))
        .toJson(QJsonDocument::Compact);
}

} // namespace

TEST(ItemSnapshot, EmptyBrowseIsTheEmptyResult)
{
    const DiscoveryDeviceConfig config = deviceConfig();
    ItemSnapshot snapshot;
    updateItemSnapshot(&snapshot, config, itemsRequest(), {}, {});
    EXPECT_EQ(itemSnapshotJson(snapshot), fromScratch(config, itemsRequest(), {}, {}));
}

TEST(ItemSnapshot, RequestWithoutExtrasStillMatches)
{
    const DiscoveryDeviceConfig config = deviceConfig();
    const QList<ClientCore::BrowseItem> items{browseItem("ns=1;s=B", "B"), browseItem("ns=1;s=a", "a")};
    ItemSnapshot snapshot;
    updateItemSnapshot(&snapshot, config, QJsonObject(), items, {});
    EXPECT_EQ(itemSnapshotJson(snapshot), fromScratch(config, QJsonObject(), items, {}));
}

TEST(ItemSnapshot, GrowingBrowseMatchesAFreshBuildEveryTime)
{
    const DiscoveryDeviceConfig config = deviceConfig();
    const QJsonObject request = itemsRequest();
    QRandomGenerator random(4840);
    const QStringList stems{"b", "A", "a2", "Tank\"1\\Level", "Ünit", "tab\there", "x\u0001y", "Δp"};
    QList<ClientCore::BrowseItem> items;
    QStringList warnings;
    ItemSnapshot snapshot;
    for (int round = 0; round < 60; ++round) {
        const int added = int(random.bounded(1, 25));
        for (int i = 0; i < added; ++i) {
            const QString stem = stems.at(int(random.bounded(stems.size())));
            // Identifiers that repeat exactly, and ones that differ only in case.
            const int number = int(random.bounded(200));
            QString nodeId = QStringLiteral("ns=1;s=%1.%2").arg(stem, QString::number(number));
            if (random.bounded(4) == 0)
                nodeId = nodeId.toUpper();
            ClientCore::BrowseItem item = browseItem(nodeId, stem + QStringLiteral(".V") + QString::number(number));
            item.readable = random.bounded(3) != 0;
            item.writable = random.bounded(2) == 0;
            item.dataType = random.bounded(2) ? QStringLiteral("Double") : QStringLiteral("LocalizedText");
            items.append(item);
        }
        // A variable found again on a deeper path changes name and description in place.
        if (!items.isEmpty() && random.bounded(3) == 0) {
            ClientCore::BrowseItem& changed = items[int(random.bounded(items.size()))];
            changed.description += QStringLiteral("; also ") + changed.browsePath;
            changed.browsePath = QStringLiteral("Deeper.") + changed.browsePath;
        }
        if (random.bounded(2) == 0)
            warnings.append(QStringLiteral("Skipping ns=1;s=W%1 because it is neither readable nor writable")
                                .arg(random.bounded(10)));
        updateItemSnapshot(&snapshot, config, request, items, warnings);
        ASSERT_EQ(itemSnapshotJson(snapshot), fromScratch(config, request, items, warnings)) << "round " << round;
    }
}

TEST(ItemSnapshot, ShrunkOrReplacedBrowseStartsOver)
{
    const DiscoveryDeviceConfig config = deviceConfig();
    const QJsonObject request = itemsRequest();
    ItemSnapshot snapshot;
    QList<ClientCore::BrowseItem> items{browseItem("ns=1;s=A", "A"), browseItem("ns=1;s=B", "B"),
                                        browseItem("ns=1;s=C", "C")};
    updateItemSnapshot(&snapshot, config, request, items, {});

    items.removeLast();
    updateItemSnapshot(&snapshot, config, request, items, {});
    EXPECT_EQ(itemSnapshotJson(snapshot), fromScratch(config, request, items, {}));

    items[0] = browseItem("ns=1;s=Z", "Z");
    items.append(browseItem("ns=1;s=A", "A"));
    updateItemSnapshot(&snapshot, config, request, items, {"w"});
    EXPECT_EQ(itemSnapshotJson(snapshot), fromScratch(config, request, items, {"w"}));
}

TEST(ItemSnapshot, FileHoldsExactlyTheSnapshot)
{
    QTemporaryDir dir;
    const DiscoveryDeviceConfig config = deviceConfig();
    QList<ClientCore::BrowseItem> items;
    for (int i = 0; i < 3000; ++i)
        items.append(browseItem(QStringLiteral("ns=1;s=Synthetic.V%1").arg(i), QStringLiteral("Synthetic.V%1").arg(i)));
    ItemSnapshot snapshot;
    updateItemSnapshot(&snapshot, config, itemsRequest(), items, {"b", "A", "b", "a"});

    const QString path = dir.filePath("snapshot.json");
    ASSERT_TRUE(writeItemSnapshot(snapshot, path));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), fromScratch(config, itemsRequest(), items, {"b", "A", "b", "a"}));
}

TEST(ItemSnapshot, MissingDirectoryFailsQuietly)
{
    QTemporaryDir dir;
    ItemSnapshot snapshot;
    updateItemSnapshot(&snapshot, deviceConfig(), itemsRequest(), {browseItem("ns=1;s=A", "A")}, {});
    EXPECT_FALSE(writeItemSnapshot(snapshot, dir.filePath("missing/snapshot.json")));
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
