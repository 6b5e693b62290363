// How large the batched walk's requests are: the first size, growth within the time-out, and a
// size refused by the server that is never grown past again. Read sizes count ReadValueIds.

#include "client_core/request_size.h"
#include "client_core/server_watch.h"

#include <gtest/gtest.h>

namespace {

const int timeoutMs = 1000;

} // namespace

TEST(RequestSize, FirstRequestIsSixteenNodesWithinThePublishedLimit)
{
    RequestSize browse(1);
    browse.start(0, 1000);
    EXPECT_EQ(browse.nodes(), 16u);
    browse.start(10, 1000);
    EXPECT_EQ(browse.nodes(), 10u);
    browse.start(5000, 1000);
    EXPECT_EQ(browse.nodes(), 16u);
}

TEST(RequestSize, ReadLimitCountsThreeReadValueIdsPerVariable)
{
    RequestSize read(3);
    read.start(100, 3000);
    EXPECT_EQ(read.nodes(), 16u);
    read.answered(16, 0, timeoutMs);
    EXPECT_EQ(read.nodes(), 33u);   // 100 ReadValueIds
    read.start(10, 3000);
    EXPECT_EQ(read.nodes(), 3u);
    // A limit below one variable's three attributes still allows the read of one variable.
    read.start(2, 3000);
    EXPECT_EQ(read.nodes(), 1u);
}

TEST(RequestSize, GrowsFourfoldUpToTheLimitWhileQuick)
{
    RequestSize browse(1);
    browse.start(0, 1000);
    browse.answered(16, 0, timeoutMs);
    EXPECT_EQ(browse.nodes(), 64u);
    browse.answered(64, 0, timeoutMs);
    EXPECT_EQ(browse.nodes(), 256u);
    browse.answered(256, 0, timeoutMs);
    EXPECT_EQ(browse.nodes(), 1000u);
}

TEST(RequestSize, GrowthStaysWithinAQuarterOfTheTimeOut)
{
    RequestSize browse(1);
    browse.start(0, 1000);
    browse.answered(16, 160, timeoutMs);   // 10 ms a node: 250 ms allow 25 nodes
    EXPECT_EQ(browse.nodes(), 25u);
    EXPECT_DOUBLE_EQ(browse.msPerNode(), 10.0);
}

TEST(RequestSize, SizeRefusedByTheServerIsNeverGrownPastAgain)
{
    RequestSize browse(1);
    browse.start(0, 1000);
    browse.refused(16, UA_STATUSCODE_BADTOOMANYOPERATIONS);
    EXPECT_EQ(browse.nodes(), 8u);
    browse.refused(8, UA_STATUSCODE_BADTOOMANYOPERATIONS);
    EXPECT_EQ(browse.nodes(), 4u);
    for (int i = 0; i < 10; ++i)
        browse.answered(4, 0, timeoutMs);
    EXPECT_EQ(browse.nodes(), 4u);
    EXPECT_EQ(browse.learnedLimit(), 4u);
}

TEST(RequestSize, LearnedReadLimitCountsReadValueIds)
{
    // A server that takes 7 ReadValueIds a Read: two variables.
    RequestSize read(3);
    read.start(0, 3000);
    size_t refusals = 0;
    while (read.nodes() * 3 > 7) {
        read.refused(read.nodes(), UA_STATUSCODE_BADTOOMANYOPERATIONS);
        ++refusals;
    }
    EXPECT_EQ(read.nodes(), 2u);
    EXPECT_EQ(read.learnedLimit(), 6u);
    EXPECT_EQ(refusals, 3u);
    for (int i = 0; i < 10; ++i)
        read.answered(2, 0, timeoutMs);
    EXPECT_EQ(read.nodes(), 2u);
}

TEST(RequestSize, TimeOutShrinksToAQuarterAndIsRemembered)
{
    RequestSize browse(1);
    browse.start(0, 1000);
    browse.answered(16, 0, timeoutMs);
    browse.refused(64, UA_STATUSCODE_BADTIMEOUT);
    EXPECT_EQ(browse.nodes(), 16u);
    browse.answered(16, 0, timeoutMs);
    EXPECT_EQ(browse.nodes(), 16u);
}

TEST(RequestSize, OtherFailuresShrinkOnceAndMayGrowAgain)
{
    RequestSize browse(1);
    browse.start(0, 1000);
    browse.refused(16, UA_STATUSCODE_BADINTERNALERROR);
    EXPECT_EQ(browse.nodes(), 8u);
    browse.answered(8, 0, timeoutMs);
    EXPECT_EQ(browse.nodes(), 32u);
}

TEST(RequestSize, SizeRefusalsAreTheFailuresThatSayTooLarge)
{
    EXPECT_TRUE(isSizeRefusal(UA_STATUSCODE_BADTOOMANYOPERATIONS));
    EXPECT_TRUE(isSizeRefusal(UA_STATUSCODE_BADTIMEOUT));
    EXPECT_TRUE(isSizeRefusal(UA_STATUSCODE_BADRESPONSETOOLARGE));
    EXPECT_FALSE(isSizeRefusal(UA_STATUSCODE_BADINTERNALERROR));
    EXPECT_FALSE(isSizeRefusal(UA_STATUSCODE_BADNODEIDUNKNOWN));
}

TEST(DrainWait, TenTimeOutsAtMostWithoutAMeasuredPace)
{
    EXPECT_EQ(drainWaitMs(1000, 0, 50), 10000u);
    EXPECT_EQ(drainWaitMs(120000, 0, 50), 600000u);
}

TEST(DrainWait, TwiceTheExpectedTimeAtLeastOneTimeOutWithAPace)
{
    EXPECT_EQ(drainWaitMs(1000, 100, 20), 4000u);    // 2 × 100 ms × 20 nodes
    EXPECT_EQ(drainWaitMs(1000, 1, 20), 1000u);      // never below one time-out
    EXPECT_EQ(drainWaitMs(1000, 1000, 20), 10000u);  // never above ten time-outs
}
