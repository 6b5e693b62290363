#pragma once

#include <QByteArray>
#include <QString>

namespace OpcUaDiscovery {

// The answer of one Hello probe.
struct IdentifyResult
{
    bool opcUa = false;
    QString endpointUrl;
    QString messageType;
};

// Probes one host and port; implementations must allow calls from several threads at once.
class Transport
{
public:
    virtual ~Transport() = default;
    virtual IdentifyResult tcpIdentify(const QString& host, quint16 port, int connectTimeoutMs, int ioTimeoutMs) = 0;
};

// Raw-socket OPC UA Hello probe. Holds no state.
class QtTransport : public Transport
{
public:
    IdentifyResult tcpIdentify(const QString& host, quint16 port, int connectTimeoutMs, int ioTimeoutMs) override;
};

QByteArray helloRequest(const QString& endpointUrl, quint32 unused);
bool parseHelloResponse(const QByteArray& data, IdentifyResult* result);

} // namespace OpcUaDiscovery
