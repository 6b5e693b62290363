#include "conversion_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace values_test;

namespace {

class ValueToText : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { useUtcTimeZone(); }

    // Converts and returns the value text, or "error: <text>" when the conversion refused.
    static QString text(Ua::VariantHolder& v, quint16 arrayIndex = 65535, quint8 precision = 4)
    {
        ClientCore::Node node;
        node.arrayIndex = arrayIndex;
        node.floatingPointPrecision = precision;
        if (!ClientCore::convertValue(&node, v.get()))
            return QStringLiteral("error: ") + node.error;
        return node.value;
    }
};

TEST_F(ValueToText, BooleanIsTheNumericByte)
{
    auto t = scalar<UA_Boolean>(true, UA_TYPES_BOOLEAN);
    auto f = scalar<UA_Boolean>(false, UA_TYPES_BOOLEAN);
    EXPECT_EQ(text(t), "1");
    EXPECT_EQ(text(f), "0");
    const UA_Boolean values[] = {true, false, true};
    auto a = array(values, 3, UA_TYPES_BOOLEAN);
    EXPECT_EQ(text(a), "[1, 0, 1]");
    EXPECT_EQ(text(a, 1), "0");
}

TEST_F(ValueToText, SignedIntegersAreDecimal)
{
    auto s8 = scalar<UA_SByte>(-128, UA_TYPES_SBYTE);
    auto s16 = scalar<UA_Int16>(-32768, UA_TYPES_INT16);
    auto s32 = scalar<UA_Int32>(std::numeric_limits<UA_Int32>::min(), UA_TYPES_INT32);
    auto s64 = scalar<UA_Int64>(std::numeric_limits<UA_Int64>::min(), UA_TYPES_INT64);
    EXPECT_EQ(text(s8), "-128");
    EXPECT_EQ(text(s16), "-32768");
    EXPECT_EQ(text(s32), "-2147483648");
    EXPECT_EQ(text(s64), "-9223372036854775808");

    const UA_SByte bytes[] = {-1, 0, 127};
    auto a8 = array(bytes, 3, UA_TYPES_SBYTE);
    EXPECT_EQ(text(a8), "[-1, 0, 127]");
    EXPECT_EQ(text(a8, 2), "127");
    const UA_Int16 shorts[] = {-2, 300};
    auto a16 = array(shorts, 2, UA_TYPES_INT16);
    EXPECT_EQ(text(a16), "[-2, 300]");
    EXPECT_EQ(text(a16, 0), "-2");
    const UA_Int64 longs[] = {-5000000000LL, 7};
    auto a64 = array(longs, 2, UA_TYPES_INT64);
    EXPECT_EQ(text(a64), "[-5000000000, 7]");
    EXPECT_EQ(text(a64, 0), "-5000000000");
}

TEST_F(ValueToText, Int32ArrayAndItsElement)
{
    const UA_Int32 values[] = {1, 2, 3};
    auto a = array(values, 3, UA_TYPES_INT32);
    EXPECT_EQ(text(a), "[1, 2, 3]");
    EXPECT_EQ(text(a, 1), "2");
}

TEST_F(ValueToText, UnsignedIntegersAreDecimal)
{
    auto u8 = scalar<UA_Byte>(255, UA_TYPES_BYTE);
    auto u16 = scalar<UA_UInt16>(65535, UA_TYPES_UINT16);
    auto u32 = scalar<UA_UInt32>(4294967295u, UA_TYPES_UINT32);
    auto u64 = scalar<UA_UInt64>(std::numeric_limits<UA_UInt64>::max(), UA_TYPES_UINT64);
    EXPECT_EQ(text(u8), "255");
    EXPECT_EQ(text(u16), "65535");
    EXPECT_EQ(text(u32), "4294967295");
    EXPECT_EQ(text(u64), "18446744073709551615");

    const UA_Byte b[] = {0, 200};
    auto ab = array(b, 2, UA_TYPES_BYTE);
    EXPECT_EQ(text(ab), "[0, 200]");
    EXPECT_EQ(text(ab, 1), "200");
    const UA_UInt16 w[] = {1, 65535};
    auto aw = array(w, 2, UA_TYPES_UINT16);
    EXPECT_EQ(text(aw), "[1, 65535]");
    const UA_UInt32 d[] = {4000000000u};
    auto ad = array(d, 1, UA_TYPES_UINT32);
    EXPECT_EQ(text(ad), "[4000000000]");
    EXPECT_EQ(text(ad, 0), "4000000000");
    const UA_UInt64 q[] = {1, 10000000000ULL};
    auto aq = array(q, 2, UA_TYPES_UINT64);
    EXPECT_EQ(text(aq), "[1, 10000000000]");
    EXPECT_EQ(text(aq, 1), "10000000000");
}

