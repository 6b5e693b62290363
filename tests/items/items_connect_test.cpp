// Connection failures of discover_items through the built discover process: each one ends
// with status 5, one exact message as the last line of standard error, nothing on standard
// output and no result file.
#include "tests/client_core/certificates.h"
#include "tests/items/items_fixture.h"
#include "sim/support/files.h"

#include <QDir>
#include <QFile>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using items_test::ItemsJob;
using items_test::noneDevice;
using test_support::ProcessResult;

namespace {

const char kBasic256Sha256[] = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256";
const char kBasic128Rsa15[] = "http://opcfoundation.org/UA/SecurityPolicy#Basic128Rsa15";

// A TCP listener that never accepts: connections complete in the kernel and then hear nothing.
class SilentListener
{
public:
    SilentListener()
    {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (fd_ >= 0 && ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0
            && ::listen(fd_, 8) == 0 && ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) == 0)
            port_ = ntohs(address.sin_port);
    }
    ~SilentListener()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    quint16 port() const { return port_; }

private:
    int fd_ = -1;
    quint16 port_ = 0;
};

QJsonObject securedScenario()
{
    return QJsonObject{
        {"endpoints", QJsonArray{QJsonObject{{"mode", "None"}, {"policy", "None"}},
                                 QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}}}},
        {"users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}}},
        {"address_space", QJsonObject{{"presets", QJsonArray{"alias"}}, {"hide_server_object", true}}}};
}

// The same server with user names only: anonymous sessions are refused.
QJsonObject userOnlyScenario()
{
    QJsonObject scenario = securedScenario();
    scenario.insert("anonymous", false);
    return scenario;
}

const char kWrongPasswordMessage[] =
    "OPC UA authentication failed (BadUserAccessDenied). Check username and password, or whether anonymous is allowed.";

QJsonObject securedDevice(const QString& address, const QString& mode, const QString& policy)
{
    return QJsonObject{{"address", address}, {"security_mode", mode}, {"security_policies", policy}};
}

class ItemsConnect : public ItemsJob
{
protected:
    // Runs the job and checks everything a connection failure leaves behind.
    void expectConnectFailure(const QJsonObject& request, const QString& message, int timeoutMs = 60000)
    {
        expectConnectFailureOneOf(request, {message}, timeoutMs);
    }

    // For failures whose status the stack decides by a race of its own.
    void expectConnectFailureOneOf(const QJsonObject& request, const QStringList& messages, int timeoutMs = 60000)
    {
        const QString output = path("result.json");
        const ProcessResult result = run(request, {"--output", output}, {}, timeoutMs);
        ASSERT_TRUE(result.finished) << "did not end";
        EXPECT_EQ(result.exitCode, 5) << result.err.constData();
        const QString last = items_test::lastLine(result.err);
        EXPECT_TRUE(messages.contains(last)) << last.toStdString() << "\n--- stderr:\n" << result.err.constData();
        EXPECT_TRUE(result.err.endsWith((last + "\n").toUtf8()));
        EXPECT_TRUE(result.out.isEmpty()) << result.out.constData();
        EXPECT_FALSE(QFile::exists(output));
    }

    // A discover copy whose files directory holds a client certificate made for it.
    void useDiscoverWithCertificate()
    {
        QString error;
        ASSERT_TRUE(discover_.make(true, &error)) << error.toStdString();
        // Key generation takes seconds: one pair serves every test of the process.
        static client_core_test::CertificatePair pair;
        if (pair.certificate.isEmpty()) {
            ASSERT_TRUE(client_core_test::createClientCertificate("urn:ovrin-connect-client-opc_ua_discovery", false, &pair));
        }
        test_support::writeFile(discover_.filesDir, "ovrin_cert.der", pair.certificate);
        test_support::writeFile(discover_.filesDir, "ovrin_key.der", pair.key);
        program_ = discover_.executable;
    }

    items_test::PrivateDiscover discover_;
};

} // namespace

TEST_F(ItemsConnect, WrongPasswordIsAnAuthenticationFailure)
{
    startSim(userOnlyScenario());
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("username", "operator");
    device.insert("password", "wrong");
    expectConnectFailure(QJsonObject{{"device", device}}, kWrongPasswordMessage);
}

TEST_F(ItemsConnect, WrongPasswordOverAnEncryptedChannelIsAnAuthenticationFailure)
{
    useDiscoverWithCertificate();
    startSim(userOnlyScenario());
    QJsonObject device = securedDevice(sim_.endpointUrl(), "3", kBasic256Sha256);
    device.insert("username", "operator");
    device.insert("password", "wrong");
    expectConnectFailure(QJsonObject{{"device", device}}, kWrongPasswordMessage);
}

TEST_F(ItemsConnect, RightPasswordOverAnEncryptedChannelBrowses)
{
    useDiscoverWithCertificate();
    startSim(userOnlyScenario());
    QJsonObject device = securedDevice(sim_.endpointUrl(), "3", kBasic256Sha256);
    device.insert("username", "operator");
    device.insert("password", "secret");
    const QJsonObject document = runOk(QJsonObject{{"device", device}});
    EXPECT_EQ(items_test::identifiers(document.value("items").toArray()), QStringList{"ns=1;s=Alias.X"});
}

TEST_F(ItemsConnect, PolicyTheServerDoesNotOfferIsRejected)
{
    useDiscoverWithCertificate();
    startSim(securedScenario());
    expectConnectFailure(QJsonObject{{"device", securedDevice(sim_.endpointUrl(), "2", kBasic128Rsa15)}},
                         "OPC UA rejected the security endpoint (BadIdentityTokenRejected); this instance uses Security "
                         "Mode Sign and Policy Basic128Rsa15. Edit Security Mode and Security Policy on the instance to a "
                         "combination the server offers, then scan again.");
}

