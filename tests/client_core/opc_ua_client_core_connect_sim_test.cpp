#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/certificates.h"
#include "tests/client_core/message_capture.h"
#include "tests/client_core/sim_fixture.h"
#include "sim/support/files.h"
#include "sim/support/process_runner.h"

#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

using client_core_test::basic256Sha256Uri;
using client_core_test::CertificatePair;
using client_core_test::MessageCapture;
using client_core_test::noneUri;
using client_core_test::presetScenario;
using client_core_test::settledStat;
using client_core_test::simPlugin;
using test_support::SimServer;

namespace {

const char* const userName = "operator";
const char* const rightPassword = "Pw-7d1f%2q";
const char* const wrongPassword = "Wrong-9x%1k";

QJsonObject securedScenario()
{
    QJsonArray endpoints{QJsonObject{{"mode", "None"}, {"policy", "None"}},
                         QJsonObject{{"mode", "Sign"}, {"policy", "Basic256Sha256"}},
                         QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}}};
    QJsonArray users{QJsonObject{{"name", userName}, {"password", rightPassword}}};
    QJsonObject scenario = presetScenario(QJsonArray{"alias"});
    scenario.insert("endpoints", endpoints);
    scenario.insert("users", users);
    return scenario;
}

// Writes the tests' client certificate and key into dir under the given names.
bool placeKeyFiles(const QTemporaryDir& dir, bool pem, const QString& certificateName, const QString& keyName)
{
    const CertificatePair& pair = client_core_test::testsClientCertificate(pem);
    if (pair.key.isEmpty())
        return false;
    test_support::writeFile(dir.path(), certificateName, pair.certificate);
    test_support::writeFile(dir.path(), keyName, pair.key);
    return true;
}

QString filesPathOf(const QTemporaryDir& dir)
{
    return dir.path() + "/";
}

bool browsesAlias(ClientCore& core)
{
    BrowseItems items;
    return core.browseNodes(&items, nullptr, {}) && items.size() == 1 && items.at(0).nodeId == "ns=1;s=Alias.X";
}

// Connects with the client certificate and key under the given names, in security mode
// ("2" Sign, "3" SignAndEncrypt) with Basic256Sha256, and browses.
void expectSecuredConnection(bool pem, const QString& certificateName, const QString& keyName, const char* mode)
{
    QTemporaryDir dir;
    ASSERT_TRUE(placeKeyFiles(dir, pem, certificateName, keyName));
    SimServer sim;
    START_SIM_OR_SKIP(sim, securedScenario());
    DeviceInstancePlugin plugin = simPlugin(sim, mode, basic256Sha256Uri);
    plugin.settings["certificate"] = certificateName;
    plugin.settings["key"] = keyName;
    ClientCore core(plugin, filesPathOf(dir), "tests", 10000);
    EXPECT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    EXPECT_TRUE(browsesAlias(core));
}

} // namespace

TEST(ClientCoreConnect, AnonymousWithoutSecurityConnects)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"alias"}));
    MessageCapture capture;
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    EXPECT_TRUE(core.isConnected());
    EXPECT_TRUE(plugin.statusText.isEmpty());
    EXPECT_TRUE(browsesAlias(core));
    // A clean connection writes nothing: the stack's info lines and its usual noise are dropped.
    EXPECT_TRUE(capture.texts().isEmpty()) << capture.texts().join('\n').toStdString();
}

TEST(ClientCoreConnect, AddressWithBlanksAndNoSchemeConnectsToTheSameServer)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"alias"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    plugin.address = QStringLiteral("  127.0.0. 1:%1 ").arg(sim.port());
    ClientCore core(plugin, QString(), "tests", 5000);
    EXPECT_TRUE(core.isConnected());
    EXPECT_EQ(plugin.address, QStringLiteral("127.0.0.1:%1").arg(sim.port()));
    EXPECT_TRUE(browsesAlias(core));
}

TEST(ClientCoreConnect, UserNameAndPasswordOnEncryptedChannel)
{
    QTemporaryDir dir;
    ASSERT_TRUE(placeKeyFiles(dir, false, "ovrin_cert.der", "ovrin_key.der"));
    SimServer sim;
    START_SIM_OR_SKIP(sim, securedScenario());
    DeviceInstancePlugin plugin = simPlugin(sim, "3", basic256Sha256Uri);
    plugin.settings["username"] = userName;
    plugin.settings["password"] = rightPassword;
    ClientCore core(plugin, filesPathOf(dir), "tests", 10000);
    EXPECT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    EXPECT_TRUE(browsesAlias(core));
}

TEST(ClientCoreConnect, UserNameOnUnsecuredChannelTravelsEncryptedWithTheCertificate)
{
    QTemporaryDir dir;
    ASSERT_TRUE(placeKeyFiles(dir, false, "ovrin_cert.der", "ovrin_key.der"));
    SimServer sim;
    START_SIM_OR_SKIP(sim, securedScenario());
    DeviceInstancePlugin plugin = simPlugin(sim, "1", noneUri);
    plugin.settings["username"] = userName;
    plugin.settings["password"] = rightPassword;
    ClientCore core(plugin, filesPathOf(dir), "tests", 10000);
    EXPECT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    EXPECT_TRUE(browsesAlias(core));
}

