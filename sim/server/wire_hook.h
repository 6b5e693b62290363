#pragma once

#include "sim/server/request_stats.h"
#include "sim/server/scenario.h"

#include <open62541/plugin/eventloop.h>
#include <open62541/server.h>

#include "ua/holders.h"

#include <QByteArray>
#include <QString>

#include <csignal>
#include <map>
#include <memory>

namespace opcua_sim {

struct ConnectionState
{
    QByteArray pending;                 // received bytes of an incomplete chunk
    bool noneChannel = false;           // the channel's security policy is None
    bool inboundContinuation = false;   // the last received chunk was an intermediate one
    bool outboundContinuation = false;  // the last sent chunk was an intermediate one
    QByteArray requestBody;             // bodies of the chunks of a request that is looked at whole
    bool delayRequest = false;          // ... because its operations delay it
    bool faultByNode = false;           // ... because naming the fault node sets off the fault
    bool countOperations = false;       // ... because its operations are counted in the statistics
};

// Sits between the TCP connection manager and the server: it sees every chunk that comes in
// and every chunk that goes out. It counts requests, delays and drops them as the scenario
// says, and on None channels rewrites the few messages whose content the stack cannot be
// configured to produce (advertised URL, FindServers list, empty endpoint list, failing
// AccessLevel read).
struct WireHook
{
    const Scenario* scenario = nullptr;
    UA_Server* server = nullptr;
    RequestStats stats;
    const volatile std::sig_atomic_t* running = nullptr;

    UA_ConnectionManager* manager = nullptr;
    decltype(UA_ConnectionManager::openConnection) originalOpen = nullptr;
    decltype(UA_ConnectionManager::sendWithConnection) originalSend = nullptr;
    void* serverApplication = nullptr;
    UA_ConnectionManager_connectionCallback serverCallback = nullptr;

    std::map<uintptr_t, ConnectionState> connections;
    std::map<quint32, QString> requestNames;  // binary encoding id -> service name
    qint64 delayMatched = 0;
    qint64 dropMatched = 0;
    qint64 faultMatched = 0;
    std::unique_ptr<Ua::NodeIdHolder> faultNode;  // parsed "fault_node", when set
    std::map<QString, qint64> supertypeBrowses;   // data type node -> Browse descriptions asking its supertype
    bool faultFired = false;   // the scenario's fault happened
    bool dead = false;         // after a "close" fault: every connection is closed at its first bytes
};

// Installs the hook on the manager before the server opens its listening socket. One hook
// per process; it must outlive the server.
bool installWireHook(WireHook* hook, UA_ConnectionManager* manager, QString* error);

} // namespace opcua_sim
