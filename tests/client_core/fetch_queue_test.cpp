// The fetch queues of the batched walk and the one routine that asks them in batches: which
// nodes join a request, and how a server that refuses large requests is met (refused a few
// times, then never again, and every node answered once).

#include "client_core/batch_fetch.h"
#include "client_core/fetch_queue.h"
#include "client_core/server_watch.h"
#include "ua/text.h"

#include <QSet>
#include <QStringList>

#include <gtest/gtest.h>

namespace {

// The queues name nodes by their numbers in one node table, as the walk's do.
NodeTable& table()
{
    static NodeTable nodes;
    return nodes;
}

NodeTable::Key key(const QString& text)
{
    return table().add(text);
}

QString textOf(NodeTable::Key node)
{
    return table().text(node).toQString();
}

void addNode(FetchQueue& queue, const QString& text, int siblingGroup = -1, bool variable = false)
{
    queue.add(key(text), siblingGroup, variable);
}

QStringList texts(const std::vector<QueuedNode>& nodes)
{
    QStringList out;
    for (const QueuedNode& node : nodes) {
        out.append(textOf(node.node));
        // The request carries the NodeId the text names.
        EXPECT_EQ(Ua::nodeIdToQString(*node.id), textOf(node.node));
    }
    return out;
}

std::vector<QueuedNode> start(FetchQueue& queue, const QString& asked, bool roomAhead = true)
{
    bool ok = false;
    const Ua::NodeIdHolder id = Ua::nodeIdFromQString(asked, &ok);
    return queue.startRequest(key(asked), *id, roomAhead);
}

// Four siblings found by one Browse answer, and one node found by another.
FetchQueue siblingsQueue(SiblingOrder order)
{
    FetchQueue queue(&table(), order, 1);
    queue.size().start(0, 1000);
    for (const char* text : {"ns=1;s=A", "ns=1;s=B", "ns=1;s=C", "ns=1;s=D"})
        addNode(queue, QString::fromLatin1(text), 0, true);
    addNode(queue, QStringLiteral("ns=1;s=Other"), 1);
    return queue;
}

} // namespace

TEST(FetchQueue, SiblingsJoinInTheOrderTheWalkMeetsThem)
{
    FetchQueue backwards = siblingsQueue(SiblingOrder::LastToFirst);
    EXPECT_EQ(texts(start(backwards, "ns=1;s=D")),
              (QStringList{"ns=1;s=D", "ns=1;s=C", "ns=1;s=B", "ns=1;s=A", "ns=1;s=Other"}));
    FetchQueue forwards = siblingsQueue(SiblingOrder::FirstToLast);
    EXPECT_EQ(texts(start(forwards, "ns=1;s=B")),
              (QStringList{"ns=1;s=B", "ns=1;s=C", "ns=1;s=D", "ns=1;s=A", "ns=1;s=Other"}));
}

TEST(FetchQueue, RequestCarriesNoMoreNodesThanTheSizeAllows)
{
    FetchQueue queue = siblingsQueue(SiblingOrder::FirstToLast);
    queue.size().start(2, 1000);
    EXPECT_EQ(texts(start(queue, "ns=1;s=A")), (QStringList{"ns=1;s=A", "ns=1;s=B"}));
}

TEST(FetchQueue, WithoutRoomAheadOnlySiblingVariablesJoin)
{
    FetchQueue queue = siblingsQueue(SiblingOrder::FirstToLast);
    EXPECT_EQ(texts(start(queue, "ns=1;s=A", false)), (QStringList{"ns=1;s=A", "ns=1;s=B", "ns=1;s=C", "ns=1;s=D"}));
}

TEST(FetchQueue, NodeAskedAloneIsAskedAloneAndJoinsNoOtherRequest)
{
    FetchQueue queue = siblingsQueue(SiblingOrder::FirstToLast);
    std::vector<QueuedNode> request = start(queue, "ns=1;s=A");
    ASSERT_EQ(request.size(), 5u);
    queue.askAlone(std::move(request[1]));   // B
    queue.giveBack(&request, 1);
    queue.answered(key(QStringLiteral("ns=1;s=A")));
    EXPECT_EQ(texts(start(queue, "ns=1;s=C")), (QStringList{"ns=1;s=C", "ns=1;s=D", "ns=1;s=Other"}));
    EXPECT_EQ(texts(start(queue, "ns=1;s=B")), (QStringList{"ns=1;s=B"}));
}

TEST(FetchQueue, NodeIsKnownOnceFoundOrAsked)
{
    FetchQueue queue(&table(), SiblingOrder::FirstToLast, 1);
    queue.size().start(0, 1000);
    EXPECT_FALSE(queue.known(key(QStringLiteral("ns=1;s=A"))));
    addNode(queue, QStringLiteral("ns=1;s=A"));
    EXPECT_TRUE(queue.known(key(QStringLiteral("ns=1;s=A"))));
    start(queue, "ns=1;s=Asked");
    EXPECT_TRUE(queue.known(key(QStringLiteral("ns=1;s=Asked"))));
}

