#include "conversion_support.h"

#include <gtest/gtest.h>

using namespace values_test;

namespace {

class TextToValue : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { useUtcTimeZone(); }

    static Ua::VariantHolder convert(ClientCore::Node* node, const QString& text)
    {
        return Ua::VariantHolder(ClientCore::convertToVariant(node, text));
    }

    static Ua::VariantHolder convert(qint32 kind, const QString& text, quint16 arrayIndex = 65535)
    {
        ClientCore::Node node = nodeOfKind(kind, arrayIndex);
        Ua::VariantHolder v = convert(&node, text);
        EXPECT_EQ(node.error, "") << text.toStdString();
        return v;
    }

    template <typename T>
    static T scalarOf(const Ua::VariantHolder& v, int typeIndex)
    {
        EXPECT_TRUE(UA_Variant_hasScalarType(v.get(), &UA_TYPES[typeIndex]));
        if (!UA_Variant_hasScalarType(v.get(), &UA_TYPES[typeIndex]))
            return T();
        return *static_cast<const T*>(v->data);
    }

    template <typename T>
    static std::vector<T> arrayOf(const Ua::VariantHolder& v, int typeIndex)
    {
        EXPECT_TRUE(UA_Variant_hasArrayType(v.get(), &UA_TYPES[typeIndex]));
        if (!UA_Variant_hasArrayType(v.get(), &UA_TYPES[typeIndex]))
            return {};
        const T* p = static_cast<const T*>(v->data);
        return std::vector<T>(p, p + v->arrayLength);
    }

    // Converts the text and the result back, as a read of the written value would.
    static QString roundTrip(qint32 kind, const QString& text, quint16 arrayIndex = 65535)
    {
        Ua::VariantHolder v = convert(kind, text, arrayIndex);
        ClientCore::Node node = nodeOfKind(kind);
        if (!ClientCore::convertValue(&node, v.get()))
            return QStringLiteral("error: ") + node.error;
        return node.value;
    }
};

TEST_F(TextToValue, BooleanTextIsNumeric)
{
    EXPECT_FALSE(scalarOf<UA_Boolean>(convert(UA_TYPES_BOOLEAN, "true"), UA_TYPES_BOOLEAN));
    EXPECT_TRUE(scalarOf<UA_Boolean>(convert(UA_TYPES_BOOLEAN, "1"), UA_TYPES_BOOLEAN));
    EXPECT_TRUE(scalarOf<UA_Boolean>(convert(UA_TYPES_BOOLEAN, "2"), UA_TYPES_BOOLEAN));
    EXPECT_FALSE(scalarOf<UA_Boolean>(convert(UA_TYPES_BOOLEAN, "0"), UA_TYPES_BOOLEAN));
    EXPECT_FALSE(scalarOf<UA_Boolean>(convert(UA_TYPES_BOOLEAN, "false"), UA_TYPES_BOOLEAN));
}

TEST_F(TextToValue, SmallIntegersAreNarrowedFromA32BitParse)
{
    EXPECT_EQ(scalarOf<UA_SByte>(convert(UA_TYPES_SBYTE, "-5"), UA_TYPES_SBYTE), -5);
    EXPECT_EQ(scalarOf<UA_SByte>(convert(UA_TYPES_SBYTE, "200"), UA_TYPES_SBYTE), -56);
    EXPECT_EQ(scalarOf<UA_Byte>(convert(UA_TYPES_BYTE, "255"), UA_TYPES_BYTE), 255);
    EXPECT_EQ(scalarOf<UA_Byte>(convert(UA_TYPES_BYTE, "256"), UA_TYPES_BYTE), 0);
    EXPECT_EQ(scalarOf<UA_Int16>(convert(UA_TYPES_INT16, "-300"), UA_TYPES_INT16), -300);
    EXPECT_EQ(scalarOf<UA_Int16>(convert(UA_TYPES_INT16, "32768"), UA_TYPES_INT16), -32768);
    EXPECT_EQ(scalarOf<UA_UInt16>(convert(UA_TYPES_UINT16, "65535"), UA_TYPES_UINT16), 65535);
    EXPECT_EQ(scalarOf<UA_UInt16>(convert(UA_TYPES_UINT16, "65536"), UA_TYPES_UINT16), 0);
    EXPECT_EQ(scalarOf<UA_Int32>(convert(UA_TYPES_INT32, "-7"), UA_TYPES_INT32), -7);
    EXPECT_EQ(scalarOf<UA_Int32>(convert(UA_TYPES_INT32, "2147483648"), UA_TYPES_INT32), 0);
    EXPECT_EQ(scalarOf<UA_UInt32>(convert(UA_TYPES_UINT32, "4294967295"), UA_TYPES_UINT32), 4294967295u);
    EXPECT_EQ(scalarOf<UA_UInt32>(convert(UA_TYPES_UINT32, "-1"), UA_TYPES_UINT32), 0u);
}

