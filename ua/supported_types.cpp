#include "ua/supported_types.h"

#include "ua/text.h"

#include <QByteArray>
#include <QDebug>

namespace Ua {

namespace {

template <typename T>
const T& as(const void* element)
{
    return *static_cast<const T*>(element);
}

template <typename T>
UA_StatusCode store(void* element, T value)
{
    *static_cast<T*>(element) = value;
    return UA_STATUSCODE_GOOD;
}

// Text up to the first zero byte, as the gateway stores C strings.
QString cStringText(const UA_String& s)
{
    UA_String prefix = s;
    if (s.data)
        prefix.length = qstrnlen(reinterpret_cast<const char*>(s.data), static_cast<uint>(s.length));
    return toQString(prefix);
}

QString byteStringText(const UA_ByteString& b)
{
    if (!b.data || b.length == 0)
        return QString();
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(b.data), static_cast<int>(b.length)).toHex());
}

// Deliberately without zero padding: the byte 0x05 reads "5".
QString guidText(const UA_Guid& g)
{
    QString text = QLatin1Char('{') + QString::number(g.data1, 16) + QLatin1Char('-') + QString::number(g.data2, 16)
        + QLatin1Char('-') + QString::number(g.data3, 16) + QLatin1Char('-') + QString::number(g.data4[0], 16)
        + QString::number(g.data4[1], 16) + QLatin1Char('-');
    for (int i = 2; i < 8; ++i)
        text += QString::number(g.data4[i], 16);
    return text + QLatin1Char('}');
}

// Hexadecimal as people write it, with or without prefixes and separators.
QByteArray decodeHexText(QString text, bool simplify)
{
    if (simplify)
        text = text.simplified();
    text = text.toLower();
    static const char* const noise[] = {"0x", " ", "#", "%", "\\x", "&#x", "0h", "x"};
    for (const char* n : noise)
        text.remove(QLatin1String(n));
    QByteArray bytes = QByteArray::fromHex(text.toLatin1());
    const int zero = bytes.indexOf('\0');
    if (zero >= 0)
        bytes.truncate(zero);
    return bytes;
}

UA_StatusCode storeBytes(void* element, const QByteArray& bytes)
{
    StringHolder copy = toUaString(bytes);
    if (!copy->data)
        return UA_STATUSCODE_BADOUTOFMEMORY;
    *static_cast<UA_String*>(element) = copy.release();
    return UA_STATUSCODE_GOOD;
}

// Milliseconds are deliberately dropped on the way in.
UA_StatusCode storeDateTime(void* element, const QString& text, QString* error)
{
    UA_DateTime ticks = 0;
    if (!dateTimeFromLocalText(text, &ticks)) {
        qWarning().noquote() << QStringLiteral("Invalid date time format. Value: ") + text
                + QStringLiteral(" Format should be: ") + QLatin1String(dateTimeTextFormat);
        *error = QStringLiteral("Invalid date time format. Expected format: ") + QLatin1String(dateTimeTextFormat);
        return UA_STATUSCODE_BADNOTIMPLEMENTED;
    }
    return store<UA_DateTime>(element, ticks);
}

