#pragma once

#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "sim/support/process_runner.h"
#include "sim/support/sim_server.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace items_test {

extern const char kSecurityPolicyNone[];

// A device on an unsecured endpoint without user name: the job reads no certificate file.
QJsonObject noneDevice(const QString& address);

// The "opcua_<device>_<sha-1 of the identifier>" hint, computed here independently of the job.
QString uidHint(const QString& devicePart, const QString& identifier);

// The complete item record that the job reports for one variable.
QJsonObject itemRecord(const QString& devicePart, const QString& identifier, const QString& name,
                       const QString& description, const QString& dataType, const QString& readWrite);

// The record for an item, made here from its texts.
QJsonObject expectedRecord(const QString& devicePart, const ClientCore::BrowseItem& item);

// One variable as a walk holds it: at the path "Plant.<identifier>", a scalar Double.
BrowseItems::Item addItem(BrowseItems* items, const QString& identifier, bool readable = true, bool writable = false);

QJsonObject itemById(const QJsonArray& items, const QString& identifier);
QStringList identifiers(const QJsonArray& items);
QString lastLine(const QByteArray& text);
QJsonObject parseObject(const QByteArray& json, bool* ok);

// A copy of the discover executable in a directory of its own, so that its "files/"
// directory (client certificate and key) belongs to one test.
struct PrivateDiscover
{
    QTemporaryDir dir;
    QString executable;
    QString filesDir;   // the "files/" directory next to the copy, when made
    bool make(bool withFilesDir, QString* error);
};

class ItemsJob : public ::testing::Test
{
protected:
    // Starts the simulator with the scenario; fails the test when it cannot start.
    void startSim(const QJsonObject& scenario);
    QString requestFile(const QJsonObject& request);
    test_support::ProcessResult run(const QJsonObject& request, const QStringList& extraArguments = {},
                                    const QMap<QString, QString>& env = {}, int timeoutMs = 60000);
    // Expects status 0 and an indented document as the only content of standard output.
    QJsonObject runOk(const QJsonObject& request, const QMap<QString, QString>& env = {});
    QString path(const QString& name) const { return dir_.filePath(name); }

    QString program_;   // empty: the built discover
    QTemporaryDir dir_;
    // Without a statistics file (see SimServer::Stats): item runs browse a lot.
    test_support::SimServer sim_{test_support::SimServer::Stats::None};
};

} // namespace items_test
