#include "tests/support/items_fixture.h"

#include "sim/support/files.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>

namespace items_test {

const char kSecurityPolicyNone[] = "http://opcfoundation.org/UA/SecurityPolicy#None";

QJsonObject noneDevice(const QString& address)
{
    return QJsonObject{{"address", address}, {"security_mode", "1"}, {"security_policies", kSecurityPolicyNone}};
}

QString uidHint(const QString& devicePart, const QString& identifier)
{
    const QByteArray hash = QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex();
    return QStringLiteral("opcua_") + devicePart + QLatin1Char('_') + QString::fromLatin1(hash.left(16));
}

QJsonObject itemRecord(const QString& devicePart, const QString& identifier, const QString& name,
                       const QString& description, const QString& dataType, const QString& readWrite)
{
    return QJsonObject{{"external_id", identifier},
                       {"uid_hint", uidHint(devicePart, identifier)},
                       {"name", name},
                       {"description", description},
                       {"unit", ""},
                       {"data_type", dataType},
                       {"read_write", readWrite},
                       {"user_defined_fields", QJsonObject{{"identifier", identifier},
                                                           {"floating_point_precision", "4"},
                                                           {"access_level", "0"},
                                                           {"history_from", "-2000"},
                                                           {"history_to", "0"},
                                                           {"history_no_value_handling", "0"}}}};
}

QJsonObject expectedRecord(const QString& devicePart, const ClientCore::BrowseItem& item)
{
    const QString readWrite = item.writable ? (item.readable ? "readwrite" : "write") : "read";
    return itemRecord(devicePart, item.nodeId, item.browsePath, item.description, item.dataType, readWrite);
}

BrowseItems::Item addItem(BrowseItems* items, const QString& identifier, bool readable, bool writable)
{
    BrowsePathTree& paths = items->paths();
    const NodeTable::Key node = items->nodes().add(identifier);
    const Ua::SupportedType* type = Ua::supportedTypeOfKind(UA_DATATYPEKIND_DOUBLE);
    items->append(node, paths.child(paths.child(BrowsePathTree::empty, "Plant"), identifier), *type, readable, writable,
                  false);
    return items->itemOf(node);
}

QJsonObject itemById(const QJsonArray& items, const QString& identifier)
{
    for (const QJsonValue& item : items) {
        if (item.toObject().value("external_id").toString() == identifier)
            return item.toObject();
    }
    return QJsonObject();
}

QStringList identifiers(const QJsonArray& items)
{
    QStringList ids;
    for (const QJsonValue& item : items)
        ids.append(item.toObject().value("external_id").toString());
    return ids;
}

QString lastLine(const QByteArray& text)
{
    QList<QByteArray> lines = text.split('\n');
    while (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines.isEmpty() ? QString() : QString::fromUtf8(lines.last());
}

QJsonObject parseObject(const QByteArray& json, bool* ok)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    *ok = error.error == QJsonParseError::NoError && document.isObject();
    return document.object();
}

bool PrivateDiscover::make(bool withFilesDir, QString* error)
{
    if (!dir.isValid()) {
        *error = QStringLiteral("no temporary directory");
        return false;
    }
    executable = dir.filePath(QStringLiteral("discover"));
    if (!QFile::copy(test_support::discoverExecutable(), executable)) {
        *error = QStringLiteral("cannot copy %1").arg(test_support::discoverExecutable());
        return false;
    }
    if (withFilesDir) {
        filesDir = dir.filePath(QStringLiteral("files"));
        if (!QDir().mkpath(filesDir)) {
            *error = QStringLiteral("cannot make %1").arg(filesDir);
            return false;
        }
    }
    return true;
}

void ItemsJob::startSim(const QJsonObject& scenario)
{
    QString error;
    ASSERT_TRUE(sim_.start(scenario, &error)) << error.toStdString();
}

QString ItemsJob::requestFile(const QJsonObject& request)
{
    return test_support::writeJsonFile(dir_.path(), QStringLiteral("request.json"), request);
}

test_support::ProcessResult ItemsJob::run(const QJsonObject& request, const QStringList& extraArguments,
                                          const QMap<QString, QString>& env, int timeoutMs)
{
    QMap<QString, QString> environment{{"OVRIN_DISCOVERY_OUTPUT_FILE", ""}};
    for (auto it = env.constBegin(); it != env.constEnd(); ++it)
        environment.insert(it.key(), it.value());
    const QStringList arguments = QStringList{"--request", requestFile(request)} + extraArguments;
    const QString program = program_.isEmpty() ? test_support::discoverExecutable() : program_;
    return test_support::runProcess(program, arguments, environment, timeoutMs);
}

QJsonObject ItemsJob::runOk(const QJsonObject& request, const QMap<QString, QString>& env)
{
    const test_support::ProcessResult result = run(request, {}, env);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 0) << result.err.constData();
    bool ok = false;
    const QJsonObject document = parseObject(result.out, &ok);
    EXPECT_TRUE(ok) << result.out.constData();
    EXPECT_EQ(result.out, test_support::indentedJson(document));
    return document;
}

} // namespace items_test