TEST_F(TextToValue, Int64GoesThroughA32BitParse)
{
    EXPECT_EQ(scalarOf<UA_Int64>(convert(UA_TYPES_INT64, "-5"), UA_TYPES_INT64), -5);
    EXPECT_EQ(scalarOf<UA_Int64>(convert(UA_TYPES_INT64, "2147483647"), UA_TYPES_INT64), 2147483647);
    EXPECT_EQ(scalarOf<UA_Int64>(convert(UA_TYPES_INT64, "2147483648"), UA_TYPES_INT64), 0);
    EXPECT_EQ(scalarOf<UA_Int64>(convert(UA_TYPES_INT64, "5000000000"), UA_TYPES_INT64), 0);
    EXPECT_EQ(scalarOf<UA_UInt64>(convert(UA_TYPES_UINT64, "4294967295"), UA_TYPES_UINT64), 4294967295u);
    EXPECT_EQ(scalarOf<UA_UInt64>(convert(UA_TYPES_UINT64, "4294967296"), UA_TYPES_UINT64), 0u);
}

TEST_F(TextToValue, NumbersThatDoNotParseBecomeZeroWithoutError)
{
    EXPECT_EQ(scalarOf<UA_Int32>(convert(UA_TYPES_INT32, "abc"), UA_TYPES_INT32), 0);
    EXPECT_EQ(scalarOf<UA_Double>(convert(UA_TYPES_DOUBLE, "abc"), UA_TYPES_DOUBLE), 0.0);
}

TEST_F(TextToValue, FloatingPointTexts)
{
    EXPECT_EQ(scalarOf<UA_Float>(convert(UA_TYPES_FLOAT, "1.5"), UA_TYPES_FLOAT), 1.5f);
    EXPECT_EQ(scalarOf<UA_Double>(convert(UA_TYPES_DOUBLE, "-3.25"), UA_TYPES_DOUBLE), -3.25);
    EXPECT_EQ(scalarOf<UA_Double>(convert(UA_TYPES_DOUBLE, "1e3"), UA_TYPES_DOUBLE), 1000.0);
}

TEST_F(TextToValue, StringIsTheUtf8Text)
{
    const Ua::VariantHolder v = convert(UA_TYPES_STRING, QString::fromUtf8("h\xc3\xa9llo"));
    EXPECT_EQ(bytesOf(scalarOf<UA_String>(v, UA_TYPES_STRING)), QByteArray("h\xc3\xa9llo"));
    const Ua::VariantHolder empty = convert(UA_TYPES_STRING, "");
    EXPECT_EQ(scalarOf<UA_String>(empty, UA_TYPES_STRING).length, 0u);
}

TEST_F(TextToValue, DateTimeDropsTheMilliseconds)
{
    const Ua::VariantHolder v = convert(UA_TYPES_DATETIME, "2024-01-02 03:04:05.678");
    EXPECT_EQ(scalarOf<UA_DateTime>(v, UA_TYPES_DATETIME), ticksOf(2024, 1, 2, 3, 4, 5, 0));
    EXPECT_EQ(roundTrip(UA_TYPES_DATETIME, "2024-01-02 03:04:05.678"), "2024-01-02 03:04:05.000");
}

TEST_F(TextToValue, InvalidDateTimeIsRefused)
{
    WarningCapture warnings;
    ClientCore::Node node = nodeOfKind(UA_TYPES_DATETIME);
    const Ua::VariantHolder v = convert(&node, "2024-01-02T03:04:05");
    EXPECT_EQ(v->type, nullptr);
    EXPECT_EQ(node.error, "Invalid date time format. Expected format: yyyy-MM-dd hh:mm:ss.zzz");
    EXPECT_EQ(warnings.messages(),
              QStringList({"Invalid date time format. Value: 2024-01-02T03:04:05 Format should be: "
                           "yyyy-MM-dd hh:mm:ss.zzz",
                           "[opc_ua_client] Failed to set scalar value during write. Error code: 2151677952 "
                           "Data type: 12"}));
}

TEST_F(TextToValue, DateWithoutMillisecondsIsInvalid)
{
    ClientCore::Node node = nodeOfKind(UA_TYPES_DATETIME);
    const Ua::VariantHolder v = convert(&node, "2024-01-02 03:04:05");
    EXPECT_EQ(v->type, nullptr);
    EXPECT_EQ(node.error, "Invalid date time format. Expected format: yyyy-MM-dd hh:mm:ss.zzz");
}

