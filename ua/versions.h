#pragma once

#include <QString>

// The versions of the OPC UA stack and of the TLS library its encryption uses, as
// discover --version shows them.
namespace Ua {

// "open62541 1.4.18 (Debian source package open62541 1.4.18-1)": the stack's own version
// macros, and the Debian version of the source package it was built from when known.
QString stackVersionText();

// "OpenSSL 3.0.19 27 Jan 2026 (built with OpenSSL 3.0.19 27 Jan 2026)": the library that runs,
// and the headers the program was built with.
QString tlsVersionText();

} // namespace Ua
