#include "client_core/node_data_source.h"

#include "ua/services.h"
#include "ua/text.h"

#include <QElapsedTimer>
#include <QHash>
#include <QPair>

#include <algorithm>
#include <unordered_map>
#include <vector>

namespace {

// Sensible ceilings whatever the server allows: larger requests gain nothing on a LAN.
const size_t browseCeiling = 1000;
const size_t readCeiling = 3000;          // attributes, three per variable
const size_t firstBatch = 16;             // nodes or variables, before anything was measured
const size_t growth = 4;
// Browse results fetched ahead and not yet asked for hold at most about this many references.
const size_t aheadReferences = 200000;
const size_t aheadNodes = 20000;
const size_t aheadVariables = 20000;
// After a time-out, the drain read waits at most this many time-outs, and never longer than the ceiling.
const UA_UInt32 drainTimeouts = 10;
const UA_UInt32 drainCeilingMs = 600000;

// What the source knows of a node, by its text.
enum NodeFlag : quint8 {
    Known = 1,          // a candidate, fetched or asked for: never a candidate again
    Unfetched = 2,      // a candidate whose Browse result is not fetched yet
    BrowseAlone = 4,    // its Browse goes in a request of its own
    VariableKnown = 8,  // a candidate for the attribute read, read or asked for
    Unread = 16,        // its attributes are not read yet
    ReadAlone = 32,     // its attributes are read in a request of their own
};

// A node to ask about: the text the walk knows it by, the NodeId the request carries, and its
// place among the nodes found ahead (-1: none).
struct Candidate
{
    QString text;
    Ua::NodeIdHolder id;
    int slot = -1;
    int family = -1;        // the Browse answer that found it: siblings share it
    bool variable = false;  // found as a Variable
};

struct NodeState
{
    quint8 flags = 0;     // NodeFlag bits
    int browseSlot = -1;  // place in the Browse candidates
    int readSlot = -1;    // place in the read candidates
};

// Nodes found ahead of the walk, in the order found. A node keeps its place; the place is empty
// while the node is in a request and after it was answered.
class CandidateList
{
public:
    int add(Candidate candidate)
    {
        candidate.slot = int(slots_.size());
        slots_.push_back(std::move(candidate));
        return slots_.back().slot;
    }

    void putBack(Candidate candidate)
    {
        const int slot = candidate.slot;
        slots_[size_t(slot)] = std::move(candidate);
    }

    // The node was answered: its place need not keep it.
    void release(int slot)
    {
        if (slot < 0 || slot >= size())
            return;
        slots_[size_t(slot)].text = QString();
        slots_[size_t(slot)].id = Ua::NodeIdHolder();
    }

    int size() const { return int(slots_.size()); }

    // The family of the node at a place; it stays when the place is emptied.
    int familyAt(int slot) const { return slot >= 0 && slot < size() ? slots_[size_t(slot)].family : -1; }

    // Up to `room` candidates that `wanted` accepts, nearest to `center` first in the walk's
    // direction through siblings (backwards: from the last sibling to the first), then the other
    // way; only a bounded stretch is looked at.
    template <typename Wanted>
    std::vector<Candidate> takeNear(int center, bool backwards, size_t room, const Wanted& wanted)
    {
        std::vector<Candidate> taken;
        const int stretch = int(room) * 8 + 64;
        for (int pass = 0; pass < 2; ++pass) {
            const int step = (pass == 0) == backwards ? -1 : 1;
            for (int i = center + step, looked = 0; i >= 0 && i < size() && looked < stretch && taken.size() < room;
                 i += step, ++looked) {
                Candidate& candidate = slots_[size_t(i)];
                if (candidate.text.isEmpty() || !wanted(candidate))
                    continue;
                taken.push_back(std::move(candidate));
                candidate.text = QString();
                candidate.id = Ua::NodeIdHolder();
            }
        }
        return taken;
    }

private:
    std::vector<Candidate> slots_;
};

size_t referenceCount(const NodeBrowse& browse)
{
    size_t count = 0;
    for (const BrowseChain& chain : browse.chains) {
        for (const Ua::BrowseResultHolder& page : chain.pages)
            count += page->referencesSize;
    }
    return count;
}

// What a request of this kind may carry: the server's limit and our ceiling, shrunk after
// failures and grown while requests stay well inside the time-out.
struct BatchSize
{
    size_t limit = 1;      // server limit and ceiling
    size_t current = 1;    // what the next request may carry
    double msPerNode = 0;  // measured

