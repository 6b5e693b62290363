// What the job takes of a discovery peer's answers: bounded names, URLs, capabilities, new
// candidates per answer, and one record per identifier.
#include "discovery/device_record.h"
#include "discovery/endpoint_selection.h"
#include "discovery/peer_bounds.h"

#include "tests/discovery/qt_printers.h"

#include <gtest/gtest.h>

#include <QJsonArray>

using namespace OpcUaDiscovery;

namespace {

Candidate scanned()
{
    Candidate c;
    c.host = QStringLiteral("10.0.0.5");
    c.port = 4840;
    c.source = QStringLiteral("tcp");
    c.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840");
    return c;
}

DiscoveredServer listed(const QString& url, const QString& name = QString())
{
    DiscoveredServer s;
    s.discoveryUrl = url;
    s.applicationName = name;
    return s;
}

QList<DiscoveredServer> listedAt(const QString& prefix, int count)
{
    QList<DiscoveredServer> servers;
    for (int i = 0; i < count; ++i)
        servers.append(listed(QStringLiteral("opc.tcp://10.0.0.9:4840/%1%2").arg(prefix).arg(i)));
    return servers;
}

QStringList endpointUrls(const QList<Candidate>& candidates)
{
    QStringList urls;
    for (const Candidate& c : candidates)
        urls << c.endpointUrl;
    return urls;
}

} // namespace

TEST(PeerBounds, NamesUpToTheBoundStayAndLongerOnesAreCut)
{
    const QString atBound(kMaxPeerNameLength, QLatin1Char('n'));
    EXPECT_EQ(boundedName(QStringLiteral("Press Line 1")), QStringLiteral("Press Line 1"));
    EXPECT_EQ(boundedName(atBound), atBound);
    EXPECT_EQ(boundedName(atBound + QStringLiteral("xyz")), atBound);
}

TEST(PeerBounds, CutNeverSplitsASurrogatePair)
{
    // U+1F600 takes two UTF-16 units; the pair would straddle the bound.
    const QString name = QString(kMaxPeerNameLength - 1, QLatin1Char('n')) + QString::fromUtf8("\xF0\x9F\x98\x80");
    const QString cut = boundedName(name);
    EXPECT_EQ(cut, QString(kMaxPeerNameLength - 1, QLatin1Char('n')));
}

TEST(PeerBounds, UrlsAndUrisUpToTheBoundAreWithin)
{
    const QString path(kMaxPeerUrlLength - 24, QLatin1Char('p'));
    const QString url = QStringLiteral("opc.tcp://10.0.0.9:4840/") + path;
    ASSERT_EQ(url.size(), kMaxPeerUrlLength);
    EXPECT_TRUE(withinPeerBounds(listed(url)));
    EXPECT_FALSE(withinPeerBounds(listed(url + QStringLiteral("p"))));

    DiscoveredServer longUri = listed(QStringLiteral("opc.tcp://10.0.0.9:4840"));
    longUri.applicationUri = QString(kMaxPeerUrlLength + 1, QLatin1Char('u'));
    EXPECT_FALSE(withinPeerBounds(longUri));
    DiscoveredServer longProduct = listed(QStringLiteral("opc.tcp://10.0.0.9:4840"));
    longProduct.productUri = QString(kMaxPeerUrlLength + 1, QLatin1Char('u'));
    EXPECT_FALSE(withinPeerBounds(longProduct));

    EndpointOffer offer;
    offer.endpointUrl = url;
    offer.securityPolicyUri = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None");
    EXPECT_TRUE(withinPeerBounds(offer));
    offer.endpointUrl += QStringLiteral("p");
    EXPECT_FALSE(withinPeerBounds(offer));
    offer.endpointUrl = QStringLiteral("opc.tcp://10.0.0.9:4840");
    offer.securityPolicyUri = QString(kMaxPeerUrlLength + 1, QLatin1Char('#'));
    EXPECT_FALSE(withinPeerBounds(offer));
}

TEST(PeerBounds, IdentityTakesACutNameAndAtMost64ShortCapabilities)
{
    Candidate c = scanned();
    c.capabilities = QStringList{QStringLiteral("DA")};
    DiscoveredServer server = listed(QString(), QString(kMaxPeerNameLength + 10, QLatin1Char('N')));
    server.capabilities << QStringLiteral("DA") << QString(kMaxCapabilityLength + 1, QLatin1Char('x'))
                        << QString(kMaxCapabilityLength, QLatin1Char('y'));
    for (int i = 0; i < 200000; ++i)
        server.capabilities << QStringLiteral("C%1").arg(i % 100);
    applyApplicationIdentity(&c, server);

    EXPECT_EQ(c.applicationName, QString(kMaxPeerNameLength, QLatin1Char('N')));
    QStringList expected{QStringLiteral("DA"), QString(kMaxCapabilityLength, QLatin1Char('y'))};
    for (int i = 0; expected.size() < kMaxCapabilities; ++i)
        expected << QStringLiteral("C%1").arg(i);
    EXPECT_EQ(c.capabilities, expected);

    // A full list takes no more.
    applyApplicationIdentity(&c, listed(QString(), QStringLiteral("Press")));
    DiscoveredServer more;
    more.capabilities << QStringLiteral("HD");
    applyApplicationIdentity(&c, more);
    EXPECT_EQ(c.capabilities, expected);
    EXPECT_EQ(c.applicationName, QStringLiteral("Press"));
}