TEST(ClientCoreConnect, WrongPasswordSetsStatusTextWarnsOnceAndNeverShowsThePassword)
{
    QTemporaryDir dir;
    ASSERT_TRUE(placeKeyFiles(dir, false, "ovrin_cert.der", "ovrin_key.der"));
    SimServer sim;
    START_SIM_OR_SKIP(sim, securedScenario());
    MessageCapture capture;
    DeviceInstancePlugin plugin = simPlugin(sim, "3", basic256Sha256Uri);
    plugin.settings["username"] = userName;
    plugin.settings["password"] = wrongPassword;
    ClientCore core(plugin, filesPathOf(dir), "tests", 10000);

    EXPECT_FALSE(core.isConnected());
    ASSERT_FALSE(plugin.statusText.isEmpty());
    EXPECT_TRUE(plugin.statusText.startsWith("Bad")) << plugin.statusText.toStdString();
    const QString warning = QStringLiteral("<warning> \"Disconnected from Simulated PLC: %1\"").arg(plugin.statusText);
    EXPECT_EQ(capture.count(warning), 1) << capture.texts().join('\n').toStdString();

    EXPECT_FALSE(plugin.statusText.contains(wrongPassword));
    for (const QString& text : capture.texts())
        EXPECT_FALSE(text.contains(wrongPassword)) << text.toStdString();
}

TEST(ClientCoreConnect, TwoAttemptsOneSecondApartAfterAFailureMakeOneAttemptAndOneWarning)
{
    QTemporaryDir dir;
    ASSERT_TRUE(placeKeyFiles(dir, false, "ovrin_cert.der", "ovrin_key.der"));
    SimServer sim;
    START_SIM_OR_SKIP(sim, securedScenario());
    MessageCapture capture;
    // A Sign channel, so that the simulator can count the session requests.
    DeviceInstancePlugin plugin = simPlugin(sim, "2", basic256Sha256Uri);
    plugin.settings["username"] = userName;
    plugin.settings["password"] = wrongPassword;
    ClientCore core(plugin, filesPathOf(dir), "tests", 10000);
    ASSERT_FALSE(core.isConnected());
    const int activations = settledStat(sim, "ActivateSession");
    const int hellos = settledStat(sim, "Hello");
    EXPECT_GE(activations, 1);

    QThread::msleep(1000);
    EXPECT_FALSE(core.connectOpcServer(&plugin));
    EXPECT_EQ(settledStat(sim, "ActivateSession"), activations);
    EXPECT_EQ(settledStat(sim, "Hello"), hellos);
    const QString warning = QStringLiteral("<warning> \"Disconnected from Simulated PLC: %1\"").arg(plugin.statusText);
    EXPECT_EQ(capture.count(warning), 1);
}

TEST(ClientCoreConnect, SignAndEncryptWithDerCertificate)
{
    expectSecuredConnection(false, "client_cert.der", "client_key.der", "3");
}

TEST(ClientCoreConnect, SignWithDerCertificate)
{
    expectSecuredConnection(false, "client_cert.der", "client_key.der", "2");
}

TEST(ClientCoreConnect, SignAndEncryptWithPemCertificate)
{
    expectSecuredConnection(true, "client_cert.pem", "client_key.pem", "3");
}

TEST(ClientCoreConnect, CertificateZeroUsesTheDefaultFilesUnderTheFilesPath)
{
    QTemporaryDir dir;
    ASSERT_TRUE(placeKeyFiles(dir, false, "ovrin_cert.der", "ovrin_key.der"));
    SimServer sim;
    START_SIM_OR_SKIP(sim, securedScenario());
    MessageCapture capture;
    DeviceInstancePlugin plugin = simPlugin(sim, "3", basic256Sha256Uri);
    plugin.settings["certificate"] = "0";
    plugin.settings["key"] = "0";
    ClientCore core(plugin, filesPathOf(dir), "tests", 10000);
    EXPECT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    EXPECT_FALSE(capture.anyContains("Could not read"));
}

TEST(ClientCoreConnect, MissingKeyLeavesAnUnencryptedClientThatCannotOpenTheSecuredChannel)
{
    QTemporaryDir dir;
    const CertificatePair& pair = client_core_test::testsClientCertificate(false);
    ASSERT_FALSE(pair.key.isEmpty());
    test_support::writeFile(dir.path(), "ovrin_cert.der", pair.certificate);
    SimServer sim;
    START_SIM_OR_SKIP(sim, securedScenario());
    MessageCapture capture;
    DeviceInstancePlugin plugin = simPlugin(sim, "3", basic256Sha256Uri);
    ClientCore core(plugin, filesPathOf(dir), "tests", 5000);
    EXPECT_FALSE(core.isConnected());
    EXPECT_EQ(capture.count(QStringLiteral("\"[opc_ua_client] Could not read %1ovrin_key.der key\"").arg(filesPathOf(dir))), 1);
    EXPECT_EQ(capture.count("[ opc_ua_client ] Could not read the key"), 1);
    EXPECT_FALSE(plugin.statusText.isEmpty());
}
