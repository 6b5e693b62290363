#pragma once

#include "discovery/candidate.h"

// A candidate as the scan reports a server that answered on loopback.
inline OpcUaDiscovery::Candidate scannedOnLoopback(quint16 port)
{
    OpcUaDiscovery::Candidate c;
    c.host = QStringLiteral("127.0.0.1");
    c.port = port;
    c.endpointUrl = OpcUaDiscovery::endpointFor(c.host, port);
    c.source = QStringLiteral("tcp");
    return c;
}