TEST(PeerBounds, EachAnswerAddsAtMostTheLimitAndCountsTheRest)
{
    QList<DiscoveredServer> findServers = listedAt(QStringLiteral("s"), 5);
    // Itself and a repeat count neither as added nor as left out.
    findServers.prepend(listed(QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("Self")));
    findServers.append(listed(QStringLiteral("opc.tcp://10.0.0.9:4840/s0")));
    findServers.append(listed(QStringLiteral("opc.tcp://10.0.0.9:4840/s4")));
    findServers.append(listed(QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("Self again")));
    // The second answer repeats the first answer's servers and adds one of its own.
    QList<DiscoveredServer> onNetwork = listedAt(QStringLiteral("s"), 2);
    onNetwork.append(listed(QStringLiteral("opc.tcp://10.0.0.9:4840/n0")));

    QList<int> leftOut;
    const QList<Candidate> merged = mergeDiscoveryAnswers(scanned(), {findServers, onNetwork}, 3, &leftOut);
    EXPECT_EQ(endpointUrls(merged),
              (QStringList{QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("opc.tcp://10.0.0.9:4840/s0"),
                           QStringLiteral("opc.tcp://10.0.0.9:4840/s1"), QStringLiteral("opc.tcp://10.0.0.9:4840/s2"),
                           QStringLiteral("opc.tcp://10.0.0.9:4840/n0")}));
    EXPECT_EQ(leftOut, (QList<int>{2, 0}));
    EXPECT_EQ(merged.first().applicationName, QStringLiteral("Self again"));
}

TEST(PeerBounds, WithoutALimitTheMergeTakesEveryServer)
{
    QList<int> leftOut;
    const QList<Candidate> merged =
        mergeDiscoveryAnswers(scanned(), {listedAt(QStringLiteral("s"), 3000)}, -1, &leftOut);
    EXPECT_EQ(merged.size(), 3001);
    EXPECT_EQ(leftOut, QList<int>{0});
    EXPECT_EQ(mergeFindServersDiscoveryUrls(scanned(), listedAt(QStringLiteral("s"), 3000)).size(), 3001);
}

TEST(PeerBounds, MergeLeavesOutServersWithOverlongUrlsWithoutCountingThem)
{
    DiscoveredServer longUrl = listed(QStringLiteral("opc.tcp://10.0.0.9:4840/") + QString(70000, QLatin1Char('p')));
    DiscoveredServer longUri = listed(QStringLiteral("opc.tcp://10.0.0.9:4840/u"));
    longUri.applicationUri = QString(kMaxPeerUrlLength + 1, QLatin1Char('u'));
    // An overlong entry naming the scanned server itself brings no identity either.
    DiscoveredServer longSelf = listed(QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("Self"));
    longSelf.productUri = QString(kMaxPeerUrlLength + 1, QLatin1Char('p'));

    QList<int> leftOut;
    const QList<Candidate> merged = mergeDiscoveryAnswers(
        scanned(), {{longUrl, longUri, longSelf, listed(QStringLiteral("opc.tcp://10.0.0.9:4840/ok"))}}, 1, &leftOut);
    EXPECT_EQ(endpointUrls(merged),
              (QStringList{QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("opc.tcp://10.0.0.9:4840/ok")}));
    EXPECT_EQ(leftOut, QList<int>{0});
    EXPECT_TRUE(merged.first().applicationName.isEmpty());
}

TEST(DeviceRecordsOnePerId, TheFirstCandidateOfAnIdentifierWins)
{
    Candidate first = scanned();
    first.applicationName = QStringLiteral("First");
    // Listed at a path, then moved to the scanned address by its endpoint.
    Candidate moved = scanned();
    moved.source = QStringLiteral("findservers");
    moved.applicationName = QStringLiteral("Moved");
    Candidate other = scanned();
    other.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840/other");
    Candidate movedToo = other;
    movedToo.applicationName = QStringLiteral("Moved too");

    const QJsonArray records = deviceRecordsOnePerId({first, moved, other, movedToo});
    EXPECT_EQ(records, (QJsonArray{candidateToJson(first), candidateToJson(other)}));
}

TEST(DeviceRecordsOnePerId, DistinctIdentifiersKeepEveryRecordInOrder)
{
    QList<Candidate> candidates;
    QJsonArray expected;
    for (int i = 0; i < 5; ++i) {
        Candidate c = scanned();
        c.port = static_cast<quint16>(4840 + i);
        c.endpointUrl.clear();
        candidates << c;
        expected.append(candidateToJson(c));
    }
    EXPECT_EQ(deviceRecordsOnePerId(candidates), expected);
}
