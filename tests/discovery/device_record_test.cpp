#include "discovery/device_record.h"

#include "discovery/endpoint_selection.h"

#include "tests/discovery/qt_printers.h"

#include <gtest/gtest.h>

#include <QJsonDocument>

using namespace OpcUaDiscovery;

namespace {

const QString kPolicyNone = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None");
const QString kPolicyBasic256Sha256 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");

Candidate at(const QString& host, quint16 port)
{
    Candidate c;
    c.host = host;
    c.port = port;
    c.source = QStringLiteral("tcp");
    return c;
}

QString descriptionOf(const Candidate& c)
{
    return candidateToJson(c).value(QStringLiteral("description")).toString();
}

QString settingOf(const Candidate& c, const char* key)
{
    return candidateToJson(c)
        .value(QStringLiteral("user_defined_fields"))
        .toObject()
        .value(QLatin1String(key))
        .toString();
}

} // namespace

TEST(CandidateToJson, PressExampleByteForByte)
{
    Candidate c = at(QStringLiteral("192.168.1.20"), 4840);
    EndpointOffer offer;
    offer.endpointUrl = QStringLiteral("opc.tcp://10.10.0.2:4840");
    offer.securityMode = 1;
    offer.securityPolicyUri = kPolicyNone;
    offer.anonymous = true;
    ASSERT_TRUE(selectImportEndpoint({offer}, &c));
    DiscoveredServer identity;
    identity.applicationName = QStringLiteral("Press");
    identity.applicationUri = QStringLiteral("urn:press:server");
    identity.applicationType = QStringLiteral("Server");
    applyApplicationIdentity(&c, identity);

    const QByteArray json = QJsonDocument(candidateToJson(c)).toJson(QJsonDocument::Compact);
    EXPECT_EQ(json.toStdString(),
              "{\"address\":\"opc.tcp://192.168.1.20:4840\","
              "\"description\":\"OPC UA server at opc.tcp://192.168.1.20:4840. Application URI urn:press:server. "
              "Server. Imported as None / None; anonymous. Server advertised opc.tcp://10.10.0.2:4840; the scanned IP "
              "was kept so the gateway can reach it. Offered: None / None (anonymous)\","
              "\"external_id\":\"opcua_192_168_1_20_4840\","
              "\"name\":\"Press (192.168.1.20:4840)\","
              "\"uid_hint\":\"opcua_192_168_1_20_4840\","
              "\"user_defined_fields\":{\"certificate\":\"0\",\"key\":\"0\",\"password\":\"\","
              "\"security_mode\":\"1\","
              "\"security_policies\":\"http://opcfoundation.org/UA/SecurityPolicy#None\",\"username\":\"\"}}");
}

TEST(CandidateToJson, BareCandidateByteForByte)
{
    const QByteArray json =
        QJsonDocument(candidateToJson(at(QStringLiteral("10.0.0.5"), 4840))).toJson(QJsonDocument::Compact);
    EXPECT_EQ(json.toStdString(),
              "{\"address\":\"opc.tcp://10.0.0.5:4840\","
              "\"description\":\"OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None\","
              "\"external_id\":\"opcua_10_0_0_5_4840\","
              "\"name\":\"OPC UA (10.0.0.5:4840)\","
              "\"uid_hint\":\"opcua_10_0_0_5_4840\","
              "\"user_defined_fields\":{\"certificate\":\"0\",\"key\":\"0\",\"password\":\"\","
              "\"security_mode\":\"1\","
              "\"security_policies\":\"http://opcfoundation.org/UA/SecurityPolicy#None\",\"username\":\"\"}}");
}

