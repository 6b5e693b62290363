#pragma once

#include <QByteArray>
#include <QString>

namespace client_core_test {

struct CertificatePair
{
    QByteArray certificate;
    QByteArray key;
};

// A self-signed client certificate and its private key made by the stack, in DER or PEM.
bool createClientCertificate(const QString& applicationUri, bool pem, CertificatePair* out);

// One pair per format and process for the application URI of a client named "tests"
// (key generation takes seconds); empty when the stack could not make one.
const CertificatePair& testsClientCertificate(bool pem);

} // namespace client_core_test
