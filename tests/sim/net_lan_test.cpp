#include "tests/support/require_netns.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>

using test_support::NetLan;

namespace {


QStringList liveNamespaces()
{
    QProcess ip;
    ip.start(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("list")});
    ip.waitForFinished(10000);
    QStringList names;
    for (const QString& line : QString::fromUtf8(ip.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        names << line.section(QLatin1Char(' '), 0, 0);
    return names;
}

QStringList namespacesOf(const QString& lan)
{
    QStringList mine;
    for (const QString& ns : liveNamespaces())
        if (ns.startsWith(lan + QLatin1Char('-')))
            mine << ns;
    return mine;
}

} // namespace

TEST(NetLan, HostsOnOneBridgeReachEachOther)
{
    REQUIRE_NETNS();
    NetLan lan(QStringLiteral("scanlan"));
    QString error;
    ASSERT_TRUE(lan.up({"--subnet", "10.77.1.0/24", "--gateway", "gw=10.77.1.1/24", "--host", "a=10.77.1.20/24"},
                       &error))
        << error.toStdString();
    EXPECT_EQ(namespacesOf(lan.name()).size(), 3);
    const auto addr = lan.exec("a", "ip", {"-4", "-o", "addr", "show", "dev", "eth0"});
    EXPECT_EQ(addr.exitCode, 0);
    EXPECT_TRUE(addr.out.contains("10.77.1.20/24")) << addr.out.toStdString();
    // bash's /dev/tcp connects from the gateway to a listener on host a.
    const qint64 pid = lan.spawn("a", "bash", {"-c", "exec 3<>/dev/null; exec sleep 30"});
    EXPECT_GT(pid, 0);
    const qint64 listener = lan.spawn("a", "python3", {"-c",
        "import socket;s=socket.socket();s.bind(('10.77.1.20',4999));s.listen();c,_=s.accept();c.sendall(b'hi');c.close()"});
    ASSERT_GT(listener, 0);
    ASSERT_TRUE(lan.waitForTcpListener("a", 4999, 60000)) << lan.spawnLogs("a").toStdString();
    const auto got = lan.exec("gw", "bash", {"-c", "exec 3<>/dev/tcp/10.77.1.20/4999; timeout 5 cat <&3"}, 10000);
    EXPECT_EQ(got.out, QByteArray("hi"));
    lan.down();
    EXPECT_TRUE(namespacesOf(lan.name()).isEmpty());
}

TEST(NetLan, ExecPassesExitStatusThrough)
{
    REQUIRE_NETNS();
    NetLan lan(QStringLiteral("scanlan"));
    QString error;
    ASSERT_TRUE(lan.up({"--host", "a=10.77.2.5/24"}, &error)) << error.toStdString();
    const auto r = lan.exec("a", "bash", {"-c", "exit 7"});
    EXPECT_TRUE(r.finished);
    EXPECT_EQ(r.exitCode, 7);
}

TEST(NetLan, FailedUpLeavesNothingBehind)
{
    REQUIRE_NETNS();
    NetLan lan(QStringLiteral("scanlan"));
    QString error;
    EXPECT_FALSE(lan.up({"--host", "a=10.77.3.5/24", "--host", "b=10.77.3.6/99"}, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(namespacesOf(lan.name()).isEmpty());
}

TEST(NetLan, RefusesExistingLanAndDownIsIdempotent)
{
    REQUIRE_NETNS();
    NetLan lan(QStringLiteral("scanlan"));
    QString error;
    ASSERT_TRUE(lan.up({"--host", "a=10.77.4.5/24"}, &error)) << error.toStdString();
    const auto again = test_support::runProcess("bash", {NetLan::script(), "up", lan.name(), "--host", "b=10.77.4.6/24"});
    EXPECT_NE(again.exitCode, 0);
    EXPECT_TRUE(again.err.contains("already exists")) << again.err.toStdString();
    EXPECT_TRUE(again.err.contains("down " + lan.name().toUtf8()));
    EXPECT_EQ(namespacesOf(lan.name()).size(), 2);   // the first LAN is untouched
    lan.down();
    const auto twice = test_support::runProcess("bash", {NetLan::script(), "down", lan.name()});
    EXPECT_EQ(twice.exitCode, 0);
    EXPECT_TRUE(namespacesOf(lan.name()).isEmpty());
}

TEST(NetLan, DownEndsSpawnedAndStrayProcesses)
{
    REQUIRE_NETNS();
    qint64 spawned = -1;
    qint64 stray = -1;
    QString name;
    {
        NetLan lan(QStringLiteral("scanlan"));
        name = lan.name();
        QString error;
        ASSERT_TRUE(lan.up({"--host", "a=10.77.5.5/24"}, &error)) << error.toStdString();
        spawned = lan.spawn("a", "sleep", {"60"});
        ASSERT_GT(spawned, 0);
        // A process started in the namespace directly, unknown to the LAN's state.
        ASSERT_TRUE(QProcess::startDetached("ip", {"netns", "exec", lan.namespaceOf("a"), "sleep", "61"}, QString(),
                                            &stray));
        const auto list = test_support::runProcess("bash", {NetLan::script(), "list"});
        EXPECT_TRUE(list.out.contains(lan.name().toUtf8()));
    }
    for (const qint64 pid : {spawned, stray}) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (stat.open(QIODevice::ReadOnly)) {
            EXPECT_TRUE(stat.readAll().contains(") Z ")) << "process " << pid << " still running";
        }
    }
    EXPECT_TRUE(namespacesOf(name).isEmpty());
}
