// Connection failures of discover_items through the built discover process: each one ends
// with status 5, one exact message as the last line of standard error, nothing on standard
// output and no result file.
#include "tests/client_core/certificates.h"
#include "tests/support/items_fixture.h"
#include "sim/support/files.h"

#include <QDir>
#include <QFile>

#include <open62541/types.h>
#include <open62541/types_generated.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

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
    int fd() const { return fd_; }

private:
    int fd_ = -1;
    quint16 port_ = 0;
};

// A peer that opens a secure channel like a server with security None and then answers the
// first service request with intermediate chunks that never end: a client that buffers
// whatever the stack's defaults allow holds hundreds of megabytes. It sends at most
// `limitBytes` and stops after a minute, or as soon as the client closes the connection.
class ChunkFloodPeer
{
public:
    explicit ChunkFloodPeer(size_t limitBytes)
        : limitBytes_(limitBytes)
    {
        if (listener_.port() != 0)
            thread_ = std::thread([this] { serve(); });
    }
    ~ChunkFloodPeer()
    {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
    }
    quint16 port() const { return listener_.port(); }
    size_t sent() const { return sent_; }

private:
    static void putU32(std::string* out, uint32_t value)
    {
        for (int shift = 0; shift < 32; shift += 8)
            out->push_back(static_cast<char>((value >> shift) & 0xFF));
    }
    static uint32_t u32At(const std::string& data, size_t offset)
    {
        uint32_t value = 0;
        for (int i = 3; i >= 0; --i)
            value = (value << 8) | static_cast<unsigned char>(data[offset + size_t(i)]);
        return value;
    }

    bool waitFor(int fd, short events)
    {
        while (!stop_ && std::chrono::steady_clock::now() < deadline_) {
            pollfd p{fd, events, 0};
            const int ready = ::poll(&p, 1, 50);
            if (ready > 0)
                return (p.revents & events) != 0;
            if (ready < 0 && errno != EINTR)
                return false;
        }
        return false;
    }

    // One whole message of the client (all our clients send single-chunk messages here).
    bool receive(int fd, std::string* message)
    {
        message->clear();
        while (message->size() < 8 || message->size() < u32At(*message, 4)) {
            if (!waitFor(fd, POLLIN))
                return false;
            char buffer[65536];
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0)
                return false;
            message->append(buffer, size_t(n));
        }
        return true;
    }

    bool sendAll(int fd, const std::string& data)
    {
        size_t done = 0;
        while (done < data.size()) {
            if (!waitFor(fd, POLLOUT))
                return false;
            const ssize_t n = ::send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0 && (errno == EAGAIN || errno == EINTR))
                continue;
            if (n <= 0)
                return false;
            done += size_t(n);
        }
        return true;
    }

    static std::string openResponse(uint32_t requestId)
    {
        UA_OpenSecureChannelResponse response;
        UA_OpenSecureChannelResponse_init(&response);
        response.responseHeader.timestamp = UA_DateTime_now();
        response.securityToken.channelId = 1;
        response.securityToken.tokenId = 1;
        response.securityToken.createdAt = UA_DateTime_now();
        response.securityToken.revisedLifetime = 600000;
        UA_NodeId type = UA_NODEID_NUMERIC(0, UA_TYPES[UA_TYPES_OPENSECURECHANNELRESPONSE].binaryEncodingId.identifier.numeric);
        UA_ByteString typeBytes = UA_BYTESTRING_NULL;
        UA_ByteString bodyBytes = UA_BYTESTRING_NULL;
        UA_encodeBinary(&type, &UA_TYPES[UA_TYPES_NODEID], &typeBytes);
        UA_encodeBinary(&response, &UA_TYPES[UA_TYPES_OPENSECURECHANNELRESPONSE], &bodyBytes);
        const std::string policy = "http://opcfoundation.org/UA/SecurityPolicy#None";
        std::string rest;
        putU32(&rest, 1);  // secure channel id
        putU32(&rest, uint32_t(policy.size()));
        rest += policy;
        putU32(&rest, 0xFFFFFFFFu);  // no sender certificate
        putU32(&rest, 0xFFFFFFFFu);  // no thumbprint
        putU32(&rest, 1);            // sequence number
        putU32(&rest, requestId);
        rest.append(reinterpret_cast<const char*>(typeBytes.data), typeBytes.length);
        rest.append(reinterpret_cast<const char*>(bodyBytes.data), bodyBytes.length);
        UA_ByteString_clear(&typeBytes);
        UA_ByteString_clear(&bodyBytes);
        std::string message = "OPNF";
        putU32(&message, uint32_t(8 + rest.size()));
        return message + rest;
    }

    void flood(int fd)
    {
        std::string message;
        if (!receive(fd, &message) || message.compare(0, 3, "HEL") != 0)
            return;
        std::string ack = "ACKF";
        putU32(&ack, 28);
        for (uint32_t value : {0u, 65535u, 65535u, 0u, 0u})
            putU32(&ack, value);
        if (!sendAll(fd, ack) || !receive(fd, &message) || message.compare(0, 3, "OPN") != 0)
            return;
        // Header, three length-prefixed strings, sequence number, request id.
        size_t offset = 12;
        for (int i = 0; i < 3 && offset + 4 <= message.size(); ++i) {
            const uint32_t length = u32At(message, offset);
            offset += 4 + (length == 0xFFFFFFFFu ? 0 : length);
        }
        if (offset + 8 > message.size() || !sendAll(fd, openResponse(u32At(message, offset + 4))))
            return;
        if (!receive(fd, &message) || message.compare(0, 3, "MSG") != 0)
            return;
        const uint32_t requestId = u32At(message, 20);
        const std::string filler(65535 - 24, 'x');
        for (uint32_t sequence = 2; sent_ < limitBytes_; ++sequence) {
            std::string chunk = "MSGC";
            putU32(&chunk, 65535);
            for (uint32_t value : {1u, 1u, sequence, requestId})
                putU32(&chunk, value);
            if (!sendAll(fd, chunk + filler))
                return;
            sent_ += 65535;
        }
    }

    void serve()
    {
        deadline_ = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        if (!waitFor(listener_.fd(), POLLIN))
            return;
        const int fd = ::accept(listener_.fd(), nullptr, nullptr);
        if (fd < 0)
            return;
        flood(fd);
        ::close(fd);
    }

    SilentListener listener_;
    size_t limitBytes_;
    std::atomic<size_t> sent_{0};
    std::atomic<bool> stop_{false};
    std::chrono::steady_clock::time_point deadline_;
    std::thread thread_;
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