// Scalar texts go through Qt's 32-bit parses (as the gateway's do), so a 64-bit value beyond
// that range comes out as 0; JSON array values keep their width.
const std::array<SupportedType, 16> table = {{
    {1, "Boolean", UA_TYPES_BOOLEAN, true, false,
     // Read as the byte it is stored in: a stack value other than 0/1 must not be undefined behaviour.
     [](const void* e, int) { return QString::number(as<quint8>(e)); },
     [](const QString& t, void* e, QString*) { return store<UA_Boolean>(e, t.toInt() != 0); },
     [](const QVariant& v, void* e, QString*) { return store<UA_Boolean>(e, v.toInt() != 0); }},
    {2, "SByte", UA_TYPES_SBYTE, true, false,
     [](const void* e, int) { return QString::number(as<UA_SByte>(e)); },
     [](const QString& t, void* e, QString*) { return store<UA_SByte>(e, static_cast<UA_SByte>(t.toInt())); },
     [](const QVariant& v, void* e, QString*) { return store<UA_SByte>(e, static_cast<UA_SByte>(v.toInt())); }},
    {3, "Byte", UA_TYPES_BYTE, true, false,
     [](const void* e, int) { return QString::number(as<UA_Byte>(e)); },
     [](const QString& t, void* e, QString*) { return store<UA_Byte>(e, static_cast<UA_Byte>(t.toInt())); },
     [](const QVariant& v, void* e, QString*) { return store<UA_Byte>(e, static_cast<UA_Byte>(v.toUInt())); }},
    {4, "Int16", UA_TYPES_INT16, true, false,
     [](const void* e, int) { return QString::number(as<UA_Int16>(e)); },
     [](const QString& t, void* e, QString*) { return store<UA_Int16>(e, static_cast<UA_Int16>(t.toInt())); },
     [](const QVariant& v, void* e, QString*) { return store<UA_Int16>(e, static_cast<UA_Int16>(v.toInt())); }},
    {5, "UInt16", UA_TYPES_UINT16, true, false,
     [](const void* e, int) { return QString::number(as<UA_UInt16>(e)); },
     [](const QString& t, void* e, QString*) { return store<UA_UInt16>(e, static_cast<UA_UInt16>(t.toUInt())); },
     [](const QVariant& v, void* e, QString*) { return store<UA_UInt16>(e, static_cast<UA_UInt16>(v.toUInt())); }},
    {6, "Int32", UA_TYPES_INT32, true, false,
     [](const void* e, int) { return QString::number(as<UA_Int32>(e)); },
     [](const QString& t, void* e, QString*) { return store<UA_Int32>(e, t.toInt()); },
     [](const QVariant& v, void* e, QString*) { return store<UA_Int32>(e, static_cast<UA_Int32>(v.toInt())); }},
    {7, "UInt32", UA_TYPES_UINT32, true, false,
     [](const void* e, int) { return QString::number(as<UA_UInt32>(e)); },
     [](const QString& t, void* e, QString*) { return store<UA_UInt32>(e, t.toUInt()); },
     [](const QVariant& v, void* e, QString*) { return store<UA_UInt32>(e, static_cast<UA_UInt32>(v.toUInt())); }},
    {8, "Int64", UA_TYPES_INT64, true, false,
     [](const void* e, int) { return QString::number(static_cast<qlonglong>(as<UA_Int64>(e))); },
     [](const QString& t, void* e, QString*) { return store<UA_Int64>(e, t.toInt()); },
     [](const QVariant& v, void* e, QString*) { return store<UA_Int64>(e, static_cast<UA_Int64>(v.toLongLong())); }},
    {9, "UInt64", UA_TYPES_UINT64, true, false,
     [](const void* e, int) { return QString::number(static_cast<qulonglong>(as<UA_UInt64>(e))); },
     [](const QString& t, void* e, QString*) { return store<UA_UInt64>(e, t.toUInt()); },
     [](const QVariant& v, void* e, QString*) { return store<UA_UInt64>(e, static_cast<UA_UInt64>(v.toULongLong())); }},
    {10, "Float", UA_TYPES_FLOAT, true, false,
     [](const void* e, int precision) { return QString::number(static_cast<double>(as<UA_Float>(e)), 'F', precision); },
     [](const QString& t, void* e, QString*) { return store<UA_Float>(e, t.toFloat()); },
     [](const QVariant& v, void* e, QString*) { return store<UA_Float>(e, v.toFloat()); }},
    {11, "Double", UA_TYPES_DOUBLE, true, false,
     [](const void* e, int precision) { return QString::number(as<UA_Double>(e), 'F', precision); },
     [](const QString& t, void* e, QString*) { return store<UA_Double>(e, t.toDouble()); },
     [](const QVariant& v, void* e, QString*) { return store<UA_Double>(e, v.toDouble()); }},
    {12, "String", UA_TYPES_STRING, true, true,
     [](const void* e, int) { return cStringText(as<UA_String>(e)); },
     [](const QString& t, void* e, QString*) { return storeBytes(e, t.toUtf8()); },
     [](const QVariant& v, void* e, QString*) { return storeBytes(e, v.toString().toUtf8()); }},
    {13, "DateTime", UA_TYPES_DATETIME, true, true,
     [](const void* e, int) { return localDateTimeText(as<UA_DateTime>(e)); },
     [](const QString& t, void* e, QString* error) { return storeDateTime(e, t, error); },
     [](const QVariant& v, void* e, QString* error) { return storeDateTime(e, v.toString(), error); }},
    // Guid and LocalizedText can be read, but the connector has no text form to write them from.
    {14, "Guid", UA_TYPES_GUID, false, true,
     [](const void* e, int) { return guidText(as<UA_Guid>(e)); }, nullptr, nullptr},
    {15, "ByteString", UA_TYPES_BYTESTRING, true, true,
     [](const void* e, int) { return byteStringText(as<UA_ByteString>(e)); },
     [](const QString& t, void* e, QString*) { return storeBytes(e, decodeHexText(t, false)); },
     [](const QVariant& v, void* e, QString*) { return storeBytes(e, decodeHexText(v.toString(), true)); }},
    {21, "LocalizedText", UA_TYPES_LOCALIZEDTEXT, false, true,
     [](const void* e, int) { return cStringText(as<UA_LocalizedText>(e).text); }, nullptr, nullptr},
}};

// For the built-in types the index in UA_TYPES and the type kind are the same number.
static_assert(UA_TYPES_BOOLEAN == UA_DATATYPEKIND_BOOLEAN && UA_TYPES_BYTESTRING == UA_DATATYPEKIND_BYTESTRING
                  && UA_TYPES_LOCALIZEDTEXT == UA_DATATYPEKIND_LOCALIZEDTEXT,
              "built-in type indices and kinds differ");

} // namespace

const std::array<SupportedType, 16>& supportedTypes()
{
    return table;
}

const SupportedType* supportedTypeOfNode(const UA_NodeId& dataType)
{
    if (dataType.namespaceIndex != 0 || dataType.identifierType != UA_NODEIDTYPE_NUMERIC)
        return nullptr;
    for (const SupportedType& type : table) {
        if (type.nodeId == dataType.identifier.numeric)
            return &type;
    }
    return nullptr;
}

const SupportedType* supportedTypeOfKind(quint32 kind)
{
    for (const SupportedType& type : table) {
        if (static_cast<quint32>(type.typeIndex) == kind)
            return &type;
    }
    return nullptr;
}

} // namespace Ua
