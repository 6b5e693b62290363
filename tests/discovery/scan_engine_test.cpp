#include "discovery/scan_engine.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace OpcUaDiscovery;

namespace {

const QString kProbesNote = QStringLiteral(
    "OPC UA discovery probes on TCP 4840,4841,4842,4843,4844,4845,4846,4847,4848,4849,4850,53530. "
    "Imported security is None; certificates stay unset.");

struct Probe
{
    QString host;
    quint16 port;
    std::thread::id thread;
    int connectTimeoutMs;
    int ioTimeoutMs;
};

// Records every probe; answers through `answer` (default: no server).
class FakeTransport : public Transport
{
public:
    std::function<IdentifyResult(const QString& host, quint16 port)> answer;
    // Called inside the probe, after it is recorded, with the number of probes in flight.
    std::function<void(int inFlight)> during;

    IdentifyResult tcpIdentify(const QString& host, quint16 port, int connectTimeoutMs, int ioTimeoutMs) override
    {
        int inFlight = 0;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_probes.push_back({host, port, std::this_thread::get_id(), connectTimeoutMs, ioTimeoutMs});
            inFlight = ++m_inFlight;
            m_maxInFlight = std::max(m_maxInFlight, m_inFlight);
        }
        if (during)
            during(inFlight);
        IdentifyResult result = answer ? answer(host, port) : IdentifyResult{};
        std::lock_guard<std::mutex> lock(m_mutex);
        --m_inFlight;
        return result;
    }

    std::vector<Probe> probes() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_probes;
    }
    int maxInFlight() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_maxInFlight;
    }
    std::set<std::thread::id> threads() const
    {
        std::set<std::thread::id> ids;
        for (const Probe& p : probes())
            ids.insert(p.thread);
        return ids;
    }
    QStringList hostsProbed() const
    {
        QStringList hosts;
        for (const Probe& p : probes())
            if (!hosts.contains(p.host))
                hosts << p.host;
        return hosts;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Probe> m_probes;
    int m_inFlight = 0;
    int m_maxInFlight = 0;
};

IdentifyResult server(const QString& type = QStringLiteral("ACK"), const QString& url = QString())
{
    IdentifyResult r;
    r.opcUa = true;
    r.messageType = type;
    r.endpointUrl = url;
    return r;
}

QStringList hostRange(int count)
{
    QStringList hosts;
    for (int i = 0; i < count; ++i)
        hosts << QStringLiteral("10.%1.%2.%3").arg(QString::number(i / 65536 % 256), QString::number(i / 256 % 256),
                                                    QString::number(i % 256 + 1));
    return hosts;
}

Options optionsFor(const QStringList& hosts)
{
    Options options;
    options.networkInterface = QStringLiteral("no-such-if0");
    options.extraHosts = hosts;
    return options;
}

int threadCount()
{
    // The thread sanitizer starts a helper thread of its own with the first thread created.
    std::thread([] {}).join();
    return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

// Blocks every probe until `target` probes are in flight at once (bounded wait), then lets all go.
class Gate
{
public:
    explicit Gate(int target) : m_target(target) {}
    void arrive(int inFlight)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_open)
            return;
        if (inFlight >= m_target) {
            m_open = true;
            if (onOpen)
                onOpen();
            m_cv.notify_all();
            return;
        }
        // A missing worker must fail the assertions, not hang the suite.
        if (!m_cv.wait_for(lock, std::chrono::seconds(20), [this] { return m_open; }))
            m_open = true;
    }
    std::function<void()> onOpen;

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    int m_target;
    bool m_open = false;
};

} // namespace