    void start(size_t serverLimit, size_t ceiling)
    {
        limit = serverLimit > 0 ? std::min(serverLimit, ceiling) : ceiling;
        current = std::min(limit, firstBatch);
    }

    // After a request of `nodes` that took `ms`: the next may be larger while it is expected to
    // take at most a quarter of the time-out.
    void measured(size_t nodes, qint64 ms, int timeoutMs)
    {
        if (nodes == 0)
            return;
        msPerNode = double(ms) / double(nodes);
        size_t next = std::min(limit, std::max(current, nodes) * growth);
        if (msPerNode > 0) {
            const double allowed = (timeoutMs / 4.0) / msPerNode;
            next = std::min(next, size_t(std::max(1.0, allowed)));
        }
        current = std::max<size_t>(1, next);
    }

    void failed(size_t nodes, UA_StatusCode status)
    {
        // A time-out says the request was far too large for this server; anything else, too large.
        const size_t divisor = status == UA_STATUSCODE_BADTIMEOUT ? 4 : 2;
        current = std::max<size_t>(1, std::min(current, nodes / divisor));
    }
};

// One kind of question (Browse results, or variable attributes): the nodes found ahead, how
// large a request may be, and which NodeState bits and place belong to it.
struct Fetching
{
    CandidateList candidates;
    BatchSize size;
    quint8 pending;            // not answered yet
    quint8 alone;              // asked in requests of their own
    int NodeState::*slot;      // its place in `candidates`
    bool backwards;            // the walk meets siblings from the last to the first
};

class BatchedSource : public NodeDataSource
{
public:
    explicit BatchedSource(UA_Client* client)
        : client_(client)
        , timeoutMs_(int(std::max<UA_UInt32>(1, UA_Client_getConfig(client)->timeout)))
    {
        readLimits();
    }

    void queued(const QString& nodeId) override
    {
        if (has(nodeId, Known))
            return;
        bool ok = false;
        Ua::NodeIdHolder id = Ua::nodeIdFromQString(nodeId, &ok);
        if (ok)
            addBrowseCandidate(nodeId, std::move(id));
    }

    NodeBrowse browse(const QString& nodeId, const UA_NodeId& node) override
    {
        auto fetched = fetchedBrowse_.find(nodeId);
        if (fetched == fetchedBrowse_.end()) {
            set(nodeId, Known);
            std::vector<Candidate> batch = startBatch(
                browsing_, nodeId, node, heldReferences_ < aheadReferences && fetchedBrowse_.size() < aheadNodes);
            fetchBrowse(&batch);
            fetched = fetchedBrowse_.find(nodeId);
        }
        NodeBrowse outcome = std::move(fetched->second);
        fetchedBrowse_.erase(fetched);
        heldReferences_ -= std::min(heldReferences_, referenceCount(outcome));
        return outcome;
    }

    VariableAttributes attributes(const QString& nodeId, const UA_NodeId& node) override
    {
        auto fetched = fetchedAttributes_.find(nodeId);
        if (fetched == fetchedAttributes_.end()) {
            set(nodeId, VariableKnown);
            std::vector<Candidate> batch = startBatch(reading_, nodeId, node, fetchedAttributes_.size() < aheadVariables);
            fetchRead(&batch);
            fetched = fetchedAttributes_.find(nodeId);
        }
        VariableAttributes outcome = std::move(fetched->second);
        fetchedAttributes_.erase(fetched);
        return outcome;
    }

