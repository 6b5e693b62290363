#include "ua/versions.h"

#include <open62541/config.h>
#include <openssl/crypto.h>
#include <openssl/opensslv.h>

// Whichever way the stack comes in, the headers must be those of a release with the
// decoding fixes of 1.4.18, and of the 1.4 API.
static_assert(UA_OPEN62541_VER_MAJOR == 1 && UA_OPEN62541_VER_MINOR == 4 && UA_OPEN62541_VER_PATCH >= 18,
              "discover needs open62541 1.4.18 or newer within 1.4");
#ifndef UA_ENABLE_ENCRYPTION_OPENSSL
#error "discover needs open62541 built with OpenSSL encryption (scripts/build-open62541.sh)"
#endif

namespace Ua {

QString stackVersionText()
{
    QString text = QStringLiteral("open62541 %1.%2.%3")
                       .arg(UA_OPEN62541_VER_MAJOR)
                       .arg(UA_OPEN62541_VER_MINOR)
                       .arg(UA_OPEN62541_VER_PATCH);
    const QString source = QStringLiteral(DISCOVER_OPEN62541_SOURCE_VERSION);
    if (!source.isEmpty())
        text += QStringLiteral(" (Debian source package open62541 %1)").arg(source);
    return text;
}

QString tlsVersionText()
{
    return QStringLiteral("%1 (built with %2)")
        .arg(QString::fromLatin1(OpenSSL_version(OPENSSL_VERSION)), QStringLiteral(OPENSSL_VERSION_TEXT));
}

} // namespace Ua
