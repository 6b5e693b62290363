#include "sim/support/plant_fixture.h"
#include "sim/support/process_runner.h"
#include "tests/support/require_plant.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using test_support::describe;
using test_support::Plant;
using test_support::ProcessResult;

namespace {

QStringList lines(const ProcessResult& r)
{
    return QString::fromUtf8(r.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool writeFile(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text) == text.size();
}

ProcessResult probe(const Plant& plant, const QString& question, const QString& url)
{
    return plant.execOnGateway(QStringLiteral(PLANT_PROBE), {question, url}, 60000);
}

ProcessResult httpGet(const Plant& plant, const QString& host, int port)
{
    const QString script = QStringLiteral(
        "import socket,sys\n"
        "s=socket.create_connection((sys.argv[1],int(sys.argv[2])),5)\n"
        "s.sendall(b'GET / HTTP/1.1\\r\\nHost: x\\r\\nConnection: close\\r\\n\\r\\n')\n"
        "print(s.recv(4096).split(b'\\r\\n')[0].decode())\n");
    return plant.execOnGateway(QStringLiteral("python3"), {"-c", script, host, QString::number(port)});
}

// Checks of the demo plant, each run from its gateway.
void expectGatewayHasEth0OnThePlantSubnet(const Plant& plant)
{
    const ProcessResult r = plant.execOnGateway("ip", {"-o", "-4", "addr", "show", "dev", "eth0"});
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    EXPECT_TRUE(r.out.contains("inet 10.77.0.1/24")) << describe(r);
}

void expectPressLineOffersNoneWithAnonymousAccess(const Plant& plant)
{
    const ProcessResult r = probe(plant, "endpoints", "opc.tcp://10.77.0.11:4840");
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    EXPECT_EQ(lines(r), QStringList({"opc.tcp://10.77.0.11:4840\t1\thttp://opcfoundation.org/UA/SecurityPolicy#None\t0\t"
                                     "Press Line 1"}));
}

void expectDiscoveryServerListsThePressLineByAddressAndByName(const Plant& plant)
{
    const ProcessResult r = probe(plant, "findservers", "opc.tcp://10.77.0.12:4840");
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    const QStringList found = lines(r);
    EXPECT_TRUE(found.contains("Plant Discovery Server\t3\topc.tcp://10.77.0.12:4840")) << describe(r);
    EXPECT_TRUE(found.contains("Press Line 1\t0\topc.tcp://10.77.0.11:4840")) << describe(r);
    EXPECT_TRUE(found.contains("Press Line 1\t0\topc.tcp://press-line-1:4840")) << describe(r);
    const ProcessResult name = plant.execOnGateway("getent", {"hosts", "press-line-1"});
    EXPECT_TRUE(name.out.startsWith("10.77.0.11")) << describe(name);
}

void expectSecuredServerOffersOnlySignAndEncryptWithUserName(const Plant& plant)
{
    // A None-only open62541 client refuses a server without a None endpoint before it reads
    // the endpoints, so node-opcua's client asks here.
    const ProcessResult r = plant.execOnGateway(
        "node", {test_support::sourceDir() + "/sim/node/probe.js", "endpoints", "opc.tcp://10.77.0.13:4840"}, 60000);
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    const QStringList found = lines(r);
    ASSERT_EQ(found.size(), 1) << describe(r);
    const QStringList fields = found.first().split('\t');
    ASSERT_EQ(fields.size(), 5);
    EXPECT_EQ(fields[0], "opc.tcp://10.77.0.13:4840");
    EXPECT_EQ(fields[1], "3");
    EXPECT_EQ(fields[2], "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");
    const QStringList tokens = fields[3].split(',');
    EXPECT_TRUE(tokens.contains("1")) << describe(r);
    EXPECT_FALSE(tokens.contains("0")) << describe(r);
    EXPECT_EQ(fields[4], "Secured PLC");
}

void expectPlcNineAdvertisesAnUnresolvableHostName(const Plant& plant)
{
    const ProcessResult r = probe(plant, "endpoints", "opc.tcp://10.77.0.14:4840/plc");
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    ASSERT_FALSE(lines(r).isEmpty());
    EXPECT_TRUE(lines(r).first().startsWith("opc.tcp://plc-9.invalid:4840/plc\t1\t")) << describe(r);
    const ProcessResult name = plant.execOnGateway("getent", {"hosts", "plc-9.invalid"});
    EXPECT_NE(name.exitCode, 0) << describe(name);
}

void expectNodeOpcuaCellAnswersGetEndpoints(const Plant& plant)
{
    const ProcessResult r = probe(plant, "endpoints", "opc.tcp://10.77.0.15:4840");
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    const QStringList found = lines(r);
    ASSERT_EQ(found.size(), 3) << describe(r);
    for (const QString& line : found)
        EXPECT_TRUE(line.startsWith("opc.tcp://10.77.0.15:4840\t") && line.endsWith("\tPackaging Cell")) << describe(r);
}

void expectCellDiscoveryServerReturnsRecordsOnTheNetwork(const Plant& plant)
{
    const ProcessResult r = probe(plant, "fson", "opc.tcp://10.77.0.16:4840");
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    const QStringList found = lines(r);
    EXPECT_TRUE(found.contains("urn:demo:packaging-cell\topc.tcp://10.77.0.15:4840/\tDA")) << describe(r);
    EXPECT_TRUE(found.contains("Press Line 1\topc.tcp://10.77.0.11:4840\tDA")) << describe(r);
}

void expectWebServerOn4843AnswersHttp(const Plant& plant)
{
    const ProcessResult r = httpGet(plant, "10.77.0.20", 4843);
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    EXPECT_EQ(r.out.trimmed(), "HTTP/1.1 200 OK");
}

// discover itself on the gateway: every OPC UA host becomes a device, the web server does not.
void expectDiscoverDevicesFindsEveryOpcUaHost(const Plant& plant)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    ASSERT_TRUE(writeFile(dir.filePath("request.json"), R"({"mode": "discover_devices", "timeout_ms": 60000})"));
    const ProcessResult r = plant.execOnGateway(test_support::discoverExecutable(),
                                                {"--mode", "discover_devices", "--request", dir.filePath("request.json"),
                                                 "--output", dir.filePath("result.json")},
                                                120000);
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    QFile file(dir.filePath("result.json"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject result = QJsonDocument::fromJson(file.readAll()).object();
    QStringList addresses;
    for (const QJsonValue& device : result.value("devices").toArray())
        addresses << device.toObject().value("address").toString();
    for (const char* expected : {"opc.tcp://10.77.0.11:4840", "opc.tcp://10.77.0.12:4840", "opc.tcp://10.77.0.13:4840",
                                 "opc.tcp://10.77.0.14:4840/plc", "opc.tcp://10.77.0.15:4840",
                                 "opc.tcp://10.77.0.16:4840"})
        EXPECT_TRUE(addresses.contains(expected)) << expected << " not in " << addresses.join(' ').toStdString();
    for (const QString& address : addresses)
        EXPECT_FALSE(address.contains("10.77.0.20")) << "the web server is no OPC UA server: " << address.toStdString();
}

// One test for all hosts: the demo plant takes a while to come up (node-opcua hosts).
TEST(DemoPlant, EveryHostAnswersAsConfiguredFromTheGateway)
{
    REQUIRE_PLANT();
    Plant plant;
    QString error;
    ASSERT_TRUE(plant.up(test_support::sourceDir() + "/sim/plants/demo", &error)) << error.toStdString();
    {
        SCOPED_TRACE("GatewayHasEth0OnThePlantSubnet");
        expectGatewayHasEth0OnThePlantSubnet(plant);
    }
    {
        SCOPED_TRACE("PressLineOffersNoneWithAnonymousAccess");
        expectPressLineOffersNoneWithAnonymousAccess(plant);
    }
    {
        SCOPED_TRACE("DiscoveryServerListsThePressLineByAddressAndByName");
        expectDiscoveryServerListsThePressLineByAddressAndByName(plant);
    }
    {
        SCOPED_TRACE("SecuredServerOffersOnlySignAndEncryptWithUserName");
        expectSecuredServerOffersOnlySignAndEncryptWithUserName(plant);
    }
    {
        SCOPED_TRACE("PlcNineAdvertisesAnUnresolvableHostName");
        expectPlcNineAdvertisesAnUnresolvableHostName(plant);
    }
    {
        SCOPED_TRACE("NodeOpcuaCellAnswersGetEndpoints");
        expectNodeOpcuaCellAnswersGetEndpoints(plant);
    }
    {
        SCOPED_TRACE("CellDiscoveryServerReturnsRecordsOnTheNetwork");
        expectCellDiscoveryServerReturnsRecordsOnTheNetwork(plant);
    }
    {
        SCOPED_TRACE("WebServerOn4843AnswersHttp");
        expectWebServerOn4843AnswersHttp(plant);
    }
    {
        SCOPED_TRACE("DiscoverDevicesFindsEveryOpcUaHost");
        expectDiscoverDevicesFindsEveryOpcUaHost(plant);
    }
    plant.down();
    EXPECT_EQ(plant.namespaces(), QStringList());
}

} // namespace