TEST_F(ValueToText, DoubleUsesThePointPrecision)
{
    auto d = scalar<UA_Double>(3.14159, UA_TYPES_DOUBLE);
    EXPECT_EQ(text(d, 65535, 2), "3.14");
    EXPECT_EQ(text(d, 65535, 0), "3");
    EXPECT_EQ(text(d), "3.1416");
    const UA_Double values[] = {1.5, -2};
    auto a = array(values, 2, UA_TYPES_DOUBLE);
    EXPECT_EQ(text(a, 65535, 1), "[1.5, -2.0]");
    EXPECT_EQ(text(a, 1, 3), "-2.000");
}

TEST_F(ValueToText, FloatUsesThePointPrecision)
{
    auto f = scalar<UA_Float>(1.5f, UA_TYPES_FLOAT);
    EXPECT_EQ(text(f, 65535, 2), "1.50");
    EXPECT_EQ(text(f, 65535, 0), "2");
    const UA_Float values[] = {0.25f, -1.0f};
    auto a = array(values, 2, UA_TYPES_FLOAT);
    EXPECT_EQ(text(a, 65535, 2), "[0.25, -1.00]");
    EXPECT_EQ(text(a, 1, 1), "-1.0");
}

TEST_F(ValueToText, InfinitiesAndNaNAreUpperCase)
{
    auto nan = scalar<UA_Double>(std::numeric_limits<double>::quiet_NaN(), UA_TYPES_DOUBLE);
    auto inf = scalar<UA_Double>(std::numeric_limits<double>::infinity(), UA_TYPES_DOUBLE);
    auto ninf = scalar<UA_Float>(-std::numeric_limits<float>::infinity(), UA_TYPES_FLOAT);
    EXPECT_EQ(text(nan, 65535, 2), "NAN");
    EXPECT_EQ(text(inf, 65535, 2), "INF");
    EXPECT_EQ(text(ninf, 65535, 2), "-INF");
}

TEST_F(ValueToText, StringStopsAtTheFirstZeroByte)
{
    const QByteArray hello("h\xc3\xa9llo");
    auto s = scalar(Ua::borrow(hello), UA_TYPES_STRING);
    EXPECT_EQ(text(s), QString::fromUtf8("h\xc3\xa9llo"));
    const QByteArray withZero("ab\0cd", 5);
    auto z = scalar(Ua::borrow(withZero), UA_TYPES_STRING);
    EXPECT_EQ(text(z), "ab");
    auto empty = scalar(UA_STRING_NULL, UA_TYPES_STRING);
    EXPECT_EQ(text(empty), "");
}

TEST_F(ValueToText, StringArrayIsQuotedWithoutEscaping)
{
    const QByteArray a("a"), quoted("say \"hi\"");
    const UA_String values[] = {Ua::borrow(a), Ua::borrow(quoted)};
    auto v = array(values, 2, UA_TYPES_STRING);
    EXPECT_EQ(text(v), "[\"a\", \"say \"hi\"\"]");
    EXPECT_EQ(text(v, 1), "say \"hi\"");
}

TEST_F(ValueToText, LocalizedTextDropsTheLocale)
{
    UA_LocalizedText lt;
    lt.locale = UA_STRING(const_cast<char*>("de"));
    lt.text = UA_STRING(const_cast<char*>("Hallo"));
    auto s = scalar(lt, UA_TYPES_LOCALIZEDTEXT);
    EXPECT_EQ(text(s), "Hallo");
    UA_LocalizedText values[2] = {lt, lt};
    values[1].text = UA_STRING(const_cast<char*>("Welt"));
    auto a = array(values, 2, UA_TYPES_LOCALIZEDTEXT);
    EXPECT_EQ(text(a), "[\"Hallo\", \"Welt\"]");
    EXPECT_EQ(text(a, 1), "Welt");
}

TEST_F(ValueToText, DateTimeIsLocalTimeWithMilliseconds)
{
    auto d = scalar<UA_DateTime>(ticksOf(2024, 1, 2, 3, 4, 5, 678), UA_TYPES_DATETIME);
    EXPECT_EQ(text(d), "2024-01-02 03:04:05.678");
    // Ticks below a millisecond are dropped.
    auto fine = scalar<UA_DateTime>(ticksOf(2024, 1, 2, 3, 4, 5, 678) + 9999, UA_TYPES_DATETIME);
    EXPECT_EQ(text(fine), "2024-01-02 03:04:05.678");
    const UA_DateTime values[] = {ticksOf(1999, 12, 31, 23, 59, 59, 999), ticksOf(2000, 1, 1, 0, 0, 0, 0)};
    auto a = array(values, 2, UA_TYPES_DATETIME);
    EXPECT_EQ(text(a), "[\"1999-12-31 23:59:59.999\", \"2000-01-01 00:00:00.000\"]");
    EXPECT_EQ(text(a, 1), "2000-01-01 00:00:00.000");
}