TEST(FetchQueue, RequestCarriesTheNodeIdGivenWhereTheTextNamesAnother)
{
    FetchQueue queue(&table(), SiblingOrder::FirstToLast, 1);
    queue.size().start(0, 1000);
    const UA_NodeId same = UA_NODEID_STRING(1, const_cast<char*>("Same"));
    const UA_NodeId other = UA_NODEID_NUMERIC(1, 77);
    queue.add(key(QStringLiteral("ns=1;s=Same")), 0, true, &same);
    queue.add(key(QStringLiteral("ns=1;s=Spelled")), 0, true, &other);
    queue.add(key(QStringLiteral("not a node id")), 0, true);
    queue.add(key(QStringLiteral("ns=1;s=Last")), 0, true);
    const std::vector<QueuedNode> request = start(queue, "ns=1;s=First");
    // Nearest first: the asked node had no position, so the others join from the end backwards.
    ASSERT_EQ(request.size(), 4u);   // the text that names no NodeId joins no request
    EXPECT_EQ(textOf(request[1].node), QStringLiteral("ns=1;s=Last"));
    EXPECT_EQ(Ua::nodeIdToQString(*request[1].id), QStringLiteral("ns=1;s=Last"));
    EXPECT_EQ(textOf(request[2].node), QStringLiteral("ns=1;s=Spelled"));
    EXPECT_TRUE(UA_NodeId_equal(request[2].id.get(), &other));
    EXPECT_EQ(textOf(request[3].node), QStringLiteral("ns=1;s=Same"));
    EXPECT_EQ(Ua::nodeIdToQString(*request[3].id), QStringLiteral("ns=1;s=Same"));
}

namespace {

// A server that refuses every request of more than `limit` nodes with BadTooManyOperations and
// answers the others; it answers some nodes only in a request of their own.
class RefusingServer : public BatchQuestion
{
public:
    RefusingServer(FetchQueue* queue, size_t limit)
        : queue_(queue)
        , limit_(limit)
    {
    }

    BatchAnswer askTogether(const std::vector<QueuedNode>& nodes) override
    {
        BatchAnswer answer;
        sizes.push_back(nodes.size());
        if (nodes.size() > limit_) {
            ++refusals;
            answer.outcome = BatchAnswer::Outcome::Failed;
            answer.status = UA_STATUSCODE_BADTOOMANYOPERATIONS;
            return answer;
        }
        answer.outcome = BatchAnswer::Outcome::Answered;
        return answer;
    }

    std::vector<bool> keepAnswers(const std::vector<QueuedNode>& nodes) override
    {
        std::vector<bool> kept;
        for (const QueuedNode& node : nodes) {
            const bool own = !onlyAlone.contains(textOf(node.node));
            if (own)
                keep(node.node);
            kept.push_back(own);
        }
        return kept;
    }

    void askAlone(const QueuedNode& node) override
    {
        sizes.push_back(1);
        keep(node.node);
    }

    void keepFailure(NodeTable::Key node, UA_StatusCode) override { failed.append(textOf(node)); }

    std::vector<size_t> sizes;
    size_t refusals = 0;
    QStringList answered;
    QStringList failed;
    QSet<QString> onlyAlone;

private:
    void keep(NodeTable::Key node)
    {
        answered.append(textOf(node));
        queue_->answered(node);
    }

    FetchQueue* queue_;
    size_t limit_;
};

} // namespace

TEST(FetchInBatches, ServerThatRefusesLargeRequestsIsRefusedTwiceInAThousandNodes)
{
    FetchQueue queue(&table(), SiblingOrder::FirstToLast, 1);
    queue.size().start(0, 1000);
    const int count = 1000;
    for (int i = 0; i < count; ++i)
        addNode(queue, QStringLiteral("ns=1;i=%1").arg(i + 1), 0);
    RefusingServer server(&queue, 5);
    server.onlyAlone.insert(QStringLiteral("ns=1;i=7"));
    ServerWatch watch(nullptr);
    QSet<QString> answered;
    for (int i = 0; i < count; ++i) {
        const QString text = QStringLiteral("ns=1;i=%1").arg(i + 1);
        if (answered.contains(text))
            continue;
        fetchInBatches(queue, server, watch, 1000, start(queue, text));
        for (const QString& node : server.answered)
            answered.insert(node);
        ASSERT_TRUE(answered.contains(text)) << text.toStdString();
    }
    EXPECT_EQ(server.refusals, 2u);   // 16, then 8; 4 from then on
    EXPECT_EQ(answered.size(), count);
    EXPECT_EQ(server.answered.size(), count) << "a node answered twice";
    EXPECT_TRUE(server.failed.isEmpty());
    size_t largestAfterLearning = 0;
    for (size_t i = 2; i < server.sizes.size(); ++i)
        largestAfterLearning = std::max(largestAfterLearning, server.sizes[i]);
    EXPECT_EQ(largestAfterLearning, 4u);
    EXPECT_EQ(queue.size().learnedLimit(), 4u);
}

TEST(FetchInBatches, ConnectionFailureIsTheAskedNodesAnswerAndNothingIsAskedAgain)
{
    FetchQueue queue(&table(), SiblingOrder::FirstToLast, 1);
    queue.size().start(0, 1000);
    for (int i = 0; i < 10; ++i)
        addNode(queue, QStringLiteral("ns=1;i=%1").arg(i + 1), 0);

    class GoneServer : public RefusingServer
    {
    public:
        using RefusingServer::RefusingServer;
        BatchAnswer askTogether(const std::vector<QueuedNode>& nodes) override
        {
            sizes.push_back(nodes.size());
            BatchAnswer answer;
            answer.outcome = BatchAnswer::Outcome::Failed;
            answer.status = UA_STATUSCODE_BADCONNECTIONCLOSED;
            return answer;
        }
    } server(&queue, 100);
    ServerWatch watch(nullptr);
    fetchInBatches(queue, server, watch, 1000, start(queue, "ns=1;i=1"));
    EXPECT_EQ(server.failed, QStringList{"ns=1;i=1"});
    EXPECT_EQ(server.sizes, std::vector<size_t>{10});
    EXPECT_TRUE(server.answered.isEmpty());
}