TEST_F(ItemsConnect, PeerStreamingChunksWithoutEndIsCutOffAndStaysSmall)
{
    // At most a gigabyte: far beyond the client's limit, and a bound for the test itself.
    ChunkFloodPeer peer(size_t(1) << 30);
    ASSERT_NE(peer.port(), 0);
    const QString output = path("result.json");
    const QString rss = path("rss.txt");
    const QJsonObject request{{"device", noneDevice(QStringLiteral("opc.tcp://127.0.0.1:%1").arg(peer.port()))},
                              {"timeout_ms", 3000}};
    const ProcessResult result = test_support::runProcess(
        QStringLiteral("/usr/bin/time"),
        {"-f", "%M", "-o", rss, test_support::discoverExecutable(), "--request", requestFile(request), "--output", output},
        {{"OVRIN_DISCOVERY_OUTPUT_FILE", ""}}, 90000);
    ASSERT_TRUE(result.finished) << "did not end";
    EXPECT_EQ(result.exitCode, 5) << result.err.constData();
    // The client drops the connection at its message limit; the connect then runs into its time-out.
    EXPECT_EQ(items_test::lastLine(result.err),
              "OPC UA connect timed out (BadTimeout). The server may be slow, or item browse of a large address "
              "space needs a longer timeout_ms.");
    EXPECT_TRUE(result.out.isEmpty()) << result.out.constData();
    EXPECT_FALSE(QFile::exists(output));
    EXPECT_LT(peer.sent(), size_t(64) << 20);
    QFile rssFile(rss);
    ASSERT_TRUE(rssFile.open(QIODevice::ReadOnly));
    // GNU time puts "Command exited with non-zero status N" before the figure.
    const qint64 peakKiB = items_test::lastLine(rssFile.readAll()).trimmed().toLongLong();
    EXPECT_GT(peakKiB, 0);
    // The stack's defaults let it grow past half a gigabyte; the limit holds it near 50 MB.
#ifndef __SANITIZE_ADDRESS__
    EXPECT_LT(peakKiB, 64 * 1024) << "peak resident KiB";
#else
    EXPECT_LT(peakKiB, 384 * 1024) << "peak resident KiB, sanitizer runtime included";
#endif
}
