// The discover process under a file size limit, kill -9 at any moment, with secrets in the
// request and with request paths that are no regular files or never deliver a request.
#include "app/request_file.h"
#include "sim/support/files.h"
#include "sim/support/process_runner.h"
#include "tests/support/items_fixture.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLocalServer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThread>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using items_test::noneDevice;
using test_support::ProcessResult;

namespace {

const char kPassword[] = "pw-Hostile-7f3a91";

QJsonObject devicesRequest(QJsonObject extra = {})
{
    extra.insert("options", QJsonObject{{"tcp_subnet_scan", false}});
    return extra;
}

QJsonObject typesScenario()
{
    return QJsonObject{{"address_space", QJsonObject{{"presets", QJsonArray{"types"}}, {"hide_server_object", true}}}};
}

QJsonObject syntheticScenario(int count)
{
    return QJsonObject{
        {"address_space", QJsonObject{{"synthetic_count", count}, {"synthetic_folder_size", 100}, {"hide_server_object", true}}}};
}


QStringList everyEntry(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}


class Hostile : public items_test::ItemsJob
{
protected:
    // Runs discover through bash with a file size limit in 1024-byte blocks, the signal of the
    // limit left at its default (which would kill an unprepared process).
    ProcessResult runLimited(int blocks, const QStringList& arguments, const QMap<QString, QString>& env = {})
    {
        QMap<QString, QString> environment{{"OVRIN_DISCOVERY_OUTPUT_FILE", ""}};
        environment.insert(env);
        const QString command = QStringLiteral("ulimit -f %1; exec \"$0\" \"$@\"").arg(blocks);
        return test_support::runProcess("/bin/bash", QStringList{"-c", command, test_support::discoverExecutable()} + arguments,
                                        environment, 60000);
    }

    // Starts discover in the background with the snapshot variable set.
    void startDiscover(QProcess* process, const QStringList& arguments, const QString& snapshotPath)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        if (!snapshotPath.isEmpty())
            environment.insert("OVRIN_DISCOVERY_OUTPUT_FILE", snapshotPath);
        process->setProcessEnvironment(environment);
        process->start(test_support::discoverExecutable(), arguments);
        ASSERT_TRUE(process->waitForStarted(10000));
    }

    // The entries of the test's folder after a kill -9 of pid. A kill between naming the new
    // file and renaming it over the target (microseconds of every commit) leaves that file,
    // "<target>.part-<pid>"; the next start removes it (TemporaryFilesOfDeadProcesses...), so
    // it is taken away here and nothing else may be left.
    QStringList entriesAfterKill(const QString& target, qint64 pid)
    {
        QDir(dir_.path()).remove(target + ".part-" + QString::number(pid));
        return everyEntry(dir_.path());
    }

    void killNow(QProcess* process)
    {
        ::kill(pid_t(process->processId()), SIGKILL);
        ASSERT_TRUE(process->waitForFinished(10000));
        EXPECT_EQ(process->exitStatus(), QProcess::CrashExit);
    }
};

} // namespace

// --- Write failures ---

TEST_F(Hostile, ShortResultWriteFailsWithStatusSevenAndKeepsTheOldResult)
{
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    const QString request = requestFile(devicesRequest({{"job_id", QString(8192, 'j')}}));
    const ProcessResult result = runLimited(1, {"-m", "discover_devices", "-r", request, "-o", out});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.err, ("Unable to write output file: " + out + "\n").toUtf8());
    EXPECT_TRUE(result.out.isEmpty());
    EXPECT_EQ(test_support::readFile(out), QByteArray("previous result\n"));
    EXPECT_EQ(everyEntry(dir_.path()), (QStringList{"request.json", "result.json"}));
}

TEST_F(Hostile, ShortItemsResultWriteFailsWithStatusSeven)
{
    startSim(typesScenario());
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    const QString request = requestFile(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    const ProcessResult result = runLimited(2, {"-r", request, "-o", out});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.err, ("Unable to write output file: " + out + "\n").toUtf8());
    EXPECT_EQ(test_support::readFile(out), QByteArray("previous result\n"));
    EXPECT_EQ(everyEntry(dir_.path()), (QStringList{"request.json", "result.json"}));
}

