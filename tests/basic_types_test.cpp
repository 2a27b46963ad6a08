// The basic types: shared instances in the store schema, integer width
// checks, live instances and their null markers, shared byte arrays, the
// store's own casts of the four kinds and dispatch through the type visitor.
#include "test_support.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct WideInt : stoIntType {
    explicit WideInt(stoSchema* s) : stoIntType(s, 8) {}
};

// 1 when f throws a stoIntTooBigException with its explanation.
template <class F>
int throws_int_too_big(F f)
{
    try {
        f();
    } catch (stoException* e) {
        stoExceptioncoPrf owner(e);
        return stoIntTooBigException::ut_dynamic_cast(e) != nullptr &&
               e->explanation() == "File contains an integer out of the expected range";
    }
    return 0;
}

struct Recorder : stoProcessType {
    std::vector<std::string> seen;
    int process_stoIntType(stoIntType const*) override { return seen.push_back("int"), 1; }
    int process_stoDoubleType(stoDoubleType const*) override { return seen.push_back("double"), 2; }
    int process_stoStringType(stoStringType const*) override { return seen.push_back("string"), 3; }
    int process_stoByteArrayType(stoByteArrayType const*) override { return seen.push_back("bytes"), 4; }
};

struct BasicsOnly : stoProcessType {
    std::vector<std::string> seen;
    int process_stoBasic(stoBasic const* t) override { return seen.push_back(t->name().str()), 9; }
};

}  // namespace

TEST(BasicTypes, SharedInstancesAreNamedTypesOfTheStoreSchema)
{
    stoSchema* store = sto_schema_sto_schema();
    struct Kind {
        stoTypeHandle (*make)();
        char const* name;
        int size;
    };
    std::vector<Kind> kinds = {{stoIntType::make, "int", 4},
                               {stoDoubleType::make, "double", 8},
                               {stoStringType::make, "utString", static_cast<int>(sizeof(utString))},
                               {stoByteArrayType::make, "stoByteArray", static_cast<int>(sizeof(void*))}};
    for (Kind const& k : kinds) {
        SCOPED_TRACE(k.name);
        stoTypeHandle a = k.make();
        stoTypeHandle b = k.make();
        ASSERT_FALSE(a.is_null());
        EXPECT_EQ(a.type(), b.type());
        EXPECT_TRUE(a == b);
        EXPECT_EQ(a->size(), k.size);
        stoSchemaObject const* named = store->look_up_object(k.name);
        ASSERT_NE(named, nullptr);
        EXPECT_EQ(named, static_cast<stoSchemaObject const*>(static_cast<stoBasic const*>(a.type())));
        EXPECT_EQ(named->schema(), store);
        for (Kind const& other : kinds)
            EXPECT_EQ(a == other.make(), &other == &k) << other.name;
    }
    EXPECT_EQ(sto_type_utBool().type(), sto_type_int().type());
    EXPECT_EQ(sto_type_utString().type(), stoStringType::make().type());

    // A second int type, 8 bytes wide, equals the shared one.
    stoSchema* s = new stoSchema("basic_types_wide", 1);
    stoTypeHandle wide = (new WideInt(s))->handle();
    EXPECT_EQ(wide->size(), 8);
    EXPECT_TRUE(wide == sto_type_int());
    EXPECT_TRUE(sto_type_int() == wide);
    EXPECT_EQ(co_hash(wide), co_hash(sto_type_int()));
    EXPECT_FALSE(wide == sto_type_double());
    EXPECT_NE(s->look_up_object("int"), store->look_up_object("int"));
    delete s;
}

TEST(BasicTypes, IntegersAreRangeCheckedByWidth)
{
    std::int32_t narrow = 5;
    stoRWRawPtr four(sto_type_int(), &narrow, 4);
    EXPECT_TRUE(throws_int_too_big([&] { stoIntType::int_to_raw(2147483648LL, four); }));
    EXPECT_TRUE(throws_int_too_big([&] { stoIntType::int_to_raw(-2147483649LL, four); }));
    EXPECT_TRUE(throws_int_too_big([&] { stoIntType::int_to_raw(LLONG_MIN, four); }));
    EXPECT_EQ(narrow, 5);  // unchanged by a failure

    std::int64_t wide = 0;
    stoRWRawPtr eight(sto_type_int(), &wide, 8);
    for (long long v : {0LL, -1LL, -2147483648LL, 2147483647LL, 2147483648LL, LLONG_MIN, LLONG_MAX}) {
        stoIntType::int_to_raw(v, eight);
        EXPECT_EQ(wide, v);
        EXPECT_EQ(stoIntType::raw_to_int(eight), v);
        if (v >= INT32_MIN && v <= INT32_MAX) {
            stoIntType::int_to_raw(v, four);
            EXPECT_EQ(narrow, v);
            EXPECT_EQ(stoIntType::raw_to_int(four), v);
        }
    }

    unsigned char bytes[16];
    std::memset(bytes, 0xab, sizeof bytes);
    for (int size : {0, 1, 2, 3, 5, 16}) {
        stoRWRawPtr odd(sto_type_int(), bytes, size);
        EXPECT_TRUE(throws_int_too_big([&] { stoIntType::int_to_raw(1, odd); })) << size;
        EXPECT_EQ(stoIntType::raw_to_int(odd), -666) << size;
    }
    for (unsigned char byte : bytes)
        EXPECT_EQ(byte, 0xab);

    // 4 bytes are sign-extended.
    std::int32_t minus_one = -1;
    EXPECT_EQ(stoIntType::raw_to_int(stoRawPtr(sto_type_int(), &minus_one, 4)), -1LL);
    std::uint32_t top_bit = 0x80000000u;
    EXPECT_EQ(stoIntType::raw_to_int(stoRawPtr(sto_type_int(), &top_bit, 4)), -2147483648LL);
}

