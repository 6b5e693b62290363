#include "discovery/candidate.h"

#include <gtest/gtest.h>

using namespace OpcUaDiscovery;

TEST(CandidateDefaults, StartEmpty)
{
    const Candidate c;
    EXPECT_EQ(c.port, 0);
    EXPECT_EQ(c.securityMode, 0);
    EXPECT_FALSE(c.anonymousOffered);
    EXPECT_FALSE(c.usernameOffered);
    EXPECT_FALSE(c.endpointSelected);
    EXPECT_TRUE(c.host.isEmpty());
    EXPECT_TRUE(c.capabilities.isEmpty());
    const EndpointOffer offer;
    EXPECT_EQ(offer.securityMode, 1);
    EXPECT_EQ(offer.securityLevel, 0);
    const OpcTcpUrl url;
    EXPECT_FALSE(url.ok);
    EXPECT_EQ(url.port, 4840);
    EXPECT_FALSE(url.isIpv4);
}

TEST(EndpointFor, KeepsHostAsGiven)
{
    EXPECT_EQ(endpointFor("10.0.0.5", 4840), "opc.tcp://10.0.0.5:4840");
    EXPECT_EQ(endpointFor(" plc ", 1), "opc.tcp:// plc :1");
    EXPECT_EQ(endpointFor("a%2b", 4841), "opc.tcp://a%2b:4841");
}

TEST(ParseOpcTcpUrl, BareIpv4UsesDefaultPort)
{
    const OpcTcpUrl url = parseOpcTcpUrl("opc.tcp://10.0.0.5");
    EXPECT_TRUE(url.ok);
    EXPECT_EQ(url.host, "10.0.0.5");
    EXPECT_EQ(url.port, 4840);
    EXPECT_EQ(url.path, "");
    EXPECT_TRUE(url.isIpv4);
}

TEST(ParseOpcTcpUrl, SchemeInCapitalsAndLoneSlash)
{
    const OpcTcpUrl url = parseOpcTcpUrl("OPC.TCP://host:4841/");
    EXPECT_TRUE(url.ok);
    EXPECT_EQ(url.host, "host");
    EXPECT_EQ(url.port, 4841);
    EXPECT_EQ(url.path, "");
    EXPECT_FALSE(url.isIpv4);
}

TEST(ParseOpcTcpUrl, PathKeepsItsSlash)
{
    const OpcTcpUrl url = parseOpcTcpUrl("  opc.tcp://192.168.1.20:4850/ua/Server  ");
    EXPECT_TRUE(url.ok);
    EXPECT_EQ(url.port, 4850);
    EXPECT_EQ(url.path, "/ua/Server");
}

TEST(ParseOpcTcpUrl, BadPortKeepsDefaultAndStaysOk)
{
    for (const char* text : {"opc.tcp://10.0.0.5:0/x", "opc.tcp://10.0.0.5:abc", "opc.tcp://10.0.0.5:70000",
                             "opc.tcp://10.0.0.5:"}) {
        const OpcTcpUrl url = parseOpcTcpUrl(text);
        EXPECT_TRUE(url.ok) << text;
        EXPECT_EQ(url.port, 4840) << text;
        EXPECT_EQ(url.host, "10.0.0.5") << text;
    }
}

TEST(ParseOpcTcpUrl, RejectsEmptyHostIpv6AndOtherSchemes)
{
    EXPECT_FALSE(parseOpcTcpUrl("opc.tcp://:4840").ok);
    EXPECT_FALSE(parseOpcTcpUrl("opc.tcp://[::1]:4840").ok);
    EXPECT_FALSE(parseOpcTcpUrl("tcp://10.0.0.5:4840").ok);
    EXPECT_FALSE(parseOpcTcpUrl("").ok);
    EXPECT_FALSE(parseOpcTcpUrl("opc.tcp://").ok);
    EXPECT_FALSE(parseOpcTcpUrl("opc.tcp:// :4840").ok);
}

TEST(ParseOpcTcpUrl, FailureReturnsDefaults)
{
    const OpcTcpUrl url = parseOpcTcpUrl("http://10.0.0.5:8080/x");
    EXPECT_FALSE(url.ok);
    EXPECT_EQ(url.host, "");
    EXPECT_EQ(url.port, 4840);
    EXPECT_EQ(url.path, "");
}