TEST_F(Hostile, SnapshotsThatCannotBeWrittenChangeNothing)
{
    startSim(typesScenario());
    const QString snapshotDir = path("progress");
    ASSERT_TRUE(QDir().mkpath(snapshotDir));
    const QString request = requestFile(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    // Standard output is a pipe, which the limit does not cover; every snapshot is larger than it.
    const ProcessResult result = runLimited(1, {"-r", request}, {{"OVRIN_DISCOVERY_OUTPUT_FILE", snapshotDir + "/p.json"}});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.exitCode, 0) << test_support::describe(result);
    EXPECT_TRUE(result.err.isEmpty());
    bool ok = false;
    EXPECT_EQ(items_test::parseObject(result.out, &ok).value("items").toArray().size(), 33);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(everyEntry(snapshotDir).isEmpty());
}

// --- Secrets at rest ---

TEST_F(Hostile, NewResultAndSnapshotAreOwnerOnly)
{
    startSim(typesScenario());
    const QString out = path("result.json");
    const QString snapshot = path("progress.json");
    const QString request = requestFile(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    // With no umask at all, as a careless service manager might start the tool.
    const QString command = QStringLiteral("umask 0; exec \"$0\" \"$@\"");
    const ProcessResult result = test_support::runProcess(
        "/bin/bash", {"-c", command, test_support::discoverExecutable(), "-r", request, "-o", out},
        {{"OVRIN_DISCOVERY_OUTPUT_FILE", snapshot}});
    ASSERT_EQ(result.exitCode, 0) << test_support::describe(result);
    EXPECT_EQ(test_support::fileMode(out), 0600u);
    EXPECT_EQ(test_support::fileMode(snapshot), 0600u);
}

TEST_F(Hostile, ReplacedResultKeepsItsPermissions)
{
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    ASSERT_EQ(::chmod(QFile::encodeName(out).constData(), 0640), 0);
    const ProcessResult result = test_support::runDiscover({"-m", "discover_devices", "-r", requestFile(devicesRequest()), "-o", out});
    ASSERT_EQ(result.exitCode, 0) << test_support::describe(result);
    EXPECT_EQ(test_support::fileMode(out), 0640u);
    EXPECT_NE(test_support::readFile(out), QByteArray("previous result\n"));
}

TEST_F(Hostile, PasswordAppearsOnlyInTheRequestedDevice)
{
    QJsonObject scenario = typesScenario();
    scenario.insert("users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", kPassword}}});
    scenario.insert("anonymous", false);
    startSim(scenario);
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("username", "operator");
    device.insert("password", kPassword);
    const QString out = path("result.json");
    const QString snapshot = path("progress.json");
    const ProcessResult result =
        run(QJsonObject{{"device", device}}, {"--output", out}, {{"OVRIN_DISCOVERY_OUTPUT_FILE", snapshot}});
    ASSERT_EQ(result.exitCode, 0) << test_support::describe(result);
    EXPECT_FALSE(result.err.contains(kPassword));
    EXPECT_FALSE(result.out.contains(kPassword));
    for (const QString& file : {out, snapshot}) {
        const QByteArray bytes = test_support::readFile(file);
        EXPECT_EQ(bytes.count(kPassword), 1) << file.toStdString();
        QJsonObject document = QJsonDocument::fromJson(bytes).object();
        EXPECT_EQ(document.value("requested_device").toObject(), device);
        EXPECT_EQ(document.value("items").toArray().size(), file == out ? 33 : document.value("items").toArray().size());
        document.remove("requested_device");
        EXPECT_FALSE(QJsonDocument(document).toJson().contains(kPassword)) << file.toStdString();
    }

    device.insert("password", QString(kPassword) + "-wrong");
    const ProcessResult refused = run(QJsonObject{{"device", device}}, {"--output", out});
    EXPECT_EQ(refused.exitCode, 5) << test_support::describe(refused);
    EXPECT_FALSE(refused.err.contains(kPassword));
    EXPECT_FALSE(refused.out.contains(kPassword));
}