TEST(CandidateToJson, ExactlySixKeysAndSixSettings)
{
    const QJsonObject record = candidateToJson(at(QStringLiteral("10.0.0.5"), 4840));
    EXPECT_EQ(record.keys(), (QStringList{QStringLiteral("address"), QStringLiteral("description"),
                                          QStringLiteral("external_id"), QStringLiteral("name"),
                                          QStringLiteral("uid_hint"), QStringLiteral("user_defined_fields")}));
    const QJsonObject settings = record.value(QStringLiteral("user_defined_fields")).toObject();
    EXPECT_EQ(settings.keys(), (QStringList{QStringLiteral("certificate"), QStringLiteral("key"),
                                            QStringLiteral("password"), QStringLiteral("security_mode"),
                                            QStringLiteral("security_policies"), QStringLiteral("username")}));
    for (const QJsonValue& value : settings)
        EXPECT_TRUE(value.isString());
}

TEST(CandidateToJson, ApplicationNameOpeningTheDisplayNameIsNotRepeated)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationName = QStringLiteral("Press");
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None"));
}

TEST(CandidateToJson, ApplicationNameIsRepeatedWhenTheGatewayNameWins)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationName = QStringLiteral("Press");
    c.applicationUri = QStringLiteral("urn:Line 4.ovrin-connect");
    const QJsonObject record = candidateToJson(c);
    EXPECT_EQ(record.value(QStringLiteral("name")).toString(), QStringLiteral("Line 4 (10.0.0.5:4840)"));
    EXPECT_EQ(record.value(QStringLiteral("description")).toString(),
              QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Press. Application URI urn:Line "
                             "4.ovrin-connect. Imported as None / None"));
}

TEST(CandidateToJson, ApplicationNameComparisonIsCaseSensitive)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationName = QStringLiteral("Press");
    c.applicationUri = QStringLiteral("urn:press.ovrin-connect");
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Press. Application URI "
                                               "urn:press.ovrin-connect. Imported as None / None"));
}

TEST(CandidateToJson, ApplicationNameEqualToTheGatewayNameIsNotRepeated)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationName = QStringLiteral("Line 4");
    c.applicationUri = QStringLiteral("urn:Line 4.ovrin-connect");
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Application URI urn:Line "
                                               "4.ovrin-connect. Imported as None / None"));
}

TEST(CandidateToJson, EveryIdentitySentence)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationUri = QStringLiteral("urn:plant:press");
    c.productUri = QStringLiteral("urn:vendor:PressControl");
    c.applicationType = QStringLiteral("Client and Server");
    c.capabilities = QStringList{QStringLiteral("DA"), QStringLiteral("HD")};
    const QJsonObject record = candidateToJson(c);
    EXPECT_EQ(record.value(QStringLiteral("name")).toString(),
              QStringLiteral("PressControl (Client and Server, 10.0.0.5:4840)"));
    EXPECT_EQ(record.value(QStringLiteral("description")).toString(),
              QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Application URI urn:plant:press. Product "
                             "urn:vendor:PressControl. Client and Server. Capabilities DA, HD. Imported as None / None"));
}

TEST(CandidateToJson, ProductWithoutApplicationUri)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.productUri = QStringLiteral("urn:vendor:PressControl");
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Product "
                                               "urn:vendor:PressControl. Imported as None / None"));
}

TEST(CandidateToJson, UsernameOnlyEndpointGetsTheCredentialsNote)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    EndpointOffer offer;
    offer.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840");
    offer.securityMode = 3;
    offer.securityPolicyUri = kPolicyBasic256Sha256;
    offer.username = true;
    ASSERT_TRUE(selectImportEndpoint({offer}, &c));
    EXPECT_EQ(descriptionOf(c),
              QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as Sign & Encrypt / Basic256Sha256; "
                             "anonymous is not offered, set username and password after import. Offered: Sign & "
                             "Encrypt / Basic256Sha256 (username required)"));
    EXPECT_EQ(settingOf(c, "security_mode"), QStringLiteral("3"));
    EXPECT_EQ(settingOf(c, "security_policies"), kPolicyBasic256Sha256);
}

TEST(CandidateToJson, UsernameFlagWithoutChosenEndpointGetsNoNote)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.usernameOffered = true;
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None"));
}

