#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/certificates.h"
#include "tests/client_core/message_capture.h"
#include "sim/support/files.h"

#include <QTcpServer>
#include <QTemporaryDir>

#include <open62541/client_config_default.h>

#include <gtest/gtest.h>

using client_core_test::CertificatePair;
using client_core_test::MessageCapture;

namespace {

const char* const noneUri = "http://opcfoundation.org/UA/SecurityPolicy#None";
const char* const basic256Sha256Uri = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256";

// A loopback port on which nothing listens, so a connection attempt fails at once.
quint16 closedLoopbackPort()
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost, 0))
        return 0;
    const quint16 port = server.serverPort();
    server.close();
    return port;
}

// An empty address makes the connection attempt fail before any socket is opened.
DeviceInstancePlugin offlinePlugin(const QString& mode, const QString& policy)
{
    DeviceInstancePlugin plugin;
    plugin.instanceName = "Press 4";
    plugin.settings["security_mode"] = mode;
    plugin.settings["security_policies"] = policy;
    return plugin;
}

UA_ClientConfig* configOf(const ClientCore& core)
{
    return UA_Client_getConfig(core.stackClient());
}

UA_UInt32 stackDefaultTimeout()
{
    UA_Client* client = UA_Client_new();
    UA_ClientConfig_setDefault(UA_Client_getConfig(client));
    UA_Client_getConfig(client)->logging->log = nullptr;
    const UA_UInt32 timeout = UA_Client_getConfig(client)->timeout;
    UA_Client_delete(client);
    return timeout;
}

QString uaText(const UA_String& text)
{
    return QString::fromUtf8(reinterpret_cast<const char*>(text.data), static_cast<int>(text.length));
}

bool onlyZeros(const QByteArray& bytes)
{
    for (char byte : bytes) {
        if (byte != 0)
            return false;
    }
    return true;
}

struct WipeRecord
{
    int calls = 0;
    int keySize = -1;
    int certificateSize = -1;
    bool allZero = false;
};
WipeRecord wipeRecord;

void recordWipe(const QByteArray& key, const QByteArray& certificate)
{
    ++wipeRecord.calls;
    wipeRecord.keySize = key.size();
    wipeRecord.certificateSize = certificate.size();
    wipeRecord.allZero = onlyZeros(key) && onlyZeros(certificate);
}

class WipeObserverScope
{
public:
    WipeObserverScope()
    {
        wipeRecord = WipeRecord();
        ClientCore::wipedSecretsObserver = &recordWipe;
    }
    ~WipeObserverScope() { ClientCore::wipedSecretsObserver = nullptr; }
};

QString filesPathOf(const QTemporaryDir& dir)
{
    return dir.path() + "/";
}

// The tests' client certificate and key under the default file names.
const CertificatePair& writeDefaultCertificateFiles(const QTemporaryDir& dir)
{
    const CertificatePair& pair = client_core_test::testsClientCertificate(false);
    test_support::writeFile(dir.path(), "ovrin_cert.der", pair.certificate);
    test_support::writeFile(dir.path(), "ovrin_key.der", pair.key);
    return pair;
}

} // namespace

TEST(ClientConfiguration, NoSecurityAndNoUserReadsNoFile)
{
    QTemporaryDir dir;
    WipeObserverScope observer;
    MessageCapture capture;
    DeviceInstancePlugin plugin = offlinePlugin("1", noneUri);
    ClientCore core(plugin, filesPathOf(dir), "tests", 0);
    EXPECT_EQ(wipeRecord.calls, 0);
    EXPECT_FALSE(capture.anyContains("Could not read"));
    EXPECT_TRUE(capture.texts(QtCriticalMsg).isEmpty());
}

TEST(ClientConfiguration, UnsecuredAndEncryptedClientsAnnounceTheItemMessageLimits)
{
    QTemporaryDir dir;
    writeDefaultCertificateFiles(dir);
    for (const char* policy : {noneUri, basic256Sha256Uri}) {
        DeviceInstancePlugin plugin = offlinePlugin(policy == noneUri ? "1" : "3", policy);
        ClientCore core(plugin, filesPathOf(dir), "tests", 0);
        const UA_ConnectionConfig& connection = configOf(core)->localConnectionConfig;
        EXPECT_EQ(connection.localMaxMessageSize, 32u * 1024 * 1024) << policy;
        EXPECT_EQ(connection.localMaxChunkCount, 4096u) << policy;
    }
}

