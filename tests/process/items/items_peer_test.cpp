// discover_items against an independent OPC UA server (node-opcua), through the built
// discover process.
#include "tests/client_core/certificates.h"
#include "tests/support/items_fixture.h"
#include "sim/support/files.h"
#include "sim/support/node_peer.h"

#include <QFile>

using items_test::ItemsJob;
using items_test::itemById;
using items_test::itemRecord;
using items_test::noneDevice;
using test_support::NodePeer;
using test_support::ProcessResult;

namespace {

class ItemsPeer : public ItemsJob
{
protected:
    void startPeer(const QStringList& args)
    {
        QString why;
        if (!NodePeer::available(&why)) {
            if (test_support::runningInCi())
                FAIL() << "node-opcua peer missing: " << why.toStdString();
            GTEST_SKIP() << "node-opcua peer missing: " << why.toStdString();
        }
        QString error;
        ASSERT_TRUE(peer_.start(args, &error)) << error.toStdString();
    }

    NodePeer peer_;
};

} // namespace

TEST_F(ItemsPeer, PlantVariablesBecomeCompleteRecords)
{
    startPeer({});
    if (IsSkipped())
        return;
    QJsonObject device = noneDevice(peer_.endpointUrl());
    device.insert("id", 21);
    const QJsonObject document = runOk(QJsonObject{{"device", device}, {"job_id", 5}});
    const QJsonArray items = document.value("items").toArray();

    const auto expect = [&](const char* id, const char* name, const char* type, const char* readWrite) {
        EXPECT_EQ(itemById(items, id),
                  itemRecord("21", id, name, QStringLiteral("OPC UA Variable (%1)").arg(type), type, readWrite))
            << id;
    };
    expect("ns=1;s=Plant.Line1.Press.Running", "Plant.Line1.Press.Running", "Boolean", "readwrite");
    expect("ns=1;s=Plant.Line1.Press.CycleCount", "Plant.Line1.Press.CycleCount", "Int32", "readwrite");
    expect("ns=1;s=Plant.Line1.Press.Temperature", "Plant.Line1.Press.Temperature", "Double", "readwrite");
    expect("ns=1;s=Plant.Line1.Press.Recipe", "Plant.Line1.Press.Recipe", "String", "readwrite");
    expect("ns=1;s=Plant.Line1.Press.LastCycle", "Plant.Line1.Press.LastCycle", "DateTime", "readwrite");
    // The peer declares no value rank for its array, so it counts as a scalar.
    expect("ns=1;s=Plant.Line1.Press.Pressures", "Plant.Line1.Press.Pressures", "Double", "readwrite");
    expect("ns=1;s=Plant.Line1.Press.SerialNumber", "Plant.Line1.Press.SerialNumber", "String", "read");
    expect("ns=1;s=Plant.Line1.Press.Setpoint", "Plant.Line1.Press.Setpoint", "Double", "write");
    expect("ns=1;s=Plant.Line1.Conveyor.Speed", "Plant.Line1.Conveyor.Speed", "Double", "readwrite");
    expect("ns=1;s=Plant.Line1.Conveyor.Enabled", "Plant.Line1.Conveyor.Enabled", "Boolean", "readwrite");
    expect("ns=1;s=Plant.Utilities.Compressor.Pressure", "Plant.Utilities.Compressor.Pressure", "Double", "readwrite");
    expect("ns=1;s=Plant.Utilities.Compressor.Hours", "Plant.Utilities.Compressor.Hours", "Int32", "readwrite");

    const QStringList ids = items_test::identifiers(items);
    QStringList distinct = ids;
    EXPECT_EQ(distinct.removeDuplicates(), 0);
    for (int i = 1; i < ids.size(); ++i)
        EXPECT_LE(ids.at(i - 1).compare(ids.at(i), Qt::CaseInsensitive), 0) << ids.at(i).toStdString();
    QStringList warnings;
    for (const QJsonValue& warning : document.value("warnings").toArray())
        warnings.append(warning.toString());
    distinct = warnings;
    EXPECT_EQ(distinct.removeDuplicates(), 0);
    for (int i = 1; i < warnings.size(); ++i)
        EXPECT_LT(warnings.at(i - 1).compare(warnings.at(i), Qt::CaseInsensitive), 0);
    EXPECT_EQ(document.value("requested_device").toObject(), device);
    EXPECT_EQ(document.value("job_id"), QJsonValue(5));
}