TEST_F(ValueToText, ByteStringIsLowerCaseHex)
{
    const QByteArray bytes("\x0a\xff\x00\x7f", 4);
    auto s = scalar(Ua::borrow(bytes), UA_TYPES_BYTESTRING);
    EXPECT_EQ(text(s), "0aff007f");
    const QByteArray one("\x01", 1);
    const UA_ByteString values[] = {Ua::borrow(bytes), Ua::borrow(one)};
    auto a = array(values, 2, UA_TYPES_BYTESTRING);
    EXPECT_EQ(text(a), "[\"0aff007f\", \"01\"]");
    EXPECT_EQ(text(a, 1), "01");
}

TEST_F(ValueToText, GuidPartsAreNotZeroPadded)
{
    UA_Guid g;
    g.data1 = 0x0000000a;
    g.data2 = 0x000b;
    g.data3 = 0x00c0;
    const UA_Byte tail[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0xab};
    for (int i = 0; i < 8; ++i)
        g.data4[i] = tail[i];
    auto s = scalar(g, UA_TYPES_GUID);
    EXPECT_EQ(text(s), "{a-b-c0-12-34567ab}");

    UA_Guid full = UA_GUID("6f1c2d3e-1234-4000-8000-00000000001f");
    const UA_Guid values[] = {full, g};
    auto a = array(values, 2, UA_TYPES_GUID);
    EXPECT_EQ(text(a), "[\"{6f1c2d3e-1234-4000-800-000001f}\", \"{a-b-c0-12-34567ab}\"]");
    EXPECT_EQ(text(a, 0), "{6f1c2d3e-1234-4000-800-000001f}");
}

TEST_F(ValueToText, OtherKindsAreUnsupported)
{
    UA_QualifiedName qn = UA_QUALIFIEDNAME(1, const_cast<char*>("x"));
    auto q = scalar(qn, UA_TYPES_QUALIFIEDNAME);
    EXPECT_EQ(text(q), "error: Unsupported node data type (QualifiedName)");
    const UA_NodeId ids[] = {UA_NODEID_NUMERIC(0, 85)};
    auto a = array(ids, 1, UA_TYPES_NODEID);
    EXPECT_EQ(text(a), "error: Unsupported node data type (NodeId)");
    auto status = scalar<UA_StatusCode>(UA_STATUSCODE_GOOD, UA_TYPES_STATUSCODE);
    EXPECT_EQ(text(status), "error: Unsupported node data type (StatusCode)");
}

TEST_F(ValueToText, ElementPastTheEndIsAnError)
{
    const UA_Int32 values[] = {1, 2, 3};
    auto a = array(values, 3, UA_TYPES_INT32);
    ClientCore::Node node;
    node.value = QStringLiteral("old");
    node.arrayIndex = 3;
    EXPECT_FALSE(ClientCore::convertValue(&node, a.get()));
    EXPECT_EQ(node.error, "Array index 3 is out of range for an array of 3 elements");
    EXPECT_EQ(node.value, "old");
    EXPECT_EQ(text(a, 65534), "error: Array index 65534 is out of range for an array of 3 elements");

    const QByteArray s("x");
    const UA_String strings[] = {Ua::borrow(s)};
    auto sa = array(strings, 1, UA_TYPES_STRING);
    EXPECT_EQ(text(sa, 1), "error: Array index 1 is out of range for an array of 1 elements");
}

TEST_F(ValueToText, EmptyArrayIsBracketsAndHasNoElements)
{
    Ua::VariantHolder empty;
    UA_Variant_setArray(empty.get(), UA_Array_new(0, &UA_TYPES[UA_TYPES_INT32]), 0, &UA_TYPES[UA_TYPES_INT32]);
    EXPECT_EQ(text(empty), "[]");
    EXPECT_EQ(text(empty, 0), "error: Array index 0 is out of range for an array of 0 elements");
}

TEST_F(ValueToText, ScalarIgnoresTheArrayIndex)
{
    auto v = scalar<UA_Int32>(42, UA_TYPES_INT32);
    EXPECT_EQ(text(v, 5), "42");
}

TEST_F(ValueToText, VariantWithoutTypeIsUnsupported)
{
    Ua::VariantHolder v;
    EXPECT_EQ(text(v), "error: Unsupported node data type ()");
}

} // namespace
