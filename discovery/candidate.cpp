#include "discovery/candidate.h"

#include "common/opc_tcp_scheme.h"

#include <QRegularExpression>

#include <arpa/inet.h>

namespace OpcUaDiscovery {

namespace {

// Only a dotted quad: QHostAddress would also take short forms such as "1234" or "10.5".
bool isIpv4Literal(const QString& host)
{
    in_addr address{};
    return ::inet_pton(AF_INET, host.toLatin1().constData(), &address) == 1;
}

QString urlOrEndpointFor(const QString& url, const Candidate& candidate)
{
    return url.isEmpty() ? endpointFor(candidate.host, candidate.port) : url;
}

} // namespace

QString endpointFor(const QString& host, unsigned short port)
{
    return QLatin1String(kOpcTcpScheme) + host + QLatin1Char(':') + QString::number(port);
}

QString candidateEndpoint(const Candidate& candidate)
{
    return urlOrEndpointFor(candidate.endpointUrl, candidate);
}

QString candidateQueryUrl(const Candidate& candidate)
{
    return urlOrEndpointFor(candidate.endpointUrl.trimmed(), candidate);
}

OpcTcpUrl parseOpcTcpUrl(const QString& url)
{
    OpcTcpUrl result;
    const QString s = url.trimmed();
    if (!hasOpcTcpScheme(s))
        return result;
    const QString rest = withoutOpcTcpScheme(s);
    if (rest.startsWith(QLatin1Char('[')))
        return result;

    const int slash = rest.indexOf(QLatin1Char('/'));
    const QString authority = slash < 0 ? rest : rest.left(slash);
    QString path = slash < 0 ? QString() : rest.mid(slash);
    if (path == QLatin1String("/"))
        path.clear();

    QString host = authority;
    quint16 port = 4840;
    const int colon = authority.lastIndexOf(QLatin1Char(':'));
    // "opc.tcp://:4840" names no host at all; it must not pass as a host called ":4840".
    if (colon == 0)
        host.clear();
    if (colon >= 1) {
        host = authority.left(colon);
        bool ok = false;
        const int value = authority.mid(colon + 1).toInt(&ok, 10);
        if (ok && value >= 1 && value <= 65535)
            port = static_cast<quint16>(value);
    }
    host.remove(QRegularExpression(QStringLiteral("\\s")));
    if (host.isEmpty())
        return result;

    result.ok = true;
    result.host = host;
    result.port = port;
    result.path = path;
    result.isIpv4 = isIpv4Literal(host);
    return result;
}

QString uriTail(const QString& uri)
{
    QString s = uri.trimmed();
    while (s.endsWith(QLatin1Char('/')))
        s.chop(1);

    if (s.startsWith(QLatin1String("urn:"), Qt::CaseInsensitive)) {
        const int colon = s.lastIndexOf(QLatin1Char(':'));
        if (colon > 3 && colon < s.size() - 1)
            return s.mid(colon + 1);
    }
    const int slash = s.lastIndexOf(QLatin1Char('/'));
    if (slash < 0 || slash == s.size() - 1)
        return s;
    return s.mid(slash + 1);
}

QString rewriteEndpointHost(const QString& url, const QString& host, unsigned short port)
{
    if (host.isEmpty() || port == 0)
        return url;
    QString s = url.trimmed();
    if (hasOpcTcpScheme(s))
        s = withoutOpcTcpScheme(s);
    else if (s.isEmpty())
        return endpointFor(host, port);

    const int slash = s.indexOf(QLatin1Char('/'));
    const QString path = slash < 0 ? QString() : s.mid(slash);
    return endpointFor(host, port) + path;
}

QString uidFor(const QString& host, unsigned short port, const QString& path)
{
    QString base = host + QLatin1Char('_') + QString::number(port);
    QString p = path;
    if (p.startsWith(QLatin1Char('/')))
        p.remove(0, 1);
    if (!p.isEmpty())
        base += QLatin1Char('_') + p;
    base.replace(QLatin1Char('.'), QLatin1Char('_'));
    base.replace(QLatin1Char(':'), QLatin1Char('_'));
    base.replace(QLatin1Char('/'), QLatin1Char('_'));
    // A fresh expression per call: the scan engine calls this from many threads.
    base.remove(QRegularExpression(QStringLiteral("[^A-Za-z0-9_]+")));
    return QStringLiteral("opcua_%1").arg(base);
}

} // namespace OpcUaDiscovery
