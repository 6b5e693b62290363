// The URL and identity helpers over text a peer advertises: a URL, a host, a path and a port.
#include "discovery/candidate.h"
#include "fuzz/fuzz_input.h"

#include <QRegularExpression>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const auto port = static_cast<unsigned short>(data[0] | (data[1] << 8));
    const QList<QByteArray> fields = fuzz_input::fields(data + 2, size - 2);
    const QString url = QString::fromUtf8(fields.value(0));
    const QString host = QString::fromUtf8(fields.value(1));
    const QString path = QString::fromUtf8(fields.value(2));

    const OpcUaDiscovery::OpcTcpUrl parsed = OpcUaDiscovery::parseOpcTcpUrl(url);
    if (parsed.ok && (parsed.host.isEmpty() || parsed.port == 0))
        std::abort();
    if (parsed.ok)
        OpcUaDiscovery::uidFor(parsed.host, parsed.port, parsed.path);

    const QString rewritten = OpcUaDiscovery::rewriteEndpointHost(url, host, port);
    if (!host.isEmpty() && port != 0 && !rewritten.startsWith(QLatin1String("opc.tcp://")))
        std::abort();

    static const QRegularExpression identifier(QStringLiteral("^opcua_[A-Za-z0-9_]*$"));
    if (!identifier.match(OpcUaDiscovery::uidFor(host, port, path)).hasMatch())
        std::abort();
    if (!OpcUaDiscovery::endpointFor(host, port).startsWith(QLatin1String("opc.tcp://")))
        std::abort();
    OpcUaDiscovery::uriTail(url);
    return 0;
}
