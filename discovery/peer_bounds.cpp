#include "discovery/peer_bounds.h"

namespace OpcUaDiscovery {

bool withinUrlBound(const QString& text)
{
    return text.size() <= kMaxPeerUrlLength;
}

QString boundedName(const QString& name)
{
    if (name.size() <= kMaxPeerNameLength)
        return name;
    QString cut = name.left(kMaxPeerNameLength);
    if (cut.at(cut.size() - 1).isHighSurrogate())
        cut.chop(1);
    return cut;
}

bool withinPeerBounds(const DiscoveredServer& server)
{
    return withinUrlBound(server.discoveryUrl) && withinUrlBound(server.applicationUri)
        && withinUrlBound(server.productUri);
}

bool withinPeerBounds(const EndpointOffer& offer)
{
    return withinUrlBound(offer.endpointUrl) && withinUrlBound(offer.securityPolicyUri);
}

} // namespace OpcUaDiscovery
