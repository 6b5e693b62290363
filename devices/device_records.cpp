#include "devices/device_records.h"

#include "discovery/device_record.h"
#include "discovery/endpoint_selection.h"
#include "discovery/options.h"
#include "discovery/peer_bounds.h"
#include "discovery/scan_engine.h"
#include "discovery/transport.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QSet>

namespace OpcUaDiscovery {

namespace {

// Widens the scanned candidates with the servers their discovery services know. The first
// candidate to bring a discovery URL wins; later ones with the same URL are dropped. One answer
// adds at most kMaxCandidatesPerAnswer candidates; what it named beyond is left out with a warning.
QList<Candidate> mergeDiscoveredServers(const QList<Candidate>& scanned, const std::vector<DiscoveryAnswer>& answers,
                                        QStringList* warnings)
{
    QSet<QString> seenDiscoveryUrls;
    QList<Candidate> candidates;
    for (int i = 0; i < scanned.size(); ++i) {
        const DiscoveryAnswer& answer = answers[static_cast<size_t>(i)];
        const QList<QList<DiscoveredServer>> byService{answer.servers.mid(0, answer.findServersCount),
                                                       answer.servers.mid(answer.findServersCount)};
        QList<int> leftOut;
        const QList<Candidate> merged =
            mergeDiscoveryAnswers(scanned.at(i), byService, kMaxCandidatesPerAnswer, &leftOut);
        for (int service = 0; service < leftOut.size(); ++service) {
            if (leftOut.at(service) > 0 && warnings) {
                warnings->append(QStringLiteral("OPC UA discovery took the first %1 servers that %2 of %3 listed; "
                                                "%4 more were left out.")
                                     .arg(QString::number(kMaxCandidatesPerAnswer),
                                          QLatin1String(service == 0 ? "FindServers" : "FindServersOnNetwork"),
                                          candidateQueryUrl(scanned.at(i)), QString::number(leftOut.at(service))));
            }
        }
        for (const Candidate& candidate : merged) {
            if (seenDiscoveryUrls.contains(candidate.endpointUrl))
                continue;
            seenDiscoveryUrls.insert(candidate.endpointUrl);
            candidates.append(candidate);
        }
    }
    return candidates;
}

// The GetEndpoints answer for each query URL of the candidates. A scanned server answered it over
// the channel of its other queries; every scanned URL is some candidate's URL, since the merge
// drops a candidate only for a URL an earlier one holds. The URLs that only discovery services
// named are asked now, side by side; a server that stopped answering is not asked again.
QHash<QString, EndpointsAnswer> endpointsAnswers(const QList<Candidate>& candidates, const QList<Candidate>& scanned,
                                                 const std::vector<DiscoveryAnswer>& answers,
                                                 const QDeadlineTimer& budget, const QueryOptions& options)
{
    QHash<QString, EndpointsAnswer> byUrl;
    QSet<QString> settled;
    for (int i = 0; i < scanned.size(); ++i) {
        const DiscoveryAnswer& answer = answers[static_cast<size_t>(i)];
        const QString url = candidateQueryUrl(scanned.at(i));
        if (answer.endpoints.asked || answer.unresponsive)
            settled.insert(url);
        if (answer.endpoints.answered && !byUrl.contains(url))
            byUrl.insert(url, answer.endpoints);
    }
    QStringList pending;
    for (const Candidate& candidate : candidates) {
        const QString url = candidateQueryUrl(candidate);
        if (!settled.contains(url)) {
            settled.insert(url);
            pending.append(url);
        }
    }
    const std::vector<EndpointsAnswer> asked = askEndpoints(pending, budget, options);
    for (int i = 0; i < pending.size(); ++i) {
        if (asked[static_cast<size_t>(i)].answered)
            byUrl.insert(pending.at(i), asked[static_cast<size_t>(i)]);
    }
    return byUrl;
}

bool hasIdentity(const DiscoveredServer& server)
{
    return !server.applicationName.isEmpty() || !server.applicationUri.isEmpty();
}

} // namespace

QJsonArray discoverDeviceRecordsForRequest(const QJsonObject& request, QStringList* warnings)
{
    const Options options = optionsFromRequest(request, warnings);
    QtTransport transport;
    const QList<Candidate> scanned = discoverDevices(options, transport, warnings, nullptr);
    return discoverDeviceRecords(scanned, options.timeoutMs, {}, warnings);
}

QJsonArray discoverDeviceRecords(const QList<Candidate>& scanned, int timeoutMs, const QueryOptions& queryOptions,
                                 QStringList* warnings)
{
    // The budget bounds the scan and, again and separately, the queries that follow it.
    const QDeadlineTimer budget(qMax(0, timeoutMs), Qt::PreciseTimer);
    const std::vector<DiscoveryAnswer> answers = askDiscoveryServices(scanned, budget, queryOptions);
    QList<Candidate> candidates = mergeDiscoveredServers(scanned, answers, warnings);
    const QHash<QString, EndpointsAnswer> endpoints = endpointsAnswers(candidates, scanned, answers, budget, queryOptions);

    // A candidate whose server was not asked in time is still reported, with what the scan and
    // the discovery queries gave it. Two candidates can end at one identifier (a discovery URL
    // whose server then offers another endpoint): the first keeps it.
    for (Candidate& candidate : candidates) {
        const auto answer = endpoints.constFind(candidateQueryUrl(candidate));
        if (answer != endpoints.constEnd())
            applyEndpointsAnswer(&candidate, *answer);
    }
    return deviceRecordsOnePerId(candidates);
}

void applyEndpointsAnswer(Candidate* candidate, const EndpointsAnswer& answer)
{
    if (!candidate || !answer.answered)
        return;
    // An endpoint holding an overlong URL or URI is left out, as if the server had not offered it.
    QList<EndpointOffer> offers;
    QList<DiscoveredServer> describedServers;
    for (int i = 0; i < answer.offers.size(); ++i) {
        if (withinPeerBounds(answer.offers.at(i)) && withinPeerBounds(answer.describedServers.at(i))) {
            offers.append(answer.offers.at(i));
            describedServers.append(answer.describedServers.at(i));
        }
    }
    if (offers.isEmpty())
        return;
    selectImportEndpoint(offers, candidate);

    DiscoveredServer identity;
    for (int i = 0; i < offers.size(); ++i) {
        const DiscoveredServer& described = describedServers.at(i);
        if (!hasIdentity(identity))
            identity = described;
        const QString& offeredUrl = offers.at(i).endpointUrl;
        if ((!candidate->advertisedEndpointUrl.isEmpty() && candidate->advertisedEndpointUrl == offeredUrl)
            || candidate->endpointUrl == offeredUrl)
            identity = described;
    }
    if (hasIdentity(identity))
        applyApplicationIdentity(candidate, identity);
}

} // namespace OpcUaDiscovery
