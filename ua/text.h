#pragma once

#include "ua/holders.h"

#include <QByteArray>
#include <QString>

#include <open62541/types.h>

// The one place where OPC UA strings, node identifiers, status codes and date-times become text
// and back.
namespace Ua {

// The text of an OPC UA string, taken as UTF-8; a null or empty string gives an empty text.
QString toQString(const UA_String& text);

// A stack-owned copy of the bytes (for a text, of its UTF-8); nothing gives an empty, not a null,
// string. A null holder means the stack could not allocate.
StringHolder toUaString(const QByteArray& bytes);
StringHolder toUaString(const QString& text);

// A view on bytes the caller keeps alive, for stack calls that only read or copy what they get.
// Secrets go this way, so that no copy is left behind that nobody wipes.
UA_ByteString borrow(const QByteArray& bytes);
UA_ByteString borrow(const char* data, size_t size);

// The stack's standard text form of a NodeId (such as "i=85"), or an empty text.
QString nodeIdToQString(const UA_NodeId& nodeId);

// The NodeId written in the standard text form; a text that does not parse gives the null
// identifier and, when asked for, false in *ok.
NodeIdHolder nodeIdFromQString(const QString& text, bool* ok = nullptr);
// The same from the text's UTF-8 bytes (what QString::toUtf8 gives), held by the caller.
NodeIdHolder nodeIdFromUtf8(const char* data, size_t size, bool* ok = nullptr);

// The stack's name of a status code, such as "BadTimeout".
QString statusCodeName(UA_StatusCode status);

// Date-times as text, to the millisecond, in both directions.
constexpr char dateTimeTextFormat[] = "yyyy-MM-dd hh:mm:ss.zzz";

// A value's date-time as local time: its whole seconds plus the stack's millisecond field.
QString localDateTimeText(UA_DateTime ticks);

// A source timestamp as UTC.
QString utcDateTimeText(UA_DateTime ticks);

// The date-time a local time in the text form names, its milliseconds deliberately dropped;
// false when the text is not in the form.
bool dateTimeFromLocalText(const QString& text, UA_DateTime* ticks);

} // namespace Ua
