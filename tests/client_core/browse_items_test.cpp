// The walk's compact forms: node identifiers numbered once, paths as a tree, items whose texts
// are produced on request. Each must give back exactly the texts it was made from.
#include "client_core/browse_items.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

namespace {

const Ua::SupportedType& typeOfKind(quint32 kind)
{
    return *Ua::supportedTypeOfKind(kind);
}

// Texts a server may send: blanks, dots, the names the path leaves out, beyond ASCII and the
// 16-bit plane, a leading U+FEFF that UTF-8 decoding would take for a byte order mark.
QStringList nameAlphabet()
{
    return {"",      " ",        "Root",     "objects", "OBJECTS", "Plant",        " Line 1 ", "a.b",
            "\tx\n", "K\u00fchl", "\u6e29\u5ea6", QString::fromUtf8("\xf0\x9f\x94\xa5"), QString(QChar(0xfeff)) + "bom",
            "Root ", "%1",       "also"};
}

QString randomName(QRandomGenerator& random)
{
    const QStringList alphabet = nameAlphabet();
    return alphabet.at(int(random.bounded(alphabet.size())));
}

} // namespace

TEST(NodeTable, SameTextSameNumberInOrderOfFirstSight)
{
    NodeTable nodes;
    EXPECT_EQ(nodes.add("i=85"), 0u);
    EXPECT_EQ(nodes.add("ns=1;s=A"), 1u);
    EXPECT_EQ(nodes.add("i=85"), 0u);
    EXPECT_EQ(nodes.add("ns=1;s=a"), 2u);
    EXPECT_EQ(nodes.size(), 3);
    EXPECT_EQ(nodes.text(1).toQString(), "ns=1;s=A");
}

TEST(NodeTable, ManyNodesKeepTheirNumbersAndTexts)
{
    NodeTable nodes;
    const int count = 200000;
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(nodes.add(QStringLiteral("ns=1;s=Synthetic.V%1").arg(i)), NodeTable::Key(i));
    for (int i = 0; i < count; i += 997) {
        EXPECT_EQ(nodes.add(QStringLiteral("ns=1;s=Synthetic.V%1").arg(i)), NodeTable::Key(i));
        EXPECT_EQ(nodes.text(NodeTable::Key(i)).toQString(), QStringLiteral("ns=1;s=Synthetic.V%1").arg(i));
    }
    EXPECT_EQ(nodes.size(), count);
}

TEST(NodeTable, TextsBeyondAsciiComeBackUnchanged)
{
    NodeTable nodes;
    const QString texts[] = {QStringLiteral("ns=1;s=K\u00fchlwasser"), QString::fromUtf8("ns=1;s=\xf0\x9f\x94\xa5"),
                             QString(QChar(0xfeff)) + QChar(0xfeff) + "ns=1;s=x", QString(QChar(0)) + "nul", QString()};
    for (const QString& text : texts) {
        const NodeTable::Key key = nodes.add(text);
        EXPECT_EQ(nodes.text(key).toQString(), text);
        EXPECT_EQ(nodes.add(text), key);
    }
    EXPECT_EQ(nodes.size(), 5);
}

TEST(TextArena, TextsOfEverySizeKeepTheirBytes)
{
    TextArena arena;
    QList<QByteArray> texts;
    QList<TextArena::Handle> handles;
    for (int size : {0, 1, 127, 128, 16383, 16384, 100000, 200000, 3 * 1024 * 1024, 5}) {
        QByteArray text(size, 'x');
        for (int i = 0; i < size; i += 101)
            text[i] = char('a' + i % 26);
        texts.append(text);
        handles.append(arena.add(utf8View(text)));
    }
    for (int i = 0; i < texts.size(); ++i) {
        const Utf8View view = arena.view(handles.at(i));
        EXPECT_EQ(QByteArray(view.data, view.size), texts.at(i)) << i;
    }
}

TEST(BrowsePathTree, TextIsTheJoinedPathOfTheSegments)
{
    QRandomGenerator random(85);
    for (int round = 0; round < 2000; ++round) {
        BrowsePathTree tree;
        BrowsePathTree::Ref path = BrowsePathTree::empty;
        QStringList segments;
        const int depth = int(random.bounded(8));
        for (int i = 0; i < depth; ++i) {
            const QString name = randomName(random);
            path = tree.child(path, name);
            segments.append(name);
            ASSERT_EQ(tree.text(path), joinBrowsePath(segments)) << segments.join('|').toStdString();
            ASSERT_EQ(path == BrowsePathTree::empty, joinBrowsePath(segments).isEmpty());
        }
    }
}