    // Each data type is resolved once, also when it resolves to nothing.
    bool resolveDataType(const UA_NodeId& dataType, ResolvedDataType* out) override
    {
        const QString key = Ua::nodeIdToQString(dataType);
        if (key.isEmpty())
            return resolveSupportedDataType(client_, dataType, out);
        auto cached = resolvedTypes_.find(key);
        if (cached == resolvedTypes_.end()) {
            ResolvedDataType type;
            const bool found = resolveSupportedDataType(client_, dataType, &type);
            // A type not found because the server is gone is no answer to keep.
            if (!found && Ua::refusedReconnect(client_) != UA_STATUSCODE_GOOD)
                return false;
            cached = resolvedTypes_.insert(key, qMakePair(found, type));
        }
        if (cached->first)
            *out = cached->second;
        return cached->first;
    }

private:
    // The server's operation limits, read once; 0 or unreadable means no limit.
    void readLimits()
    {
        const UA_UInt32 nodes[3] = {UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERBROWSE,
                                    UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERREAD,
                                    UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXBROWSECONTINUATIONPOINTS};
        size_t limits[3] = {0, 0, 0};
        Ua::ReadRequestHolder request;
        request->nodesToRead = static_cast<UA_ReadValueId*>(UA_Array_new(3, &UA_TYPES[UA_TYPES_READVALUEID]));
        if (request->nodesToRead) {
            request->nodesToReadSize = 3;
            for (size_t i = 0; i < 3; ++i) {
                request->nodesToRead[i].nodeId = UA_NODEID_NUMERIC(0, nodes[i]);
                request->nodesToRead[i].attributeId = UA_ATTRIBUTEID_VALUE;
            }
            QElapsedTimer timer;
            timer.start();
            const Ua::ReadResponseHolder response = Ua::read(client_, *request);
            if (response->responseHeader.serviceResult == UA_STATUSCODE_GOOD)
                firstReadMs_ = std::max(double(timer.nsecsElapsed()) / 1e6, 0.001);
            if (response->responseHeader.serviceResult == UA_STATUSCODE_GOOD && response->resultsSize == 3) {
                for (size_t i = 0; i < 3; ++i) {
                    const UA_DataValue& value = response->results[i];
                    if (value.status != UA_STATUSCODE_GOOD || !value.hasValue || !UA_Variant_isScalar(&value.value))
                        continue;
                    if (value.value.type == &UA_TYPES[UA_TYPES_UINT32])
                        limits[i] = *static_cast<const UA_UInt32*>(value.value.data);
                    else if (value.value.type == &UA_TYPES[UA_TYPES_UINT16])
                        limits[i] = *static_cast<const UA_UInt16*>(value.value.data);
                }
            }
        }
        browsing_.size.start(limits[0], browseCeiling);
        // Three attributes a variable; a limit below three still allows the one-variable read.
        reading_.size.start(limits[1] > 0 ? std::max<size_t>(1, limits[1] / 3) : 0, readCeiling / 3);
        continuationPoints_ = limits[2];
    }

    bool has(const QString& text, quint8 flag) const
    {
        const auto found = nodes_.constFind(text);
        return found != nodes_.constEnd() && (found->flags & flag) != 0;
    }

    void set(const QString& text, quint8 flag) { nodes_[text].flags |= flag; }

    void clear(const QString& text, quint8 flag)
    {
        const auto found = nodes_.find(text);
        if (found != nodes_.end())
            found->flags &= quint8(~flag);
    }

    // A request of several nodes that timed out may still keep the server busy, and the request
    // of one node sent next would wait behind it and time out as well: one small read with a
    // long time-out lets the server finish first. Where earlier requests measured the server's
    // pace, the read waits twice what this request should have taken, at least one time-out:
    // a server that was quick and suddenly misses the time-out is more likely stuck than busy.
    // True when the server answered it.
    bool drainAfterTimeout(const BatchSize& size, size_t nodes)
    {
        const UA_UInt32 timeout = UA_Client_getConfig(client_)->timeout;
        UA_UInt32 drain = std::min<UA_UInt32>(timeout * drainTimeouts, drainCeilingMs);
        // Without a measure of this kind of request, the other kind's tells the server's pace,
        // and before either the read of the limits (three attributes, counted as one node).
        double msPerNode =
            size.msPerNode > 0 ? size.msPerNode : std::max(browsing_.size.msPerNode, reading_.size.msPerNode);
        if (msPerNode <= 0)
            msPerNode = firstReadMs_;
        if (msPerNode > 0)
            drain = std::min(drain,
                             std::max(timeout, UA_UInt32(std::min(2.0 * msPerNode * double(nodes), double(drainCeilingMs)))));
        const Ua::TimeoutScope longer(client_, drain);
        Ua::VariantHolder state;
        return Ua::readValue(client_, UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERSTATUS_STATE), &state)
            == UA_STATUSCODE_GOOD;
    }

