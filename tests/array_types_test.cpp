// Array and pointer types: sizes and live instances of fixed and variable
// arrays, structural equality and hashes, and what destroying a field of an
// owning, counted or plain pointer type does to the object it points at.
#include "test_support.h"

#include <gtest/gtest.h>

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

// Its arrCounted part does not start at the object's address.
class arrBoth : public arrTagged, public arrCounted {
    STO_PERSISTENT(arrBoth)
public:
    double m_weight = 0;
};
STO_DECLARE_CLASS(arrBoth)

STO_CLASS(arrCounted, sto_schema_arrtest()) { STO_MEMBER(m_value); }
STO_CLASS(arrTagged, sto_schema_arrtest()) { STO_MEMBER(m_tag); }
STO_CLASS(arrBoth, sto_schema_arrtest())
{
    STO_BASE(arrTagged);
    STO_BASE(arrCounted);
    STO_MEMBER(m_weight);
}

namespace {

// Owns the types a test makes.
struct Owned {
    std::vector<std::unique_ptr<stoTypeOwner>> owners;
    stoTypeHandle operator()(stoTypeHandle const& t)
    {
        owners.push_back(std::make_unique<stoTypeOwner>(t));
        return t;
    }
};

stoTypeHandle fixed(Owned& own, stoTypeHandle const& e, int n) { return own(stoFixedArrayType::make(e, n)); }
stoTypeHandle variable(Owned& own, stoTypeHandle const& e)
{
    return own(stoVariableArrayType::make(e, nullptr, new stoMethodArraySize("count", nullptr)));
}

struct Recorder : stoProcessType {
    std::string seen;
    int process_stoFixedArrayType(stoFixedArrayType const*) override { return seen += "F", 1; }
    int process_stoVariableArrayType(stoVariableArrayType const*) override { return seen += "V", 1; }
    int process_stoPtrType(stoPtrType const*) override { return seen += "p", 1; }  // also prg, prf, handle
};

}  // namespace

TEST(ArrayTypes, SizesAndLiveInstances)
{
    Owned own;
    stoTypeHandle three = fixed(own, sto_type_int(), 3);
    EXPECT_EQ(three->size(), 12);
    std::int32_t* cells = static_cast<std::int32_t*>(three->create());
    cells[0] = 1;
    cells[2] = 3;
    three->destroy(cells);
    three->destroy_array(three->create_array(4), 4);
    stoTypeHandle strings = fixed(own, sto_type_utString(), 2);
    utString* s = static_cast<utString*>(strings->create());
    EXPECT_TRUE(s[0] == "" && s[1] == "");
    strings->destroy(s);
    stoTypeHandle grid = fixed(own, fixed(own, sto_type_int(), 2), 3);
    EXPECT_EQ(grid->size(), 24);
    grid->destroy(grid->create());

    stoTypeHandle var = variable(own, sto_type_int());
    EXPECT_EQ(var->size(), static_cast<int>(sizeof(void*)));
    void** cell = static_cast<void**>(var->create());
    EXPECT_NE(stoVariableArrayType::unset_array(), nullptr);
    EXPECT_EQ(*cell, stoVariableArrayType::unset_array());
    var->destroy(cell);
    EXPECT_EQ(var->create_array(5), nullptr);
    var->destroy_array(nullptr, 5);
    EXPECT_EQ(own(stoPtrType::make(sto_type_arrCounted()))->size(), static_cast<int>(sizeof(void*)));
    EXPECT_EQ(own(stoPrfType::make(sto_type_arrCounted()))->size(), static_cast<int>(sizeof(coPrf<arrCounted>)));

    Recorder r;
    for (stoTypeHandle t : {three, var, own(stoPtrType::make(sto_type_int())), own(stoPrgType::make(sto_type_int())),
                            own(stoPrfType::make(sto_type_int())), own(stoTypeHandleType::make())})
        t->process(&r);
    EXPECT_EQ(r.seen, "FVpppp");
}

