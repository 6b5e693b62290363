#include "ua/text.h"

#include <gtest/gtest.h>

#include <QDateTime>

#include <limits>

inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

TEST(UaStringText, NullAndEmptyStringsGiveAnEmptyText)
{
    EXPECT_TRUE(Ua::toQString(UA_STRING_NULL).isEmpty());
    UA_String empty = UA_STRING_NULL;
    empty.data = static_cast<UA_Byte*>(UA_EMPTY_ARRAY_SENTINEL);
    EXPECT_TRUE(Ua::toQString(empty).isEmpty());
}

TEST(UaStringText, Utf8RoundTrip)
{
    const QString text = QStringLiteral("Pr\u00e4sse \u2116 4");
    const Ua::StringHolder ua = Ua::toUaString(text);
    EXPECT_EQ(ua->length, static_cast<size_t>(text.toUtf8().size()));
    EXPECT_EQ(Ua::toQString(*ua), text);
}

TEST(UaStringText, EmptyTextGivesAnEmptyNotANullString)
{
    const Ua::StringHolder ua = Ua::toUaString(QString());
    EXPECT_NE(ua->data, nullptr);
    EXPECT_EQ(ua->length, 0u);
}

TEST(UaStringText, BytesAreCopiedAsTheyAre)
{
    const QByteArray bytes("\x00\x01\xff", 3);
    const Ua::StringHolder ua = Ua::toUaString(bytes);
    ASSERT_EQ(ua->length, 3u);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(ua->data), 3), bytes);
}

TEST(UaStringText, BorrowedViewPointsAtTheCallersBytes)
{
    const QByteArray bytes("key");
    const UA_ByteString view = Ua::borrow(bytes);
    EXPECT_EQ(reinterpret_cast<const char*>(view.data), bytes.constData());
    EXPECT_EQ(view.length, 3u);
}

TEST(NodeIdText, StandardFormsRoundTrip)
{
    for (const QString& text : {QStringLiteral("i=85"), QStringLiteral("ns=2;s=Tank.Level"), QStringLiteral("ns=3;i=1001"),
                               QStringLiteral("ns=1;g=6f1c2d3e-0000-4000-8000-000000000001"),
                               QStringLiteral("ns=4;b=AQID")}) {
        bool ok = false;
        const Ua::NodeIdHolder id = Ua::nodeIdFromQString(text, &ok);
        EXPECT_TRUE(ok) << text.toStdString();
        EXPECT_EQ(Ua::nodeIdToQString(*id), text);
    }
}

TEST(NodeIdText, NumericIdentifierInNamespaceZero)
{
    EXPECT_EQ(Ua::nodeIdToQString(UA_NODEID_NUMERIC(0, 85)), "i=85");
    const Ua::NodeIdHolder id = Ua::nodeIdFromQString("i=85");
    const UA_NodeId objectsFolder = UA_NODEID_NUMERIC(0, 85);
    EXPECT_TRUE(UA_NodeId_equal(id.get(), &objectsFolder));
}

TEST(NodeIdText, TextThatDoesNotParseGivesTheNullIdentifier)
{
    bool ok = true;
    const Ua::NodeIdHolder id = Ua::nodeIdFromQString("not a node id", &ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(UA_NodeId_isNull(id.get()));
}

TEST(StatusCodeText, IsTheStacksName)
{
    EXPECT_EQ(Ua::statusCodeName(UA_STATUSCODE_GOOD), "Good");
    EXPECT_EQ(Ua::statusCodeName(UA_STATUSCODE_BADTIMEOUT), "BadTimeout");
}

namespace {

UA_DateTime ticksOfUtc(const char* text)
{
    const QDateTime utc = QDateTime::fromString(QLatin1String(text), Qt::ISODateWithMs);
    return utc.toMSecsSinceEpoch() * UA_DATETIME_MSEC + UA_DATETIME_UNIX_EPOCH;
}

} // namespace

TEST(DateTimeText, SourceTimestampsAreUtcToTheMillisecond)
{
    EXPECT_EQ(Ua::utcDateTimeText(ticksOfUtc("2024-01-02T03:04:05.678Z")), "2024-01-02 03:04:05.678");
    EXPECT_EQ(Ua::utcDateTimeText(ticksOfUtc("2024-01-02T03:04:05.678Z") + 9999), "2024-01-02 03:04:05.678");
    EXPECT_EQ(Ua::utcDateTimeText(UA_DATETIME_UNIX_EPOCH), "1970-01-01 00:00:00.000");
}

TEST(DateTimeText, ValuesAreLocalTimeInTheSameForm)
{
    const UA_DateTime ticks = ticksOfUtc("2024-01-02T03:04:05.678Z");
    const QDateTime local = QDateTime::fromMSecsSinceEpoch((ticks - UA_DATETIME_UNIX_EPOCH) / UA_DATETIME_MSEC);
    EXPECT_EQ(Ua::localDateTimeText(ticks), local.toString(QLatin1String(Ua::dateTimeTextFormat)));
    EXPECT_EQ(QLatin1String(Ua::dateTimeTextFormat), QLatin1String("yyyy-MM-dd hh:mm:ss.zzz"));
}

TEST(DateTimeText, BeforeTheEpochEachKeepsItsOwnArithmetic)
{
    // A millisecond and a half before 1970: the UTC text rounds towards the epoch, while the
    // value's text takes the whole seconds towards the epoch and the stack's millisecond field.
    const UA_DateTime ticks = UA_DATETIME_UNIX_EPOCH - 15000;
    EXPECT_EQ(Ua::utcDateTimeText(ticks), "1969-12-31 23:59:59.999");
    EXPECT_EQ(Ua::localDateTimeText(ticks),
              QDateTime::fromMSecsSinceEpoch(998).toString(QLatin1String(Ua::dateTimeTextFormat)));
}

TEST(DateTimeText, TicksBelowTheEpochsReachReadAsTheLowestThatIsNot)
{
    // Subtracting the epoch from these would overflow.
    const UA_DateTime lowest = std::numeric_limits<qint64>::min();
    const UA_DateTime lowestInReach = lowest + UA_DATETIME_UNIX_EPOCH;
    EXPECT_EQ(Ua::utcDateTimeText(lowest), Ua::utcDateTimeText(lowestInReach));
    EXPECT_EQ(Ua::localDateTimeText(lowest + 1), Ua::localDateTimeText(lowestInReach));
}

TEST(DateTimeText, LocalTextBackToTicksDropsTheMilliseconds)
{
    UA_DateTime ticks = 0;
    ASSERT_TRUE(Ua::dateTimeFromLocalText(QStringLiteral("2024-01-02 03:04:05.678"), &ticks));
    const QDateTime local(QDate(2024, 1, 2), QTime(3, 4, 5));
    EXPECT_EQ(ticks, local.toMSecsSinceEpoch() * UA_DATETIME_MSEC + UA_DATETIME_UNIX_EPOCH);
    EXPECT_FALSE(Ua::dateTimeFromLocalText(QStringLiteral("2024-01-02T03:04:05"), &ticks));
    EXPECT_FALSE(Ua::dateTimeFromLocalText(QString(), &ticks));
}
