#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace OpcUaDiscovery {

// One importable OPC UA server endpoint found on the network.
struct Candidate
{
    QString host;
    quint16 port = 0;
    QString endpointUrl;
    QString source;
    QString advertisedEndpointUrl;
    qint32 securityMode = 0;
    QString securityPolicyUri;
    bool anonymousOffered = false;
    bool usernameOffered = false;
    bool endpointSelected = false;
    QStringList offeredEndpoints;
    QString applicationName;
    QString applicationUri;
    QString productUri;
    QString applicationType;
    QStringList capabilities;
};

// One FindServers application paired with one of its discovery URLs.
struct DiscoveredServer
{
    QString discoveryUrl;
    QString applicationName;
    QString applicationUri;
    QString productUri;
    QString applicationType;
    QStringList capabilities;
};

// One endpoint description returned by GetEndpoints.
struct EndpointOffer
{
    QString endpointUrl;
    qint32 securityMode = 1;
    QString securityPolicyUri;
    bool anonymous = false;
    bool username = false;
    qint32 securityLevel = 0;
};

struct OpcTcpUrl
{
    bool ok = false;
    QString host;
    quint16 port = 4840;
    QString path;
    bool isIpv4 = false;
};

QString endpointFor(const QString& host, unsigned short port);

// The endpoint a candidate stands for: its endpoint URL, or endpointFor(host, port) when that is empty.
QString candidateEndpoint(const Candidate& candidate);
// The URL a discovery query for the candidate goes to: the same, from its endpoint URL trimmed.
QString candidateQueryUrl(const Candidate& candidate);

OpcTcpUrl parseOpcTcpUrl(const QString& url);
QString uriTail(const QString& uri);
QString rewriteEndpointHost(const QString& url, const QString& host, unsigned short port);
QString uidFor(const QString& host, unsigned short port, const QString& path);

} // namespace OpcUaDiscovery
