#pragma once

#include <open62541/types.h>

#include <QtGlobal>

#include <cstddef>

// How many nodes the next request of one kind of question may carry. Sizes are kept in
// operations, as servers count them: one per node of a Browse, one per ReadValueId of a Read
// (three per variable when a variable's attributes are read).
//
// A request starts small and grows while requests stay well inside the time-out, up to the
// server's published limit and our ceiling. A request the server refused for its size
// (BadTooManyOperations, a time-out, a request or response too large) shrinks the next one,
// and the size it shrank to is remembered: no later request of this kind grows past it.
class RequestSize
{
public:
    explicit RequestSize(size_t operationsPerNode = 1);

    // `publishedLimit`: the server's limit in operations, 0 for none; `ceiling`: ours.
    void start(size_t publishedLimit, size_t ceiling);

    // The nodes the next request may carry; at least one, whatever the limits say.
    size_t nodes() const;

    // A request of `nodes` was answered after `ms`: the next may be larger while it is expected
    // to take at most a share of the time-out.
    void answered(size_t nodes, qint64 ms, int timeoutMs);

    // A request of `nodes` failed with `status` while the server is still there.
    void refused(size_t nodes, UA_StatusCode status);

    // The last measured time per node; 0 before the first answer.
    double msPerNode() const { return msPerNode_; }

    // The largest request, in operations, that no refusal has ruled out yet.
    size_t learnedLimit() const { return learned_; }

private:
    size_t operationsPerNode_;
    size_t limit_;     // the published limit and our ceiling, in operations
    size_t learned_;   // no request grows past this again, in operations
    size_t current_;   // what the next request may carry, in operations
    double msPerNode_ = 0;
};

// Whether a failure of a request of several nodes says the request was too large for the server.
bool isSizeRefusal(UA_StatusCode status);
