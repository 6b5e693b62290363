#include "sim/server/scenario.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

namespace opcua_sim {

namespace {

const QStringList allPresets = {"types",      "writable", "unsupported", "access", "alias",
                                "properties", "deep",     "many",        "history", "empty"};
// Presets that "all" leaves out: what they add would change the walks of every "all" scenario.
const QStringList namedOnlyPresets = {"derived", "names"};

// Typos in a scenario would silently test something else, so unknown keys are errors.
bool onlyKnownKeys(const QJsonObject& object, const QStringList& known, const QString& where, QString* error)
{
    for (const QString& key : object.keys()) {
        if (!known.contains(key)) {
            *error = QStringLiteral("unknown key \"%1\" in %2").arg(key, where);
            return false;
        }
    }
    return true;
}

bool readString(const QJsonObject& object, const QString& key, QString* out, QString* error)
{
    if (!object.contains(key))
        return true;
    if (!object.value(key).isString()) {
        *error = QStringLiteral("\"%1\" must be a string").arg(key);
        return false;
    }
    *out = object.value(key).toString();
    return true;
}

bool readBool(const QJsonObject& object, const QString& key, bool* out, QString* error)
{
    if (!object.contains(key))
        return true;
    if (!object.value(key).isBool()) {
        *error = QStringLiteral("\"%1\" must be true or false").arg(key);
        return false;
    }
    *out = object.value(key).toBool();
    return true;
}

bool readInteger(const QJsonObject& object, const QString& key, qint64 minimum, qint64 maximum, qint64* out,
                 QString* error)
{
    if (!object.contains(key))
        return true;
    const QJsonValue value = object.value(key);
    const double number = value.toDouble(-1e300);
    if (!value.isDouble() || number != static_cast<double>(static_cast<qint64>(number)) || number < minimum ||
        number > maximum) {
        *error = QStringLiteral("\"%1\" must be an integer from %2 to %3")
                     .arg(key, QString::number(minimum), QString::number(maximum));
        return false;
    }
    *out = static_cast<qint64>(number);
    return true;
}

template <typename T>
bool readNumber(const QJsonObject& object, const QString& key, qint64 minimum, qint64 maximum, T* out,
                QString* error)
{
    qint64 value = static_cast<qint64>(*out);
    if (!readInteger(object, key, minimum, maximum, &value, error))
        return false;
    *out = static_cast<T>(value);
    return true;
}

bool readStringList(const QJsonObject& object, const QString& key, QStringList* out, QString* error)
{
    if (!object.contains(key))
        return true;
    if (!object.value(key).isArray()) {
        *error = QStringLiteral("\"%1\" must be a list of strings").arg(key);
        return false;
    }
    out->clear();
    for (const QJsonValue& item : object.value(key).toArray()) {
        if (!item.isString()) {
            *error = QStringLiteral("\"%1\" must be a list of strings").arg(key);
            return false;
        }
        out->append(item.toString());
    }
    return true;
}

bool readApplicationType(const QJsonObject& object, int* out, QString* error)
{
    if (!object.contains("type"))
        return true;
    const QJsonValue value = object.value("type");
    static const QStringList names = {"Server", "Client", "ClientAndServer", "DiscoveryServer"};
    if (value.isString() && names.contains(value.toString())) {
        *out = names.indexOf(value.toString());
        return true;
    }
    if (value.isDouble() && value.toInt(-1) >= 0 && value.toInt(-1) <= 3) {
        *out = value.toInt();
        return true;
    }
    *error = QStringLiteral("\"type\" must be Server, Client, ClientAndServer, DiscoveryServer or 0..3");
    return false;
}

bool readApplication(const QJsonObject& object, bool withUrls, const QString& where, ApplicationSettings* app,
                     QString* error)
{
    QStringList known = {"name", "locale", "uri", "product_uri", "type"};
    if (withUrls)
        known << "discovery_urls";
    return onlyKnownKeys(object, known, where, error) && readString(object, "name", &app->name, error) &&
           readString(object, "locale", &app->locale, error) && readString(object, "uri", &app->uri, error) &&
           readString(object, "product_uri", &app->productUri, error) && readApplicationType(object, &app->type, error) &&
           (!withUrls || readStringList(object, "discovery_urls", &app->discoveryUrls, error));
}

bool readEndpoints(const QJsonValue& value, Scenario* scenario, QString* error)
{
    if (!value.isArray()) {
        *error = QStringLiteral("\"endpoints\" must be a list");
        return false;
    }
    static const QStringList modes = {"Invalid", "None", "Sign", "SignAndEncrypt"};
    static const QStringList policies = {"None",           "Basic128Rsa15",         "Basic256",
                                         "Basic256Sha256", "Aes128_Sha256_RsaOaep", "Aes256_Sha256_RsaPss"};
    scenario->endpoints.clear();
    for (const QJsonValue& item : value.toArray()) {
        const QJsonObject object = item.toObject();
        if (!item.isObject() || !onlyKnownKeys(object, {"mode", "policy", "security_level"}, "an endpoint", error)) {
            if (error->isEmpty())
                *error = QStringLiteral("every endpoint must be an object");
            return false;
        }
        EndpointSettings endpoint;
        QString mode = QStringLiteral("None");
        QString policy = QStringLiteral("None");
        if (!readString(object, "mode", &mode, error) || !readString(object, "policy", &policy, error) ||
            !readNumber(object, "security_level", 0, 255, &endpoint.securityLevel, error))
            return false;
        if (!modes.contains(mode)) {
            *error = QStringLiteral("unknown security mode \"%1\"").arg(mode);
            return false;
        }
        if (!policies.contains(policy)) {
            *error = QStringLiteral("unknown security policy \"%1\"").arg(policy);
            return false;
        }
        endpoint.mode = modes.indexOf(mode);
        endpoint.policyUri = securityPolicyUri(policy);
        scenario->endpoints.append(endpoint);
    }
    scenario->noEndpoints = scenario->endpoints.isEmpty();
    return true;
}

bool readUsers(const QJsonValue& value, Scenario* scenario, QString* error)
{
    if (!value.isArray()) {
        *error = QStringLiteral("\"users\" must be a list");
        return false;
    }
    for (const QJsonValue& item : value.toArray()) {
        const QJsonObject object = item.toObject();
        UserSettings user;
        if (!item.isObject() || !onlyKnownKeys(object, {"name", "password"}, "a user", error) ||
            !readString(object, "name", &user.name, error) || !readString(object, "password", &user.password, error)) {
            if (error->isEmpty())
                *error = QStringLiteral("every user must be an object");
            return false;
        }
        if (user.name.isEmpty()) {
            *error = QStringLiteral("a user needs a \"name\"");
            return false;
        }
        scenario->users.append(user);
    }
    return true;
}

bool readFindServers(const QJsonObject& object, Scenario* scenario, QString* error)
{
    if (!onlyKnownKeys(object, {"self", "extra"}, "\"find_servers\"", error) ||
        !readBool(object, "self", &scenario->findServersSelf, error))
        return false;
    if (!object.contains("extra"))
        return true;
    if (!object.value("extra").isArray()) {
        *error = QStringLiteral("\"extra\" must be a list");
        return false;
    }
    for (const QJsonValue& item : object.value("extra").toArray()) {
        ApplicationSettings app;
        app.locale = QStringLiteral("en");
        if (!item.isObject()) {
            *error = QStringLiteral("every \"extra\" entry must be an object");
            return false;
        }
        if (!readApplication(item.toObject(), true, "an \"extra\" entry", &app, error))
            return false;
        scenario->extraServers.append(app);
    }
    return true;
}

bool readAddressSpace(const QJsonObject& object, AddressSpaceSettings* space, QString* error)
{
    if (!onlyKnownKeys(object,
                       {"presets", "hide_server_object", "deep_levels", "many_children", "derived_children",
                        "synthetic_count", "synthetic_folder_size", "max_references_per_node"},
                       "\"address_space\"", error))
        return false;
    if (object.value("presets").isString()) {
        if (object.value("presets").toString() != QLatin1String("all")) {
            *error = QStringLiteral("\"presets\" must be a list of preset names or \"all\"");
            return false;
        }
        space->presets = allPresets;
    } else if (!readStringList(object, "presets", &space->presets, error)) {
        return false;
    }
    for (const QString& preset : space->presets) {
        if (!allPresets.contains(preset) && !namedOnlyPresets.contains(preset)) {
            *error = QStringLiteral("unknown preset \"%1\"").arg(preset);
            return false;
        }
    }
    return readBool(object, "hide_server_object", &space->hideServerObject, error) &&
           readNumber(object, "deep_levels", 1, 1000, &space->deepLevels, error) &&
           readNumber(object, "many_children", 0, 1000000, &space->manyChildren, error) &&
           readNumber(object, "derived_children", 0, 100000, &space->derivedChildren, error) &&
           readNumber(object, "synthetic_count", 0, 2000000, &space->syntheticCount, error) &&
           readNumber(object, "synthetic_folder_size", 1, 1000000, &space->syntheticFolderSize, error) &&
           readNumber(object, "max_references_per_node", 0, 0x7fffffff, &space->maxReferencesPerNode, error);
}

bool readDuration(const QJsonObject& object, const QString& key, double* out, QString* error)
{
    if (!object.contains(key))
        return true;
    const QJsonValue value = object.value(key);
    if (!value.isDouble() || value.toDouble() < 0 || value.toDouble() > 60000) {
        *error = QStringLiteral("\"%1\" must be a number from 0 to 60000").arg(key);
        return false;
    }
    *out = value.toDouble();
    return true;
}

bool readLimits(const QJsonObject& object, OperationLimits* limits, QString* error)
{
    return onlyKnownKeys(object,
                         {"max_nodes_per_browse", "max_nodes_per_read", "max_browse_continuation_points",
                          "publish_limits", "published_max_nodes_per_browse", "published_max_nodes_per_read"},
                         "\"limits\"", error) &&
           readNumber(object, "max_nodes_per_browse", 0, 0x7fffffff, &limits->maxNodesPerBrowse, error) &&
           readNumber(object, "max_nodes_per_read", 0, 0x7fffffff, &limits->maxNodesPerRead, error) &&
           readNumber(object, "max_browse_continuation_points", 0, 65535, &limits->maxBrowseContinuationPoints, error) &&
           readBool(object, "publish_limits", &limits->publish, error) &&
           readNumber(object, "published_max_nodes_per_browse", 0, 0x7fffffff, &limits->publishedMaxNodesPerBrowse,
                      error) &&
           readNumber(object, "published_max_nodes_per_read", 0, 0x7fffffff, &limits->publishedMaxNodesPerRead, error);
}

bool validFault(const MisbehaviourSettings& settings, QString* error)
{
    const QStringList actions = {QString(), QStringLiteral("close"), QStringLiteral("freeze"), QStringLiteral("restart")};
    if (!actions.contains(settings.fault)) {
        *error = QStringLiteral("\"fault\" must be \"close\", \"freeze\" or \"restart\"");
        return false;
    }
    if (!settings.fault.isEmpty() && settings.faultAfter < 0 && settings.faultNode.isEmpty()) {
        *error = QStringLiteral("\"fault\" needs \"fault_after\" or \"fault_node\"");
        return false;
    }
    return true;
}

bool readMisbehaviour(const QJsonObject& object, MisbehaviourSettings* settings, QString* error)
{
    return onlyKnownKeys(object,
                         {"delay_ms", "delay_after", "delay_services", "delay_per_operation_ms", "drop_after",
                          "drop_services", "fault", "fault_after", "fault_node", "fault_services"},
                         "\"misbehaviour\"", error) &&
           readNumber(object, "delay_ms", 0, 3600000, &settings->delayMs, error) &&
           readDuration(object, "delay_per_operation_ms", &settings->delayPerOperationMs, error) &&
           readNumber(object, "delay_after", 0, 1LL << 40, &settings->delayAfter, error) &&
           readStringList(object, "delay_services", &settings->delayServices, error) &&
           readNumber(object, "drop_after", -1, 1LL << 40, &settings->dropAfter, error) &&
           readStringList(object, "drop_services", &settings->dropServices, error) &&
           readString(object, "fault", &settings->fault, error) &&
           readNumber(object, "fault_after", -1, 1LL << 40, &settings->faultAfter, error) &&
           readString(object, "fault_node", &settings->faultNode, error) &&
           readStringList(object, "fault_services", &settings->faultServices, error) && validFault(*settings, error);
}

bool readObject(const QJsonObject& json, const QString& key, QJsonObject* out, QString* error)
{
    if (!json.contains(key))
        return true;
    if (!json.value(key).isObject()) {
        *error = QStringLiteral("\"%1\" must be an object").arg(key);
        return false;
    }
    *out = json.value(key).toObject();
    return true;
}

} // namespace

QString securityPolicyUri(const QString& shortName)
{
    return QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#") + shortName;
}

bool scenarioFromJson(const QJsonObject& json, Scenario* scenario, QString* error)
{
    QString ignored;
    if (!error)
        error = &ignored;
    error->clear();
    Scenario result;
    result.application.name = QStringLiteral("opcua_sim");
    result.application.locale = QStringLiteral("en");
    result.application.uri = QStringLiteral("urn:discover:opcua_sim");
    result.application.productUri = QStringLiteral("urn:discover:opcua_sim:product");
    result.endpoints.append(EndpointSettings{1, securityPolicyUri("None"), -1});

    QJsonObject application, findServers, addressSpace, limits, misbehaviour;
    const bool ok =
        onlyKnownKeys(json,
                      {"listen", "port", "advertised_host", "path", "application", "endpoints", "anonymous", "users",
                       "find_servers", "address_space", "limits", "misbehaviour", "description"},
                      "the scenario", error) &&
        readString(json, "listen", &result.listen, error) && readNumber(json, "port", 1, 65535, &result.port, error) &&
        readString(json, "advertised_host", &result.advertisedHost, error) &&
        readString(json, "path", &result.path, error) && readObject(json, "application", &application, error) &&
        readApplication(application, false, "\"application\"", &result.application, error) &&
        (!json.contains("endpoints") || readEndpoints(json.value("endpoints"), &result, error)) &&
        readBool(json, "anonymous", &result.anonymous, error) &&
        (!json.contains("users") || readUsers(json.value("users"), &result, error)) &&
        readObject(json, "find_servers", &findServers, error) && readFindServers(findServers, &result, error) &&
        readObject(json, "address_space", &addressSpace, error) &&
        readAddressSpace(addressSpace, &result.addressSpace, error) &&
        readObject(json, "limits", &limits, error) && readLimits(limits, &result.limits, error) &&
        readObject(json, "misbehaviour", &misbehaviour, error) &&
        readMisbehaviour(misbehaviour, &result.misbehaviour, error);
    if (!ok)
        return false;
    if (!result.path.isEmpty() && !result.path.startsWith('/')) {
        *error = QStringLiteral("\"path\" must begin with \"/\"");
        return false;
    }
    *scenario = result;
    return true;
}

bool loadScenario(const QString& path, Scenario* scenario, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        *error = QStringLiteral("%1 is not a JSON object: %2").arg(path, parseError.errorString());
        return false;
    }
    return scenarioFromJson(document.object(), scenario, error);
}

bool hasPreset(const Scenario& scenario, const QString& preset)
{
    return scenario.addressSpace.presets.contains(preset);
}

QString advertisedHost(const Scenario& scenario)
{
    if (!scenario.advertisedHost.isEmpty())
        return scenario.advertisedHost;
    if (scenario.listen.isEmpty() || scenario.listen == QLatin1String("0.0.0.0"))
        return QStringLiteral("127.0.0.1");
    return scenario.listen;
}

QString advertisedUrl(const Scenario& scenario)
{
    return QStringLiteral("opc.tcp://%1:%2%3").arg(advertisedHost(scenario), QString::number(scenario.port), scenario.path);
}

} // namespace opcua_sim
