#include "tests/sim/sim_client.h"
#include "sim/support/sim_server.h"

#include <open62541/client_highlevel.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using sim_test::newClient;
using sim_test::toQString;
using test_support::SimServer;

namespace {

QJsonObject json(const char* text)
{
    return QJsonDocument::fromJson(text).object();
}

const char* const policyBase = "http://opcfoundation.org/UA/SecurityPolicy#";

struct Endpoints
{
    UA_StatusCode status = UA_STATUSCODE_BADINTERNALERROR;
    Ua::Array<UA_EndpointDescription, UA_TYPES_ENDPOINTDESCRIPTION> list;
};

Endpoints getEndpoints(const SimServer& server)
{
    Endpoints out;
    Ua::Client client = newClient();
    out.status = UA_Client_getEndpoints(client.get(), server.endpointUrl().toUtf8().constData(), out.list.size(),
                                        out.list.data());
    return out;
}

struct Applications
{
    UA_StatusCode status = UA_STATUSCODE_BADINTERNALERROR;
    Ua::Array<UA_ApplicationDescription, UA_TYPES_APPLICATIONDESCRIPTION> list;
};

Applications findServers(const SimServer& server)
{
    Applications out;
    Ua::Client client = newClient();
    out.status = UA_Client_findServers(client.get(), server.endpointUrl().toUtf8().constData(), 0, nullptr, 0, nullptr,
                                       out.list.size(), out.list.data());
    return out;
}

QStringList urls(const UA_ApplicationDescription& app)
{
    QStringList out;
    for (size_t i = 0; i < app.discoveryUrlsSize; ++i)
        out << toQString(app.discoveryUrls[i]);
    return out;
}

} // namespace

TEST(SimIdentity, GetEndpointsReportsIdentityAndAdvertisedUrl)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"advertised_host": "plc-7.invalid", "path": "/plc",
        "application": {"name": "PLC 7", "uri": "urn:plc7", "product_uri": "urn:plc7:product",
                        "type": "ClientAndServer"}})"),
                             &error))
        << error.toStdString();
    const Endpoints endpoints = getEndpoints(server);
    ASSERT_EQ(endpoints.status, UA_STATUSCODE_GOOD);
    ASSERT_EQ(endpoints.list.count(), 1u);
    const UA_EndpointDescription& endpoint = endpoints.list[0];
    const QString advertised = QStringLiteral("opc.tcp://plc-7.invalid:%1/plc").arg(server.port());
    EXPECT_EQ(toQString(endpoint.endpointUrl), advertised);
    EXPECT_EQ(endpoint.securityMode, UA_MESSAGESECURITYMODE_NONE);
    EXPECT_EQ(toQString(endpoint.securityPolicyUri), QString(policyBase) + "None");
    EXPECT_EQ(toQString(endpoint.server.applicationName.text), "PLC 7");
    EXPECT_EQ(toQString(endpoint.server.applicationUri), "urn:plc7");
    EXPECT_EQ(toQString(endpoint.server.productUri), "urn:plc7:product");
    EXPECT_EQ(endpoint.server.applicationType, UA_APPLICATIONTYPE_CLIENTANDSERVER);
    EXPECT_EQ(urls(endpoint.server), QStringList{advertised});
    ASSERT_EQ(endpoint.userIdentityTokensSize, 1u);
    EXPECT_EQ(endpoint.userIdentityTokens[0].tokenType, UA_USERTOKENTYPE_ANONYMOUS);
}