TEST_F(TextToValue, ByteStringNoiseIsRemovedBeforeHexDecoding)
{
    auto bytes = [](const QString& text) {
        const Ua::VariantHolder v = convert(UA_TYPES_BYTESTRING, text);
        return bytesOf(scalarOf<UA_ByteString>(v, UA_TYPES_BYTESTRING));
    };
    EXPECT_EQ(bytes("0x0A 0B"), QByteArray("\x0a\x0b"));
    EXPECT_EQ(bytes("0A0B"), QByteArray("\x0a\x0b"));
    EXPECT_EQ(bytes("#FF%10"), QByteArray("\xff\x10"));
    EXPECT_EQ(bytes("\\x41\\x42"), QByteArray("AB"));
    EXPECT_EQ(bytes("&#x41&#x42"), QByteArray("AB"));
    EXPECT_EQ(bytes("0h41 0h42"), QByteArray("AB"));
    EXPECT_EQ(bytes("x41x42"), QByteArray("AB"));
    // Decoded bytes end at the first zero byte.
    EXPECT_EQ(bytes("41 00 42"), QByteArray("A"));
    EXPECT_EQ(bytes("00 41"), QByteArray());
    EXPECT_EQ(roundTrip(UA_TYPES_BYTESTRING, "0x0A 0B"), "0a0b");
}

TEST_F(TextToValue, GuidAndLocalizedTextAreNotWritable)
{
    for (qint32 kind : {UA_TYPES_GUID, UA_TYPES_LOCALIZEDTEXT}) {
        WarningCapture warnings;
        ClientCore::Node node = nodeOfKind(kind);
        const Ua::VariantHolder v = convert(&node, "x");
        EXPECT_EQ(v->type, nullptr);
        EXPECT_EQ(node.error, QStringLiteral("Unsupported node data type (%1)").arg(kind));
        EXPECT_EQ(warnings.messages(),
                  QStringList({QStringLiteral("Unsupported data type: %1").arg(kind),
                               QStringLiteral("[opc_ua_client] Failed to set scalar value during write. Error code: "
                                              "2151677952 Data type: %1")
                                   .arg(kind)}));
    }
}

TEST_F(TextToValue, OtherKindsAreUnsupported)
{
    for (qint32 kind : {15, 16, 19, 21, 22, 23, 25, 63, -1}) {
        ClientCore::Node node = nodeOfKind(kind);
        const Ua::VariantHolder v = convert(&node, "[1]");
        EXPECT_EQ(v->type, nullptr);
        EXPECT_EQ(node.error, QStringLiteral("Unsupported node data type (%1)").arg(kind));
    }
}

TEST_F(TextToValue, JsonArrayWritesTheWholeArray)
{
    EXPECT_EQ(arrayOf<UA_Int32>(convert(UA_TYPES_INT32, "[1,2]"), UA_TYPES_INT32), (std::vector<UA_Int32>{1, 2}));
    EXPECT_EQ(roundTrip(UA_TYPES_INT32, "[1,2]"), "[1, 2]");
    EXPECT_EQ(arrayOf<UA_Boolean>(convert(UA_TYPES_BOOLEAN, "[true, 0, 3]"), UA_TYPES_BOOLEAN),
              (std::vector<UA_Boolean>{true, false, true}));
    EXPECT_EQ(arrayOf<UA_SByte>(convert(UA_TYPES_SBYTE, "[-1, 2]"), UA_TYPES_SBYTE), (std::vector<UA_SByte>{-1, 2}));
    EXPECT_EQ(arrayOf<UA_Byte>(convert(UA_TYPES_BYTE, "[1, 255]"), UA_TYPES_BYTE), (std::vector<UA_Byte>{1, 255}));
    EXPECT_EQ(arrayOf<UA_Int16>(convert(UA_TYPES_INT16, "[-300]"), UA_TYPES_INT16), (std::vector<UA_Int16>{-300}));
    EXPECT_EQ(arrayOf<UA_UInt16>(convert(UA_TYPES_UINT16, "[65535]"), UA_TYPES_UINT16),
              (std::vector<UA_UInt16>{65535}));
    EXPECT_EQ(arrayOf<UA_UInt32>(convert(UA_TYPES_UINT32, "[4294967295]"), UA_TYPES_UINT32),
              (std::vector<UA_UInt32>{4294967295u}));
    EXPECT_EQ(roundTrip(UA_TYPES_FLOAT, "[0.5, -1]"), "[0.5000, -1.0000]");
    EXPECT_EQ(roundTrip(UA_TYPES_DOUBLE, "[3.25, \"2\"]"), "[3.2500, 2.0000]");
}

TEST_F(TextToValue, SixtyFourBitArrayElementsKeepTheirWidth)
{
    EXPECT_EQ(arrayOf<UA_Int64>(convert(UA_TYPES_INT64, "[-5000000000, 7]"), UA_TYPES_INT64),
              (std::vector<UA_Int64>{-5000000000LL, 7}));
    EXPECT_EQ(arrayOf<UA_UInt64>(convert(UA_TYPES_UINT64, "[10000000000]"), UA_TYPES_UINT64),
              (std::vector<UA_UInt64>{10000000000ULL}));
}

