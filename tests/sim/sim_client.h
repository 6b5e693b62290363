#pragma once

#include "ua/client.h"
#include "ua/holders.h"
#include "sim/support/ua_test_client.h"

#include <open62541/client.h>

#include <QString>

namespace sim_test {

// A client that logs nothing and gives up after timeoutMs per request.
Ua::Client newClient(int timeoutMs = 5000);

// A client with a fresh self-signed certificate, able to encrypt (mode and policy as given).
Ua::Client newSecureClient(UA_MessageSecurityMode mode, const char* policyUri, int timeoutMs = 5000);

QString toQString(const UA_String& text);

// Browse results of one node, continuation points followed to the end.
using test_support::BrowseOutcome;
using test_support::browseAll;

// One Browse request of one node (no continuation); returns the service result.
UA_StatusCode browseOnce(UA_Client* client, const UA_NodeId& node);

UA_NodeId simNode(const char* id);

// GetEndpoints over a None channel, returning the service result and the number of endpoints.
UA_StatusCode rawGetEndpoints(const QString& url, size_t* count);

} // namespace sim_test
