#include "client_core/opc_ua_client_core.h"

#include "client_core/ua_holders.h"

#include <QByteArray>
#include <QDateTime>
#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QVariant>

#include <cstring>
#include <limits>

namespace {

const quint16 wholeArray = 65535;
const qint64 unixEpochTicks = 116444736000000000LL;
const char* const dateTimeFormat = "yyyy-MM-dd hh:mm:ss.zzz";
const char* const logTag = "opc_ua_client";

bool isQuotedKind(quint32 kind)
{
    switch (kind) {
    case UA_DATATYPEKIND_STRING:
    case UA_DATATYPEKIND_LOCALIZEDTEXT:
    case UA_DATATYPEKIND_DATETIME:
    case UA_DATATYPEKIND_BYTESTRING:
    case UA_DATATYPEKIND_GUID:
        return true;
    default:
        return false;
    }
}

bool isReadableKind(quint32 kind)
{
    switch (kind) {
    case UA_DATATYPEKIND_BOOLEAN:
    case UA_DATATYPEKIND_SBYTE:
    case UA_DATATYPEKIND_BYTE:
    case UA_DATATYPEKIND_INT16:
    case UA_DATATYPEKIND_UINT16:
    case UA_DATATYPEKIND_INT32:
    case UA_DATATYPEKIND_UINT32:
    case UA_DATATYPEKIND_INT64:
    case UA_DATATYPEKIND_UINT64:
    case UA_DATATYPEKIND_FLOAT:
    case UA_DATATYPEKIND_DOUBLE:
        return true;
    default:
        return isQuotedKind(kind);
    }
}

// Text up to the first zero byte, as the gateway stores C strings.
QString textOf(const UA_String& s)
{
    if (!s.data || s.length == 0)
        return QString();
    const char* bytes = reinterpret_cast<const char*>(s.data);
    return QString::fromUtf8(bytes, static_cast<int>(qstrnlen(bytes, static_cast<uint>(s.length))));
}

QString dateTimeText(UA_DateTime ticks)
{
    // A server's tick count near the lower end of the range must not overflow the subtraction.
    ticks = qMax<qint64>(ticks, std::numeric_limits<qint64>::min() + unixEpochTicks);
    const qint64 ms = ((ticks - unixEpochTicks) / 10000000) * 1000 + UA_DateTime_toStruct(ticks).milliSec;
    return QDateTime::fromMSecsSinceEpoch(ms).toString(QLatin1String(dateTimeFormat));
}

QString guidText(const UA_Guid& g)
{
    QString text = QLatin1Char('{') + QString::number(g.data1, 16) + QLatin1Char('-') + QString::number(g.data2, 16)
        + QLatin1Char('-') + QString::number(g.data3, 16) + QLatin1Char('-') + QString::number(g.data4[0], 16)
        + QString::number(g.data4[1], 16) + QLatin1Char('-');
    for (int i = 2; i < 8; ++i)
        text += QString::number(g.data4[i], 16);
    return text + QLatin1Char('}');
}

QString elementText(quint32 kind, const void* p, int precision)
{
    switch (kind) {
    case UA_DATATYPEKIND_BOOLEAN:
        // Read as the byte it is stored in: a stack value other than 0/1 must not be undefined behaviour.
        return QString::number(*static_cast<const quint8*>(p));
    case UA_DATATYPEKIND_SBYTE:
        return QString::number(*static_cast<const UA_SByte*>(p));
    case UA_DATATYPEKIND_BYTE:
        return QString::number(*static_cast<const UA_Byte*>(p));
    case UA_DATATYPEKIND_INT16:
        return QString::number(*static_cast<const UA_Int16*>(p));
    case UA_DATATYPEKIND_UINT16:
        return QString::number(*static_cast<const UA_UInt16*>(p));
    case UA_DATATYPEKIND_INT32:
        return QString::number(*static_cast<const UA_Int32*>(p));
    case UA_DATATYPEKIND_UINT32:
        return QString::number(*static_cast<const UA_UInt32*>(p));
    case UA_DATATYPEKIND_INT64:
        return QString::number(static_cast<qlonglong>(*static_cast<const UA_Int64*>(p)));
    case UA_DATATYPEKIND_UINT64:
        return QString::number(static_cast<qulonglong>(*static_cast<const UA_UInt64*>(p)));
    case UA_DATATYPEKIND_FLOAT:
        return QString::number(static_cast<double>(*static_cast<const UA_Float*>(p)), 'F', precision);
    case UA_DATATYPEKIND_DOUBLE:
        return QString::number(*static_cast<const UA_Double*>(p), 'F', precision);
    case UA_DATATYPEKIND_STRING:
        return textOf(*static_cast<const UA_String*>(p));
    case UA_DATATYPEKIND_LOCALIZEDTEXT:
        return textOf(static_cast<const UA_LocalizedText*>(p)->text);
    case UA_DATATYPEKIND_DATETIME:
        return dateTimeText(*static_cast<const UA_DateTime*>(p));
    case UA_DATATYPEKIND_BYTESTRING: {
        const UA_ByteString* b = static_cast<const UA_ByteString*>(p);
        if (!b->data || b->length == 0)
            return QString();
        return QString::fromLatin1(
            QByteArray(reinterpret_cast<const char*>(b->data), static_cast<int>(b->length)).toHex());
    }
    case UA_DATATYPEKIND_GUID:
        return guidText(*static_cast<const UA_Guid*>(p));
    default:
        return QString();
    }
}

QString typeName(const UA_DataType* type)
{
    return type && type->typeName ? QString::fromUtf8(type->typeName) : QString();
}

// ---- text to value ----

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

// Fills a stack string with bytes; an empty input gives an empty (not null) string.
UA_StatusCode setBytes(UA_String* out, const QByteArray& bytes)
{
    UA_String_init(out);
    if (bytes.isEmpty()) {
        out->data = static_cast<UA_Byte*>(UA_EMPTY_ARRAY_SENTINEL);
        return UA_STATUSCODE_GOOD;
    }
    const UA_StatusCode status = UA_ByteString_allocBuffer(out, static_cast<size_t>(bytes.size()));
    if (status == UA_STATUSCODE_GOOD)
        std::memcpy(out->data, bytes.constData(), static_cast<size_t>(bytes.size()));
    return status;
}

bool parseDateTime(ClientCore::Node* node, const QString& text, UA_DateTime* out)
{
    const QDateTime dt = QDateTime::fromString(text, QLatin1String(dateTimeFormat));
    if (!dt.isValid()) {
        qWarning().noquote() << QStringLiteral("Invalid date time format. Value: ") + text
                + QStringLiteral(" Format should be: ") + QLatin1String(dateTimeFormat);
        node->error = QStringLiteral("Invalid date time format. Expected format: ") + QLatin1String(dateTimeFormat);
        return false;
    }
    *out = (dt.toMSecsSinceEpoch() / 1000) * 10000000 + unixEpochTicks;
    return true;
}

// One array element from a JSON value, written in place into stack memory of the kind's type.
UA_StatusCode setElement(ClientCore::Node* node, quint32 kind, const QJsonValue& json, void* p)
{
    const QVariant v = json.toVariant();
    switch (kind) {
    case UA_DATATYPEKIND_BOOLEAN:
        *static_cast<UA_Boolean*>(p) = v.toInt() != 0;
        break;
    case UA_DATATYPEKIND_SBYTE:
        *static_cast<UA_SByte*>(p) = static_cast<UA_SByte>(v.toInt());
        break;
    case UA_DATATYPEKIND_BYTE:
        *static_cast<UA_Byte*>(p) = static_cast<UA_Byte>(v.toUInt());
        break;
    case UA_DATATYPEKIND_INT16:
        *static_cast<UA_Int16*>(p) = static_cast<UA_Int16>(v.toInt());
        break;
    case UA_DATATYPEKIND_UINT16:
        *static_cast<UA_UInt16*>(p) = static_cast<UA_UInt16>(v.toUInt());
        break;
    case UA_DATATYPEKIND_INT32:
        *static_cast<UA_Int32*>(p) = static_cast<UA_Int32>(v.toInt());
        break;
    case UA_DATATYPEKIND_UINT32:
        *static_cast<UA_UInt32*>(p) = static_cast<UA_UInt32>(v.toUInt());
        break;
    case UA_DATATYPEKIND_INT64:
        *static_cast<UA_Int64*>(p) = static_cast<UA_Int64>(v.toLongLong());
        break;
    case UA_DATATYPEKIND_UINT64:
        *static_cast<UA_UInt64*>(p) = static_cast<UA_UInt64>(v.toULongLong());
        break;
    case UA_DATATYPEKIND_FLOAT:
        *static_cast<UA_Float*>(p) = v.toFloat();
        break;
    case UA_DATATYPEKIND_DOUBLE:
        *static_cast<UA_Double*>(p) = v.toDouble();
        break;
    case UA_DATATYPEKIND_STRING:
        return setBytes(static_cast<UA_String*>(p), v.toString().toUtf8());
    case UA_DATATYPEKIND_BYTESTRING:
        return setBytes(static_cast<UA_ByteString*>(p), decodeHexText(v.toString(), true));
    case UA_DATATYPEKIND_DATETIME:
        return parseDateTime(node, v.toString(), static_cast<UA_DateTime*>(p)) ? UA_STATUSCODE_GOOD
                                                                               : UA_STATUSCODE_BADNOTIMPLEMENTED;
    default:
        return UA_STATUSCODE_BADNOTIMPLEMENTED;
    }
    return UA_STATUSCODE_GOOD;
}

UA_StatusCode setScalar(ClientCore::Node* node, quint32 kind, const QString& text, UA_Variant* out)
{
    const UA_DataType* type = &UA_TYPES[kind];
    switch (kind) {
    case UA_DATATYPEKIND_BOOLEAN: {
        const UA_Boolean v = text.toInt() != 0;
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_SBYTE: {
        const UA_SByte v = static_cast<UA_SByte>(text.toInt());
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_BYTE: {
        const UA_Byte v = static_cast<UA_Byte>(text.toInt());
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_INT16: {
        const UA_Int16 v = static_cast<UA_Int16>(text.toInt());
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_UINT16: {
        const UA_UInt16 v = static_cast<UA_UInt16>(text.toUInt());
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_INT32: {
        const UA_Int32 v = text.toInt();
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_UINT32: {
        const UA_UInt32 v = text.toUInt();
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_INT64: {
        // The gateway's integer texts go through a 32-bit parse; wider values come out as 0.
        const UA_Int64 v = text.toInt();
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_UINT64: {
        const UA_UInt64 v = text.toUInt();
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_FLOAT: {
        const UA_Float v = text.toFloat();
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_DOUBLE: {
        const UA_Double v = text.toDouble();
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_STRING:
    case UA_DATATYPEKIND_BYTESTRING: {
        QByteArray bytes = kind == UA_DATATYPEKIND_STRING ? text.toUtf8() : decodeHexText(text, false);
        UA_String v;
        v.length = static_cast<size_t>(bytes.size());
        v.data = reinterpret_cast<UA_Byte*>(bytes.data());
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    case UA_DATATYPEKIND_DATETIME: {
        UA_DateTime v = 0;
        if (!parseDateTime(node, text, &v))
            return UA_STATUSCODE_BADNOTIMPLEMENTED;
        return UA_Variant_setScalarCopy(out, &v, type);
    }
    default:
        return UA_STATUSCODE_BADNOTIMPLEMENTED;
    }
}

bool isWritableKind(qint32 kind)
{
    return kind >= UA_DATATYPEKIND_BOOLEAN && kind <= UA_DATATYPEKIND_BYTESTRING && kind != UA_DATATYPEKIND_GUID;
}

} // namespace

bool ClientCore::convertValue(ClientCore::Node* node, UA_Variant* value)
{
    const UA_DataType* type = value ? value->type : nullptr;
    const quint32 kind = type ? quint32(type->typeKind) : quint32(UA_DATATYPEKIND_BOOLEAN);
    if (!type || !isReadableKind(kind)) {
        node->error = QStringLiteral("Unsupported node data type (") + typeName(type) + QLatin1Char(')');
        return false;
    }

    const int precision = node->floatingPointPrecision;
    const char* data = static_cast<const char*>(value->data);
    const bool hasData = value->data > UA_EMPTY_ARRAY_SENTINEL;
    if (value->arrayLength == 0 && hasData) {
        node->value = elementText(kind, data, precision);
        return true;
    }

    // An array (a variant without data counts as an empty one).
    const size_t length = hasData ? value->arrayLength : 0;
    if (node->arrayIndex != wholeArray) {
        if (node->arrayIndex >= length) {
            node->error = QStringLiteral("Array index %1 is out of range for an array of %2 elements")
                              .arg(QString::number(node->arrayIndex), QString::number(length));
            return false;
        }
        node->value = elementText(kind, data + size_t(node->arrayIndex) * type->memSize, precision);
        return true;
    }

    const bool quoted = isQuotedKind(kind);
    QString text = QStringLiteral("[");
    for (size_t i = 0; i < length; ++i) {
        const QString element = elementText(kind, data + i * type->memSize, precision);
        if (quoted)
            text += QLatin1Char('"') + element + QLatin1Char('"');
        else
            text += element;
        text += QLatin1String(", ");
    }
    if (length > 0)
        text.chop(2);
    text += QLatin1Char(']');
    node->value = text;
    return true;
}

UA_Variant ClientCore::convertToVariant(ClientCore::Node* node, QString text)
{
    const qint32 kind = node->dataTypeKind;
    UaVariantHolder result;
    UA_StatusCode status = UA_STATUSCODE_GOOD;

    if (!isWritableKind(kind)) {
        qWarning().noquote() << QStringLiteral("Unsupported data type: ") + QString::number(kind);
        node->error = QStringLiteral("Unsupported node data type (") + QString::number(kind) + QLatin1Char(')');
        status = UA_STATUSCODE_BADNOTIMPLEMENTED;
    } else {
        const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
        QJsonArray elements;
        if (document.isArray())
            elements = document.array();
        else if (node->arrayIndex != wholeArray)
            elements.append(QJsonValue(text));

        if (!elements.isEmpty() || node->arrayIndex != wholeArray) {
            const size_t count = node->arrayIndex == wholeArray ? size_t(elements.size()) : 1;
            const UA_DataType* type = &UA_TYPES[kind];
            // The variant owns the array from the start, so a failing element leaves nothing behind.
            void* array = UA_Array_new(count, type);
            if (!array) {
                status = UA_STATUSCODE_BADOUTOFMEMORY;
            } else {
                UA_Variant_setArray(result.get(), array, count, type);
                for (size_t i = 0; i < count && status == UA_STATUSCODE_GOOD; ++i) {
                    status = setElement(node, quint32(kind), elements.at(int(i)),
                                        static_cast<char*>(array) + i * type->memSize);
                }
            }
        } else {
            status = setScalar(node, quint32(kind), text, result.get());
        }
    }

    if (status != UA_STATUSCODE_GOOD) {
        qWarning().noquote() << QStringLiteral("[") + QLatin1String(logTag)
                + QStringLiteral("] Failed to set scalar value during write. Error code: ") + QString::number(status)
                + QStringLiteral(" Data type: ") + QString::number(kind);
        return UaVariantHolder().release();
    }
    return result.release();
}
