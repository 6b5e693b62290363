// Where a continuation chain ends although the server offers more, and what the chain then says.

#include "client_core/node_requests.h"

#include <gtest/gtest.h>

#include <string>

namespace {

Ua::BrowseResultHolder page(const std::string& point, size_t references = 1,
                            UA_StatusCode status = UA_STATUSCODE_GOOD)
{
    Ua::BrowseResultHolder result;
    result->statusCode = status;
    if (references > 0) {
        result->references = static_cast<UA_ReferenceDescription*>(
            UA_Array_new(references, &UA_TYPES[UA_TYPES_REFERENCEDESCRIPTION]));
        result->referencesSize = references;
    }
    if (!point.empty())
        result->continuationPoint = UA_BYTESTRING_ALLOC(point.c_str());
    return result;
}

TEST(ContinuationGuard, NewPointsGoOnAndALastPageEndsWithoutFailure)
{
    BrowseChain chain;
    ContinuationGuard guard;
    EXPECT_TRUE(appendChainPage(&chain, &guard, page("a")));
    EXPECT_TRUE(appendChainPage(&chain, &guard, page("b")));
    EXPECT_FALSE(appendChainPage(&chain, &guard, page("")));
    EXPECT_EQ(chain.pages.size(), 3u);
    EXPECT_FALSE(chain.continuationFailed);
}

TEST(ContinuationGuard, APageThatRepeatsThePageBeforeEndsTheChainAndIsKept)
{
    BrowseChain chain;
    ContinuationGuard guard;
    EXPECT_TRUE(appendChainPage(&chain, &guard, page("same", 1)));
    EXPECT_TRUE(appendChainPage(&chain, &guard, page("same", 2)));
    EXPECT_FALSE(appendChainPage(&chain, &guard, page("same", 2)));
    EXPECT_EQ(chain.pages.size(), 3u);
    EXPECT_TRUE(chain.continuationFailed);
    EXPECT_EQ(chain.continuationStatus, UA_STATUSCODE_BADCONTINUATIONPOINTINVALID);
}

TEST(ContinuationGuard, OnePointForAWholeChainIsFineWhileThePagesChange)
{
    // Servers may keep one continuation point for all pages of a chain.
    Ua::BrowseResultHolder first = page("cp", 1);
    Ua::BrowseResultHolder second = page("cp", 1);
    second->references[0].nodeId.nodeId = UA_NODEID_NUMERIC(1, 7);
    ContinuationGuard guard;
    EXPECT_TRUE(guard.admit(*first, nullptr));
    EXPECT_TRUE(guard.admit(*second, first.get()));
    EXPECT_FALSE(guard.admit(*second, second.get()));
}

TEST(ContinuationGuard, TheSameReferencesUnderANewPointAreProgress)
{
    Ua::BrowseResultHolder first = page("a", 2);
    Ua::BrowseResultHolder second = page("b", 2);
    ContinuationGuard guard;
    EXPECT_TRUE(guard.admit(*first, nullptr));
    EXPECT_TRUE(guard.admit(*second, first.get()));
}

TEST(ContinuationGuard, APointThatComesBackAfterAnotherEndsTheChain)
{
    BrowseChain chain;
    ContinuationGuard guard;
    Ua::BrowseResultHolder a = page("a", 1);
    Ua::BrowseResultHolder b = page("b", 1);
    b->references[0].nodeId.nodeId = UA_NODEID_NUMERIC(1, 7);
    Ua::BrowseResultHolder again = page("a", 1);
    again->references[0].nodeId.nodeId = UA_NODEID_NUMERIC(1, 8);
    EXPECT_TRUE(appendChainPage(&chain, &guard, std::move(a)));
    EXPECT_TRUE(appendChainPage(&chain, &guard, std::move(b)));
    EXPECT_FALSE(appendChainPage(&chain, &guard, std::move(again)));
    EXPECT_EQ(chain.pages.size(), 3u);
    EXPECT_TRUE(chain.continuationFailed);
    EXPECT_EQ(chain.continuationStatus, UA_STATUSCODE_BADCONTINUATIONPOINTINVALID);
}

TEST(ContinuationGuard, EveryPointNewIsNoCircle)
{
    ContinuationGuard guard;
    Ua::BrowseResultHolder previous = page("p0", 1);
    EXPECT_TRUE(guard.admit(*previous, nullptr));
    for (int i = 1; i < 1000; ++i) {
        Ua::BrowseResultHolder next = page("p" + std::to_string(i), 1);
        ASSERT_TRUE(guard.admit(*next, previous.get())) << i;
        previous = std::move(next);
    }
}

TEST(ContinuationGuard, TheBrowseResultHasNoPageBeforeIt)
{
    ContinuationGuard guard;
    EXPECT_TRUE(guard.admit(*page("a", 0), nullptr));
}

TEST(ContinuationGuard, EndsAtThePageLimit)
{
    BrowseChain chain;
    ContinuationGuard guard(4, 1000);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(appendChainPage(&chain, &guard, page("p" + std::to_string(i))));
    EXPECT_FALSE(appendChainPage(&chain, &guard, page("p3")));
    EXPECT_EQ(chain.pages.size(), 4u);
    EXPECT_TRUE(chain.continuationFailed);
    EXPECT_EQ(chain.continuationStatus, UA_STATUSCODE_BADCONTINUATIONPOINTINVALID);
}

TEST(ContinuationGuard, EndsAtTheReferenceLimit)
{
    BrowseChain chain;
    ContinuationGuard guard(1000, 10);
    EXPECT_TRUE(appendChainPage(&chain, &guard, page("a", 4)));
    EXPECT_TRUE(appendChainPage(&chain, &guard, page("b", 5)));
    EXPECT_FALSE(appendChainPage(&chain, &guard, page("c", 1)));
    EXPECT_TRUE(chain.continuationFailed);
}

TEST(ContinuationGuard, ALastPageAtTheLimitsIsNoFailure)
{
    BrowseChain chain;
    ContinuationGuard guard(2, 2);
    EXPECT_TRUE(appendChainPage(&chain, &guard, page("a", 1)));
    EXPECT_FALSE(appendChainPage(&chain, &guard, page("", 5)));
    EXPECT_FALSE(chain.continuationFailed);
}

TEST(ContinuationGuard, ABadPageEndsTheChainWithoutFailure)
{
    BrowseChain chain;
    ContinuationGuard guard;
    EXPECT_TRUE(appendChainPage(&chain, &guard, page("a")));
    EXPECT_FALSE(appendChainPage(&chain, &guard, page("a", 0, UA_STATUSCODE_BADNODEIDUNKNOWN)));
    EXPECT_FALSE(chain.continuationFailed);
}

TEST(ContinuationGuard, TheDefaultBoundsAreFarAboveRealServers)
{
    BrowseChain chain;
    ContinuationGuard guard;
    for (size_t i = 0; i + 1 < chainPageLimit; ++i)
        ASSERT_TRUE(appendChainPage(&chain, &guard, page("p" + std::to_string(i), 0))) << i;
    EXPECT_FALSE(appendChainPage(&chain, &guard, page("last", 0)));
}

} // namespace