TEST(ScanEngine, ProbesNoteComesFirstEvenWithTheScanOff)
{
    FakeTransport transport;
    Options options = optionsFor({QStringLiteral("10.0.0.1")});
    options.tcpSubnetScan = false;
    QStringList warnings{QStringLiteral("earlier")};
    const QList<Candidate> found = discoverDevices(options, transport, &warnings, nullptr);
    EXPECT_TRUE(found.isEmpty());
    EXPECT_EQ(warnings, (QStringList{QStringLiteral("earlier"), kProbesNote}));
    EXPECT_TRUE(transport.probes().empty());
}

TEST(ScanEngine, EmptyPortListProbesNothing)
{
    FakeTransport transport;
    Options options = optionsFor({QStringLiteral("10.0.0.1")});
    options.tcpPorts.clear();
    QStringList warnings;
    EXPECT_TRUE(discoverDevices(options, transport, &warnings, nullptr).isEmpty());
    EXPECT_EQ(warnings, QStringList{QStringLiteral(
                            "OPC UA discovery probes on TCP . Imported security is None; certificates stay unset.")});
    EXPECT_TRUE(transport.probes().empty());
}

TEST(ScanEngine, NullWarningsAndCancelAreAccepted)
{
    FakeTransport transport;
    transport.answer = [](const QString&, quint16 port) { return port == 4840 ? server() : IdentifyResult{}; };
    const QList<Candidate> found = discoverDevices(optionsFor({QStringLiteral("10.0.0.1")}), transport, nullptr, nullptr);
    ASSERT_EQ(found.size(), 1);
}

TEST(ScanEngine, OneHostGivesOneWorkerProbingEveryPortInOrder)
{
    FakeTransport transport;
    const int before = threadCount();
    QStringList warnings;
    const QList<Candidate> found = discoverDevices(optionsFor({QStringLiteral("10.0.0.1")}), transport, &warnings, nullptr);
    EXPECT_TRUE(found.isEmpty());
    EXPECT_EQ(warnings, QStringList{kProbesNote});
    const std::vector<Probe> probes = transport.probes();
    ASSERT_EQ(probes.size(), 12u);
    const QList<quint16> ports = Options::defaultTcpPorts();
    for (size_t i = 0; i < probes.size(); ++i) {
        EXPECT_EQ(probes[i].host, QStringLiteral("10.0.0.1"));
        EXPECT_EQ(probes[i].port, ports.at(static_cast<int>(i)));
        EXPECT_EQ(probes[i].connectTimeoutMs, 80);
        EXPECT_EQ(probes[i].ioTimeoutMs, 400);
    }
    EXPECT_EQ(transport.threads().size(), 1u);
    EXPECT_EQ(transport.threads().count(std::this_thread::get_id()), 0u);
    EXPECT_EQ(threadCount(), before);
}

TEST(ScanEngine, FiveHundredHostsGiveFortyEightWorkers)
{
    FakeTransport transport;
    Gate gate(48);
    transport.during = [&gate](int inFlight) { gate.arrive(inFlight); };
    Options options = optionsFor(hostRange(500));
    options.tcpPorts = {4840};
    const int before = threadCount();
    discoverDevices(options, transport, nullptr, nullptr);
    EXPECT_EQ(transport.maxInFlight(), 48);
    EXPECT_EQ(transport.threads().size(), 48u);
    EXPECT_EQ(transport.probes().size(), 500u);
    EXPECT_EQ(transport.hostsProbed().size(), 500);
    EXPECT_EQ(threadCount(), before);
}

TEST(ScanEngine, FewHostsGiveOneWorkerEach)
{
    FakeTransport transport;
    Gate gate(5);
    transport.during = [&gate](int inFlight) { gate.arrive(inFlight); };
    Options options = optionsFor(hostRange(5));
    discoverDevices(options, transport, nullptr, nullptr);
    EXPECT_EQ(transport.maxInFlight(), 5);
    EXPECT_EQ(transport.threads().size(), 5u);
    EXPECT_EQ(transport.probes().size(), 60u);
}

