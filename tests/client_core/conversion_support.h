#pragma once

#include "client_core/opc_ua_client_core.h"
#include "ua/holders.h"
#include "ua/text.h"

#include <QByteArray>
#include <QStringList>

#include <open62541/types.h>

#include <ostream>

// Readable texts in assertion failures.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace values_test {

// Date-time texts are local time; every suite pins the zone so results do not depend on the machine.
void useUtcTimeZone();

// OPC UA ticks of a UTC date and time given with milliseconds.
UA_DateTime ticksOf(int year, int month, int day, int hour, int minute, int second, int ms);

ClientCore::Node nodeOfKind(qint32 kind, quint16 arrayIndex = 65535);

template <typename T>
Ua::VariantHolder scalar(const T& value, int typeIndex)
{
    Ua::VariantHolder v;
    UA_Variant_setScalarCopy(v.get(), &value, &UA_TYPES[typeIndex]);
    return v;
}

template <typename T>
Ua::VariantHolder array(const T* values, size_t count, int typeIndex)
{
    Ua::VariantHolder v;
    UA_Variant_setArrayCopy(v.get(), values, count, &UA_TYPES[typeIndex]);
    return v;
}

QByteArray bytesOf(const UA_String& s);

// Collects the texts of Qt warnings while it lives.
class WarningCapture
{
public:
    WarningCapture();
    ~WarningCapture();
    QStringList messages() const;
};

} // namespace values_test
