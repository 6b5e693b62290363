#pragma once

#include "client_core/opc_ua_client_core.h"
#include "sim/support/node_peer.h"
#include "sim/support/sim_server.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

namespace client_core_test {

extern const char* const noneUri;
extern const char* const basic256Sha256Uri;

// Whether the simulator was built; the reason when not.
bool simAvailable(QString* why);

// A device instance for the simulator's loopback endpoint.
DeviceInstancePlugin simPlugin(const test_support::SimServer& sim, const QString& mode = QStringLiteral("1"),
                               const QString& policy = QString::fromLatin1(noneUri));

// A scenario whose Objects folder holds only the given presets.
QJsonObject presetScenario(const QJsonArray& presets);

// A stats counter of the simulator, after the counters stopped changing.
int settledStat(const test_support::SimServer& sim, const QString& key);

} // namespace client_core_test

// Skips outside CI when the simulator was not built (fails in CI); a simulator that does not
// start on the scenario always fails.
#define START_SIM_OR_SKIP(sim, scenario)                                                                   \
    do {                                                                                                   \
        QString simWhy;                                                                                    \
        if (!client_core_test::simAvailable(&simWhy)) {                                                    \
            if (test_support::runningInCi())                                                               \
                FAIL() << "opcua_sim is needed: " << simWhy.toStdString();                                 \
            GTEST_SKIP() << "opcua_sim is not available: " << simWhy.toStdString();                        \
        }                                                                                                  \
        ASSERT_TRUE((sim).start((scenario), &simWhy)) << simWhy.toStdString();                             \
    } while (false)

// Skips outside CI and fails in CI when the node-opcua peer cannot be started.
#define START_PEER_OR_SKIP(peer, args)                                                                     \
    do {                                                                                                   \
        QString peerWhy;                                                                                   \
        if (!test_support::NodePeer::available(&peerWhy) || !(peer).start((args), &peerWhy)) {             \
            if (test_support::runningInCi())                                                               \
                FAIL() << "the node-opcua peer is needed: " << peerWhy.toStdString();                      \
            GTEST_SKIP() << "the node-opcua peer is not available: " << peerWhy.toStdString();             \
        }                                                                                                  \
    } while (false)