TEST(ScanEngine, EachWorkerTakesHostsInListOrderAndFinishesThem)
{
    FakeTransport transport;
    const QStringList hosts = hostRange(300);
    Options options = optionsFor(hosts);
    options.tcpPorts = {4840, 4841, 4842};
    discoverDevices(options, transport, nullptr, nullptr);
    std::map<std::thread::id, std::vector<int>> perThread;
    std::map<int, std::vector<quint16>> portsPerHost;
    for (const Probe& p : transport.probes()) {
        const int index = hosts.indexOf(p.host);
        ASSERT_GE(index, 0);
        auto& seq = perThread[p.thread];
        if (seq.empty() || seq.back() != index)
            seq.push_back(index);
        portsPerHost[index].push_back(p.port);
    }
    for (const auto& entry : perThread)
        for (size_t i = 1; i < entry.second.size(); ++i)
            EXPECT_LT(entry.second[i - 1], entry.second[i]);
    ASSERT_EQ(portsPerHost.size(), 300u);
    for (const auto& entry : portsPerHost)
        EXPECT_EQ(entry.second, (std::vector<quint16>{4840, 4841, 4842})) << entry.first;
}

TEST(ScanEngine, EveryPortOfAHostIsProbedAfterOneAnswered)
{
    FakeTransport transport;
    transport.answer = [](const QString& host, quint16 port) {
        return host == QLatin1String("10.0.0.2") && (port == 4840 || port == 4841) ? server() : IdentifyResult{};
    };
    const QList<Candidate> found =
        discoverDevices(optionsFor({QStringLiteral("10.0.0.1"), QStringLiteral("10.0.0.2")}), transport, nullptr, nullptr);
    EXPECT_EQ(transport.probes().size(), 24u);
    ASSERT_EQ(found.size(), 2);
    QStringList keys;
    for (const Candidate& c : found) {
        keys << QStringLiteral("%1:%2").arg(c.host, QString::number(c.port));
        EXPECT_EQ(c.source, QStringLiteral("tcp"));
        EXPECT_EQ(c.endpointUrl, endpointFor(c.host, c.port));
        EXPECT_EQ(c.securityMode, 0);
        EXPECT_FALSE(c.endpointSelected);
        EXPECT_TRUE(c.advertisedEndpointUrl.isEmpty());
    }
    keys.sort();
    EXPECT_EQ(keys, (QStringList{QStringLiteral("10.0.0.2:4840"), QStringLiteral("10.0.0.2:4841")}));
}

TEST(ScanEngine, ErrorAnswerCountsAsServer)
{
    FakeTransport transport;
    transport.answer = [](const QString&, quint16 port) {
        return port == 53530 ? server(QStringLiteral("ERR")) : IdentifyResult{};
    };
    const QList<Candidate> found = discoverDevices(optionsFor({QStringLiteral("10.0.0.9")}), transport, nullptr, nullptr);
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.at(0).port, 53530);
    EXPECT_EQ(found.at(0).endpointUrl, QStringLiteral("opc.tcp://10.0.0.9:53530"));
}

TEST(ScanEngine, EndpointUrlOfTheProbeIsKept)
{
    FakeTransport transport;
    transport.answer = [](const QString&, quint16 port) {
        return port == 4840 ? server(QStringLiteral("ACK"), QStringLiteral("opc.tcp://probed:4840/x")) : IdentifyResult{};
    };
    const QList<Candidate> found = discoverDevices(optionsFor({QStringLiteral("10.0.0.3")}), transport, nullptr, nullptr);
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.at(0).endpointUrl, QStringLiteral("opc.tcp://probed:4840/x"));
}

