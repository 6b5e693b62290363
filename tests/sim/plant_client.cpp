#include "tests/sim/plant_client.h"

#include "sim/support/ua_test_client.h"

namespace plant_test {

Ua::Client newClient(int timeoutMs)
{
    return test_support::newTestClient(timeoutMs);
}

QString toQString(const UA_String& text)
{
    return test_support::uaText(text);
}

bool browseNames(UA_Client* client, const UA_NodeId& node, QStringList* names, QString* error)
{
    const test_support::BrowseOutcome outcome = test_support::browseAll(client, node);
    for (const QString& name : outcome.names)
        *names << name;
    if (!outcome.error.isEmpty()) {
        *error = outcome.error;
        return false;
    }
    return true;
}

} // namespace plant_test