    // Whether a request of several nodes failed because the server is gone: the connection
    // failed, or the request timed out and the server does not answer the drain read either.
    // Then nothing is asked again: smaller requests, or one node at a time, would each wait on a
    // server that is not there.
    bool serverGone(const BatchSize& size, size_t nodes, UA_StatusCode status)
    {
        if (isConnectionFailure(status))
            return true;
        return status == UA_STATUSCODE_BADTIMEOUT && !drainAfterTimeout(size, nodes);
    }

    void addBrowseCandidate(const QString& text, Ua::NodeIdHolder id, int family = -1, bool variable = false)
    {
        NodeState& state = nodes_[text];
        state.flags |= Known | Unfetched;
        state.browseSlot = browsing_.candidates.add(Candidate{text, std::move(id), -1, family, variable});
    }

    // Children the walk will queue once it handles this answer: local targets it can name, of
    // the classes it browses. Variables among them will be asked for their attributes.
    void discoverAhead(const NodeBrowse& outcome)
    {
        const int family = families_++;
        for (const BrowseChain& chain : outcome.chains) {
            for (const Ua::BrowseResultHolder& page : chain.pages) {
                for (size_t i = 0; i < page->referencesSize; ++i) {
                    const UA_ReferenceDescription& reference = page->references[i];
                    if (reference.nodeId.serverIndex != 0 || reference.nodeId.namespaceUri.length != 0)
                        continue;
                    if (reference.nodeClass != UA_NODECLASS_OBJECT && reference.nodeClass != UA_NODECLASS_VARIABLE
                        && reference.nodeClass != UA_NODECLASS_VIEW)
                        continue;
                    const QString child = Ua::nodeIdToQString(reference.nodeId.nodeId);
                    if (child.isEmpty())
                        continue;
                    if (!has(child, Known)) {
                        // The walk browses the node its text names, so the request carries that.
                        bool ok = false;
                        Ua::NodeIdHolder id = Ua::nodeIdFromQString(child, &ok);
                        if (ok)
                            addBrowseCandidate(child, std::move(id), family,
                                               reference.nodeClass == UA_NODECLASS_VARIABLE);
                    }
                    if (reference.nodeClass == UA_NODECLASS_VARIABLE && !has(child, VariableKnown)) {
                        Ua::NodeIdHolder id;
                        if (UA_NodeId_copy(&reference.nodeId.nodeId, id.get()) != UA_STATUSCODE_GOOD)
                            continue;
                        NodeState& state = nodes_[child];
                        state.flags |= VariableKnown | Unread;
                        state.readSlot = reading_.candidates.add(Candidate{child, std::move(id), -1, family, true});
                    }
                }
            }
        }
    }

    void keepBrowse(const QString& text, NodeBrowse outcome)
    {
        clear(text, Unfetched);
        browsing_.candidates.release(nodes_.value(text).browseSlot);
        discoverAhead(outcome);
        heldReferences_ += referenceCount(outcome);
        fetchedBrowse_[text] = std::move(outcome);
    }

    // The asked node first, then its siblings, which a depth-first walk asks for next, then nodes
    // near its place in the order the walk will ask for them. Once what was fetched ahead and not
    // asked for yet is large, only sibling Variables join: they hold few references, and without
    // them a folder of thousands of variables would be browsed one variable per request.
    std::vector<Candidate> startBatch(Fetching& kind, const QString& asked, const UA_NodeId& node, bool roomAhead)
    {
        NodeState& state = nodes_[asked];
        // Fetched now, whatever happens to the others: never a candidate of its own batch.
        kind.candidates.release(state.*kind.slot);
        const bool alone = state.flags & kind.alone;
        const int place = state.*kind.slot >= 0 ? state.*kind.slot : kind.candidates.size();
        std::vector<Candidate> batch;
        Candidate first{asked, Ua::NodeIdHolder(), -1};
        UA_NodeId_copy(&node, first.id.get());
        batch.push_back(std::move(first));
        if (alone)
            return batch;
        const auto wanted = [this, &kind](const Candidate& candidate) {
            const auto found = nodes_.constFind(candidate.text);
            return found != nodes_.constEnd() && (found->flags & kind.pending) && !(found->flags & kind.alone);
        };
        const int family = kind.candidates.familyAt(state.*kind.slot);
        if (family >= 0) {
            const auto sibling = [&](const Candidate& candidate) {
                return candidate.family == family && (roomAhead || candidate.variable) && wanted(candidate);
            };
            for (Candidate& candidate : kind.candidates.takeNear(place, kind.backwards, kind.size.current - 1, sibling))
                batch.push_back(std::move(candidate));
        }
        if (!roomAhead)
            return batch;
        for (Candidate& candidate : kind.candidates.takeNear(place, kind.backwards, kind.size.current - batch.size(), wanted))
            batch.push_back(std::move(candidate));
        return batch;
    }