TEST(ScanEngine, KnownIdentityIsSkippedButOtherPortsAreProbed)
{
    FakeTransport transport;
    transport.answer = [](const QString&, quint16 port) {
        return port == 4840 || port == 4841 ? server() : IdentifyResult{};
    };
    Options options = optionsFor({QStringLiteral("192.168.1.10")});
    options.existingUids = QStringList{QStringLiteral("opcua_192_168_1_10_4840"), QStringLiteral("OPCUA_192_168_1_10_4841")};
    const QList<Candidate> found = discoverDevices(options, transport, nullptr, nullptr);
    EXPECT_EQ(transport.probes().size(), 12u);
    ASSERT_EQ(found.size(), 1);  // the comparison is exact: the upper-case identity does not match
    EXPECT_EQ(found.at(0).port, 4841);
}

TEST(ScanEngine, CancelEndsEveryWorkerAfterItsCurrentProbe)
{
    FakeTransport transport;
    std::atomic<bool> cancel{false};
    Gate gate(48);
    gate.onOpen = [&cancel] { cancel = true; };
    transport.during = [&gate](int inFlight) { gate.arrive(inFlight); };
    transport.answer = [](const QString&, quint16) { return server(); };
    Options options = optionsFor(hostRange(200));
    const QList<Candidate> found = discoverDevices(options, transport, nullptr, &cancel);
    EXPECT_EQ(transport.probes().size(), 48u);
    EXPECT_EQ(found.size(), 48);  // the probes under way still count
}

TEST(ScanEngine, CancelBetweenPortsOfOneHost)
{
    FakeTransport transport;
    std::atomic<bool> cancel{false};
    transport.answer = [&cancel](const QString&, quint16 port) {
        if (port == 4842)
            cancel = true;
        return port == 4840 ? server() : IdentifyResult{};
    };
    const QList<Candidate> found =
        discoverDevices(optionsFor({QStringLiteral("10.0.0.1")}), transport, nullptr, &cancel);
    EXPECT_EQ(transport.probes().size(), 3u);
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.at(0).port, 4840);
}

TEST(ScanEngine, CancelledBeforeStartProbesNothing)
{
    FakeTransport transport;
    std::atomic<bool> cancel{true};
    QStringList warnings;
    EXPECT_TRUE(discoverDevices(optionsFor(hostRange(10)), transport, &warnings, &cancel).isEmpty());
    EXPECT_TRUE(transport.probes().empty());
    EXPECT_EQ(warnings, QStringList{kProbesNote});
}

TEST(ScanEngine, SpentBudgetLeavesHostsUnprobedWithoutWarning)
{
    FakeTransport transport;
    Options options = optionsFor(hostRange(10));
    options.timeoutMs = 0;
    QStringList warnings;
    EXPECT_TRUE(discoverDevices(options, transport, &warnings, nullptr).isEmpty());
    EXPECT_TRUE(transport.probes().empty());
    EXPECT_EQ(warnings, QStringList{kProbesNote});
}

TEST(ScanEngine, BudgetStopsNewHostsButFinishesBegunOnes)
{
    FakeTransport transport;
    // Every probe takes 30 ms; 500 hosts of 3 ports need far more than the 200 ms budget.
    transport.during = [](int) { std::this_thread::sleep_for(std::chrono::milliseconds(30)); };
    const QStringList hosts = hostRange(500);
    Options options = optionsFor(hosts);
    options.timeoutMs = 200;
    options.tcpPorts = {4840, 4841, 4842};
    QStringList warnings;
    discoverDevices(options, transport, &warnings, nullptr);
    EXPECT_EQ(warnings, QStringList{QStringLiteral(
        "OPC UA discovery probes on TCP 4840,4841,4842. Imported security is None; certificates stay unset.")});
    std::map<int, int> portsPerHost;
    for (const Probe& p : transport.probes())
        ++portsPerHost[hosts.indexOf(p.host)];
    EXPECT_GT(portsPerHost.size(), 0u);
    EXPECT_LT(portsPerHost.size(), 500u);
    int expectedIndex = 0;
    for (const auto& entry : portsPerHost) {
        EXPECT_EQ(entry.first, expectedIndex++);  // the probed hosts are a prefix of the list
        EXPECT_EQ(entry.second, 3);
    }
}