TEST(BrowsePathTree, PathsShareTheirBeginnings)
{
    BrowsePathTree tree;
    const BrowsePathTree::Ref line = tree.child(tree.child(BrowsePathTree::empty, "Plant"), "Line");
    const BrowsePathTree::Ref a = tree.child(line, "A");
    const BrowsePathTree::Ref b = tree.child(line, "B");
    EXPECT_EQ(tree.text(a), "Plant.Line.A");
    EXPECT_EQ(tree.text(b), "Plant.Line.B");
    EXPECT_EQ(tree.text(tree.literal(" Display name ")), " Display name ");
    EXPECT_EQ(tree.literal(""), BrowsePathTree::empty);
    // Deeper than the walk usually goes.
    BrowsePathTree::Ref deep = BrowsePathTree::empty;
    QStringList segments;
    for (int i = 0; i < 100; ++i) {
        deep = tree.child(deep, QStringLiteral("L%1").arg(i));
        segments.append(QStringLiteral("L%1").arg(i));
    }
    EXPECT_EQ(tree.text(deep), segments.join('.'));
}

TEST(BrowseItems, TextsOfANewItem)
{
    BrowseItems items;
    BrowsePathTree& paths = items.paths();
    const BrowsePathTree::Ref path = paths.child(paths.child(BrowsePathTree::empty, "Types"), "Int32Array");
    const NodeTable::Key node = items.nodes().add("ns=1;s=Types.Int32Array");
    ASSERT_TRUE(items.append(node, path, typeOfKind(UA_DATATYPEKIND_INT32), true, true, true));
    EXPECT_EQ(items.itemOf(node), 0);
    EXPECT_EQ(items.itemOf(items.nodes().add("ns=1;s=Other")), -1);
    const BrowseItem item = items.at(0);
    EXPECT_EQ(item.nodeId, "ns=1;s=Types.Int32Array");
    EXPECT_EQ(item.browsePath, "Types.Int32Array");
    EXPECT_EQ(item.description, "OPC UA Variable (Int32, array)");
    EXPECT_EQ(item.dataType, "Int32");
    EXPECT_TRUE(item.readable);
    EXPECT_TRUE(item.writable);
    EXPECT_TRUE(item.isArray);
    EXPECT_FALSE(items.append(node, path, typeOfKind(UA_DATATYPEKIND_DOUBLE), true, false, false));
    EXPECT_EQ(items.size(), 1);
    EXPECT_EQ(expandedItems(items).size(), 1);
}

TEST(BrowseItems, OtherPathsFollowTheRuleOfAlternatePaths)
{
    QRandomGenerator random(4840);
    for (int round = 0; round < 500; ++round) {
        BrowseItems items;
        BrowsePathTree& paths = items.paths();
        // The same walk of paths, kept as texts by the rule itself.
        auto randomPath = [&]() {
            if (random.bounded(6) == 0)
                return paths.literal(randomName(random));
            BrowsePathTree::Ref path = BrowsePathTree::empty;
            const int depth = int(random.bounded(5));
            for (int i = 0; i < depth; ++i)
                path = paths.child(path, randomName(random));
            return path;
        };
        BrowsePathTree::Ref first = randomPath();
        if (first == BrowsePathTree::empty)
            first = paths.literal("ns=1;s=V");
        items.append(items.nodes().add("ns=1;s=V"), first, typeOfKind(UA_DATATYPEKIND_DOUBLE), true, false,
                     random.bounded(2) == 0);
        QString path = paths.text(first);
        QString description = items.description(0);
        for (int offer = 0; offer < 6; ++offer) {
            const BrowsePathTree::Ref alternative = randomPath();
            applyAlternateBrowsePath(&path, &description, paths.text(alternative));
            items.offerPath(0, alternative);
            ASSERT_EQ(items.browsePath(0), path) << round;
            ASSERT_EQ(items.description(0), description) << round;
        }
    }
}

TEST(BrowseItems, ClearingStartsAnotherGeneration)
{
    BrowseItems items;
    const quint64 before = items.generation();
    items.append(items.nodes().add("ns=1;s=A"), BrowsePathTree::empty, typeOfKind(UA_DATATYPEKIND_BOOLEAN), true,
                 false, false);
    items.clear();
    EXPECT_EQ(items.size(), 0);
    EXPECT_EQ(items.nodes().size(), 0);
    EXPECT_NE(items.generation(), before);
}