TEST(BasicTypes, LiveInstancesStartAtTheirNullMarkers)
{
    void* i = sto_type_int()->create();
    EXPECT_EQ(*static_cast<std::int32_t*>(i), 2147483646);
    EXPECT_EQ(stoIntType::null(), 2147483646);
    sto_type_int()->destroy(i);
    void* d = sto_type_double()->create();
    EXPECT_EQ(*static_cast<double*>(d), 9.9e300);
    sto_type_double()->destroy(d);
    void* s = sto_type_utString()->create();
    EXPECT_EQ(static_cast<utString*>(s)->str(), "<stoStringType::null>");
    EXPECT_TRUE(*static_cast<utString*>(s) == stoStringType::null());
    sto_type_utString()->destroy(s);
    void* b = sto_type_stoByteArray()->create();
    EXPECT_TRUE(static_cast<stoByteArray*>(b)->invalid());
    sto_type_stoByteArray()->destroy(b);

    void* ints = sto_type_int()->create_array(3);
    for (int k = 0; k < 3; ++k)
        static_cast<std::int32_t*>(ints)[k] = k;
    sto_type_int()->destroy_array(ints, 3);
    sto_type_double()->destroy_array(sto_type_double()->create_array(4), 4);
    utString* strings = static_cast<utString*>(sto_type_utString()->create_array(3));
    for (int k = 0; k < 3; ++k) {
        EXPECT_FALSE(strings[k].is_null()) << k;
        EXPECT_EQ(strings[k].length(), 0);
    }
    strings[1] = "kept";
    sto_type_utString()->destroy_array(strings, 3);
    stoByteArray* arrays = static_cast<stoByteArray*>(sto_type_stoByteArray()->create_array(2));
    EXPECT_TRUE(arrays[0].invalid());
    EXPECT_TRUE(arrays[1].invalid());
    arrays[1] = stoByteArray(4);
    sto_type_stoByteArray()->destroy_array(arrays, 2);
}

TEST(BasicTypes, ByteArraysShareOneBlock)
{
    unsigned char const text[] = {1, 2, 3, 4, 5};
    stoByteArray* a = new stoByteArray(text, 5);
    stoByteArray* b = new stoByteArray(*a);
    stoByteArray* c = new stoByteArray(*b);
    EXPECT_EQ(a->share_count(), 3);
    EXPECT_EQ(c->array(), a->array());
    EXPECT_EQ(c->size(), 5);
    EXPECT_EQ(c->array()[4], 5);

    stoByteArray d(3);
    d = *a;  // lets go of its own block
    EXPECT_EQ(a->share_count(), 4);
    d = d;
    *b = *c;  // already shared: nothing moves
    EXPECT_EQ(a->share_count(), 4);
    stoByteArray empty;
    stoByteArray copy_of_empty(empty);
    EXPECT_TRUE(copy_of_empty.invalid());
    EXPECT_EQ(copy_of_empty.share_count(), 0);
    d = empty;
    EXPECT_TRUE(d.invalid());
    EXPECT_EQ(a->share_count(), 3);
    EXPECT_TRUE(*a == stoByteArray(text, 5));
    EXPECT_FALSE(*a == empty);

    delete a;
    delete c;
    EXPECT_EQ(b->share_count(), 1);
    EXPECT_EQ(b->array()[0], 1);
    delete b;
}

TEST(BasicTypes, StoreCastsAndVisitsFollowTheDeclaredBases)
{
    for (stoTypeHandle t : {sto_type_int(), sto_type_double(), sto_type_utString()}) {
        stoObjectPtr o = t->sto_object();
        stoBasic const* basic = stoBasic::sto_dynamic_cast(o.type(), o.ptr());
        ASSERT_NE(basic, nullptr) << o.type()->name();
        EXPECT_EQ(basic, static_cast<stoBasic const*>(t.type()));
        stoSchemaObject const* named = stoSchemaObject::sto_dynamic_cast(o.type(), o.ptr());
        EXPECT_EQ(named, static_cast<stoSchemaObject const*>(basic));
        EXPECT_NE(static_cast<void const*>(named), o.ptr());
    }
    stoObjectPtr bytes = sto_type_stoByteArray()->sto_object();
    EXPECT_EQ(bytes.type(), sto_class_stoByteArrayType());
    EXPECT_EQ(stoBasic::sto_dynamic_cast(bytes.type(), bytes.ptr()), nullptr);
    EXPECT_EQ(stoSchemaObject::sto_dynamic_cast(bytes.type(), bytes.ptr()), nullptr);
    EXPECT_EQ(stoType::sto_dynamic_cast(bytes.type(), bytes.ptr()), sto_type_stoByteArray().type());

    Recorder r;
    EXPECT_EQ(sto_type_int()->process(&r), 1);
    EXPECT_EQ(sto_type_double()->process(&r), 2);
    EXPECT_EQ(sto_type_utString()->process(&r), 3);
    EXPECT_EQ(sto_type_stoByteArray()->process(&r), 4);
    EXPECT_EQ(r.seen, (std::vector<std::string>{"int", "double", "string", "bytes"}));

    BasicsOnly basics;
    for (stoTypeHandle t : {sto_type_int(), sto_type_double(), sto_type_utString(), sto_type_stoByteArray()})
        EXPECT_EQ(t->process(&basics), 9);
    EXPECT_EQ(basics.seen, (std::vector<std::string>{"int", "double", "utString", "stoByteArray"}));
    stoProcessType nothing;
    EXPECT_EQ(sto_type_int()->process(&nothing), 0);
}