    // A request of several nodes failed while the server is still there: after a time-out only
    // the asked node is asked again; anything else may be the size, and half of the batch is asked again.
    void shrinkAfterFailure(Fetching& kind, std::vector<Candidate>* batch, UA_StatusCode status)
    {
        kind.size.failed(batch->size(), status);
        giveBack(kind, batch, status == UA_STATUSCODE_BADTIMEOUT ? 1 : std::max<size_t>(1, batch->size() / 2));
    }

    // A node whose answer in a batch may be the batch's doing is asked later in a request of its own.
    void askAlone(Fetching& kind, Candidate candidate)
    {
        set(candidate.text, kind.alone);
        giveBack(kind, std::move(candidate));
    }

    // The batch keeps its first `keep` nodes; the others become candidates again.
    void giveBack(Fetching& kind, std::vector<Candidate>* batch, size_t keep)
    {
        for (size_t i = keep; i < batch->size(); ++i)
            giveBack(kind, std::move((*batch)[i]));
        batch->resize(keep);
    }

    void giveBack(Fetching& kind, Candidate candidate)
    {
        if (candidate.slot >= 0)
            kind.candidates.putBack(std::move(candidate));
        else
            nodes_[candidate.text].*kind.slot = kind.candidates.add(std::move(candidate));
    }

    // Browses the nodes (the asked one first) and keeps every answer that counts as the node's
    // own. A failure of a request of several nodes is never an answer: the nodes are asked again
    // in smaller requests, the asked one down to a request of its own.
    void fetchBrowse(std::vector<Candidate>* nodes)
    {
        const QString asked = nodes->front().text;
        if (nodes->size() == 1) {
            keepBrowse(asked, browseNodeAlone(client_, *nodes->front().id));
            return;
        }
        Ua::BrowseRequestHolder request;
        request->requestedMaxReferencesPerNode = 0;
        request->nodesToBrowse =
            static_cast<UA_BrowseDescription*>(UA_Array_new(nodes->size(), &UA_TYPES[UA_TYPES_BROWSEDESCRIPTION]));
        bool described = request->nodesToBrowse != nullptr;
        if (described) {
            request->nodesToBrowseSize = nodes->size();
            for (size_t i = 0; i < nodes->size() && described; ++i)
                described = describeWalkBrowse(*(*nodes)[i].id, &request->nodesToBrowse[i]);
        }
        if (!described) {
            giveBack(browsing_, nodes, 1);
            fetchBrowse(nodes);
            return;
        }
        QElapsedTimer timer;
        timer.start();
        Ua::BrowseResponseHolder response = Ua::browse(client_, *request);
        const UA_StatusCode status = response->responseHeader.serviceResult;
        if (status != UA_STATUSCODE_GOOD || response->resultsSize != nodes->size()) {
            if (serverGone(browsing_.size, nodes->size(), status)) {
                // The failure is the asked node's answer, as it would be of a request of its own.
                giveBack(browsing_, nodes, 1);
                NodeBrowse failed;
                failed.status = status;
                keepBrowse(asked, std::move(failed));
                return;
            }
            shrinkAfterFailure(browsing_, nodes, status);
            fetchBrowse(nodes);
            return;
        }
        browsing_.size.measured(nodes->size(), timer.elapsed(), timeoutMs_);

        std::vector<BrowseChain> chains(nodes->size());
        std::vector<ContinuationGuard> guards(nodes->size());
        std::vector<bool> answered(nodes->size(), true);
        for (size_t i = 0; i < nodes->size(); ++i) {
            // A bad result may be the batch's doing (no continuation point left, say): the
            // node is asked alone.
            if (UA_StatusCode_isBad(response->results[i].statusCode)) {
                answered[i] = false;
                continue;
            }
            appendChainPage(&chains[i], &guards[i], Ua::BrowseResultHolder(std::move(response->results[i])));
        }
        continueChains(&chains, &guards, &answered);

        bool askedAgain = false;
        for (size_t i = 0; i < nodes->size(); ++i) {
            Candidate& candidate = (*nodes)[i];
            if (answered[i]) {
                NodeBrowse outcome;
                outcome.status = status;
                outcome.chains.push_back(std::move(chains[i]));
                keepBrowse(candidate.text, std::move(outcome));
            } else if (i == 0) {
                askedAgain = true;
            } else {
                askAlone(browsing_, std::move(candidate));
            }
        }
        if (askedAgain)
            keepBrowse(asked, browseNodeAlone(client_, *nodes->front().id));
    }

