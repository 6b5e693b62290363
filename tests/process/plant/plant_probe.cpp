// Asks one OPC UA server a discovery question and prints the answer, one line per
// item, fields separated by tabs. Runs on a plant's gateway host.
//   plant_probe endpoints URL    endpointUrl mode policyUri tokenTypes applicationName
//   plant_probe findservers URL  applicationName applicationType discoveryUrl
//   plant_probe fson URL         serverName discoveryUrl capabilities
#include "ua/holders.h"
#include "tests/sim/plant_client.h"

#include <open62541/client_highlevel.h>

#include <QStringList>

#include <cstdio>
#include <cstring>

using plant_test::toQString;

namespace {

void print(const QStringList& fields)
{
    std::printf("%s\n", fields.join(QLatin1Char('\t')).toUtf8().constData());
}

int fail(UA_StatusCode status)
{
    std::fprintf(stderr, "%s\n", UA_StatusCode_name(status));
    return 1;
}

int endpoints(const char* url)
{
    Ua::Array<UA_EndpointDescription, UA_TYPES_ENDPOINTDESCRIPTION> list;
    Ua::Client client = plant_test::newClient();
    const UA_StatusCode status = UA_Client_getEndpoints(client.get(), url, list.size(), list.data());
    if (status != UA_STATUSCODE_GOOD)
        return fail(status);
    for (const UA_EndpointDescription& e : list) {
        QStringList tokens;
        for (size_t i = 0; i < e.userIdentityTokensSize; ++i)
            tokens << QString::number(e.userIdentityTokens[i].tokenType);
        print({toQString(e.endpointUrl), QString::number(e.securityMode), toQString(e.securityPolicyUri),
               tokens.join(QLatin1Char(',')), toQString(e.server.applicationName.text)});
    }
    return 0;
}

int findServers(const char* url)
{
    Ua::Array<UA_ApplicationDescription, UA_TYPES_APPLICATIONDESCRIPTION> list;
    Ua::Client client = plant_test::newClient();
    const UA_StatusCode status = UA_Client_findServers(client.get(), url, 0, nullptr, 0, nullptr, list.size(), list.data());
    if (status != UA_STATUSCODE_GOOD)
        return fail(status);
    for (const UA_ApplicationDescription& app : list) {
        for (size_t i = 0; i < app.discoveryUrlsSize; ++i)
            print({toQString(app.applicationName.text), QString::number(app.applicationType),
                   toQString(app.discoveryUrls[i])});
    }
    return 0;
}

int findServersOnNetwork(const char* url)
{
    Ua::Array<UA_ServerOnNetwork, UA_TYPES_SERVERONNETWORK> list;
    Ua::Client client = plant_test::newClient();
    const UA_StatusCode status = UA_Client_findServersOnNetwork(client.get(), url, 0, 0, 0, nullptr, list.size(), list.data());
    if (status != UA_STATUSCODE_GOOD)
        return fail(status);
    for (const UA_ServerOnNetwork& record : list) {
        QStringList caps;
        for (size_t i = 0; i < record.serverCapabilitiesSize; ++i)
            caps << toQString(record.serverCapabilities[i]);
        print({toQString(record.serverName), toQString(record.discoveryUrl), caps.join(QLatin1Char(','))});
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: plant_probe endpoints|findservers|fson URL\n");
        return 2;
    }
    if (std::strcmp(argv[1], "endpoints") == 0)
        return endpoints(argv[2]);
    if (std::strcmp(argv[1], "findservers") == 0)
        return findServers(argv[2]);
    if (std::strcmp(argv[1], "fson") == 0)
        return findServersOnNetwork(argv[2]);
    std::fprintf(stderr, "unknown question %s\n", argv[1]);
    return 2;
}