TEST(ParseOpcTcpUrl, WhiteSpaceInsideHostIsRemoved)
{
    const OpcTcpUrl url = parseOpcTcpUrl("opc.tcp://plc 7:4841");
    EXPECT_TRUE(url.ok);
    EXPECT_EQ(url.host, "plc7");
}

TEST(UriTail, UrnGivesLastComponent)
{
    EXPECT_EQ(uriTail("urn:plant:line1:Server/"), "Server");
    EXPECT_EQ(uriTail("URN:a:b"), "b");
}

TEST(UriTail, ShortUrnIsKeptWhole)
{
    EXPECT_EQ(uriTail("urn:x"), "urn:x");
    EXPECT_EQ(uriTail("urn:x:"), "urn:x:");
}

TEST(UriTail, PathGivesLastSegment)
{
    EXPECT_EQ(uriTail("app/a/b/"), "b");
    EXPECT_EQ(uriTail("http://vendor.example/products/press"), "press");
    EXPECT_EQ(uriTail("plain"), "plain");
    EXPECT_EQ(uriTail("  ///  "), "");
}

TEST(RewriteEndpointHost, ReplacesHostAndPortKeepsPath)
{
    EXPECT_EQ(rewriteEndpointHost("opc.tcp://192.168.0.7:4840/ua", "10.0.0.5", 48400), "opc.tcp://10.0.0.5:48400/ua");
    EXPECT_EQ(rewriteEndpointHost("OPC.TCP://plc-7.invalid/a/b", "10.0.0.5", 4840), "opc.tcp://10.0.0.5:4840/a/b");
}

TEST(RewriteEndpointHost, PortZeroOrEmptyHostReturnsInputUntouched)
{
    EXPECT_EQ(rewriteEndpointHost(" opc.tcp://a:1/x ", "10.0.0.5", 0), " opc.tcp://a:1/x ");
    EXPECT_EQ(rewriteEndpointHost(" opc.tcp://a:1/x ", "", 4840), " opc.tcp://a:1/x ");
}

TEST(RewriteEndpointHost, EmptyUrlGivesEndpointFor)
{
    EXPECT_EQ(rewriteEndpointHost("", "10.0.0.5", 4841), "opc.tcp://10.0.0.5:4841");
    EXPECT_EQ(rewriteEndpointHost("   ", "10.0.0.5", 4841), "opc.tcp://10.0.0.5:4841");
}

TEST(RewriteEndpointHost, SchemelessTextKeepsItsPath)
{
    EXPECT_EQ(rewriteEndpointHost("plc:4840/ua/server", "10.0.0.5", 4841), "opc.tcp://10.0.0.5:4841/ua/server");
    EXPECT_EQ(rewriteEndpointHost("http://x/y", "10.0.0.5", 4841), "opc.tcp://10.0.0.5:4841//x/y");
}

TEST(UidFor, DotsAndColonsBecomeUnderscores)
{
    EXPECT_EQ(uidFor("192.168.1.10", 4840, ""), "opcua_192_168_1_10_4840");
    EXPECT_EQ(uidFor("192.168.1.10", 4840, "/ua/server"), "opcua_192_168_1_10_4840_ua_server");
}

TEST(UidFor, UpperCaseIsKeptAndNothingIsCut)
{
    EXPECT_EQ(uidFor("10.0.0.5", 4840, "/UA/Press-Line.1"), "opcua_10_0_0_5_4840_UA_PressLine_1");
    const QString longPath = QString("/") + QString(300, 'a');
    EXPECT_EQ(uidFor("h", 1, longPath).size(), QString("opcua_h_1_").size() + 300);
}

TEST(UidFor, CharactersOutsideTheSetAreDropped)
{
    EXPECT_EQ(uidFor("plc-7.ex ample", 4840, "/a b?c=d"), "opcua_plc7_example_4840_abcd");
    EXPECT_EQ(uidFor("pläne", 1, ""), "opcua_plne_1");
}

TEST(UidFor, OnlyOneLeadingSlashIsDropped)
{
    EXPECT_EQ(uidFor("h", 1, "//x"), "opcua_h_1__x");
    EXPECT_EQ(uidFor("h", 1, "/"), "opcua_h_1");
}
