// Basic types: shared instances in the store schema, integer widths, live
// instances and their null markers, shared byte arrays.
// Array and pointer types: sizes, live instances, structural equality and
// hashes, and what destroying an owning, counted or plain pointer field does
// to its pointee. Dispatch through the type visitor for all of them.
#include "test_support.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

stoSchema* sto_schema_arrtest() { return sto_test::saved_schema("array_types_test", 1); }

int g_deaths;

}  // namespace

class arrCounted {
    STO_PERSISTENT(arrCounted)
public:
    virtual ~arrCounted() { ++g_deaths; }
    int m_value = 0;
};
STO_DECLARE_CLASS(arrCounted)

class arrTagged {
    STO_PERSISTENT(arrTagged)
public:
    virtual ~arrTagged() = default;
    utString m_tag;
};
STO_DECLARE_CLASS(arrTagged)

STO_CLASS(arrCounted, sto_schema_arrtest()) { STO_MEMBER(m_value); }
STO_CLASS(arrTagged, sto_schema_arrtest()) { STO_MEMBER(m_tag); }

namespace {

struct WideInt : stoIntType {
    explicit WideInt(stoSchema* s) : stoIntType(s, 8) {}
};

// 1 when f throws a stoIntTooBigException with its explanation.
template <class F>
int throws_int_too_big(F f)
{
    auto e = sto_test::caught<stoIntTooBigException>(f);
    return e && e->explanation() == "File contains an integer out of the expected range";
}

// Owns the types a test makes.
struct Owned {
    std::vector<std::unique_ptr<stoTypeOwner>> owners;
    stoTypeHandle operator()(stoTypeHandle const& t)
    {
        owners.push_back(std::make_unique<stoTypeOwner>(t));
        return t;
    }
    stoTypeHandle fixed(stoTypeHandle const& e, int n) { return (*this)(stoFixedArrayType::make(e, n)); }
    stoTypeHandle variable(stoTypeHandle const& e)
    {
        return (*this)(stoVariableArrayType::make(e, nullptr, new stoMethodArraySize("count", nullptr)));
    }
    template <class P>
    stoPtrType const* pointer(stoTypeHandle const& t)
    {
        return static_cast<stoPtrType const*>((*this)(P::make(t)).type());
    }
};

// Records each visit and answers a code per operation, so that the dispatch shows.
struct Recorder : stoProcessType {
    std::string seen;
    int note(char const* what, int code) { return seen += what, code; }
    int process_stoIntType(stoIntType const*) override { return note("i", 1); }
    int process_stoDoubleType(stoDoubleType const*) override { return note("d", 2); }
    int process_stoStringType(stoStringType const*) override { return note("s", 3); }
    int process_stoByteArrayType(stoByteArrayType const*) override { return note("b", 4); }
    int process_stoFixedArrayType(stoFixedArrayType const*) override { return note("F", 5); }
    int process_stoVariableArrayType(stoVariableArrayType const*) override { return note("V", 6); }
    int process_stoPtrType(stoPtrType const*) override { return note("p", 7); }  // also prg, prf, handle
};

struct BasicsOnly : stoProcessType {
    std::string seen;
    int process_stoBasic(stoBasic const* t) override { return seen += t->name().str() + " ", 9; }
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
    const Kind kinds[] = {{stoIntType::make, "int", 4},
                          {stoDoubleType::make, "double", 8},
                          {stoStringType::make, "utString", static_cast<int>(sizeof(utString))},
                          {stoByteArrayType::make, "stoByteArray", static_cast<int>(sizeof(void*))}};
    for (Kind const& k : kinds) {
        SCOPED_TRACE(k.name);
        stoTypeHandle a = k.make();
        EXPECT_EQ(a.type(), k.make().type());
        EXPECT_EQ(a->size(), k.size);
        stoSchemaObject const* named = store->look_up_object(k.name);
        ASSERT_EQ(named, static_cast<stoSchemaObject const*>(static_cast<stoBasic const*>(a.type())));
        EXPECT_EQ(named->schema(), store);
        for (Kind const& other : kinds)
            EXPECT_EQ(a == other.make(), &other == &k) << other.name;
    }

