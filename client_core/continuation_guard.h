#pragma once

#include <open62541/types.h>

#include <cstddef>
#include <unordered_set>

// Where a continuation chain ends although the server offers more. A server that answers a
// BrowseNext with the page it gave before, or that never stops paging, would otherwise keep the
// walk on one node for ever, growing its memory with every page.
//
// A repeated continuation point alone proves nothing: servers may keep one point for a whole
// chain (open62541 does). A page that repeats the page before it, point and references, does:
// the server made no progress. So does a point that comes back after the chain had moved on to
// another one: the chain runs in a circle. Both bounds lie far beyond what a real server needs:
// a node with a million children, or ten thousand pages of one node.
const size_t chainPageLimit = 10000;
const size_t chainReferenceLimit = 1000000;

// The status a chain that was ended here reports for its last BrowseNext.
const UA_StatusCode chainEndedStatus = UA_STATUSCODE_BADCONTINUATIONPOINTINVALID;

class ContinuationGuard
{
public:
    explicit ContinuationGuard(size_t pageLimit = chainPageLimit, size_t referenceLimit = chainReferenceLimit);

    // Takes the next page of one chain, the Browse result first (`previous` null), each later
    // one with the page before it. False when the chain must end with this page although it
    // names a continuation point: it repeats the page before it, it names a point the chain left
    // before, or the chain reached a bound.
    bool admit(const UA_BrowseResult& page, const UA_BrowseResult* previous);

private:
    size_t pageLimit_;
    size_t referenceLimit_;
    size_t pages_ = 0;
    size_t references_ = 0;
    // Digests of the points the chain has moved away from; a digest keeps a long point small.
    std::unordered_set<size_t> leftPoints_;
};