TEST(CandidateToJson, AnonymousNoteWinsOverUsername)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.securityMode = 2;
    c.securityPolicyUri = kPolicyBasic256Sha256;
    c.anonymousOffered = true;
    c.usernameOffered = true;
    c.endpointSelected = true;
    EXPECT_EQ(descriptionOf(c),
              QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as Sign / Basic256Sha256; anonymous"));
    c.endpointSelected = false;
    EXPECT_EQ(descriptionOf(c),
              QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as Sign / Basic256Sha256; anonymous"));
}

TEST(CandidateToJson, NeitherTokenGivesNoNote)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.securityMode = 1;
    c.endpointSelected = true;
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None"));
}

TEST(CandidateToJson, AdvertisedEqualToAddressIsLeftOut)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840");
    c.advertisedEndpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840");
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None"));
    c.endpointUrl.clear();
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None"));
}

TEST(CandidateToJson, AdvertisedDifferentFromAddressIsExplained)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.advertisedEndpointUrl = QStringLiteral("opc.tcp://plc-7:4840");
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None. Server "
                                               "advertised opc.tcp://plc-7:4840; the scanned IP was kept so the "
                                               "gateway can reach it"));
}

TEST(CandidateToJson, OfferedEndpointsAreJoined)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.offeredEndpoints = QStringList{QStringLiteral("None / None (anonymous)"),
                                     QStringLiteral("Sign / Aes128_Sha256_RsaOaep (username required)")};
    EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None. "
                                               "Offered: None / None (anonymous); Sign / Aes128_Sha256_RsaOaep "
                                               "(username required)"));
}

TEST(CandidateToJson, SecurityModeOutsideOneToThreeIsWrittenAsOne)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    for (int mode : {0, 4, -1}) {
        c.securityMode = mode;
        EXPECT_EQ(settingOf(c, "security_mode"), QStringLiteral("1")) << mode;
        EXPECT_EQ(descriptionOf(c), QStringLiteral("OPC UA server at opc.tcp://10.0.0.5:4840. Imported as None / None"));
    }
    c.securityMode = 2;
    EXPECT_EQ(settingOf(c, "security_mode"), QStringLiteral("2"));
    c.securityMode = 3;
    EXPECT_EQ(settingOf(c, "security_mode"), QStringLiteral("3"));
}

TEST(CandidateToJson, FixedSettings)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.securityPolicyUri = QStringLiteral("urn:custom#Policy");
    EXPECT_EQ(settingOf(c, "username"), QString());
    EXPECT_EQ(settingOf(c, "password"), QString());
    EXPECT_EQ(settingOf(c, "certificate"), QStringLiteral("0"));
    EXPECT_EQ(settingOf(c, "key"), QStringLiteral("0"));
    EXPECT_EQ(settingOf(c, "security_policies"), QStringLiteral("urn:custom#Policy"));
}

TEST(CandidateToJson, PathGoesIntoTheIdentifier)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840/ua/server");
    const QJsonObject record = candidateToJson(c);
    EXPECT_EQ(record.value(QStringLiteral("address")).toString(), QStringLiteral("opc.tcp://10.0.0.5:4840/ua/server"));
    EXPECT_EQ(record.value(QStringLiteral("external_id")).toString(), QStringLiteral("opcua_10_0_0_5_4840_ua_server"));
    EXPECT_EQ(record.value(QStringLiteral("uid_hint")).toString(), QStringLiteral("opcua_10_0_0_5_4840_ua_server"));
    EXPECT_EQ(record.value(QStringLiteral("name")).toString(), QStringLiteral("OPC UA (10.0.0.5:4840/ua/server)"));
}

TEST(CandidateToJson, IdentifierUsesTheScannedHostNotTheEndpointHost)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.endpointUrl = QStringLiteral("opc.tcp://plc-7:4999/UA");
    const QJsonObject record = candidateToJson(c);
    EXPECT_EQ(record.value(QStringLiteral("address")).toString(), QStringLiteral("opc.tcp://plc-7:4999/UA"));
    EXPECT_EQ(record.value(QStringLiteral("external_id")).toString(), QStringLiteral("opcua_10_0_0_5_4840_UA"));
}
