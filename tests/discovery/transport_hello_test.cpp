#include "discovery/transport.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QString>

#include <cstring>
#include <memory>
#include <random>

using OpcUaDiscovery::IdentifyResult;
using OpcUaDiscovery::helloRequest;
using OpcUaDiscovery::parseHelloResponse;

namespace {

quint32 u32At(const QByteArray& data, int offset)
{
    quint32 value = 0;
    for (int i = 3; i >= 0; --i)
        value = (value << 8) | static_cast<quint8>(data.at(offset + i));
    return value;
}

IdentifyResult marked()
{
    IdentifyResult r;
    r.opcUa = false;
    r.endpointUrl = QStringLiteral("untouched-url");
    r.messageType = QStringLiteral("untouched-type");
    return r;
}

void expectUntouched(const IdentifyResult& r)
{
    EXPECT_FALSE(r.opcUa);
    EXPECT_EQ(r.endpointUrl, QStringLiteral("untouched-url"));
    EXPECT_EQ(r.messageType, QStringLiteral("untouched-type"));
}

} // namespace

TEST(HelloRequest, TwentySevenByteUrlGivesFiftyNineBytes)
{
    const QString url = QStringLiteral("opc.tcp://192.168.1.10:4840");
    ASSERT_EQ(url.toUtf8().size(), 27);
    const QByteArray hello = helloRequest(url, 0);
    ASSERT_EQ(hello.size(), 59);
    EXPECT_EQ(hello.mid(0, 3), QByteArray("HEL"));
    EXPECT_EQ(hello.at(3), 'F');
    EXPECT_EQ(hello.mid(4, 4), QByteArray::fromHex("3B000000"));
    EXPECT_EQ(u32At(hello, 8), 0u);       // protocol version
    EXPECT_EQ(u32At(hello, 12), 65535u);  // receive buffer
    EXPECT_EQ(u32At(hello, 16), 65535u);  // send buffer
    EXPECT_EQ(u32At(hello, 20), 0u);      // max message size
    EXPECT_EQ(u32At(hello, 24), 0u);      // max chunk count
    EXPECT_EQ(u32At(hello, 28), 27u);
    EXPECT_EQ(hello.mid(32), url.toUtf8());
}

TEST(HelloRequest, ExactBytesOfAShortHello)
{
    const QByteArray expected = QByteArray::fromHex("48454c46" "23000000" "00000000" "ffff0000" "ffff0000"
                                                    "00000000" "00000000" "03000000")
                                + QByteArray("a:b");
    EXPECT_EQ(helloRequest(QStringLiteral("a:b"), 0), expected);
}

TEST(HelloRequest, TwoHundredByteUrlGivesTwoHundredThirtyTwoBytes)
{
    const QString url = QStringLiteral("opc.tcp://h:1/") + QString(186, QLatin1Char('p'));
    ASSERT_EQ(url.toUtf8().size(), 200);
    const QByteArray hello = helloRequest(url, 0);
    ASSERT_EQ(hello.size(), 232);
    EXPECT_EQ(u32At(hello, 4), 232u);
    EXPECT_EQ(u32At(hello, 28), 200u);
    EXPECT_EQ(hello.mid(32), url.toUtf8());
}

TEST(HelloRequest, UrlLengthCountsUtf8Bytes)
{
    const QString url = QString::fromUtf8("opc.tcp://h\xC3\xA4:1");  // one two-byte character
    const QByteArray hello = helloRequest(url, 0);
    EXPECT_EQ(u32At(hello, 28), 15u);
    EXPECT_EQ(hello.size(), 47);
}

TEST(HelloRequest, SecondArgumentHasNoEffect)
{
    const QString url = QStringLiteral("opc.tcp://10.0.0.5:4840");
    EXPECT_EQ(helloRequest(url, 0), helloRequest(url, 8192));
    EXPECT_EQ(helloRequest(url, 0), helloRequest(url, 0xFFFFFFFFu));
}

TEST(HelloRequest, EmptyUrlGivesHeaderOnly)
{
    const QByteArray hello = helloRequest(QString(), 0);
    EXPECT_EQ(hello.size(), 32);
    EXPECT_EQ(u32At(hello, 4), 32u);
    EXPECT_EQ(u32At(hello, 28), 0u);
}

