#include "ua/text.h"

#include <cstring>

namespace Ua {

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
    UA_ByteString view;
    view.length = static_cast<size_t>(bytes.size());
    // A QByteArray's data is never null, so an empty one gives an empty, not a null, string.
    view.data = reinterpret_cast<UA_Byte*>(const_cast<char*>(bytes.constData()));
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
    NodeIdHolder id;
    const bool parsed = UA_NodeId_parse(id.get(), borrow(utf8)) == UA_STATUSCODE_GOOD;
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

} // namespace Ua