    // Follows every open chain with BrowseNext requests of many continuation points. A chain whose
    // continuation fails in such a request is not answered: its node is asked alone.
    void continueChains(std::vector<BrowseChain>* chains, std::vector<ContinuationGuard>* guards,
                        std::vector<bool>* answered)
    {
        for (;;) {
            std::vector<size_t> open;
            for (size_t i = 0; i < chains->size(); ++i) {
                if ((*answered)[i] && !(*chains)[i].pages.empty()
                    && (*chains)[i].pages.back()->continuationPoint.length > 0
                    && !UA_StatusCode_isBad((*chains)[i].pages.back()->statusCode) && !(*chains)[i].continuationFailed)
                    open.push_back(i);
            }
            if (open.empty())
                return;
            const size_t perRequest = continuationPoints_ > 0 ? std::min(continuationPoints_, open.size()) : open.size();
            for (size_t begin = 0; begin < open.size(); begin += perRequest) {
                const size_t end = std::min(open.size(), begin + perRequest);
                continueSome(chains, guards, answered,
                             std::vector<size_t>(open.begin() + long(begin), open.begin() + long(end)));
            }
        }
    }

    void continueSome(std::vector<BrowseChain>* chains, std::vector<ContinuationGuard>* guards,
                      std::vector<bool>* answered, const std::vector<size_t>& which)
    {
        if (which.size() == 1) {
            // One continuation point: the BrowseNext a request of its own would send.
            continueChainAlone(client_, &(*chains)[which.front()], &(*guards)[which.front()]);
            return;
        }
        Ua::BrowseNextRequestHolder request;
        request->releaseContinuationPoints = false;
        request->continuationPoints =
            static_cast<UA_ByteString*>(UA_Array_new(which.size(), &UA_TYPES[UA_TYPES_BYTESTRING]));
        bool copied = request->continuationPoints != nullptr;
        if (copied) {
            request->continuationPointsSize = which.size();
            for (size_t k = 0; k < which.size() && copied; ++k)
                copied = UA_ByteString_copy(&(*chains)[which[k]].pages.back()->continuationPoint,
                                            &request->continuationPoints[k])
                    == UA_STATUSCODE_GOOD;
        }
        if (!copied) {
            for (size_t index : which)
                (*answered)[index] = false;
            return;
        }
        Ua::BrowseNextResponseHolder response = Ua::browseNext(client_, *request);
        const UA_StatusCode status = response->responseHeader.serviceResult;
        if (status != UA_STATUSCODE_GOOD || response->resultsSize != which.size()) {
            if (serverGone(browsing_.size, which.size(), status)) {
                // The asked node's chain (the first) ends with the failure, as its own BrowseNext
                // would have; the other nodes were not answered.
                for (size_t index : which) {
                    if (index == 0) {
                        (*chains)[0].continuationFailed = true;
                        (*chains)[0].continuationStatus = status;
                    } else {
                        (*answered)[index] = false;
                    }
                }
                return;
            }
            // The server may still hold the points: release them, so that the nodes asked alone
            // find the points they need.
            request->releaseContinuationPoints = true;
            Ua::browseNext(client_, *request);
            for (size_t index : which)
                (*answered)[index] = false;
            return;
        }
        for (size_t k = 0; k < which.size(); ++k) {
            if (UA_StatusCode_isBad(response->results[k].statusCode)) {
                (*answered)[which[k]] = false;
                continue;
            }
            appendChainPage(&(*chains)[which[k]], &(*guards)[which[k]],
                            Ua::BrowseResultHolder(std::move(response->results[k])));
        }
    }

