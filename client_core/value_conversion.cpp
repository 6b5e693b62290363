#include "client_core/opc_ua_client_core.h"

#include "ua/holders.h"
#include "ua/supported_types.h"

#include <QByteArray>
#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>

namespace {

QString typeName(const UA_DataType* type)
{
    return type && type->typeName ? QString::fromUtf8(type->typeName) : QString();
}

// A scalar of the type from the text of a write.
UA_StatusCode setScalar(ClientCore::Node* node, const Ua::SupportedType& supported, const QString& text,
                        Ua::VariantHolder* out)
{
    // The variant owns the element from the start, so a failing text leaves nothing behind.
    *out = Ua::newScalarVariant(&UA_TYPES[supported.typeIndex]);
    if (!(*out)->type)
        return UA_STATUSCODE_BADOUTOFMEMORY;
    return supported.fromText(text, (*out)->data, &node->error);
}

// An array of the type from JSON values; the first bad element stops the conversion.
UA_StatusCode setArray(ClientCore::Node* node, const Ua::SupportedType& supported, const QJsonArray& elements,
                       size_t count, Ua::VariantHolder* out)
{
    const UA_DataType* type = &UA_TYPES[supported.typeIndex];
    // The variant owns the array from the start, so a failing element leaves nothing behind.
    *out = Ua::newArrayVariant(type, count);
    if (!(*out)->type)
        return UA_STATUSCODE_BADOUTOFMEMORY;
    char* array = static_cast<char*>((*out)->data);
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    for (size_t i = 0; i < count && status == UA_STATUSCODE_GOOD; ++i)
        status = supported.fromJson(elements.at(int(i)).toVariant(), array + i * type->memSize, &node->error);
    return status;
}

} // namespace

bool ClientCore::convertValue(ClientCore::Node* node, UA_Variant* value)
{
    const UA_DataType* type = value ? value->type : nullptr;
    const Ua::SupportedType* supported = type ? Ua::supportedTypeOfKind(type->typeKind) : nullptr;
    if (!supported) {
        node->error = QStringLiteral("Unsupported node data type (") + typeName(type) + QLatin1Char(')');
        return false;
    }

    const int precision = node->floatingPointPrecision;
    const char* data = static_cast<const char*>(value->data);
    const bool hasData = value->data > UA_EMPTY_ARRAY_SENTINEL;
    if (value->arrayLength == 0 && hasData) {
        node->value = supported->toText(data, precision);
        return true;
    }

    // An array (a variant without data counts as an empty one).
    const size_t length = hasData ? value->arrayLength : 0;
    if (node->arrayIndex != Node::wholeArray) {
        if (node->arrayIndex >= length) {
            node->error = QStringLiteral("Array index %1 is out of range for an array of %2 elements")
                              .arg(QString::number(node->arrayIndex), QString::number(length));
            return false;
        }
        node->value = supported->toText(data + size_t(node->arrayIndex) * type->memSize, precision);
        return true;
    }

    QString text = QStringLiteral("[");
    for (size_t i = 0; i < length; ++i) {
        const QString element = supported->toText(data + i * type->memSize, precision);
        if (supported->quotedInArrays)
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

Ua::VariantHolder ClientCore::convertToVariant(ClientCore::Node* node, QString text)
{
    const qint32 kind = node->dataTypeKind;
    const Ua::SupportedType* supported = kind >= 0 ? Ua::supportedTypeOfKind(quint32(kind)) : nullptr;
    Ua::VariantHolder result;
    UA_StatusCode status = UA_STATUSCODE_GOOD;

    if (!supported || !supported->writable) {
        qWarning().noquote() << QStringLiteral("Unsupported data type: ") + QString::number(kind);
        node->error = QStringLiteral("Unsupported node data type (") + QString::number(kind) + QLatin1Char(')');
        status = UA_STATUSCODE_BADNOTIMPLEMENTED;
    } else {
        const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
        QJsonArray elements;
        if (document.isArray())
            elements = document.array();
        else if (node->arrayIndex != Node::wholeArray)
            elements.append(QJsonValue(text));

        if (!elements.isEmpty() || node->arrayIndex != Node::wholeArray) {
            const size_t count = node->arrayIndex == Node::wholeArray ? size_t(elements.size()) : 1;
            status = setArray(node, *supported, elements, count, &result);
        } else {
            status = setScalar(node, *supported, text, &result);
        }
    }

    if (status != UA_STATUSCODE_GOOD) {
        qWarning().noquote() << QStringLiteral("[") + QLatin1String(logTag)
                + QStringLiteral("] Failed to set scalar value during write. Error code: ") + QString::number(status)
                + QStringLiteral(" Data type: ") + QString::number(kind);
        return Ua::VariantHolder();
    }
    return result;
}
