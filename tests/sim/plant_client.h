#pragma once

#include "ua/client.h"
#include "ua/holders.h"

#include <open62541/client.h>

#include <QString>
#include <QStringList>

namespace plant_test {

// A None client that logs nothing and gives up after timeoutMs per request.
Ua::Client newClient(int timeoutMs = 10000);

QString toQString(const UA_String& text);

// Browse names of the forward hierarchical references of node, continuation points followed.
bool browseNames(UA_Client* client, const UA_NodeId& node, QStringList* names, QString* error);

} // namespace plant_test