TEST_F(ItemsConnect, SecuredModeWithoutCertificateFilesIsRejected)
{
    startSim(QJsonObject{{"address_space", QJsonObject{{"presets", QJsonArray{"alias"}}, {"hide_server_object", true}}}});
    expectConnectFailure(QJsonObject{{"device", securedDevice(sim_.endpointUrl(), "3", kBasic256Sha256)}},
                         "OPC UA rejected the security endpoint (BadIdentityTokenRejected); this instance uses Security "
                         "Mode Sign & Encrypt and Policy Basic256Sha256. Edit Security Mode and Security Policy on the "
                         "instance to a combination the server offers, then scan again.");
}

TEST_F(ItemsConnect, UnknownSecurityValuesAreRejected)
{
    startSim(QJsonObject{{"address_space", QJsonObject{{"presets", QJsonArray{"alias"}}, {"hide_server_object", true}}}});
    expectConnectFailure(QJsonObject{{"device", securedDevice(sim_.endpointUrl(), "Sign", "urn:unknown")}},
                         "OPC UA rejected the security endpoint (BadIdentityTokenRejected); this instance uses Security "
                         "Mode None and Policy urn:unknown. Edit Security Mode and Security Policy on the instance to a "
                         "combination the server offers, then scan again.");
}

TEST_F(ItemsConnect, ClosedPortCannotBeOpened)
{
    const quint16 port = test_support::freeLoopbackPort();
    ASSERT_NE(port, 0);
    expectConnectFailure(QJsonObject{{"device", noneDevice(QStringLiteral("opc.tcp://127.0.0.1:%1").arg(port))}},
                         "Could not open a TCP connection to the OPC UA server (BadConnectionRejected).");
}

TEST_F(ItemsConnect, SilentServerTimesOut)
{
    SilentListener listener;
    ASSERT_NE(listener.port(), 0);
    expectConnectFailure(QJsonObject{{"device", noneDevice(QStringLiteral("opc.tcp://127.0.0.1:%1").arg(listener.port()))},
                                     {"timeout_ms", 1000}},
                         "OPC UA connect timed out (BadTimeout). The server may be slow, or item browse of a large address "
                         "space needs a longer timeout_ms.",
                         30000);
}

TEST_F(ItemsConnect, SessionAnswerAfterTheTimeoutTimesOut)
{
    // The channel is already open when the session answer is late; depending on which of its
    // own checks sees that first, the stack reports the time-out or the channel it closed.
    startSim(QJsonObject{{"misbehaviour", QJsonObject{{"delay_ms", 3000}, {"delay_services", QJsonArray{"CreateSession"}}}}});
    expectConnectFailureOneOf(
        QJsonObject{{"device", noneDevice(sim_.endpointUrl())}, {"timeout_ms", "1000"}},
        {"OPC UA connect timed out (BadTimeout). The server may be slow, or item browse of a large address space needs a "
         "longer timeout_ms.",
         "Could not connect to the OPC UA server (BadSecureChannelClosed); this instance uses Security Mode None and "
         "Policy None."},
        30000);
}

TEST_F(ItemsConnect, UnreadableCertificateFallsBackToAnUnencryptedClient)
{
    // Directories where the files should be: they cannot be read, so the client goes on unencrypted.
    QString error;
    ASSERT_TRUE(discover_.make(true, &error)) << error.toStdString();
    ASSERT_TRUE(QDir(discover_.filesDir).mkpath("ovrin_cert.der"));
    ASSERT_TRUE(QDir(discover_.filesDir).mkpath("ovrin_key.der"));
    program_ = discover_.executable;
    startSim(securedScenario());
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("username", "operator");
    device.insert("password", "secret");
    const ProcessResult result = run(QJsonObject{{"device", device}});
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 0) << result.err.constData();
    EXPECT_TRUE(result.err.contains("Could not read the certificate")) << result.err.constData();
    EXPECT_TRUE(result.err.contains("Could not read the key")) << result.err.constData();
    EXPECT_TRUE(result.err.contains(QString("[opc_ua_client] Could not read %1/ovrin_cert.der key").arg(discover_.filesDir).toUtf8()))
        << result.err.constData();
    bool ok = false;
    const QJsonObject document = items_test::parseObject(result.out, &ok);
    ASSERT_TRUE(ok) << result.out.constData();
    EXPECT_EQ(items_test::identifiers(document.value("items").toArray()), QStringList{"ns=1;s=Alias.X"});

    // A secured endpoint cannot be used without them.
    expectConnectFailure(QJsonObject{{"device", securedDevice(sim_.endpointUrl(), "3", kBasic256Sha256)}},
                         "OPC UA rejected the security endpoint (BadIdentityTokenRejected); this instance uses Security "
                         "Mode Sign & Encrypt and Policy Basic256Sha256. Edit Security Mode and Security Policy on the "
                         "instance to a combination the server offers, then scan again.");
}

TEST_F(ItemsConnect, CertificateFromTheFilesDirectorySecuresTheChannel)
{
    useDiscoverWithCertificate();
    startSim(securedScenario());
    const ProcessResult result = run(QJsonObject{{"device", securedDevice(sim_.endpointUrl(), "3", kBasic256Sha256)}});
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 0) << result.err.constData();
    EXPECT_FALSE(result.err.contains("Could not read")) << result.err.constData();
    bool ok = false;
    const QJsonObject document = items_test::parseObject(result.out, &ok);
    ASSERT_TRUE(ok) << result.out.constData();
    EXPECT_EQ(items_test::identifiers(document.value("items").toArray()), QStringList{"ns=1;s=Alias.X"});
}
