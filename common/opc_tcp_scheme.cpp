#include "common/opc_tcp_scheme.h"

namespace {

constexpr int kSchemeLength = sizeof(kOpcTcpScheme) - 1;

} // namespace

bool hasOpcTcpScheme(const QString& url)
{
    return url.startsWith(QLatin1String(kOpcTcpScheme), Qt::CaseInsensitive);
}

QString withoutOpcTcpScheme(const QString& url)
{
    return hasOpcTcpScheme(url) ? url.mid(kSchemeLength) : url;
}

QString withOpcTcpScheme(const QString& address)
{
    return address.startsWith(QLatin1String(kOpcTcpScheme)) ? address : QLatin1String(kOpcTcpScheme) + address;
}