// Types compare by structure: kind, element or pointee type, and count;
// equal types hash alike, so separately made equal types land on one key.
TEST(ArrayTypes, TypesCompareByStructureAndHashAlike)
{
    Owned own;
    stoSchema* other = new stoSchema("array_types_other", 1);
    stoClass* twin = new stoClass(other, "arrCounted", 8, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  sto_mapper_stoStandardMapper());
    stoTypeHandle counted = sto_type_arrCounted();
    auto int3 = [&] { return fixed(own, sto_type_int(), 3); };
    auto grid = [&](int inner, int outer) { return fixed(own, fixed(own, sto_type_int(), inner), outer); };
    auto var = [&](stoTypeHandle const& e) { return variable(own, e); };
    auto ptr = [&](stoTypeHandle const& t) { return own(stoPtrType::make(t)); };
    auto prg = [&](stoTypeHandle const& t) { return own(stoPrgType::make(t)); };
    auto prf = [&](stoTypeHandle const& t) { return own(stoPrfType::make(t)); };
    struct Case {
        stoTypeHandle a, b;
        bool equal;
    };
    std::vector<Case> cases = {
        {int3(), int3(), true},
        {int3(), fixed(own, sto_type_int(), 2), false},  // hashes alike all the same
        {int3(), fixed(own, sto_type_double(), 3), false},
        {int3(), sto_type_int(), false},
        {grid(2, 3), grid(2, 3), true},
        {grid(2, 3), grid(3, 2), false},
        {var(sto_type_int()), var(sto_type_int()), true},
        {var(sto_type_int()), var(sto_type_double()), false},
        {var(sto_type_int()), fixed(own, sto_type_int(), 1), false},
        {ptr(counted), ptr(counted), true},
        {prf(counted), prf(counted), true},
        {own(stoTypeHandleType::make()), own(stoTypeHandleType::make()), true},
        {ptr(counted), prg(counted), false},
        {prg(counted), prf(counted), false},
        {ptr(counted), ptr(sto_type_arrTagged()), false},
        {ptr(counted), ptr(twin->handle()), false},  // a namesake of another schema
        {own(stoTypeHandleType::make()), ptr(sto_type_stoType()), false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(sto_test::describe(c.a) + " against " + sto_test::describe(c.b));
        EXPECT_EQ(c.a == c.b, c.equal);
        EXPECT_EQ(c.b == c.a, c.equal);
        if (c.equal) {
            EXPECT_EQ(co_hash(c.a), co_hash(c.b));
        }
    }
    EXPECT_EQ(co_hash(int3()), co_hash(fixed(own, sto_type_int(), 2)));

    coSet<stoTypeHandle> set;
    stoTypeHandle three = int3();
    EXPECT_TRUE(set.add(three).is_null());
    EXPECT_EQ(set.add(int3()).type(), three.type());
    EXPECT_TRUE(set.add(fixed(own, sto_type_int(), 4)).is_null());
    EXPECT_EQ(set.size(), 2);
    own.owners.clear();
    delete other;
}

TEST(ArrayTypes, DestroyingPointerFieldsDestroysPointeesAsTheirOwnersSay)
{
    Owned own;
    stoTypeHandle counted = sto_type_arrCounted();
    stoPtrType const* prf = static_cast<stoPtrType const*>(own(stoPrfType::make(counted)).type());
    stoPtrType const* prg = static_cast<stoPtrType const*>(own(stoPrgType::make(counted)).type());
    stoPtrType const* ptr = static_cast<stoPtrType const*>(own(stoPtrType::make(counted)).type());

    // Counted fields of one array share an object; the second destruction ends it.
    g_deaths = 0;
    stoPrf* pair = static_cast<stoPrf*>(prf->create_array(2));
    arrCounted* object = new arrCounted;
    prf->point_at_object(&pair[0], object);
    prf->copy(&pair[0], &pair[1]);
    EXPECT_EQ(prf->raw_pointee(&pair[1]), object);
    EXPECT_EQ(pair[1].count()->count(), 2);
    prf->destroy_array(pair, 2);
    EXPECT_EQ(g_deaths, 1);

    // A count of -1 marks a never-shared object: a single owner too.
    g_deaths = 0;
    void* unshared = prf->create();
    struct {
        void* pointer;
        utRef* count;
    } raw = {new arrCounted, new utRef(-1)};
    static_assert(sizeof raw == sizeof(stoPrf));
    std::memcpy(unshared, &raw, sizeof raw);
    EXPECT_TRUE(static_cast<stoPrf*>(unshared)->unique());
    prf->destroy(unshared);
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
            EXPECT_EQ(g_deaths, 0);
            EXPECT_TRUE(app->unique());
            app.reset();
        } else {
            app.reset();
            EXPECT_EQ(g_deaths, 0);
            prf->destroy(f);
        }
        EXPECT_EQ(g_deaths, 1) << field_first;
    }

    // An owning field destroys the whole object, found from its counted part.
    g_deaths = 0;
    arrBoth* both = new arrBoth;
    arrCounted* part = both;
    ASSERT_NE(static_cast<void*>(part), static_cast<void*>(both));
    void* cell = prg->create();
    prg->point_at_object(cell, part);
    EXPECT_EQ(prg->raw_pointee(cell), part);
    prg->destroy(cell);
    EXPECT_EQ(g_deaths, 1);
    prg->destroy(prg->create());  // a null pointee
    void* cells = prg->create_array(3);
    prg->point_at_object(static_cast<void**>(cells) + 0, new arrCounted);
    prg->point_at_object(static_cast<void**>(cells) + 2, new arrCounted);
    prg->destroy_array(cells, 3);
    EXPECT_EQ(g_deaths, 3);

    // A plain field owns nothing.
    g_deaths = 0;
    arrCounted kept;
    void* plain = ptr->create();
    ptr->point_at_object(plain, &kept);
    void* plain_copy = ptr->create();
    ptr->copy(plain, plain_copy);
    EXPECT_EQ(ptr->raw_pointee(plain_copy), &kept);
    ptr->destroy(plain);
    ptr->destroy(plain_copy);
    EXPECT_EQ(g_deaths, 0);
}

