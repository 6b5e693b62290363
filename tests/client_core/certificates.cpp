#include "tests/client_core/certificates.h"

#include "ua/client.h"
#include "ua/holders.h"
#include "ua/text.h"

#include <open62541/plugin/create_certificate.h>

namespace client_core_test {

namespace {

QByteArray bytesOf(const UA_ByteString& bytes)
{
    return QByteArray(reinterpret_cast<const char*>(bytes.data), static_cast<int>(bytes.length));
}

} // namespace

bool createClientCertificate(const QString& applicationUri, bool pem, CertificatePair* out)
{
    const QByteArray subjectParts[] = {"C=DE", "O=discover tests", "CN=discover client"};
    const QByteArray uri = "URI:" + applicationUri.toUtf8();
    const QByteArray altParts[] = {"DNS:localhost", uri};
    UA_String subject[3] = {Ua::borrow(subjectParts[0]), Ua::borrow(subjectParts[1]), Ua::borrow(subjectParts[2])};
    UA_String alt[2] = {Ua::borrow(altParts[0]), Ua::borrow(altParts[1])};

    Ua::ByteStringHolder key;
    Ua::ByteStringHolder certificate;
    const UA_StatusCode status =
        UA_CreateCertificate(Ua::silentLogger(), subject, 3, alt, 2, pem ? UA_CERTIFICATEFORMAT_PEM : UA_CERTIFICATEFORMAT_DER,
                             nullptr, key.get(), certificate.get());
    if (status != UA_STATUSCODE_GOOD)
        return false;
    out->certificate = bytesOf(*certificate);
    out->key = bytesOf(*key);
    return !out->certificate.isEmpty() && !out->key.isEmpty();
}

const CertificatePair& testsClientCertificate(bool pem)
{
    static CertificatePair der;
    static CertificatePair pemPair;
    static bool derMade = false;
    static bool pemMade = false;
    CertificatePair& pair = pem ? pemPair : der;
    bool& made = pem ? pemMade : derMade;
    if (!made) {
        made = true;
        if (!createClientCertificate(QStringLiteral("urn:ovrin-connect-client-tests"), pem, &pair))
            pair = CertificatePair();
    }
    return pair;
}

} // namespace client_core_test
