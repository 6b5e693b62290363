#pragma once

#include "client_core/request_size.h"

#include <open62541/client.h>

#include <cstddef>
#include <vector>

// Tells a server that is gone from one that only could not answer a request of several nodes.
// After a connection failure nothing is asked again: smaller requests, or one node at a time,
// would each wait on a server that is not there. After a time-out one small read with a long
// time-out (the drain read) lets a busy server finish first; a server that does not answer that
// either is taken as gone.
class ServerWatch
{
public:
    explicit ServerWatch(UA_Client* client);

    // The pace of every kind of request is looked at when the failed kind has none yet.
    void watchPace(const RequestSize* size) { paces_.push_back(size); }
    // How long the first read took (the read of the limits; three attributes count as one
    // node); 0 when it failed.
    void setFirstReadMs(double ms) { firstReadMs_ = ms; }

    // Whether the request of `nodes` of the kind sized by `size` failed because the server is gone.
    bool gone(const RequestSize& size, size_t nodes, UA_StatusCode status);

private:
    bool answersDrainRead(const RequestSize& size, size_t nodes);

    UA_Client* client_;
    std::vector<const RequestSize*> paces_;
    double firstReadMs_ = 0;
};

// How long the drain read after a time-out of a request of `nodes` waits: at most a number of
// time-outs and never longer than a ceiling; where the server's pace was measured (`msPerNode`
// above 0), twice what this request should have taken, at least one time-out. A server that was
// quick and suddenly misses the time-out is more likely stuck than busy.
UA_UInt32 drainWaitMs(UA_UInt32 timeoutMs, double msPerNode, size_t nodes);