// --- Kills ---

TEST_F(Hostile, KillDuringALongBrowseLeavesOnlyACompleteSnapshot)
{
    startSim(syntheticScenario(20000));
    const QString request = requestFile(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    const QString snapshot = path("progress.json");
    for (int round = 0; round < 4; ++round) {
        QFile::remove(snapshot);
        QProcess process;
        startDiscover(&process, {"-r", request}, snapshot);
        QElapsedTimer timer;
        timer.start();
        while (!QFile::exists(snapshot) && timer.elapsed() < 60000 && process.state() == QProcess::Running)
            QThread::msleep(5);
        ASSERT_TRUE(QFile::exists(snapshot)) << "no snapshot within a minute";
        ASSERT_EQ(process.state(), QProcess::Running) << "browse ended before the kill";
        // Spread over the browse: between snapshots and in the middle of one.
        QThread::msleep(static_cast<unsigned long>(round * 97));
        const qint64 pid = process.processId();
        killNow(&process);
        EXPECT_EQ(entriesAfterKill("progress.json", pid), (QStringList{"progress.json", "request.json"}))
            << "round " << round;
        bool ok = false;
        const QJsonObject document = items_test::parseObject(test_support::readFile(snapshot), &ok);
        EXPECT_TRUE(ok) << "round " << round;
        EXPECT_EQ(document.value("success"), QJsonValue(true));
    }
}

TEST_F(Hostile, KillDuringTheResultWriteLeavesTheOldOrTheNewResult)
{
    // A large result keeps the process busy serialising and writing it for a while.
    const QString request = requestFile(devicesRequest({{"job_id", QString(1024 * 1024, 'j')}}));
    const QString out = path("result.json");
    QElapsedTimer timer;
    timer.start();
    const ProcessResult whole = test_support::runDiscover({"-m", "discover_devices", "-r", request, "-o", out});
    const qint64 runMs = timer.elapsed();
    ASSERT_EQ(whole.exitCode, 0) << test_support::describe(whole);
    const QByteArray complete = test_support::readFile(out);
    for (int round = 0; round < 8; ++round) {
        test_support::writeFile(dir_.path(), "result.json", "previous result\n");
        QProcess process;
        startDiscover(&process, {"-m", "discover_devices", "-r", request, "-o", out}, QString());
        QThread::msleep(static_cast<unsigned long>(runMs * (round + 2) / 10));
        // It may have ended just before: then the new result must be there whole.
        const qint64 pid = process.processId();
        ::kill(pid_t(pid), SIGKILL);
        ASSERT_TRUE(process.waitForFinished(10000));
        const QByteArray left = test_support::readFile(out);
        EXPECT_TRUE(left == "previous result\n" || left == complete) << "round " << round << ": " << left.left(80).constData();
        EXPECT_EQ(entriesAfterKill("result.json", pid), (QStringList{"request.json", "result.json"})) << "round " << round;
    }
}

TEST_F(Hostile, TemporaryFilesOfDeadProcessesAreRemovedAtTheNextStart)
{
    startSim(typesScenario());
    const QString out = path("result.json");
    const QString snapshot = path("progress.json");
    const QString dead = QString::number(test_support::endedProcessId());
    const QString liveOwner = QString::number(QCoreApplication::applicationPid());
    test_support::writeFile(dir_.path(), "result.json.part-" + dead, "cut result");
    test_support::writeFile(dir_.path(), "progress.json.part-" + dead, "cut snapshot");
    test_support::writeFile(dir_.path(), "result.json.part-" + liveOwner, "another writer's");
    const ProcessResult result = run(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}, {"--output", out},
                                     {{"OVRIN_DISCOVERY_OUTPUT_FILE", snapshot}});
    ASSERT_EQ(result.exitCode, 0) << test_support::describe(result);
    EXPECT_EQ(everyEntry(dir_.path()),
              (QStringList{"progress.json", "request.json", "result.json", "result.json.part-" + liveOwner}));
}

