#pragma once

#include <QDeadlineTimer>
#include <QList>
#include <QString>
#include <QStringList>

// The discovery services of one server (FindServers, FindServersOnNetwork, GetEndpoints) as the
// stack answers them, turned into plain values. What the answers mean for the devices is for the
// caller to decide. A failing call is silent: its answer is simply empty.
namespace Ua {

// One application description.
struct ApplicationInfo
{
    QString name; // the text of the localized name
    QString uri;
    QString productUri;
    int type = 0; // the ApplicationType number: 0 server, 1 client, 2 both, 3 discovery server
    QStringList discoveryUrls;
};

// One record of FindServersOnNetwork.
struct ServerOnNetworkInfo
{
    QString discoveryUrl;
    QString serverName;
    QStringList capabilities;
};

// One endpoint description: its URL, security, the user token types it takes, and the server
// it belongs to.
struct EndpointInfo
{
    QString url;
    int securityMode = 0; // the MessageSecurityMode number
    QString securityPolicyUri;
    bool anonymousToken = false;
    bool userNameToken = false;
    int securityLevel = 0;
    ApplicationInfo server;
};

// What one server is asked, in this order, and how.
struct DiscoveryQuestions
{
    bool findServers = false;
    bool findServersOnNetwork = false;
    bool getEndpoints = false;
    // Only the first so many endpoints of the answer become values.
    int maxEndpoints = 0;
    // Every call with a client and channel of its own, instead of one channel for all of them.
    bool clientPerCall = false;
};

struct DiscoveryAnswers
{
    QList<ApplicationInfo> applications;         // FindServers, every application in order
    QList<ServerOnNetworkInfo> serversOnNetwork; // FindServersOnNetwork, every record in order
    bool endpointsAsked = false;                 // the GetEndpoints request was sent
    QList<EndpointInfo> endpoints;               // GetEndpoints, when its answer was good
    // The channel did not open, or a request over it timed out: nothing more was asked, since
    // every further call would cost another time-out.
    bool unresponsive = false;
};

// Asks the server at url what the questions say. No call starts once the deadline has passed; a
// call under way ends on its own request time-out.
DiscoveryAnswers askDiscoveryServer(const QString& url, const DiscoveryQuestions& questions,
                                    const QDeadlineTimer& deadline);

} // namespace Ua
