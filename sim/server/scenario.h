#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace opcua_sim {

struct EndpointSettings
{
    int mode = 1;                 // MessageSecurityMode number
    QString policyUri;            // full security-policy URI
    int securityLevel = -1;       // -1: keep the stack's value
};

struct UserSettings
{
    QString name;
    QString password;
};

struct ApplicationSettings
{
    QString name;
    QString locale;
    QString uri;
    QString productUri;
    int type = 0;                 // ApplicationType number
    QStringList discoveryUrls;    // only for the extra FindServers entries
};

struct AddressSpaceSettings
{
    QStringList presets;
    bool hideServerObject = false;
    int deepLevels = 20;
    int manyChildren = 100;
    int derivedChildren = 20;
    int syntheticCount = 0;
    int syntheticFolderSize = 100;
    quint32 maxReferencesPerNode = 0;
};

// Service limits the server enforces, and what it publishes of them in Server.ServerCapabilities.
struct OperationLimits
{
    quint32 maxNodesPerBrowse = 0;            // 0: no limit
    quint32 maxNodesPerRead = 0;              // ReadValueIds; 0: no limit
    int maxBrowseContinuationPoints = -1;     // published value; -1: the stack's own
    bool publish = true;                      // false: both node limits are published as none (0)
    qint64 publishedMaxNodesPerBrowse = -1;   // published instead of the enforced limit; -1: the enforced
    qint64 publishedMaxNodesPerRead = -1;
};

struct MisbehaviourSettings
{
    int delayMs = 0;
    double delayPerOperationMs = 0;           // per node of a Browse / BrowseNext / Read request
    qint64 delayAfter = 0;
    QStringList delayServices;
    qint64 dropAfter = -1;
    QStringList dropServices;
    // A server that goes away in the middle of a session: what happens, and which request
    // sets it off (the one after `faultAfter` matching requests, or the first that names
    // `faultNode`).
    QString fault;                            // "", "close", "freeze" or "restart"
    qint64 faultAfter = -1;
    QString faultNode;
    QStringList faultServices;
};

struct Scenario
{
    QString listen = QStringLiteral("127.0.0.1");
    quint16 port = 4840;
    QString advertisedHost;       // empty: derived from listen
    QString path;
    ApplicationSettings application;
    bool noEndpoints = false;
    QList<EndpointSettings> endpoints;
    bool anonymous = true;
    QList<UserSettings> users;
    bool findServersSelf = true;
    QList<ApplicationSettings> extraServers;
    AddressSpaceSettings addressSpace;
    OperationLimits limits;
    MisbehaviourSettings misbehaviour;
};

bool scenarioFromJson(const QJsonObject& json, Scenario* scenario, QString* error);
bool loadScenario(const QString& path, Scenario* scenario, QString* error);

QString securityPolicyUri(const QString& shortName);
bool hasPreset(const Scenario& scenario, const QString& preset);
QString advertisedHost(const Scenario& scenario);
QString advertisedUrl(const Scenario& scenario);

} // namespace opcua_sim