TEST(SimIdentity, FindServersListsSelfAndExtraApplications)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"application": {"name": "Discovery", "type": "DiscoveryServer"},
        "find_servers": {"extra": [
          {"name": "Line 2", "uri": "urn:line2", "product_uri": "urn:p2", "type": "Server",
           "discovery_urls": ["opc.tcp://10.0.0.7:4841/line2", "opc.tcp://line2.invalid:4840"]},
          {"name": "HMI", "uri": "urn:hmi", "type": "Client", "discovery_urls": ["opc.tcp://10.0.0.8:4840"]},
          {"name": "Web", "uri": "urn:web", "discovery_urls": ["http://10.0.0.9/ua", "OPC.TCP://10.0.0.10:4840"]}]}})"),
                             &error))
        << error.toStdString();
    const Applications apps = findServers(server);
    ASSERT_EQ(apps.status, UA_STATUSCODE_GOOD);
    ASSERT_EQ(apps.list.count(), 4u);
    EXPECT_EQ(toQString(apps.list[0].applicationName.text), "Discovery");
    EXPECT_EQ(apps.list[0].applicationType, UA_APPLICATIONTYPE_DISCOVERYSERVER);
    EXPECT_EQ(urls(apps.list[0]), QStringList{server.endpointUrl()});
    EXPECT_EQ(toQString(apps.list[1].applicationUri), "urn:line2");
    EXPECT_EQ(toQString(apps.list[1].productUri), "urn:p2");
    EXPECT_EQ(urls(apps.list[1]), (QStringList{"opc.tcp://10.0.0.7:4841/line2", "opc.tcp://line2.invalid:4840"}));
    EXPECT_EQ(apps.list[2].applicationType, UA_APPLICATIONTYPE_CLIENT);
    EXPECT_EQ(urls(apps.list[3]), (QStringList{"http://10.0.0.9/ua", "OPC.TCP://10.0.0.10:4840"}));
}

TEST(SimIdentity, FindServersWithoutSelfListsOnlyExtras)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"find_servers": {"self": false, "extra": [
        {"name": "Other", "uri": "urn:other", "discovery_urls": ["opc.tcp://10.0.0.7:4840"]}]}})"),
                             &error))
        << error.toStdString();
    const Applications apps = findServers(server);
    ASSERT_EQ(apps.status, UA_STATUSCODE_GOOD);
    ASSERT_EQ(apps.list.count(), 1u);
    EXPECT_EQ(toQString(apps.list[0].applicationUri), "urn:other");
}

TEST(SimIdentity, FindServersOnNetworkIsUnsupported)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(QJsonObject(), &error)) << error.toStdString();
    Ua::Client client = newClient();
    Ua::Array<UA_ServerOnNetwork, UA_TYPES_SERVERONNETWORK> records;
    const UA_StatusCode status = UA_Client_findServersOnNetwork(
        client.get(), server.endpointUrl().toUtf8().constData(), 0, 0, 0, nullptr, records.size(), records.data());
    EXPECT_EQ(status, UA_STATUSCODE_BADSERVICEUNSUPPORTED);
}

TEST(SimIdentity, EveryConfiguredEndpointIsListedInOrder)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"endpoints": [
        {"mode": "SignAndEncrypt", "policy": "Basic256Sha256", "security_level": 12},
        {"mode": "Sign", "policy": "Basic128Rsa15"},
        {"mode": "SignAndEncrypt", "policy": "Basic256"},
        {"mode": "SignAndEncrypt", "policy": "Aes128_Sha256_RsaOaep"},
        {"mode": "None", "policy": "None", "security_level": 0}],
        "anonymous": false, "users": [{"name": "operator", "password": "secret"}]})"),
                             &error))
        << error.toStdString();
    const Endpoints endpoints = getEndpoints(server);
    ASSERT_EQ(endpoints.status, UA_STATUSCODE_GOOD);
    ASSERT_EQ(endpoints.list.count(), 5u);
    const std::vector<std::pair<UA_MessageSecurityMode, QString>> expected = {
        {UA_MESSAGESECURITYMODE_SIGNANDENCRYPT, "Basic256Sha256"},
        {UA_MESSAGESECURITYMODE_SIGN, "Basic128Rsa15"},
        {UA_MESSAGESECURITYMODE_SIGNANDENCRYPT, "Basic256"},
        {UA_MESSAGESECURITYMODE_SIGNANDENCRYPT, "Aes128_Sha256_RsaOaep"},
        {UA_MESSAGESECURITYMODE_NONE, "None"}};
    for (size_t i = 0; i < expected.size(); ++i) {
        const UA_EndpointDescription& endpoint = endpoints.list[i];
        EXPECT_EQ(endpoint.securityMode, expected[i].first) << i;
        EXPECT_EQ(toQString(endpoint.securityPolicyUri), QString(policyBase) + expected[i].second) << i;
        EXPECT_GT(endpoint.serverCertificate.length, 0u) << i;
        bool anonymous = false;
        bool userName = false;
        for (size_t t = 0; t < endpoint.userIdentityTokensSize; ++t) {
            anonymous |= endpoint.userIdentityTokens[t].tokenType == UA_USERTOKENTYPE_ANONYMOUS;
            userName |= endpoint.userIdentityTokens[t].tokenType == UA_USERTOKENTYPE_USERNAME;
        }
        EXPECT_FALSE(anonymous) << i;
        EXPECT_TRUE(userName) << i;
    }
    EXPECT_EQ(endpoints.list[0].securityLevel, 12);
    EXPECT_EQ(endpoints.list[4].securityLevel, 0);
}

