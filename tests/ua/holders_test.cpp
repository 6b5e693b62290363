#include "ua/holders.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

namespace {

UA_String allocated(const char* text)
{
    return UA_STRING_ALLOC(text);
}

} // namespace

static_assert(!std::is_copy_constructible<Ua::StringHolder>::value, "a holder is never copied");
static_assert(!std::is_copy_assignable<Ua::StringHolder>::value, "a holder is never copied");
static_assert(!std::is_constructible<Ua::StringHolder, const UA_String&>::value,
              "ownership comes only from an rvalue");
static_assert(std::is_nothrow_move_constructible<Ua::StringHolder>::value, "moves do not throw");

TEST(ValueHolder, StartsInitialised)
{
    const Ua::NodeIdHolder id;
    EXPECT_TRUE(UA_NodeId_isNull(id.get()));
}

TEST(ValueHolder, TakesOverAnRvalueAndLeavesItEmpty)
{
    UA_String source = allocated("press");
    UA_Byte* const bytes = source.data;
    const Ua::StringHolder holder(std::move(source));
    EXPECT_EQ(holder->data, bytes);
    EXPECT_EQ(holder->length, 5u);
    EXPECT_EQ(source.data, nullptr);
    EXPECT_EQ(source.length, 0u);
}

TEST(ValueHolder, MoveConstructionLeavesTheSourceEmpty)
{
    Ua::StringHolder first(allocated("line"));
    UA_Byte* const bytes = first->data;
    const Ua::StringHolder second(std::move(first));
    EXPECT_EQ(second->data, bytes);
    EXPECT_EQ(first->data, nullptr);
    EXPECT_EQ(first->length, 0u);
}

TEST(ValueHolder, MoveAssignmentReleasesTheOldValueAndTakesTheNew)
{
    Ua::StringHolder target(allocated("old"));
    Ua::StringHolder source(allocated("new"));
    UA_Byte* const bytes = source->data;
    target = std::move(source);
    EXPECT_EQ(target->data, bytes);
    EXPECT_EQ(source->data, nullptr);

    Ua::StringHolder& self = target;
    target = std::move(self);
    EXPECT_EQ(target->data, bytes);
}

TEST(ValueHolder, ReleaseHandsTheMembersOverAndEmptiesTheHolder)
{
    Ua::StringHolder holder(allocated("valve"));
    UA_String released = holder.release();
    EXPECT_EQ(holder->data, nullptr);
    EXPECT_EQ(released.length, 5u);
    UA_String_clear(&released);
}

TEST(ValueHolder, ResetClearsWhatItHeldAndLeavesItInitialised)
{
    Ua::StringHolder holder(allocated("pump"));
    holder.reset();
    EXPECT_EQ(holder->data, nullptr);
    EXPECT_EQ(holder->length, 0u);
    holder.reset();
    EXPECT_EQ(holder->data, nullptr);
}

TEST(DataValueList, EachValueHasItsOwnOwnerAcrossMoves)
{
    Ua::DataValueList values;
    for (int i = 0; i < 20; ++i) {
        Ua::DataValueHolder value;
        UA_Int32 number = i;
        ASSERT_EQ(UA_Variant_setScalarCopy(&value->value, &number, &UA_TYPES[UA_TYPES_INT32]), UA_STATUSCODE_GOOD);
        value->hasValue = true;
        values.push_back(std::move(value));
        EXPECT_EQ(value->value.data, nullptr);
    }
    ASSERT_EQ(values.size(), 20u);
    EXPECT_EQ(*static_cast<const UA_Int32*>(values.back()->value.data), 19);
}

TEST(ArrayHolder, OwnsWhatAStackCallReturnsAndMovesIt)
{
    Ua::Array<UA_String, UA_TYPES_STRING> first;
    EXPECT_TRUE(first.empty());
    *first.data() = static_cast<UA_String*>(UA_Array_new(2, &UA_TYPES[UA_TYPES_STRING]));
    *first.size() = 2;
    first[0] = allocated("a");
    first[1] = allocated("b");
    EXPECT_EQ(first.count(), 2u);

    Ua::Array<UA_String, UA_TYPES_STRING> second(std::move(first));
    EXPECT_TRUE(first.empty());
    EXPECT_EQ(second.count(), 2u);
    size_t seen = 0;
    for (const UA_String& s : second)
        seen += s.length;
    EXPECT_EQ(seen, 2u);

    Ua::Array<UA_String, UA_TYPES_STRING> third;
    third = std::move(second);
    EXPECT_TRUE(second.empty());
    EXPECT_EQ(third.count(), 2u);
    third.reset();
    EXPECT_TRUE(third.empty());
}

TEST(VariantHolder, NewScalarOwnsAnInitialisedValueOfTheType)
{
    Ua::VariantHolder variant = Ua::newScalarVariant(&UA_TYPES[UA_TYPES_STRING]);
    ASSERT_EQ(variant->type, &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_TRUE(UA_Variant_isScalar(variant.get()));
    auto* text = static_cast<UA_String*>(variant->data);
    EXPECT_EQ(text->length, 0u);
    *text = allocated("owned by the variant");
}

TEST(VariantHolder, NewArrayOwnsInitialisedValuesOfTheType)
{
    Ua::VariantHolder variant = Ua::newArrayVariant(&UA_TYPES[UA_TYPES_STRING], 3);
    ASSERT_EQ(variant->type, &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_EQ(variant->arrayLength, 3u);
    auto* texts = static_cast<UA_String*>(variant->data);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(texts[i].length, 0u);
    texts[1] = allocated("owned by the variant");

    const Ua::VariantHolder empty = Ua::newArrayVariant(&UA_TYPES[UA_TYPES_INT32], 0);
    EXPECT_EQ(empty->type, &UA_TYPES[UA_TYPES_INT32]);
    EXPECT_EQ(empty->arrayLength, 0u);
}