TEST_F(ItemsPeer, WrongPasswordIsAnAuthenticationFailure)
{
    startPeer({"--users", "operator:secret", "--security", "Basic256Sha256:SignAndEncrypt"});
    if (IsSkipped())
        return;
    // An encrypted channel, for which the client needs its certificate.
    items_test::PrivateDiscover discover;
    QString error;
    ASSERT_TRUE(discover.make(true, &error)) << error.toStdString();
    client_core_test::CertificatePair pair;
    ASSERT_TRUE(client_core_test::createClientCertificate("urn:ovrin-connect-client-opc_ua_discovery", false, &pair));
    test_support::writeFile(discover.filesDir, "ovrin_cert.der", pair.certificate);
    test_support::writeFile(discover.filesDir, "ovrin_key.der", pair.key);
    program_ = discover.executable;

    QJsonObject device{{"address", peer_.endpointUrl()},
                       {"security_mode", "3"},
                       {"security_policies", "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256"},
                       {"username", "operator"},
                       {"password", "wrong"}};
    const ProcessResult result = run(QJsonObject{{"device", device}}, {"--output", path("result.json")});
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(items_test::lastLine(result.err).toStdString(),
              "OPC UA authentication failed (BadUserAccessDenied). Check username and password, or whether anonymous "
              "is allowed.")
        << result.err.constData();
    EXPECT_TRUE(result.out.isEmpty());
    EXPECT_FALSE(QFile::exists(path("result.json")));

    device.insert("password", "secret");
    const QJsonObject document = runOk(QJsonObject{{"device", device}});
    EXPECT_FALSE(itemById(document.value("items").toArray(), "ns=1;s=Plant.Line1.Press.Running").isEmpty());
}

TEST_F(ItemsPeer, PasswordOnAnUnsecuredEndpointIsRejectedAsAnEndpointProblem)
{
    // The peer takes passwords only encrypted, which the unsecured endpoint cannot do here.
    startPeer({"--users", "operator:secret"});
    if (IsSkipped())
        return;
    QJsonObject device = noneDevice(peer_.endpointUrl());
    device.insert("username", "operator");
    device.insert("password", "secret");
    const ProcessResult result = run(QJsonObject{{"device", device}});
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(items_test::lastLine(result.err).toStdString(),
              "OPC UA rejected the security endpoint (BadIdentityTokenRejected); this instance uses Security Mode None "
              "and Policy None. Edit Security Mode and Security Policy on the instance to a combination the server "
              "offers, then scan again.")
        << result.err.constData();
    EXPECT_TRUE(result.out.isEmpty());
}

// A server whose continuation chain never ends: the walk ends that chain, reports it, and
// goes on with the rest of the address space.
class ItemsEndlessPeer : public ItemsPeer, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(ItemsEndlessPeer, EndlessContinuationEndsTheChainAndTheJobSucceeds)
{
    startPeer({"--endless-continuation", GetParam()});
    if (IsSkipped())
        return;
    const QString snapshot = path("snapshot.json");
    // Ten thousand pages take seconds; the wait leaves room for a busy machine.
    const ProcessResult result = run(QJsonObject{{"device", noneDevice(peer_.endpointUrl())}, {"timeout_ms", 10000}},
                                     {}, {{"OVRIN_DISCOVERY_OUTPUT_FILE", snapshot}}, 200000);
    ASSERT_TRUE(result.finished) << "did not end";
    ASSERT_EQ(result.exitCode, 0) << result.err.constData();
    bool parsed = false;
    const QJsonObject document = items_test::parseObject(result.out, &parsed);
    ASSERT_TRUE(parsed) << result.out.constData();
    const QJsonArray items = document.value("items").toArray();
    QStringList warnings;
    for (const QJsonValue& warning : document.value("warnings").toArray())
        warnings.append(warning.toString());
    EXPECT_TRUE(warnings.contains("BrowseNext failed for ns=1;s=Plant.Endless: BadContinuationPointInvalid"))
        << warnings.join('\n').toStdString();
    int endless = 0;
    for (const QString& id : items_test::identifiers(items))
        endless += id.startsWith("ns=1;s=Plant.Endless.V") ? 1 : 0;
    const QByteArray mode(GetParam());
    EXPECT_EQ(endless, mode == "repeat" ? 2 : mode == "cycle" ? 3 : 10000);
    // The rest of the address space is still there.
    EXPECT_FALSE(itemById(items, "ns=1;s=Plant.Utilities.Compressor.Hours").isEmpty());
    EXPECT_FALSE(itemById(items, "ns=1;s=Plant.Line1.Press.Running").isEmpty());
    // Ten thousand items are many snapshots; the last one is a whole document.
    if (QByteArray(GetParam()) == "grow") {
        bool ok = false;
        QFile file(snapshot);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_TRUE(items_test::parseObject(file.readAll(), &ok).value("success").toBool());
        EXPECT_TRUE(ok);
    }
}

INSTANTIATE_TEST_SUITE_P(SameOrCirclingContinuationPointsAndOneNewVariableAPage, ItemsEndlessPeer,
                         ::testing::Values("repeat", "grow", "cycle"));
