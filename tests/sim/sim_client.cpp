#include "tests/sim/sim_client.h"

#include "sim/support/ua_test_client.h"

#include <open62541/plugin/create_certificate.h>
#include <open62541/plugin/pki_default.h>

#include <QtGlobal>

namespace sim_test {

namespace {

UA_Logger silentLogger = {test_support::silentUaLog, nullptr, nullptr};

bool clientLogWanted()
{
    return qEnvironmentVariableIsSet("SIM_TEST_CLIENT_LOG");
}

void silence(UA_ClientConfig* config)
{
    if (!clientLogWanted())
        test_support::silenceClientLog(config);
}

struct ClientCertificate
{
    Ua::ByteStringHolder key;
    Ua::ByteStringHolder certificate;
};

// Key generation is slow, so the suite shares one client certificate.
const ClientCertificate& clientCertificate()
{
    static ClientCertificate pair = [] {
        ClientCertificate out;
        UA_String subject[2] = {UA_STRING(const_cast<char*>("O=discover")),
                                UA_STRING(const_cast<char*>("CN=sim test client"))};
        UA_String altNames[2] = {UA_STRING(const_cast<char*>("URI:urn:discover:sim_test")),
                                 UA_STRING(const_cast<char*>("DNS:localhost"))};
        UA_UInt16 keySize = 2048;
        UA_KeyValuePair entry;
        entry.key = UA_QUALIFIEDNAME(0, const_cast<char*>("key-size-bits"));
        UA_Variant_setScalar(&entry.value, &keySize, &UA_TYPES[UA_TYPES_UINT16]);
        UA_KeyValueMap params = {1, &entry};
        UA_CreateCertificate(&silentLogger, subject, 2, altNames, 2, UA_CERTIFICATEFORMAT_DER, &params,
                             out.key.get(), out.certificate.get());
        return out;
    }();
    return pair;
}

} // namespace

Ua::Client newClient(int timeoutMs)
{
    return test_support::newTestClient(timeoutMs, clientLogWanted());
}

Ua::Client newSecureClient(UA_MessageSecurityMode mode, const char* policyUri, int timeoutMs)
{
    const ClientCertificate& pair = clientCertificate();
    Ua::Client client(UA_Client_new());
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    silence(config);
    UA_ClientConfig_setDefaultEncryption(config, *pair.certificate, *pair.key, nullptr, 0, nullptr, 0);
    silence(config);
    if (config->certificateVerification.clear)
        config->certificateVerification.clear(&config->certificateVerification);
    UA_CertificateVerification_AcceptAll(&config->certificateVerification);
    UA_String_clear(&config->clientDescription.applicationUri);
    config->clientDescription.applicationUri = UA_STRING_ALLOC("urn:discover:sim_test");
    config->securityMode = mode;
    UA_String_clear(&config->securityPolicyUri);
    config->securityPolicyUri = UA_STRING_ALLOC(policyUri);
    config->timeout = static_cast<UA_UInt32>(timeoutMs);
    return client;
}

QString toQString(const UA_String& text)
{
    return test_support::uaText(text);
}

UA_NodeId simNode(const char* id)
{
    return UA_NODEID_STRING(1, const_cast<char*>(id));
}

UA_StatusCode rawGetEndpoints(const QString& url, size_t* count)
{
    // The stack's own getEndpoints refuses an empty answer, so the request goes out by hand
    // on a secure channel whose endpoint is preset (no endpoint lookup before it).
    Ua::Client client = newClient();
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    const QByteArray utf8 = url.toUtf8();
    config->endpoint.securityMode = UA_MESSAGESECURITYMODE_NONE;
    config->endpoint.securityPolicyUri = UA_STRING_ALLOC("http://opcfoundation.org/UA/SecurityPolicy#None");
    config->endpoint.endpointUrl = UA_STRING_ALLOC(utf8.constData());
    UA_StatusCode status = UA_Client_connectSecureChannel(client.get(), utf8.constData());
    if (status != UA_STATUSCODE_GOOD)
        return status;
    Ua::Value<UA_GetEndpointsRequest, UA_TYPES_GETENDPOINTSREQUEST> request;
    request->endpointUrl = UA_STRING_ALLOC(utf8.constData());
    Ua::Value<UA_GetEndpointsResponse, UA_TYPES_GETENDPOINTSRESPONSE> response;
    // open62541 1.4 offers GetEndpoints in no typed form other than the refusing one above.
    __UA_Client_Service(client.get(), request.get(), &UA_TYPES[UA_TYPES_GETENDPOINTSREQUEST], response.get(),
                        &UA_TYPES[UA_TYPES_GETENDPOINTSRESPONSE]);
    *count = response->endpointsSize;
    return response->responseHeader.serviceResult;
}

UA_StatusCode browseOnce(UA_Client* client, const UA_NodeId& node)
{
    Ua::BrowseResponseHolder response =
        Ua::BrowseResponseHolder(UA_Client_Service_browse(client, *test_support::forwardBrowseRequest(node)));
    return response->responseHeader.serviceResult;
}

} // namespace sim_test