// --- Output paths that are devices or pipes ---

namespace {

bool hasFileType(const QString& path, mode_t type)
{
    struct stat status;
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 && (status.st_mode & S_IFMT) == type;
}

} // namespace

TEST_F(Hostile, ResultOnAFullDeviceFailsWithStatusSevenAndTheDeviceStays)
{
    const ProcessResult result = test_support::runDiscover({"-m", "discover_devices", "-r", requestFile(devicesRequest()), "-o", "/dev/full"});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.err, QByteArray("Unable to write output file: /dev/full\n"));
    EXPECT_TRUE(result.out.isEmpty());
    EXPECT_TRUE(hasFileType("/dev/full", S_IFCHR));
}

TEST_F(Hostile, ResultAndSnapshotsOnTheNullDeviceAreDiscarded)
{
    startSim(typesScenario());
    const ProcessResult result = run(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}, {"--output", "/dev/null"},
                                     {{"OVRIN_DISCOVERY_OUTPUT_FILE", "/dev/null"}});
    ASSERT_EQ(result.exitCode, 0) << test_support::describe(result);
    EXPECT_TRUE(result.err.isEmpty());
    EXPECT_TRUE(result.out.isEmpty());
    EXPECT_TRUE(hasFileType("/dev/null", S_IFCHR));
}

TEST_F(Hostile, ResultOnAPipeWithoutAReaderFailsAtOnce)
{
    const QString fifo = path("result.fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const ProcessResult result =
        test_support::runDiscover({"-m", "discover_devices", "-r", requestFile(devicesRequest()), "-o", fifo}, {}, 10000);
    ASSERT_TRUE(result.finished) << "discover blocked on its output pipe";
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.err, ("Unable to open output file: " + fifo + "\n").toUtf8());
    EXPECT_TRUE(hasFileType(fifo, S_IFIFO));
}

TEST_F(Hostile, ResultOnAPipeReachesItsReader)
{
    const QString fifo = path("result.fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const int reader = ::open(QFile::encodeName(fifo).constData(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    const ProcessResult result = test_support::runDiscover({"-m", "discover_devices", "-r", requestFile(devicesRequest()), "-o", fifo});
    QByteArray document(65536, '\0');
    const ssize_t got = ::read(reader, document.data(), size_t(document.size()));
    ::close(reader);
    ASSERT_EQ(result.exitCode, 0) << test_support::describe(result);
    document.resize(int(std::max<ssize_t>(got, 0)));
    bool ok = false;
    EXPECT_TRUE(items_test::parseObject(document, &ok).value("devices").isArray());
    EXPECT_TRUE(ok) << document.toStdString();
    EXPECT_TRUE(hasFileType(fifo, S_IFIFO));
}

// --- Request files ---

class HostileRequest : public ::testing::Test
{
protected:
    void expectUnopenable(const QString& requestPath)
    {
        const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
        QElapsedTimer timer;
        timer.start();
        const ProcessResult result = test_support::runDiscover({"-m", "discover_devices", "-r", requestPath, "-o", out}, {}, 10000);
        ASSERT_TRUE(result.finished) << "discover blocked on " << requestPath.toStdString();
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.err, ("Unable to open request file: " + requestPath + "\n").toUtf8());
        EXPECT_TRUE(result.out.isEmpty());
        EXPECT_EQ(test_support::readFile(out), QByteArray("previous result\n"));
        EXPECT_LT(timer.elapsed(), 5000);
    }
    QTemporaryDir dir_;
};