TEST(ClientConfiguration, UserNameOnUnsecuredChannelReadsCertificateAndKey)
{
    QTemporaryDir dir;
    WipeObserverScope observer;
    MessageCapture capture;
    DeviceInstancePlugin plugin = offlinePlugin("1", noneUri);
    plugin.settings["username"] = "operator";
    plugin.settings["password"] = "secret";
    ClientCore core(plugin, filesPathOf(dir), "tests", 0);
    EXPECT_EQ(wipeRecord.calls, 1);
    const QString certificatePath = filesPathOf(dir) + "ovrin_cert.der";
    const QString keyPath = filesPathOf(dir) + "ovrin_key.der";
    const QStringList warnings = capture.texts(QtWarningMsg);
    EXPECT_TRUE(warnings.contains(QStringLiteral("\"[opc_ua_client] Could not read %1 key\"").arg(certificatePath)));
    EXPECT_TRUE(warnings.contains(QStringLiteral("\"[opc_ua_client] Could not read %1 key\"").arg(keyPath)));
    EXPECT_EQ(capture.texts(QtCriticalMsg),
              (QStringList{"[ opc_ua_client ] Could not read the certificate", "[ opc_ua_client ] Could not read the key"}));
}

TEST(ClientConfiguration, CertificateZeroSelectsTheDefaultFileNames)
{
    QTemporaryDir dir;
    const CertificatePair& pair = writeDefaultCertificateFiles(dir);
    ASSERT_FALSE(pair.key.isEmpty());

    WipeObserverScope observer;
    MessageCapture capture;
    DeviceInstancePlugin plugin = offlinePlugin("3", basic256Sha256Uri);
    plugin.settings["certificate"] = "0";
    plugin.settings["key"] = "0";
    ClientCore core(plugin, filesPathOf(dir), "tests", 0);

    EXPECT_EQ(wipeRecord.calls, 1);
    EXPECT_EQ(wipeRecord.certificateSize, pair.certificate.size());
    EXPECT_EQ(wipeRecord.keySize, pair.key.size());
    EXPECT_TRUE(wipeRecord.allZero);
    EXPECT_FALSE(capture.anyContains("Could not read"));
    EXPECT_GT(configOf(core)->securityPoliciesSize, 1u);
}

TEST(ClientConfiguration, EncryptedConfigurationKeepsTheCoreLoggerEverywhere)
{
    QTemporaryDir dir;
    const CertificatePair& pair = writeDefaultCertificateFiles(dir);
    ASSERT_FALSE(pair.key.isEmpty());

    DeviceInstancePlugin plugin = offlinePlugin("3", basic256Sha256Uri);
    ClientCore core(plugin, filesPathOf(dir), "tests", 0);
    UA_ClientConfig* config = configOf(core);
    ASSERT_NE(config->logging, nullptr);
    EXPECT_EQ(config->logging->log, &ClientCore::loggerMethod);
    EXPECT_EQ(config->logging->clear, nullptr);
    ASSERT_NE(config->eventLoop, nullptr);
    EXPECT_EQ(config->eventLoop->logger, config->logging);
    ASSERT_GT(config->securityPoliciesSize, 1u);
    for (size_t i = 0; i < config->securityPoliciesSize; ++i)
        EXPECT_EQ(config->securityPolicies[i].logger, config->logging);
}