TEST(ScanEngine, ExtraHostsAreCleanedOfBlanksNullAddressAndRepeats)
{
    FakeTransport transport;
    Options options = optionsFor({QString(), QStringLiteral("10.0.0.1"), QStringLiteral("0.0.0.0"),
                                  QStringLiteral("10.0.0.2"), QStringLiteral("10.0.0.1"), QString(),
                                  QStringLiteral("10.0.0.2")});
    options.tcpPorts = {4840};
    discoverDevices(options, transport, nullptr, nullptr);
    QStringList hosts = transport.hostsProbed();
    EXPECT_EQ(transport.probes().size(), 2u);
    hosts.sort();
    EXPECT_EQ(hosts, (QStringList{QStringLiteral("10.0.0.1"), QStringLiteral("10.0.0.2")}));
}

TEST(ScanEngine, ExtraHostsCleanedToNothingProbeNothing)
{
    FakeTransport transport;
    Options options = optionsFor({QString(), QStringLiteral("0.0.0.0")});
    QStringList warnings;
    EXPECT_TRUE(discoverDevices(options, transport, &warnings, nullptr).isEmpty());
    EXPECT_TRUE(transport.probes().empty());
    EXPECT_EQ(warnings, QStringList{kProbesNote});
}

TEST(ScanEngine, UnknownInterfaceWithoutExtraHostsFindsNothing)
{
    FakeTransport transport;
    Options options = optionsFor({});
    QStringList warnings;
    EXPECT_TRUE(discoverDevices(options, transport, &warnings, nullptr).isEmpty());
    EXPECT_TRUE(transport.probes().empty());
    EXPECT_EQ(warnings, QStringList{kProbesNote});
}

namespace {

// Captures what discoverDevices writes to standard error.
QByteArray stderrOfScan(const Options& options, Transport& transport)
{
    QTemporaryDir dir;
    const QByteArray path = dir.filePath(QStringLiteral("stderr.txt")).toLocal8Bit();
    std::fflush(stderr);
    const int saved = ::dup(2);
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(file, 2);
    ::close(file);
    discoverDevices(options, transport, nullptr, nullptr);
    std::fflush(stderr);
    ::dup2(saved, 2);
    ::close(saved);
    QFile captured(QString::fromLocal8Bit(path));
    captured.open(QIODevice::ReadOnly);
    return captured.readAll();
}

} // namespace

TEST(ScanEngine, DebugLineCountsCandidatesWhenVariableIsSet)
{
    FakeTransport transport;
    transport.answer = [](const QString&, quint16 port) { return port <= 4842 ? server() : IdentifyResult{}; };
    const Options options = optionsFor({QStringLiteral("10.0.0.1")});
    qputenv("OVRIN_DISCOVERY_DEBUG", "1");
    const QByteArray withDebug = stderrOfScan(options, transport);
    qputenv("OVRIN_DISCOVERY_DEBUG", "");
    const QByteArray withEmptyValue = stderrOfScan(options, transport);
    qunsetenv("OVRIN_DISCOVERY_DEBUG");
    const QByteArray without = stderrOfScan(options, transport);
    EXPECT_EQ(withDebug, QByteArray("OPC UA discovery importable=3\n"));
    EXPECT_EQ(withEmptyValue, QByteArray("OPC UA discovery importable=3\n"));
    EXPECT_TRUE(without.isEmpty()) << without.constData();
}

TEST(ScanEngine, DebugLineIsNotWrittenWhenTheScanIsOff)
{
    FakeTransport transport;
    Options options = optionsFor({QStringLiteral("10.0.0.1")});
    options.tcpSubnetScan = false;
    qputenv("OVRIN_DISCOVERY_DEBUG", "1");
    const QByteArray err = stderrOfScan(options, transport);
    qunsetenv("OVRIN_DISCOVERY_DEBUG");
    EXPECT_TRUE(err.isEmpty());
}