TEST_F(TextToValue, TextArraysGoThroughTheirTextForm)
{
    EXPECT_EQ(roundTrip(UA_TYPES_STRING, "[\"a\", \"b c\"]"), "[\"a\", \"b c\"]");
    EXPECT_EQ(roundTrip(UA_TYPES_BYTESTRING, "[\"0x0A  0B\", \" ff \"]"), "[\"0a0b\", \"ff\"]");
    EXPECT_EQ(roundTrip(UA_TYPES_DATETIME, "[\"2024-01-02 03:04:05.678\"]"), "[\"2024-01-02 03:04:05.000\"]");
}

TEST_F(TextToValue, BadDateStopsTheArray)
{
    WarningCapture warnings;
    ClientCore::Node node = nodeOfKind(UA_TYPES_DATETIME);
    const Ua::VariantHolder v = convert(&node, "[\"2024-01-02 03:04:05.678\", \"bad\", \"worse\"]");
    EXPECT_EQ(v->type, nullptr);
    EXPECT_EQ(node.error, "Invalid date time format. Expected format: yyyy-MM-dd hh:mm:ss.zzz");
    EXPECT_EQ(warnings.messages(),
              QStringList({"Invalid date time format. Value: bad Format should be: yyyy-MM-dd hh:mm:ss.zzz",
                           "[opc_ua_client] Failed to set scalar value during write. Error code: 2151677952 "
                           "Data type: 12"}));
}

TEST_F(TextToValue, ElementWriteIsAOneElementArray)
{
    EXPECT_EQ(arrayOf<UA_Int32>(convert(UA_TYPES_INT32, "7", 3), UA_TYPES_INT32), (std::vector<UA_Int32>{7}));
    EXPECT_EQ(arrayOf<UA_Boolean>(convert(UA_TYPES_BOOLEAN, "1", 0), UA_TYPES_BOOLEAN),
              (std::vector<UA_Boolean>{true}));
    EXPECT_EQ(roundTrip(UA_TYPES_STRING, "hello", 1), "[\"hello\"]");
    EXPECT_EQ(roundTrip(UA_TYPES_BYTESTRING, "0x0A 0B", 1), "[\"0a0b\"]");
    EXPECT_EQ(roundTrip(UA_TYPES_DATETIME, "2024-01-02 03:04:05.678", 2), "[\"2024-01-02 03:04:05.000\"]");
    // A JSON array given for one element writes its first entry.
    EXPECT_EQ(arrayOf<UA_Int32>(convert(UA_TYPES_INT32, "[4, 5]", 2), UA_TYPES_INT32), (std::vector<UA_Int32>{4}));
    // An empty JSON array still gives the one element, converted from nothing.
    EXPECT_EQ(arrayOf<UA_Int32>(convert(UA_TYPES_INT32, "[]", 2), UA_TYPES_INT32), (std::vector<UA_Int32>{0}));
}

TEST_F(TextToValue, ScalarsRoundTripThroughTheirTextForm)
{
    EXPECT_EQ(roundTrip(UA_TYPES_BOOLEAN, "1"), "1");
    EXPECT_EQ(roundTrip(UA_TYPES_SBYTE, "-128"), "-128");
    EXPECT_EQ(roundTrip(UA_TYPES_BYTE, "200"), "200");
    EXPECT_EQ(roundTrip(UA_TYPES_INT16, "-32768"), "-32768");
    EXPECT_EQ(roundTrip(UA_TYPES_UINT16, "65535"), "65535");
    EXPECT_EQ(roundTrip(UA_TYPES_INT32, "-2147483648"), "-2147483648");
    EXPECT_EQ(roundTrip(UA_TYPES_UINT32, "4294967295"), "4294967295");
    EXPECT_EQ(roundTrip(UA_TYPES_INT64, "-2147483648"), "-2147483648");
    EXPECT_EQ(roundTrip(UA_TYPES_UINT64, "4294967295"), "4294967295");
    EXPECT_EQ(roundTrip(UA_TYPES_FLOAT, "2.5"), "2.5000");
    EXPECT_EQ(roundTrip(UA_TYPES_DOUBLE, "3.14159"), "3.1416");
    EXPECT_EQ(roundTrip(UA_TYPES_STRING, "Tank \"A\""), "Tank \"A\"");
}

TEST_F(TextToValue, WholeArrayTextThatIsNotJsonIsAScalar)
{
    EXPECT_EQ(scalarOf<UA_Int32>(convert(UA_TYPES_INT32, "12"), UA_TYPES_INT32), 12);
    EXPECT_EQ(bytesOf(scalarOf<UA_String>(convert(UA_TYPES_STRING, "[1,"), UA_TYPES_STRING)), QByteArray("[1,"));
}

} // namespace