TEST(SimIdentity, EmptyEndpointListAnswersWithNoEndpoints)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"endpoints": []})"), &error)) << error.toStdString();
    size_t count = 99;
    EXPECT_EQ(sim_test::rawGetEndpoints(server.endpointUrl(), &count), UA_STATUSCODE_GOOD);
    EXPECT_EQ(count, 0u);
    // open62541's own client treats the empty answer as a failure.
    EXPECT_NE(getEndpoints(server).status, UA_STATUSCODE_GOOD);
}

TEST(SimIdentity, UserNameLoginAcceptsOnlyConfiguredPassword)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"anonymous": false, "users": [{"name": "operator", "password": "secret"}]})"),
                             &error))
        << error.toStdString();
    const QByteArray url = server.endpointUrl().toUtf8();
    const QString none = QString(policyBase) + "None";
    {
        Ua::Client client = sim_test::newSecureClient(UA_MESSAGESECURITYMODE_NONE, none.toUtf8().constData());
        EXPECT_EQ(UA_Client_connectUsername(client.get(), url.constData(), "operator", "secret"), UA_STATUSCODE_GOOD);
    }
    {
        Ua::Client client = sim_test::newSecureClient(UA_MESSAGESECURITYMODE_NONE, none.toUtf8().constData());
        EXPECT_NE(UA_Client_connectUsername(client.get(), url.constData(), "operator", "wrong"), UA_STATUSCODE_GOOD);
    }
    {
        Ua::Client client = newClient();
        EXPECT_NE(UA_Client_connect(client.get(), url.constData()), UA_STATUSCODE_GOOD);
    }
}

TEST(SimIdentity, SignAndEncryptBasic256Sha256SessionReadsValues)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"endpoints": [{"mode": "SignAndEncrypt", "policy": "Basic256Sha256"}],
                                      "address_space": {"presets": ["types"]}})"),
                             &error))
        << error.toStdString();
    const QString policy = QString(policyBase) + "Basic256Sha256";
    Ua::Client client =
        sim_test::newSecureClient(UA_MESSAGESECURITYMODE_SIGNANDENCRYPT, policy.toUtf8().constData());
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    Ua::VariantHolder value;
    ASSERT_EQ(UA_Client_readValueAttribute(client.get(), sim_test::simNode("Types.Int32"), value.get()),
              UA_STATUSCODE_GOOD);
    ASSERT_TRUE(UA_Variant_hasScalarType(value.get(), &UA_TYPES[UA_TYPES_INT32]));
    EXPECT_EQ(*static_cast<UA_Int32*>(value->data), -123456);
    // Encrypted requests cannot be told apart on the wire.
    EXPECT_GT(server.stats().value("Encrypted").toInt(), 0);
}

TEST(SimIdentity, BadScenarioKeyFailsTheStart)
{
    SimServer server;
    QString error;
    EXPECT_FALSE(server.start(json(R"({"endpoint": []})"), &error));
    EXPECT_FALSE(server.running());
}
