// A server that advertises a host name the gateway cannot resolve must still be reached at the
// address the gateway was given. This binary watches every name lookup the stack makes: it
// defines getaddrinfo itself, which takes precedence over the C library's for the whole process,
// records each name and answers only loopback addresses, so no lookup ever leaves the machine.

#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "ua/holders.h"
#include "tests/client_core/certificates.h"
#include "tests/client_core/message_capture.h"
#include "tests/client_core/sim_fixture.h"
#include "sim/support/files.h"
#include "sim/support/process_runner.h"

#include <QMutex>
#include <QMutexLocker>
#include <QStringList>
#include <QTemporaryDir>

#include <dlfcn.h>
#include <netdb.h>

#include <gtest/gtest.h>

#include <cstring>

namespace {

QMutex lookupMutex;
QStringList lookedUpNames;

using GetAddrInfo = int (*)(const char*, const char*, const struct addrinfo*, struct addrinfo**);

bool isLoopbackName(const char* node)
{
    return std::strncmp(node, "127.", 4) == 0 || std::strcmp(node, "localhost") == 0;
}

} // namespace

extern "C" int getaddrinfo(const char* node, const char* service, const struct addrinfo* hints,
                           struct addrinfo** result)
{
    if (node) {
        QMutexLocker lock(&lookupMutex);
        lookedUpNames.append(QString::fromUtf8(node));
        if (!isLoopbackName(node))
            return EAI_NONAME;
    }
    static const GetAddrInfo next = reinterpret_cast<GetAddrInfo>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (!next)
        return EAI_FAIL;
    return next(node, service, hints, result);
}

using client_core_test::basic256Sha256Uri;
using client_core_test::MessageCapture;
using client_core_test::presetScenario;
using client_core_test::simPlugin;
using test_support::SimServer;

namespace {

QStringList takeLookups()
{
    QMutexLocker lock(&lookupMutex);
    const QStringList names = lookedUpNames;
    lookedUpNames.clear();
    return names;
}

QJsonObject unresolvableScenario()
{
    QJsonObject scenario = presetScenario(QJsonArray{"alias"});
    scenario.insert("advertised_host", "plc-7.invalid");
    scenario.insert("path", "/plc");
    scenario.insert("endpoints", QJsonArray{QJsonObject{{"mode", "None"}, {"policy", "None"}},
                                            QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}}});
    return scenario;
}

// The discovery URLs of the server as the connected stack knows it: the advertised ones.
QStringList advertisedDiscoveryUrls(const ClientCore& core)
{
    QStringList urls;
    Ua::VariantHolder value;
    if (UA_Client_getConnectionAttributeCopy(core.stackClient(), UA_QUALIFIEDNAME(0, const_cast<char*>("serverDescription")),
                                             value.get())
            != UA_STATUSCODE_GOOD
        || !UA_Variant_hasScalarType(value.get(), &UA_TYPES[UA_TYPES_APPLICATIONDESCRIPTION]))
        return urls;
    const auto* description = static_cast<const UA_ApplicationDescription*>(value->data);
    for (size_t i = 0; i < description->discoveryUrlsSize; ++i) {
        const UA_String& url = description->discoveryUrls[i];
        urls.append(QString::fromUtf8(reinterpret_cast<const char*>(url.data), static_cast<int>(url.length)));
    }
    return urls;
}

void expectOnlyLoopbackLookups(const QStringList& names)
{
    EXPECT_FALSE(names.isEmpty());
    for (const QString& name : names)
        EXPECT_EQ(name, "127.0.0.1") << "the stack looked up " << name.toStdString();
}

} // namespace

TEST(UnresolvableAdvertisedHost, InterposedLookupSeesAndRefusesUnknownNames)
{
    takeLookups();
    struct addrinfo* result = nullptr;
    EXPECT_EQ(getaddrinfo("plc-7.invalid", "4840", nullptr, &result), EAI_NONAME);
    EXPECT_EQ(takeLookups(), QStringList{"plc-7.invalid"});
}

TEST(UnresolvableAdvertisedHost, AnonymousConnectionStaysOnTheGivenAddress)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, unresolvableScenario());
    takeLookups();
    MessageCapture capture;
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    const QStringList lookups = takeLookups();

    ASSERT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    // The stack did take over the advertised URL, yet every connection went to the given address.
    EXPECT_EQ(advertisedDiscoveryUrls(core).join(' ').toStdString(),
              QStringLiteral("opc.tcp://plc-7.invalid:%1/plc").arg(sim.port()).toStdString());
    expectOnlyLoopbackLookups(lookups);
    BrowseItems items;
    EXPECT_TRUE(core.browseNodes(&items, nullptr, {}));
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items.at(0).nodeId, "ns=1;s=Alias.X");
    // The stack's complaint about the differing endpoint URL is noise and stays out of the log.
    EXPECT_TRUE(capture.texts().isEmpty()) << capture.texts().join('\n').toStdString();
}

TEST(UnresolvableAdvertisedHost, EncryptedConnectionStaysOnTheGivenAddress)
{
    QTemporaryDir dir;
    const client_core_test::CertificatePair& pair = client_core_test::testsClientCertificate(false);
    ASSERT_FALSE(pair.key.isEmpty());
    test_support::writeFile(dir.path(), "ovrin_cert.der", pair.certificate);
    test_support::writeFile(dir.path(), "ovrin_key.der", pair.key);

    SimServer sim;
    START_SIM_OR_SKIP(sim, unresolvableScenario());
    takeLookups();
    DeviceInstancePlugin plugin = simPlugin(sim, "3", basic256Sha256Uri);
    ClientCore core(plugin, dir.path() + "/", "tests", 10000);
    const QStringList lookups = takeLookups();

    ASSERT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    // The stack did take over the advertised URL, yet every connection went to the given address.
    EXPECT_EQ(advertisedDiscoveryUrls(core).join(' ').toStdString(),
              QStringLiteral("opc.tcp://plc-7.invalid:%1/plc").arg(sim.port()).toStdString());
    expectOnlyLoopbackLookups(lookups);
    BrowseItems items;
    EXPECT_TRUE(core.browseNodes(&items, nullptr, {}));
    EXPECT_EQ(items.size(), 1);
}

TEST(UnresolvableAdvertisedHost, NodeOpcuaPeerAdvertisingAnUnknownHostIsReachedAtTheGivenAddress)
{
    test_support::NodePeer peer;
    START_PEER_OR_SKIP(peer, (QStringList{"--host", "plc-7.invalid", "--path", "/plc"}));
    takeLookups();
    DeviceInstancePlugin plugin;
    plugin.instanceName = "node-opcua peer";
    plugin.address = peer.endpointUrl();
    plugin.settings["security_mode"] = "1";
    plugin.settings["security_policies"] = client_core_test::noneUri;
    ClientCore core(plugin, QString(), "tests", 10000);
    const QStringList lookups = takeLookups();

    ASSERT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    EXPECT_TRUE(advertisedDiscoveryUrls(core).join(' ').contains("plc-7.invalid"))
        << advertisedDiscoveryUrls(core).join(' ').toStdString();
    expectOnlyLoopbackLookups(lookups);
}
