#include "sim/server/server_setup.h"

#include <open62541/plugin/accesscontrol_default.h>
#include <open62541/plugin/create_certificate.h>
#include <open62541/plugin/pki_default.h>
#include <open62541/server_config_default.h>

#include <QByteArray>
#include <QSet>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

namespace opcua_sim {

namespace {

void logToStderr(void*, UA_LogLevel level, UA_LogCategory, const char* msg, va_list args)
{
    // The stack's start-up remarks about the permissive test configuration are expected.
    if (level < UA_LOGLEVEL_WARNING || std::strstr(msg, "Unconfigured AccessControl") ||
        std::strstr(msg, "x509 Certificate Authentication configured") ||
        std::strstr(msg, "Username/Password configured, but no encrypting SecurityPolicy") ||
        std::strstr(msg, "AcceptAll Certificate Verification") || std::strstr(msg, "SecurityPolicy is unsecure") ||
        std::strstr(msg, "Removing a UserTokenPolicy that would allow the password") ||
        std::strstr(msg, "Creating the session diagnostics object failed") || std::strstr(msg, "Timeout during poll"))
        return;
    std::fprintf(stderr, "opcua_sim: ");
    std::vfprintf(stderr, msg, args);
    std::fputc('\n', stderr);
}

UA_Logger stderrLogger = {logToStderr, nullptr, nullptr};

UA_String uaString(const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    UA_String out = UA_STRING_NULL;
    if (!utf8.isEmpty())
        UA_ByteString_allocBuffer(&out, static_cast<size_t>(utf8.size()));
    if (out.data)
        memcpy(out.data, utf8.constData(), out.length);
    return out;
}

void replaceString(UA_String* target, const QString& text)
{
    UA_String_clear(target);
    *target = uaString(text);
}

// The private key and the certificate, both DER; cleared when the configuration owns copies.
struct KeyPair
{
    UA_ByteString key = UA_BYTESTRING_NULL;
    UA_ByteString certificate = UA_BYTESTRING_NULL;
    ~KeyPair()
    {
        UA_ByteString_clear(&key);
        UA_ByteString_clear(&certificate);
    }
};

bool createKeyPair(const Scenario& scenario, KeyPair* pair, QString* error)
{
    const QByteArray commonName = ("CN=" + scenario.application.name + "@" + advertisedHost(scenario)).toUtf8();
    UA_String subject[3] = {UA_STRING(const_cast<char*>("C=DE")), UA_STRING(const_cast<char*>("O=discover")),
                            UA_STRING(const_cast<char*>(commonName.constData()))};
    const QByteArray uri = ("URI:" + scenario.application.uri).toUtf8();
    const QByteArray host = ("DNS:" + advertisedHost(scenario)).toUtf8();
    UA_String altNames[3] = {UA_STRING(const_cast<char*>(uri.constData())),
                             UA_STRING(const_cast<char*>("DNS:localhost")),
                             UA_STRING(const_cast<char*>(host.constData()))};
    UA_UInt16 keySize = 2048;
    UA_UInt16 days = 365;
    UA_KeyValuePair entries[2];
    entries[0].key = UA_QUALIFIEDNAME(0, const_cast<char*>("key-size-bits"));
    UA_Variant_setScalar(&entries[0].value, &keySize, &UA_TYPES[UA_TYPES_UINT16]);
    entries[1].key = UA_QUALIFIEDNAME(0, const_cast<char*>("expires-in-days"));
    UA_Variant_setScalar(&entries[1].value, &days, &UA_TYPES[UA_TYPES_UINT16]);
    UA_KeyValueMap params = {2, entries};
    const UA_StatusCode status = UA_CreateCertificate(&stderrLogger, subject, 3, altNames, 3,
                                                      UA_CERTIFICATEFORMAT_DER, &params, &pair->key,
                                                      &pair->certificate);
    if (status != UA_STATUSCODE_GOOD) {
        *error = QStringLiteral("creating the server certificate failed: %1")
                     .arg(QString::fromLatin1(UA_StatusCode_name(status)));
        return false;
    }
    return true;
}

bool addSecurityPolicy(UA_ServerConfig* config, const QString& uri, const KeyPair& pair, QString* error)
{
    for (size_t i = 0; i < config->securityPoliciesSize; ++i) {
        const UA_String& existing = config->securityPolicies[i].policyUri;
        if (QString::fromUtf8(reinterpret_cast<const char*>(existing.data), static_cast<int>(existing.length)) == uri)
            return true;
    }
    const QString name = uri.section('#', 1);
    UA_StatusCode status = UA_STATUSCODE_BADINTERNALERROR;
    if (name == QLatin1String("Basic128Rsa15"))
        status = UA_ServerConfig_addSecurityPolicyBasic128Rsa15(config, &pair.certificate, &pair.key);
    else if (name == QLatin1String("Basic256"))
        status = UA_ServerConfig_addSecurityPolicyBasic256(config, &pair.certificate, &pair.key);
    else if (name == QLatin1String("Basic256Sha256"))
        status = UA_ServerConfig_addSecurityPolicyBasic256Sha256(config, &pair.certificate, &pair.key);
    else if (name == QLatin1String("Aes128_Sha256_RsaOaep"))
        status = UA_ServerConfig_addSecurityPolicyAes128Sha256RsaOaep(config, &pair.certificate, &pair.key);
    else if (name == QLatin1String("Aes256_Sha256_RsaPss"))
        status = UA_ServerConfig_addSecurityPolicyAes256Sha256RsaPss(config, &pair.certificate, &pair.key);
    if (status != UA_STATUSCODE_GOOD) {
        *error = QStringLiteral("adding security policy %1 failed: %2")
                     .arg(name, QString::fromLatin1(UA_StatusCode_name(status)));
        return false;
    }
    return true;
}

bool configureEndpoints(UA_ServerConfig* config, const Scenario& scenario, QString* error)
{
    UA_Array_delete(config->endpoints, config->endpointsSize, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
    config->endpoints = nullptr;
    config->endpointsSize = 0;

    QList<EndpointSettings> endpoints = scenario.endpoints;
    // The stack needs an endpoint to start; with an empty list it stays internal and the
    // GetEndpoints answer is emptied on the wire.
    if (scenario.noEndpoints)
        endpoints = {EndpointSettings{1, securityPolicyUri("None"), -1}};
    bool noneEndpoint = false;
    for (const EndpointSettings& endpoint : endpoints) {
        UA_String uri = uaString(endpoint.policyUri);
        const UA_StatusCode status = UA_ServerConfig_addEndpoint(
            config, uri, static_cast<UA_MessageSecurityMode>(endpoint.mode));
        UA_String_clear(&uri);
        if (status != UA_STATUSCODE_GOOD) {
            *error = QStringLiteral("adding endpoint %1 failed: %2")
                         .arg(endpoint.policyUri, QString::fromLatin1(UA_StatusCode_name(status)));
            return false;
        }
        if (endpoint.securityLevel >= 0)
            config->endpoints[config->endpointsSize - 1].securityLevel = static_cast<UA_Byte>(endpoint.securityLevel);
        if (endpoint.policyUri.endsWith(QLatin1String("#None")))
            noneEndpoint = true;
    }
    config->securityPolicyNoneDiscoveryOnly = !noneEndpoint;
    return true;
}

bool configureUsers(UA_ServerConfig* config, const Scenario& scenario, bool haveCertificate, QString* error)
{
    std::vector<UA_UsernamePasswordLogin> logins;
    std::vector<QByteArray> texts;
    texts.reserve(static_cast<size_t>(scenario.users.size()) * 2);
    for (const UserSettings& user : scenario.users) {
        texts.push_back(user.name.toUtf8());
        const QByteArray& name = texts.back();
        texts.push_back(user.password.toUtf8());
        const QByteArray& password = texts.back();
        UA_UsernamePasswordLogin login;
        login.username = {static_cast<size_t>(name.size()),
                          reinterpret_cast<UA_Byte*>(const_cast<char*>(name.constData()))};
        login.password = {static_cast<size_t>(password.size()),
                          reinterpret_cast<UA_Byte*>(const_cast<char*>(password.constData()))};
        logins.push_back(login);
    }
    // Passwords travel encrypted with the server certificate, also on None endpoints.
    const QByteArray tokenPolicy = securityPolicyUri("Basic256Sha256").toUtf8();
    UA_ByteString tokenPolicyUri = {static_cast<size_t>(tokenPolicy.size()),
                                    reinterpret_cast<UA_Byte*>(const_cast<char*>(tokenPolicy.constData()))};
    config->allowNonePolicyPassword = true;
    const UA_StatusCode status =
        UA_AccessControl_default(config, scenario.anonymous, haveCertificate && !logins.empty() ? &tokenPolicyUri : nullptr,
                                 logins.size(), logins.empty() ? nullptr : logins.data());
    if (status != UA_STATUSCODE_GOOD) {
        *error = QStringLiteral("configuring users failed: %1").arg(QString::fromLatin1(UA_StatusCode_name(status)));
        return false;
    }
    return true;
}

void configureIdentity(UA_ServerConfig* config, const Scenario& scenario)
{
    UA_ApplicationDescription& app = config->applicationDescription;
    replaceString(&app.applicationUri, scenario.application.uri);
    replaceString(&app.productUri, scenario.application.productUri);
    UA_LocalizedText_clear(&app.applicationName);
    app.applicationName.locale = uaString(scenario.application.locale);
    app.applicationName.text = uaString(scenario.application.name);
    app.applicationType = static_cast<UA_ApplicationType>(scenario.application.type);
    replaceString(&config->buildInfo.productUri, scenario.application.productUri);
    replaceString(&config->buildInfo.productName, scenario.application.name);
}

bool configureListenUrl(UA_ServerConfig* config, const Scenario& scenario)
{
    UA_Array_delete(config->serverUrls, config->serverUrlsSize, &UA_TYPES[UA_TYPES_STRING]);
    config->serverUrls = UA_String_new();
    if (!config->serverUrls)
        return false;
    config->serverUrlsSize = 1;
    const QString host = scenario.listen == QLatin1String("0.0.0.0") ? QString() : scenario.listen;
    *config->serverUrls = uaString(QStringLiteral("opc.tcp://%1:%2").arg(host, QString::number(scenario.port)));
    return true;
}

} // namespace

bool configureServer(UA_ServerConfig* config, const Scenario& scenario, QString* error)
{
    config->logging = &stderrLogger;

    QSet<QString> policies;
    for (const EndpointSettings& endpoint : scenario.endpoints) {
        if (!endpoint.policyUri.endsWith(QLatin1String("#None")))
            policies.insert(endpoint.policyUri);
    }
    if (!scenario.users.isEmpty())
        policies.insert(securityPolicyUri("Basic256Sha256"));

    KeyPair pair;
    if (!policies.isEmpty() && !createKeyPair(scenario, &pair, error))
        return false;

    UA_StatusCode status =
        UA_ServerConfig_setMinimal(config, scenario.port, pair.certificate.length ? &pair.certificate : nullptr);
    if (status != UA_STATUSCODE_GOOD) {
        *error = QStringLiteral("default configuration failed: %1").arg(QString::fromLatin1(UA_StatusCode_name(status)));
        return false;
    }
    for (const QString& uri : policies) {
        if (!addSecurityPolicy(config, uri, pair, error))
            return false;
    }
    if (!policies.isEmpty()) {
        // Every client certificate is welcome: tests bring fresh self-signed ones.
        for (UA_CertificateVerification* verification : {&config->secureChannelPKI, &config->sessionPKI}) {
            if (verification->clear)
                verification->clear(verification);
            UA_CertificateVerification_AcceptAll(verification);
        }
    }
    if (!configureEndpoints(config, scenario, error) || !configureUsers(config, scenario, !policies.isEmpty(), error))
        return false;
    configureIdentity(config, scenario);
    if (!configureListenUrl(config, scenario)) {
        *error = QStringLiteral("out of memory");
        return false;
    }
    // A port taken by another process must fail the start instead of sharing the port.
    config->tcpReuseAddr = false;
    return true;
}

namespace {

// The node limits published where they differ from the enforced ones, by index of
// publishedLimitNodes. One server per process: the values live as long as it does.
const UA_UInt32 publishedLimitNodes[] = {UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERBROWSE,
                                         UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERREAD};
UA_UInt32 publishedLimitValues[] = {0, 0};

UA_StatusCode readPublishedLimit(UA_Server*, const UA_NodeId*, void*, const UA_NodeId*, void* nodeContext,
                                 UA_Boolean, const UA_NumericRange*, UA_DataValue* value)
{
    const UA_StatusCode status =
        UA_Variant_setScalarCopy(&value->value, static_cast<const UA_UInt32*>(nodeContext), &UA_TYPES[UA_TYPES_UINT32]);
    value->hasValue = status == UA_STATUSCODE_GOOD;
    return status;
}

// The stack publishes a node limit straight from its configuration, read when a client reads
// it; a limit published otherwise is served by a data source of its own.
bool publishNodeLimit(UA_Server* server, size_t index, UA_UInt32 enforced, UA_UInt32 published, QString* error)
{
    if (published == enforced)
        return true;
    publishedLimitValues[index] = published;
    const UA_NodeId node = UA_NODEID_NUMERIC(0, publishedLimitNodes[index]);
    UA_DataSource source;
    source.read = readPublishedLimit;
    source.write = nullptr;
    UA_StatusCode status = UA_Server_setNodeContext(server, node, &publishedLimitValues[index]);
    if (status == UA_STATUSCODE_GOOD)
        status = UA_Server_setVariableNode_dataSource(server, node, source);
    if (status != UA_STATUSCODE_GOOD)
        *error = QStringLiteral("publishing an operation limit failed: %1")
                     .arg(QString::fromLatin1(UA_StatusCode_name(status)));
    return status == UA_STATUSCODE_GOOD;
}

UA_UInt32 publishedLimit(const OperationLimits& limits, quint32 enforced, qint64 published)
{
    if (!limits.publish)
        return 0;
    return published >= 0 ? UA_UInt32(published) : enforced;
}

} // namespace

bool applyOperationLimits(UA_Server* server, const Scenario& scenario, QString* error)
{
    const OperationLimits& limits = scenario.limits;
    UA_ServerConfig* config = UA_Server_getConfig(server);
    config->maxNodesPerBrowse = limits.maxNodesPerBrowse;
    config->maxNodesPerRead = limits.maxNodesPerRead;
    if (!publishNodeLimit(server, 0, limits.maxNodesPerBrowse,
                          publishedLimit(limits, limits.maxNodesPerBrowse, limits.publishedMaxNodesPerBrowse), error) ||
        !publishNodeLimit(server, 1, limits.maxNodesPerRead,
                          publishedLimit(limits, limits.maxNodesPerRead, limits.publishedMaxNodesPerRead), error))
        return false;
    if (limits.maxBrowseContinuationPoints < 0)
        return true;
    const UA_UInt16 points = static_cast<UA_UInt16>(limits.maxBrowseContinuationPoints);
    UA_Variant value;
    UA_Variant_setScalar(&value, const_cast<UA_UInt16*>(&points), &UA_TYPES[UA_TYPES_UINT16]);
    const UA_StatusCode status = UA_Server_writeValue(
        server, UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXBROWSECONTINUATIONPOINTS), value);
    if (status != UA_STATUSCODE_GOOD) {
        *error = QStringLiteral("publishing MaxBrowseContinuationPoints failed: %1")
                     .arg(QString::fromLatin1(UA_StatusCode_name(status)));
        return false;
    }
    return true;
}

UA_ConnectionManager* tcpConnectionManager(UA_ServerConfig* config)
{
    if (!config->eventLoop)
        return nullptr;
    const UA_String tcp = UA_STRING_STATIC("tcp");
    for (UA_EventSource* source = config->eventLoop->eventSources; source; source = source->next) {
        if (source->eventSourceType != UA_EVENTSOURCETYPE_CONNECTIONMANAGER)
            continue;
        UA_ConnectionManager* manager = reinterpret_cast<UA_ConnectionManager*>(source);
        if (UA_String_equal(&manager->protocol, &tcp))
            return manager;
    }
    return nullptr;
}

} // namespace opcua_sim