TEST(ClientConfiguration, NamedPemFilesArriveWithTheirTrailingZeroAndAreWiped)
{
    QTemporaryDir dir;
    const CertificatePair& pair = client_core_test::testsClientCertificate(true);
    ASSERT_FALSE(pair.key.isEmpty());
    test_support::writeFile(dir.path(), "client.pem", pair.certificate);
    test_support::writeFile(dir.path(), "client_key.pem", pair.key);

    WipeObserverScope observer;
    MessageCapture capture;
    DeviceInstancePlugin plugin = offlinePlugin("2", basic256Sha256Uri);
    plugin.settings["certificate"] = "client.pem";
    plugin.settings["key"] = "client_key.pem";
    ClientCore core(plugin, filesPathOf(dir), "tests", 0);

    EXPECT_EQ(wipeRecord.certificateSize, pair.certificate.size() + 1);
    EXPECT_EQ(wipeRecord.keySize, pair.key.size() + 1);
    EXPECT_TRUE(wipeRecord.allZero);
    EXPECT_TRUE(capture.texts(QtCriticalMsg).isEmpty()) << capture.texts().join('\n').toStdString();
    EXPECT_GT(configOf(core)->securityPoliciesSize, 1u);
}

TEST(ClientConfiguration, MissingKeyFileDegradesToAnUnencryptedConfiguration)
{
    QTemporaryDir dir;
    const CertificatePair& pair = client_core_test::testsClientCertificate(false);
    ASSERT_FALSE(pair.key.isEmpty());
    test_support::writeFile(dir.path(), "ovrin_cert.der", pair.certificate);

    WipeObserverScope observer;
    MessageCapture capture;
    DeviceInstancePlugin plugin = offlinePlugin("3", basic256Sha256Uri);
    ClientCore core(plugin, filesPathOf(dir), "tests", 0);

    const QString keyPath = filesPathOf(dir) + "ovrin_key.der";
    EXPECT_EQ(capture.count(QStringLiteral("\"[opc_ua_client] Could not read %1 key\"").arg(keyPath)), 1);
    EXPECT_EQ(capture.texts(QtCriticalMsg), QStringList{"[ opc_ua_client ] Could not read the key"});
    EXPECT_EQ(wipeRecord.certificateSize, pair.certificate.size());
    EXPECT_EQ(wipeRecord.keySize, 0);
    EXPECT_TRUE(wipeRecord.allZero);
    ASSERT_EQ(configOf(core)->securityPoliciesSize, 1u);
    EXPECT_EQ(uaText(configOf(core)->securityPolicies[0].policyUri), QString::fromLatin1(noneUri));
}

TEST(ClientConfiguration, TimeoutIsClampedToOneSecondUpToFiveMinutes)
{
    const UA_UInt32 stackDefault = stackDefaultTimeout();
    const struct
    {
        int requested;
        UA_UInt32 expected;
    } cases[] = {{500, 1000}, {1000, 1000}, {2500, 2500}, {300000, 300000}, {300001, 300000},
                 {400000, 300000}, {0, stackDefault}, {-5, stackDefault}};
    for (const auto& c : cases) {
        DeviceInstancePlugin plugin = offlinePlugin("1", noneUri);
        ClientCore core(plugin, QString(), "tests", c.requested);
        EXPECT_EQ(configOf(core)->timeout, c.expected) << "requested " << c.requested;
    }
}

TEST(ClientConfiguration, DescribesTheClientAndItsSecurity)
{
    DeviceInstancePlugin plugin = offlinePlugin("2", basic256Sha256Uri);
    ClientCore core(plugin, QString(), "opc_ua_discovery", 0);
    const UA_ClientConfig* config = configOf(core);
    EXPECT_EQ(uaText(config->clientDescription.applicationUri), "urn:ovrin-connect-client-opc_ua_discovery");
    EXPECT_EQ(uaText(config->clientDescription.productUri), "urn:ovrin-connect-client-opc_ua_discovery");
    EXPECT_EQ(uaText(config->clientDescription.applicationName.locale), "en");
    EXPECT_EQ(uaText(config->clientDescription.applicationName.text), "OVRIN Connect client");
    EXPECT_EQ(config->securityMode, UA_MESSAGESECURITYMODE_SIGN);
    EXPECT_EQ(uaText(config->securityPolicyUri), QString::fromLatin1(basic256Sha256Uri));
}

