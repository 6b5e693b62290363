#pragma once

#include <QString>

// The URL scheme of OPC UA over TCP, the only transport the tool speaks: written into every
// address it builds, looked for in every address it reads.

constexpr char kOpcTcpScheme[] = "opc.tcp://";

// True when the URL begins with the scheme, in any case ("OPC.TCP://" too).
bool hasOpcTcpScheme(const QString& url);

// What follows the scheme when the URL begins with it (in any case), else the URL as it is.
QString withoutOpcTcpScheme(const QString& url);

// The address with the scheme put in front, unless it already begins with the scheme written in
// lower case: that is the spelling the stack takes.
QString withOpcTcpScheme(const QString& address);
