#include "ua/text.h"

#include <QDateTime>

#include <cstring>
#include <limits>

namespace Ua {

namespace {

// A server's tick count near the lower end of the range must not overflow the subtraction of
// the epoch.
UA_DateTime withinRange(UA_DateTime ticks)
{
    return qMax<qint64>(ticks, std::numeric_limits<qint64>::min() + UA_DATETIME_UNIX_EPOCH);
}

} // namespace

QString toQString(const UA_String& text)
{
    if (!text.data || text.length == 0)
        return QString();
    return QString::fromUtf8(reinterpret_cast<const char*>(text.data), static_cast<int>(text.length));
}

StringHolder toUaString(const QByteArray& bytes)
{
    StringHolder copy;
    const UA_String view = borrow(bytes);
    if (UA_String_copy(&view, copy.get()) != UA_STATUSCODE_GOOD)
        return StringHolder();
    return copy;
}

StringHolder toUaString(const QString& text)
{
    return toUaString(text.toUtf8());
}

UA_ByteString borrow(const QByteArray& bytes)
{
    // A QByteArray's data is never null, so an empty one gives an empty, not a null, string.
    return borrow(bytes.constData(), static_cast<size_t>(bytes.size()));
}

UA_ByteString borrow(const char* data, size_t size)
{
    UA_ByteString view;
    view.length = size;
    view.data = reinterpret_cast<UA_Byte*>(const_cast<char*>(data));
    return view;
}

QString nodeIdToQString(const UA_NodeId& nodeId)
{
    StringHolder text;
    if (UA_NodeId_print(&nodeId, text.get()) != UA_STATUSCODE_GOOD)
        return QString();
    return toQString(*text);
}

NodeIdHolder nodeIdFromQString(const QString& text, bool* ok)
{
    const QByteArray utf8 = text.toUtf8();
    return nodeIdFromUtf8(utf8.constData(), size_t(utf8.size()), ok);
}

NodeIdHolder nodeIdFromUtf8(const char* data, size_t size, bool* ok)
{
    NodeIdHolder id;
    const bool parsed = UA_NodeId_parse(id.get(), borrow(data, size)) == UA_STATUSCODE_GOOD;
    if (ok)
        *ok = parsed;
    if (!parsed)
        return NodeIdHolder();
    return id;
}

QString statusCodeName(UA_StatusCode status)
{
    return QString::fromUtf8(UA_StatusCode_name(status));
}

QString localDateTimeText(UA_DateTime ticks)
{
    ticks = withinRange(ticks);
    const qint64 ms = ((ticks - UA_DATETIME_UNIX_EPOCH) / UA_DATETIME_SEC) * 1000 + UA_DateTime_toStruct(ticks).milliSec;
    return QDateTime::fromMSecsSinceEpoch(ms).toString(QLatin1String(dateTimeTextFormat));
}

QString utcDateTimeText(UA_DateTime ticks)
{
    const qint64 ms = (withinRange(ticks) - UA_DATETIME_UNIX_EPOCH) / UA_DATETIME_MSEC;
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC).toString(QLatin1String(dateTimeTextFormat));
}

bool dateTimeFromLocalText(const QString& text, UA_DateTime* ticks)
{
    const QDateTime dt = QDateTime::fromString(text, QLatin1String(dateTimeTextFormat));
    if (!dt.isValid())
        return false;
    *ticks = (dt.toMSecsSinceEpoch() / 1000) * UA_DATETIME_SEC + UA_DATETIME_UNIX_EPOCH;
    return true;
}

} // namespace Ua