    void keepAttributes(const QString& text, VariableAttributes attributes)
    {
        clear(text, Unread);
        reading_.candidates.release(nodes_.value(text).readSlot);
        fetchedAttributes_[text] = std::move(attributes);
    }

    void fetchRead(std::vector<Candidate>* variables)
    {
        const QString asked = variables->front().text;
        if (variables->size() == 1) {
            keepAttributes(asked, readAttributesAlone(client_, *variables->front().id));
            return;
        }
        const size_t count = variables->size() * 3;
        Ua::ReadRequestHolder request;
        request->nodesToRead = static_cast<UA_ReadValueId*>(UA_Array_new(count, &UA_TYPES[UA_TYPES_READVALUEID]));
        bool described = request->nodesToRead != nullptr;
        if (described) {
            request->nodesToReadSize = count;
            for (size_t i = 0; i < count && described; ++i) {
                request->nodesToRead[i].attributeId = variableAttributeIds[i % 3];
                described = UA_NodeId_copy((*variables)[i / 3].id.get(), &request->nodesToRead[i].nodeId)
                    == UA_STATUSCODE_GOOD;
            }
        }
        if (!described) {
            giveBack(reading_, variables, 1);
            fetchRead(variables);
            return;
        }
        QElapsedTimer timer;
        timer.start();
        const Ua::ReadResponseHolder response = Ua::read(client_, *request);
        const UA_StatusCode status = response->responseHeader.serviceResult;
        if (status != UA_STATUSCODE_GOOD || response->resultsSize != count) {
            if (serverGone(reading_.size, variables->size(), status)) {
                // The failure is the asked variable's answer, as it would be of a read of its own.
                giveBack(reading_, variables, 1);
                VariableAttributes failed;
                failed.dataTypeStatus = status;
                failed.accessLevelStatus = status;
                keepAttributes(asked, std::move(failed));
                return;
            }
            shrinkAfterFailure(reading_, variables, status);
            fetchRead(variables);
            return;
        }
        reading_.size.measured(variables->size(), timer.elapsed(), timeoutMs_);
        bool askedAgain = false;
        for (size_t v = 0; v < variables->size(); ++v) {
            const UA_DataValue* results = response->results + 3 * v;
            const bool clean = results[0].status == UA_STATUSCODE_GOOD && results[1].status == UA_STATUSCODE_GOOD
                && results[2].status == UA_STATUSCODE_GOOD;
            Candidate& candidate = (*variables)[v];
            if (clean) {
                keepAttributes(candidate.text, attributesFromResults(results));
            } else if (v == 0) {
                askedAgain = true;
            } else {
                askAlone(reading_, std::move(candidate));
            }
        }
        if (askedAgain)
            keepAttributes(asked, readAttributesAlone(client_, *variables->front().id));
    }

    UA_Client* client_;
    int timeoutMs_;
    Fetching browsing_{{}, {}, Unfetched, BrowseAlone, &NodeState::browseSlot, true};
    Fetching reading_{{}, {}, Unread, ReadAlone, &NodeState::readSlot, false};
    size_t continuationPoints_ = 0;
    double firstReadMs_ = 0;   // how long the read of the limits took; 0 when it failed

    QHash<QString, NodeState> nodes_;
    std::unordered_map<QString, NodeBrowse> fetchedBrowse_;
    size_t heldReferences_ = 0;
    int families_ = 0;
    std::unordered_map<QString, VariableAttributes> fetchedAttributes_;
    QHash<QString, QPair<bool, ResolvedDataType>> resolvedTypes_;
};

} // namespace

std::unique_ptr<NodeDataSource> newBatchedSource(UA_Client* client)
{
    return std::make_unique<BatchedSource>(client);
}