    // A second int type, 8 bytes wide, equals the shared one.
    stoSchema* s = new stoSchema("basic_types_wide", 1);
    stoTypeHandle wide = (new WideInt(s))->handle();
    EXPECT_EQ(wide->size(), 8);
    EXPECT_TRUE(wide == sto_type_int() && sto_type_int() == wide && !(wide == sto_type_double()));
    EXPECT_EQ(co_hash(wide), co_hash(sto_type_int()));
    EXPECT_EQ(sto_type_utBool().type(), sto_type_int().type());
    delete s;
}

TEST(BasicTypes, IntegersAreRangeCheckedByWidth)
{
    std::int32_t narrow = 5;
    stoRWRawPtr four(sto_type_int(), &narrow, 4);
    for (long long v : {2147483648LL, -2147483649LL, LLONG_MIN})
        EXPECT_TRUE(throws_int_too_big([&] { stoIntType::int_to_raw(v, four); })) << v;
    EXPECT_EQ(narrow, 5);  // unchanged by a failure

    std::int64_t wide = 0;
    stoRWRawPtr eight(sto_type_int(), &wide, 8);
    for (long long v : {0LL, -1LL, -2147483648LL, 2147483647LL, 2147483648LL, LLONG_MIN, LLONG_MAX}) {
        stoIntType::int_to_raw(v, eight);
        EXPECT_TRUE(wide == v && stoIntType::raw_to_int(eight) == v) << v;
        if (v >= INT32_MIN && v <= INT32_MAX) {
            stoIntType::int_to_raw(v, four);
            EXPECT_TRUE(narrow == v && stoIntType::raw_to_int(four) == v) << v;
        }
    }

    unsigned char bytes[16];
    std::memset(bytes, 0xab, sizeof bytes);
    for (int size : {0, 1, 2, 3, 5, 16}) {
        stoRWRawPtr odd(sto_type_int(), bytes, size);
        EXPECT_TRUE(throws_int_too_big([&] { stoIntType::int_to_raw(1, odd); })) << size;
        EXPECT_EQ(stoIntType::raw_to_int(odd), -666) << size;
    }
    EXPECT_EQ(std::string(bytes, bytes + 16), std::string(16, '\xab'));
}

TEST(BasicTypes, LiveInstancesStartAtTheirNullMarkers)
{
    void* i = sto_type_int()->create();
    EXPECT_TRUE(*static_cast<std::int32_t*>(i) == 2147483646 && stoIntType::null() == 2147483646);
    sto_type_int()->destroy(i);
    void* d = sto_type_double()->create();
    EXPECT_EQ(*static_cast<double*>(d), 9.9e300);
    sto_type_double()->destroy(d);
    void* s = sto_type_utString()->create();
    EXPECT_EQ(static_cast<utString*>(s)->str(), "<stoStringType::null>");
    sto_type_utString()->destroy(s);
    void* b = sto_type_stoByteArray()->create();
    EXPECT_TRUE(static_cast<stoByteArray*>(b)->invalid());
    sto_type_stoByteArray()->destroy(b);

    sto_type_int()->destroy_array(sto_type_int()->create_array(3), 3);
    sto_type_double()->destroy_array(sto_type_double()->create_array(4), 4);
    utString* strings = static_cast<utString*>(sto_type_utString()->create_array(3));
    for (int k = 0; k < 3; ++k)
        EXPECT_TRUE(!strings[k].is_null() && strings[k].length() == 0) << k;
    strings[1] = "kept";
    sto_type_utString()->destroy_array(strings, 3);
    stoByteArray* arrays = static_cast<stoByteArray*>(sto_type_stoByteArray()->create_array(2));
    EXPECT_TRUE(arrays[0].invalid() && arrays[1].invalid());
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
    EXPECT_TRUE(c->array() == a->array() && c->size() == 5 && c->array()[4] == 5);

    stoByteArray d(3), empty;
    d = *a;  // lets go of its own block
    EXPECT_EQ(a->share_count(), 4);
    d = d;
    *b = *c;  // already shared: nothing moves
    EXPECT_EQ(a->share_count(), 4);
    stoByteArray copy_of_empty(empty);
    EXPECT_TRUE(copy_of_empty.invalid() && copy_of_empty.share_count() == 0);
    d = empty;
    EXPECT_TRUE(d.invalid());
    EXPECT_EQ(a->share_count(), 3);
    EXPECT_TRUE(*a == stoByteArray(text, 5) && !(*a == empty));

    delete a;
    delete c;
    EXPECT_TRUE(b->share_count() == 1 && b->array()[0] == 1);
    delete b;
}

TEST(BasicTypes, VisitsDispatchOnTheKind)
{
    Recorder r;
    BasicsOnly basics;
    stoProcessType nothing;
    std::string codes;
    for (stoTypeHandle t : {sto_type_int(), sto_type_double(), sto_type_utString(), sto_type_stoByteArray()})
        codes += std::to_string(t->process(&r)) + std::to_string(t->process(&basics)) +
                 std::to_string(t->process(&nothing)) + " ";
    EXPECT_EQ(codes, "190 290 390 490 ");
    EXPECT_EQ(r.seen, "idsb");
    EXPECT_EQ(basics.seen, "int double utString stoByteArray ");
}

TEST(ArrayTypes, SizesAndLiveInstances)
{
    Owned own;
    stoTypeHandle three = own.fixed(sto_type_int(), 3);
    EXPECT_EQ(three->size(), 12);
    std::int32_t* cells = static_cast<std::int32_t*>(three->create());
    cells[0] = 1;
    cells[2] = 3;
    three->destroy(cells);
    three->destroy_array(three->create_array(4), 4);
    stoTypeHandle strings = own.fixed(sto_type_utString(), 2);
    utString* s = static_cast<utString*>(strings->create());
    EXPECT_TRUE(s[0] == "" && s[1] == "");
    strings->destroy(s);
    stoTypeHandle grid = own.fixed(own.fixed(sto_type_int(), 2), 3);
    EXPECT_EQ(grid->size(), 24);
    grid->destroy(grid->create());

    stoTypeHandle var = own.variable(sto_type_int());
    EXPECT_EQ(var->size(), static_cast<int>(sizeof(void*)));
    void** cell = static_cast<void**>(var->create());
    EXPECT_NE(stoVariableArrayType::unset_array(), nullptr);
    EXPECT_EQ(*cell, stoVariableArrayType::unset_array());
    var->destroy(cell);
    EXPECT_EQ(var->create_array(5), nullptr);
    var->destroy_array(nullptr, 5);
    stoTypeHandle handles = own(stoTypeHandleType::make());
    handles->destroy(handles->create());
    handles->destroy_array(handles->create_array(2), 2);

    Recorder r;
    int codes = 0;
    for (stoTypeHandle t : {three, var, own(stoPtrType::make(sto_type_int())),
                            own(stoPrgType::make(sto_type_int())), own(stoPrfType::make(sto_type_int())),
                            handles})
        codes = codes * 10 + t->process(&r);
    EXPECT_EQ(r.seen, "FVpppp");
    EXPECT_EQ(codes, 567777);
}

// Types compare by structure: kind, element or pointee type, and count;
// equal types hash alike.
TEST(ArrayTypes, TypesCompareByStructureAndHashAlike)
{
    Owned own;
    stoSchema* other = new stoSchema("array_types_other", 1);
    stoClass* twin = new stoClass(other, "arrCounted", 8, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, sto_mapper_stoStandardMapper());
    stoTypeHandle counted = sto_type_arrCounted(), i = sto_type_int();
    auto int3 = [&] { return own.fixed(i, 3); };
    auto grid = [&](int inner, int outer) { return own.fixed(own.fixed(i, inner), outer); };
    auto var = [&](stoTypeHandle const& e) { return own.variable(e); };
    auto ptr = [&](stoTypeHandle const& t) { return own(stoPtrType::make(t)); };
    auto prf = [&](stoTypeHandle const& t) { return own(stoPrfType::make(t)); };
    auto handle = [&] { return own(stoTypeHandleType::make()); };
    struct Case {
        stoTypeHandle a, b;
        bool equal;
    };
    const Case cases[] = {
        {int3(), int3(), true},
        {int3(), own.fixed(i, 2), false},
        {int3(), own.fixed(sto_type_double(), 3), false},
        {int3(), i, false},
        {grid(2, 3), grid(2, 3), true},
        {grid(2, 3), grid(3, 2), false},
        {var(i), var(i), true},
        {var(i), var(sto_type_double()), false},
        {var(i), own.fixed(i, 1), false},
        {prf(counted), prf(counted), true},
        {handle(), handle(), true},
        {ptr(counted), ptr(twin->handle()), false},  // a namesake of another schema
        {handle(), ptr(sto_type_stoType()), false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(sto_test::describe(c.a) + " against " + sto_test::describe(c.b));
        EXPECT_EQ(c.a == c.b, c.equal);
        EXPECT_EQ(c.b == c.a, c.equal);
        EXPECT_TRUE(!c.equal || co_hash(c.a) == co_hash(c.b));
    }
    own.owners.clear();
    delete other;
}

TEST(ArrayTypes, DestroyingPointerFieldsDestroysPointeesAsTheirOwnersSay)
{
    Owned own;
    stoTypeHandle counted = sto_type_arrCounted();
    stoPtrType const* prf = own.pointer<stoPrfType>(counted);
    stoPtrType const* prg = own.pointer<stoPrgType>(counted);
    stoPtrType const* ptr = own.pointer<stoPtrType>(counted);

    // Counted fields of one array share an object; the second destruction ends it.
    g_deaths = 0;
    stoPrf* pair = static_cast<stoPrf*>(prf->create_array(2));
    arrCounted* object = new arrCounted;
    prf->point_at_object(&pair[0], object);
    prf->copy(&pair[0], &pair[1]);
    EXPECT_TRUE(prf->raw_pointee(&pair[1]) == object && pair[1].count()->count() == 2);
    prf->destroy_array(pair, 2);
    EXPECT_EQ(g_deaths, 1);

    // A field shared with a coPrf of the application, released in either order.
    for (int field_first : {1, 0}) {
        g_deaths = 0;
        auto app = std::make_unique<coPrf<arrCounted>>(new arrCounted);
        void* f = prf->create();
        prf->copy(app.get(), f);
        EXPECT_EQ(app->count(), 2);
        if (field_first) {
            prf->destroy(f);
            EXPECT_TRUE(g_deaths == 0 && app->unique());
            app.reset();
        } else {
            app.reset();
            EXPECT_EQ(g_deaths, 0);
            prf->destroy(f);
        }
        EXPECT_EQ(g_deaths, 1) << field_first;
    }

    // Owning fields destroy their pointees; a null one is left alone.
    g_deaths = 0;
    prg->destroy(prg->create());
    void** cells = static_cast<void**>(prg->create_array(3));
    prg->point_at_object(cells + 0, new arrCounted);
    prg->point_at_object(cells + 2, new arrCounted);
    prg->destroy_array(cells, 3);
    EXPECT_EQ(g_deaths, 2);

    // A plain field owns nothing: deleting its pointee, which lives on the stack, would fault.
    arrCounted kept;
    void* plain = ptr->create();
    ptr->point_at_object(plain, &kept);
    ptr->destroy(plain);
}

// A part at offset 8 of a whole, described through the raw hooks; the
// deletion functions only record what they were asked to delete.
TEST(ArrayTypes, OwningFieldsDestroyTheMostDerivedObject)
{
    static unsigned char whole_object[16];
    static std::vector<std::string> deleted;
    static stoClass* whole;
    auto raw_class = [](stoSchema* s, char const* name, stoClass::DeleteFn del, stoClass::TrueClassFn cls) {
        return new stoClass(s, name, 16, nullptr, nullptr, del, nullptr, nullptr, cls,
                            sto_mapper_stoStandardMapper());
    };
    static auto const at = [](void* p) {
        return std::to_string(static_cast<unsigned char*>(p) - whole_object);
    };
    deleted.clear();
    stoSchema* s = new stoSchema("array_types_raw", 1);
    whole = raw_class(
        s, "Whole", [](void* p) { deleted.push_back("Whole@" + at(p)); },
        [](void const* p) { return stoObjectPtr(whole, p); });
    stoClass* part = raw_class(
        s, "Part", [](void* p) { deleted.push_back("Part@" + at(p)); },
        [](void const* p) { return stoObjectPtr(whole, static_cast<char const*>(p) - 8); });
    for (stoTypeHandle t : {stoPrgType::make(part->handle()), stoPrfType::make(part->handle())}) {
        stoTypeOwner owner(t);
        void* cell = t->create();
        static_cast<stoPtrType const*>(t.type())->point_at_object(cell, whole_object + 8);
        t->destroy(cell);  // a counted field clears the address before the count lets go
    }
    EXPECT_EQ(deleted, (std::vector<std::string>{"Whole@0", "Whole@0"}));
    delete s;
}