TEST(ClientConfiguration, NonNumericSecurityModeIsPassedOnAsZero)
{
    DeviceInstancePlugin plugin = offlinePlugin("abc", noneUri);
    ClientCore core(plugin, QString(), "tests", 0);
    EXPECT_EQ(configOf(core)->securityMode, UA_MESSAGESECURITYMODE_INVALID);
}

TEST(ClientConfiguration, StackMessagesGoThroughTheCoreLogger)
{
    DeviceInstancePlugin plugin = offlinePlugin("1", noneUri);
    ClientCore core(plugin, QString(), "tests", 0);
    MessageCapture capture;
    UA_LOG_WARNING(configOf(core)->logging, UA_LOGCATEGORY_USERLAND, "custom %d", 5);
    UA_LOG_INFO(configOf(core)->logging, UA_LOGCATEGORY_USERLAND, "quiet");
    EXPECT_EQ(capture.texts(), QStringList{"<warning> \"[userland] custom 5\""});
}

TEST(ClientConnection, FailedConnectionSetsStatusTextAndWarnsOnce)
{
    MessageCapture capture;
    DeviceInstancePlugin plugin = offlinePlugin("1", noneUri);
    plugin.address = QStringLiteral("127.0.0.1:%1").arg(closedLoopbackPort());
    ClientCore core(plugin, QString(), "tests", 0);
    EXPECT_FALSE(core.isConnected());
    EXPECT_FALSE(plugin.statusText.isEmpty());
    EXPECT_TRUE(plugin.statusText.startsWith("Bad")) << plugin.statusText.toStdString();
    const QString warning = QStringLiteral("<warning> \"Disconnected from Press 4: %1\"").arg(plugin.statusText);
    EXPECT_EQ(capture.count(warning), 1);

    // Within the back-off nothing is attempted and nothing more is written.
    EXPECT_FALSE(core.connectOpcServer(&plugin));
    EXPECT_EQ(capture.count(warning), 1);
    EXPECT_EQ(capture.texts().size(), 1) << capture.texts().join('\n').toStdString();
}

TEST(ClientConnection, AddressLosesItsBlanksInThePluginItself)
{
    DeviceInstancePlugin plugin = offlinePlugin("1", noneUri);
    const QString bare = QStringLiteral("127.0.0.1:%1").arg(closedLoopbackPort());
    plugin.address = "  " + bare.left(4) + " " + bare.mid(4) + "  ";
    ClientCore core(plugin, QString(), "tests", 0);
    EXPECT_EQ(plugin.address, bare);
}

TEST(ClientConnection, MoveTakesTheClientAndLeavesTheSourceEmpty)
{
    DeviceInstancePlugin plugin = offlinePlugin("1", noneUri);
    ClientCore first(plugin, "dir-a/", "tests", 0);
    UA_Client* stackClient = first.stackClient();
    ASSERT_NE(stackClient, nullptr);

    ClientCore second(std::move(first));
    EXPECT_EQ(second.stackClient(), stackClient);
    EXPECT_EQ(first.stackClient(), nullptr);
    EXPECT_FALSE(first.isConnected());
    EXPECT_FALSE(first.disconnectOpcServer());
    EXPECT_FALSE(first.configure(plugin));

    DeviceInstancePlugin other = offlinePlugin("1", noneUri);
    ClientCore third(other, "dir-b/", "tests", 0);
    third = std::move(second);
    EXPECT_EQ(third.stackClient(), stackClient);
    EXPECT_EQ(second.stackClient(), nullptr);

    third = std::move(third);
    EXPECT_EQ(third.stackClient(), stackClient);
}

TEST(ClientConnection, MissingClientMakesBrowseFail)
{
    DeviceInstancePlugin plugin = offlinePlugin("1", noneUri);
    ClientCore first(plugin, QString(), "tests", 0);
    ClientCore second(std::move(first));
    BrowseItems items;
    EXPECT_FALSE(first.browseNodes(&items, nullptr, {}));
    EXPECT_FALSE(second.browseNodes(&items, nullptr, {}));
    EXPECT_FALSE(second.browseNodes(nullptr, nullptr, {}));
}