namespace {

// A part at offset 8 of a whole, described through the raw hooks; the
// deletion functions only record what they were asked to delete.
unsigned char g_whole_object[16];
std::vector<std::string> g_deleted;
stoClass* g_whole;

stoClass* raw_class(stoSchema* s, char const* name, stoClass::DeleteFn del, stoClass::TrueClassFn true_class)
{
    return new stoClass(s, name, 16, nullptr, nullptr, del, nullptr, nullptr, true_class,
                        sto_mapper_stoStandardMapper());
}

std::string at(void* p) { return std::to_string(static_cast<unsigned char*>(p) - g_whole_object); }

}  // namespace

TEST(ArrayTypes, OwningFieldsDestroyTheMostDerivedObject)
{
    g_deleted.clear();
    stoSchema* s = new stoSchema("array_types_raw", 1);
    g_whole = raw_class(
        s, "Whole", [](void* p) { g_deleted.push_back("Whole@" + at(p)); },
        [](void const* p) { return stoObjectPtr(g_whole, p); });
    stoClass* part = raw_class(
        s, "Part", [](void* p) { g_deleted.push_back("Part@" + at(p)); },
        [](void const* p) { return stoObjectPtr(g_whole, static_cast<char const*>(p) - 8); });
    {
        stoTypeOwner prg(stoPrgType::make(part->handle()));
        void* cell = prg->create();
        static_cast<stoPtrType const*>(prg.type())->point_at_object(cell, g_whole_object + 8);
        prg->destroy(cell);
        stoTypeOwner prf(stoPrfType::make(part->handle()));
        void* field = prf->create();
        static_cast<stoPtrType const*>(prf.type())->point_at_object(field, g_whole_object + 8);
        prf->destroy(field);  // clears the address before the count lets go
    }
    EXPECT_EQ(g_deleted, (std::vector<std::string>{"Whole@0", "Whole@0"}));
    delete s;
}

TEST(ArrayTypes, TypeHandleFieldsReferToTypes)
{
    Owned own;
    stoTypeHandle h = own(stoTypeHandleType::make());
    stoPtrType const* handles = static_cast<stoPtrType const*>(h.type());
    EXPECT_TRUE(handles->pointee_type() == sto_type_stoType());
    EXPECT_EQ(handles->size(), static_cast<int>(sizeof(stoTypeHandle)));

    stoTypeHandle* field = static_cast<stoTypeHandle*>(handles->create());
    EXPECT_TRUE(field->is_null());
    EXPECT_EQ(handles->raw_pointee(field), nullptr);
    handles->point_at_object(field, const_cast<stoType*>(sto_type_double().type()));
    EXPECT_EQ(field->type(), sto_type_double().type());
    EXPECT_EQ(handles->raw_pointee(field), static_cast<void const*>(sto_type_double().type()));

    stoTypeHandle copy = sto_type_int();
    handles->copy(field, &copy);
    EXPECT_EQ(copy.type(), sto_type_double().type());
    handles->destroy(field);  // the type itself lives on
    EXPECT_EQ(sto_type_double()->size(), 8);

    stoTypeHandle* many = static_cast<stoTypeHandle*>(handles->create_array(2));
    EXPECT_TRUE(many[0].is_null() && many[1].is_null());
    handles->destroy_array(many, 2);
}
