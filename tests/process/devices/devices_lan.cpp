#include "tests/process/devices/devices_lan.h"

#include "sim/support/files.h"

#include <QDir>
#include <QJsonDocument>

#include <algorithm>

namespace devices_test {

QString lanIp(int lastOctet)
{
    return QStringLiteral("10.66.1.%1").arg(lastOctet);
}

QString lanUrl(int lastOctet, int port, const QString& path)
{
    return QStringLiteral("opc.tcp://%1:%2%3").arg(lanIp(lastOctet), QString::number(port), path);
}

QString lanUid(int lastOctet, int port, const QString& path)
{
    QString tail = path;
    tail.replace(QLatin1Char('/'), QLatin1Char('_'));
    return QStringLiteral("opcua_10_66_1_%1_%2%3").arg(QString::number(lastOctet), QString::number(port), tail);
}

QString simExecutablePath()
{
    return QStringLiteral(OPCUA_SIM_EXECUTABLE);
}

DevicesLan::DevicesLan()
    : lan_(std::make_unique<test_support::NetLan>(QStringLiteral("devices")))
{
}

bool DevicesLan::up(const QStringList& hosts, QString* error, const QStringList& extraUpArgs)
{
    QStringList args{QStringLiteral("--subnet"), QStringLiteral("10.66.1.0/24"), QStringLiteral("--gateway"),
                     QStringLiteral("gw=%1/24").arg(lanIp(1))};
    for (const QString& host : hosts) {
        const QStringList parts = host.split(QLatin1Char('='));
        args << QStringLiteral("--host") << QStringLiteral("%1=%2/24").arg(parts.at(0), lanIp(parts.at(1).toInt()));
    }
    args << extraUpArgs;
    return lan_->up(args, error);
}

bool DevicesLan::upWith(const QStringList& upArgs, QString* error)
{
    return lan_->up(upArgs, error);
}

bool DevicesLan::startSim(const QString& host, int octet, int port, const QJsonObject& scenario, QString* error)
{
    return startSimAt(host, lanIp(octet), port, scenario, error);
}

bool DevicesLan::startSimAt(const QString& host, const QString& ip, int port, const QJsonObject& scenario,
                            QString* error)
{
    const QString base = QStringLiteral("%1-%2").arg(host, QString::number(port));
    const QString scenarioPath = test_support::writeJsonFile(dir_.path(), base + QStringLiteral(".scenario.json"),
                                                             scenario);
    const QString statsPath = dir_.filePath(base + QStringLiteral(".stats.json"));
    return startProgram(host, port, simExecutablePath(),
                        {QStringLiteral("--scenario"), scenarioPath, QStringLiteral("--listen"), ip,
                         QStringLiteral("--port"), QString::number(port), QStringLiteral("--stats-file"), statsPath},
                        error);
}

bool DevicesLan::startProgram(const QString& host, int port, const QString& program, const QStringList& args,
                              QString* error)
{
    if (lan_->spawn(host, program, args) < 0) {
        *error = QStringLiteral("could not start %1 in %2").arg(program, host);
        return false;
    }
    if (!lan_->waitForTcpListener(host, static_cast<quint16>(port), 60000)) {
        *error = QStringLiteral("%1 does not listen on %2 in %3: %4")
                     .arg(program, QString::number(port), host, lan_->spawnLogs(host));
        return false;
    }
    return true;
}

QJsonObject DevicesLan::simStats(const QString& host, int port) const
{
    const QString path = dir_.filePath(QStringLiteral("%1-%2.stats.json").arg(host, QString::number(port)));
    return QJsonDocument::fromJson(test_support::readFile(path)).object();
}

DiscoverRun DevicesLan::discover(const QJsonObject& request, const QMap<QString, QString>& env,
                                 int timeoutMs) const
{
    const QString requestPath = writeRequest(request);
    // env(1) starts discover with exactly the variables the test chose plus the inherited ones;
    // OVRIN_DISCOVERY_DEBUG is always cleared unless the test sets it.
    QStringList args{QStringLiteral("-u"), QStringLiteral("OVRIN_DISCOVERY_DEBUG")};
    for (auto it = env.cbegin(); it != env.cend(); ++it)
        args << QStringLiteral("%1=%2").arg(it.key(), it.value());
    args << test_support::discoverExecutable() << QStringLiteral("--mode") << QStringLiteral("discover_devices")
         << QStringLiteral("--request") << requestPath;
    DiscoverRun run;
    run.raw = lan_->exec(QStringLiteral("gw"), QStringLiteral("env"), args, timeoutMs);
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(run.raw.out, &parseError);
    run.parsed = parseError.error == QJsonParseError::NoError && document.isObject();
    run.document = document.object();
    return run;
}

QString DevicesLan::writeRequest(const QJsonObject& request) const
{
    return test_support::writeJsonFile(dir_.path(), QStringLiteral("request-%1.json").arg(++requests_), request);
}

test_support::ProcessResult DevicesLan::runWithRequest(const QString& program, const QJsonObject& request,
                                                       const QStringList& args, int timeoutMs) const
{
    return lan_->exec(QStringLiteral("gw"), program, QStringList{writeRequest(request)} + args, timeoutMs);
}

QJsonObject DevicesLan::recordsEachWay(const QJsonObject& request, const QStringList& ways, QString* error) const
{
    const test_support::ProcessResult run = runWithRequest(QStringLiteral(DEVICES_RECORDS_EXECUTABLE), request, ways);
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(run.out, &parseError);
    if (!run.finished || run.exitCode != 0 || parseError.error != QJsonParseError::NoError || !document.isObject()) {
        *error = QString::fromStdString(describe(run));
        return {};
    }
    return document.object();
}

QString nonePolicyUri()
{
    return policyUri(QStringLiteral("None"));
}

QString policyUri(const QString& name)
{
    return QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#") + name;
}

QJsonObject deviceRecord(const QString& address, const QString& name, const QString& description,
                         const QString& uid, const QString& securityMode, const QString& securityPolicy)
{
    QJsonObject fields;
    fields.insert(QStringLiteral("username"), QString());
    fields.insert(QStringLiteral("password"), QString());
    fields.insert(QStringLiteral("security_mode"), securityMode);
    fields.insert(QStringLiteral("security_policies"), securityPolicy.isEmpty() ? nonePolicyUri() : securityPolicy);
    fields.insert(QStringLiteral("certificate"), QStringLiteral("0"));
    fields.insert(QStringLiteral("key"), QStringLiteral("0"));

    QJsonObject record;
    record.insert(QStringLiteral("address"), address);
    record.insert(QStringLiteral("description"), description);
    record.insert(QStringLiteral("external_id"), uid);
    record.insert(QStringLiteral("name"), name);
    record.insert(QStringLiteral("uid_hint"), uid);
    record.insert(QStringLiteral("user_defined_fields"), fields);
    return record;
}

QJsonArray sortedDevices(const QJsonObject& document)
{
    QList<QJsonObject> records;
    for (const QJsonValue& value : document.value(QStringLiteral("devices")).toArray())
        records.append(value.toObject());
    std::sort(records.begin(), records.end(), [](const QJsonObject& a, const QJsonObject& b) {
        const auto key = [](const QJsonObject& o) {
            return std::make_pair(o.value(QStringLiteral("address")).toString(),
                                  o.value(QStringLiteral("description")).toString());
        };
        return key(a) < key(b);
    });
    QJsonArray sorted;
    for (const QJsonObject& record : records)
        sorted.append(record);
    return sorted;
}

void expectCleanRun(const DiscoverRun& run, const QString& expectedStderr)
{
    ASSERT_TRUE(run.raw.finished) << describe(run.raw);
    EXPECT_EQ(run.raw.exitCode, 0) << describe(run.raw);
    ASSERT_TRUE(run.parsed) << describe(run.raw);
    EXPECT_EQ(run.raw.out, test_support::indentedJson(run.document)) << "standard output holds more than the document";
    EXPECT_EQ(QString::fromUtf8(run.raw.err), expectedStderr);

    QStringList keys = run.document.keys();
    keys.removeAll(QStringLiteral("job_id"));
    EXPECT_EQ(keys, (QStringList{QStringLiteral("devices"), QStringLiteral("items"), QStringLiteral("mode"),
                                 QStringLiteral("success"), QStringLiteral("warnings")}));
    EXPECT_EQ(run.document.value(QStringLiteral("success")), QJsonValue(true));
    EXPECT_EQ(run.document.value(QStringLiteral("items")), QJsonValue(QJsonArray()));
    EXPECT_EQ(run.document.value(QStringLiteral("mode")), QJsonValue(QStringLiteral("discover_devices")));
}

} // namespace devices_test