// A source that never delivers a whole request holds the job for the wait and no longer. The
// three run side by side, so that the test takes the wait once.
TEST_F(HostileRequest, SourcesThatNeverEndFailAfterTheWait)
{
    const QString fifo = dir_.filePath("request.fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    struct Case
    {
        QString name;
        QStringList arguments;
        QByteArray sent;   // written to standard input, which stays open
        QByteArray message;
    };
    const QList<Case> cases{
        {"fifo-without-writer", {"-r", fifo}, {}, ("Request file gave no data within 10 s: " + fifo + "\n").toUtf8()},
        {"silent-pipe", {"-r", "/dev/stdin"}, {}, "Request file gave no data within 10 s: /dev/stdin\n"},
        {"stalled-pipe", {"-r", "/dev/stdin"}, "{\"mode\":", "Request file did not end within 10 s: /dev/stdin\n"},
    };
    std::vector<std::unique_ptr<QProcess>> processes;
    for (const Case& c : cases) {
        const QString out = test_support::writeFile(dir_.path(), c.name + ".json", "previous result\n");
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->start(test_support::discoverExecutable(), QStringList{"-m", "discover_devices", "-o", out} + c.arguments);
        ASSERT_TRUE(processes.back()->waitForStarted(10000));
        processes.back()->write(c.sent);
        ASSERT_TRUE(processes.back()->waitForBytesWritten(10000) || c.sent.isEmpty());
    }
    for (int i = 0; i < cases.size(); ++i) {
        QProcess& process = *processes[size_t(i)];
        const bool finished = process.waitForFinished(requestWaitMs + 20000);
        if (!finished)
            process.kill();
        process.waitForFinished(5000);
        ASSERT_TRUE(finished) << cases[i].name.toStdString() << " did not end after the wait";
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 1) << cases[i].name.toStdString();
        EXPECT_EQ(process.readAllStandardError(), cases[i].message);
        EXPECT_TRUE(process.readAllStandardOutput().isEmpty());
        EXPECT_EQ(test_support::readFile(dir_.filePath(cases[i].name + ".json")), QByteArray("previous result\n"));
    }
}

TEST_F(HostileRequest, EndlessDeviceFailsAtOnce)
{
    expectUnopenable("/dev/zero");
}

TEST_F(HostileRequest, DirectoryFails)
{
    expectUnopenable(dir_.path());
}

TEST_F(HostileRequest, SocketFails)
{
    QLocalServer server;
    server.setSocketOptions(QLocalServer::UserAccessOption);
    const QString socketPath = dir_.filePath("request.sock");
    ASSERT_TRUE(server.listen(socketPath)) << server.errorString().toStdString();
    expectUnopenable(socketPath);
}

TEST_F(HostileRequest, FileOverTheLimitFailsAtOnce)
{
    const QString big = test_support::writeFile(dir_.path(), "big.json", "{}");
    ASSERT_EQ(::truncate(QFile::encodeName(big).constData(), maxRequestFileBytes + 1), 0);
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    const ProcessResult result = test_support::runDiscover({"-m", "discover_devices", "-r", big, "-o", out});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, ("Request file is larger than 64 MiB: " + big + "\n").toUtf8());
    EXPECT_TRUE(result.out.isEmpty());
    EXPECT_EQ(test_support::readFile(out), QByteArray("previous result\n"));
}

TEST_F(HostileRequest, LinkToAFifoWithAWriterIsRead)
{
    const QString fifo = dir_.filePath("request.fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const QString link = dir_.filePath("request.json");
    ASSERT_TRUE(QFile::link(fifo, link));
    const QString request = test_support::writeJsonFile(dir_.path(), "source.json", devicesRequest({{"job_id", "fifo"}}));
    // The writer opens the FIFO itself, under a time limit, so that it never outlives the test.
    const QString command = QStringLiteral(R"(timeout 20 tee "$2" < "$1" > /dev/null & "$0" -m discover_devices -r "$3"; )"
                                           R"(status=$?; wait; exit $status)");
    const ProcessResult result =
        test_support::runProcess("/bin/bash", {"-c", command, test_support::discoverExecutable(), request, fifo, link});
    ASSERT_EQ(result.exitCode, 0) << test_support::describe(result);
    bool ok = false;
    EXPECT_EQ(items_test::parseObject(result.out, &ok).value("job_id").toString(), "fifo");
    EXPECT_TRUE(ok);
}