TEST(ParseHelloResponse, AcknowledgePlusFiveBytesIsAccepted)
{
    IdentifyResult r = marked();
    EXPECT_TRUE(parseHelloResponse(QByteArray("ACK") + QByteArray(5, 'x'), &r));
    EXPECT_TRUE(r.opcUa);
    EXPECT_TRUE(r.endpointUrl.isEmpty());
    EXPECT_EQ(r.messageType, QStringLiteral("ACK"));
}

TEST(ParseHelloResponse, AcknowledgePlusFourBytesIsRejected)
{
    IdentifyResult r = marked();
    EXPECT_FALSE(parseHelloResponse(QByteArray("ACKF") + QByteArray(3, '\0'), &r));
    expectUntouched(r);
}

TEST(ParseHelloResponse, ErrorMessageIsAccepted)
{
    QByteArray err = QByteArray("ERRF") + QByteArray::fromHex("16000000" "00000780" "06000000") + QByteArray("reason");
    IdentifyResult r = marked();
    EXPECT_TRUE(parseHelloResponse(err, &r));
    EXPECT_TRUE(r.opcUa);
    EXPECT_TRUE(r.endpointUrl.isEmpty());
    EXPECT_EQ(r.messageType, QStringLiteral("ERR"));
}

TEST(ParseHelloResponse, FullAcknowledgeIsAccepted)
{
    const QByteArray ack = QByteArray::fromHex("41434b46" "1c000000" "00000000" "ffff0000" "ffff0000"
                                               "00000000" "00000000");
    IdentifyResult r;
    EXPECT_TRUE(parseHelloResponse(ack, &r));
    EXPECT_EQ(r.messageType, QStringLiteral("ACK"));
}

TEST(ParseHelloResponse, HttpStatusLineIsRejected)
{
    IdentifyResult r = marked();
    EXPECT_FALSE(parseHelloResponse(QByteArray("HTTP/1.1 200 OK\r\n\r\n"), &r));
    expectUntouched(r);
}

TEST(ParseHelloResponse, LowerCaseTypeIsRejected)
{
    IdentifyResult r = marked();
    EXPECT_FALSE(parseHelloResponse(QByteArray("ackF\x1c\0\0\0", 8), &r));
    expectUntouched(r);
}

TEST(ParseHelloResponse, OtherMessageTypesAreRejected)
{
    for (const char* type : {"HEL", "MSG", "OPN", "CLO", "RHE"}) {
        IdentifyResult r = marked();
        EXPECT_FALSE(parseHelloResponse(QByteArray(type) + QByteArray(5, '\0'), &r)) << type;
        expectUntouched(r);
    }
}

TEST(ParseHelloResponse, FewerThanEightBytesLeaveResultUntouched)
{
    for (int n = 0; n < 8; ++n) {
        IdentifyResult r = marked();
        EXPECT_FALSE(parseHelloResponse(QByteArray("ACKFxxxx", n), &r)) << n;
        expectUntouched(r);
    }
}

TEST(ParseHelloResponse, NothingPastTheTypeIsChecked)
{
    IdentifyResult r;
    EXPECT_TRUE(parseHelloResponse(QByteArray("ACKZ\xff\xff\xff\xff", 8), &r));
    EXPECT_EQ(r.messageType, QStringLiteral("ACK"));
}

TEST(ParseHelloResponse, RandomBytesNeverReadPastTheInput)
{
    std::mt19937 random(4840);
    std::uniform_int_distribution<int> length(0, 64);
    std::uniform_int_distribution<int> byte(0, 255);
    const char* prefixes[] = {"", "A", "AC", "ACK", "ER", "ERR"};
    for (int round = 0; round < 20000; ++round) {
        const int n = length(random);
        // A heap buffer of exactly n bytes: ASan reports any read past its end.
        std::unique_ptr<char[]> buffer(new char[n > 0 ? n : 1]);
        for (int i = 0; i < n; ++i)
            buffer[i] = static_cast<char>(byte(random));
        const char* prefix = prefixes[round % 6];
        const int prefixLength = static_cast<int>(std::strlen(prefix));
        for (int i = 0; i < prefixLength && i < n; ++i)
            buffer[i] = prefix[i];
        const QByteArray data = QByteArray::fromRawData(buffer.get(), n);
        IdentifyResult r = marked();
        const bool accepted = parseHelloResponse(data, &r);
        const bool expected = n >= 8 && (data.startsWith("ACK") || data.startsWith("ERR"));
        ASSERT_EQ(accepted, expected) << data.toHex().constData();
        if (!accepted)
            expectUntouched(r);
        else
            EXPECT_EQ(r.messageType, QString::fromLatin1(data.left(3)));
    }
}
