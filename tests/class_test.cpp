// Classes described through the raw hooks: base graphs, flattened member
// tables, lazy building, casts, compatibility and ownership by the schema.
// The registry: the hash mixer, finding schemas, the system's chain of
// schemas, binding order, and ownership of types by owners and records.
#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using sto_test::members_of;
using sto_test::table_of;
using Names = std::vector<std::string>;

namespace {

// A schema of its own per test, deleted at the end; deleting it must delete
// every class, member, base and unnamed type exactly once (sanitizers check).
struct TestSchema {
    stoSchema* schema;
    explicit TestSchema(char const* name) : schema(new stoSchema(name, 1)) {}
    ~TestSchema() { delete schema; }
};

// Rotation right one bit at a time, by the product's residue taken without
// 32-bit wrap-around (32 divides 2^32, so the residue is the same).
unsigned int rotate_right(unsigned int h, int i)
{
    long long r = ((static_cast<long long>(i) * 19) % 32 + 32) % 32;
    for (long long k = 0; k < r; ++k)
        h = (h >> 1) | ((h & 1u) << 31);
    return h;
}

bool on_chain(stoSchema const* s)
{
    for (stoSchemaLink const* l = sto_system()->schema_chain(); l; l = l->next())
        if (l->schema() == s)
            return true;
    return false;
}

int g_type_deaths;

struct CountingPtrType : stoPtrType {
    explicit CountingPtrType(stoTypeHandle const& pointee) : stoPtrType(pointee) {}
    ~CountingPtrType() override { ++g_type_deaths; }
};

stoTypeHandle make_counting() { return (new CountingPtrType(sto_type_int()))->handle(); }

// Claims to equal nothing, not even itself.
struct ContraryType : stoPtrType {
    ContraryType() : stoPtrType(sto_type_int()) {}
    int operator==(stoType const&) const override { return 0; }
};

struct CountingClass : stoClass {
    using stoClass::stoClass;
    ~CountingClass() override { ++g_type_deaths; }
};

struct RebuiltSchema : stoSchema {};

stoClass* make_class(stoSchema* s, char const* name, int size, stoClass::BuildFn build,
                     stoClass::TrueClassFn true_class = nullptr)
{
    return new CountingClass(s, name, size, build, nullptr, nullptr, nullptr, nullptr, true_class,
                             sto_mapper_stoStandardMapper());
}

}  // namespace

// The classic layout: C derives from A at 0 and B at 12.
TEST(Class, TwoBasesAtOffsetsFlattenIntoOneTable)
{
    static stoClass *A, *B, *C;
    TestSchema t("classic");
    A = make_class(t.schema, "A", 12, [](stoBuilder& b, void const*) {
        b.build_member(sto_type_int(), "a1", 4, 4);
        b.build_member(sto_type_int(), "a2", 8, 4);
    });
    B = make_class(t.schema, "B", 8,
                   [](stoBuilder& b, void const*) { b.build_member(sto_type_int(), "b1", 4, 4); });
    C = make_class(t.schema, "C", 24, [](stoBuilder& b, void const*) {
        b.build_base(A->handle(), 0);
        b.build_base(B->handle(), 12);
        b.build_member(sto_type_int(), "c1", 20, 4);
    });
    EXPECT_EQ(table_of(C), (Names{"A::a1@4", "A::a2@8", "B::b1@16", "C::c1@20"}));
    EXPECT_EQ(table_of(B), (Names{"B::b1@4"}));  // relative to its own start
    EXPECT_EQ(C->number_of_direct_members() * 10 + C->number_of_inherited_members(), 14);

    stoMemberHandle h = C->find_member("B", "b1");  // the declaring class's name first
    ASSERT_FALSE(h.invalid());
    std::string found = std::to_string(h.index()) + "@" + std::to_string(C->offset(h));
    EXPECT_EQ(found + " " + C->member(h)->name().str(), "2@16 b1");
    EXPECT_TRUE(C->find_member("b1", "B").invalid() && C->find_member("C", "b1").invalid() &&
                C->find_member("A", "nope").invalid());

    EXPECT_FALSE(A->is_compatible_with(C->handle()) || C->is_compatible_with(stoTypeHandle()));
}

TEST(Class, AbstractClassBuildsOnARawPrototypeFilledWith0x66)
{
    static unsigned char seen[16];
    TestSchema t("abstract");
    stoClass* c = make_class(t.schema, "Abstract", 16, [](stoBuilder& b, void const* prototype) {
        std::memcpy(seen, prototype, sizeof seen);
        EXPECT_EQ(stoBuilder::active(), &b);
        EXPECT_EQ(b.built_class()->name(), "Abstract");
    });
    EXPECT_TRUE(c->is_abstract());
    EXPECT_EQ(c->create(), nullptr);
    EXPECT_EQ(c->number_of_direct_members(), 0);  // builds it
    EXPECT_EQ(std::string(seen, seen + 16), std::string(16, '\x66'));
    EXPECT_EQ(stoBuilder::active(), nullptr);
}

TEST(Class, BuildRunsOnceWhateverAsksFirst)
{
    static int builds;
    builds = 0;
    TestSchema t("lazy");
    stoClass* c = make_class(t.schema, "Lazy", 8, [](stoBuilder& b, void const*) {
        ++builds;
        b.build_member(sto_type_int(), "m_x", 0, 4);
    });
    EXPECT_EQ(builds, 0);  // registering builds nothing
    EXPECT_EQ(c->number_of_direct_members(), 1);
    stoClassMemberIT members(c);
    stoClassBaseIT bases(c);
    c->finish();
    c->finish();
    EXPECT_EQ(builds, 1);
}

TEST(Class, SizedAndMethodArraysDeclareTheirCountsAndTypes)
{
    static stoClass* c;
    TestSchema t("arrays");
    c = make_class(t.schema, "Holder", 32, [](stoBuilder& b, void const*) {
        b.build_sized_array(sto_type_double(), "m_array", 8, 8, "m_size", 4, 4);
        b.build_method_array(sto_type_int(), "m_items", 16, 8, [](void const*) { return 5; }, "item_count");
    });
    EXPECT_EQ(members_of(c), (Names{"m_size:int", "m_array:var(double)", "m_items:var(int)"}));

    auto array = [](char const* name) {
        stoMember const* m = c->member(sto_test::slot(c, name));
        stoObjectPtr o = m->type()->sto_object();
        return std::make_pair(m, stoVariableArrayType::sto_dynamic_cast(o.type(), o.ptr()));
    };
    auto [values, sized] = array("m_array");
    auto [items, counted] = array("m_items");
    ASSERT_TRUE(sized && counted);

    // The count is read from the object that holds the array, at m_size.
    unsigned char object[32] = {};
    for (int n : {2, 0}) {
        std::memcpy(object + 4, &n, 4);
        EXPECT_EQ(sized->array_size()->array_size(values, object + 8), n);
    }
    EXPECT_EQ(counted->array_size()->array_size(items, object + 16), 5);

    // Variable array types of one element type are equal whatever their member.
    stoTypeOwner other(stoVariableArrayType::make(sto_type_double(), items, new stoMethodArraySize()));
    EXPECT_TRUE(values->type() == other);
    EXPECT_EQ(co_hash(values->type()), co_hash(other));
}

// Diamond: D derives from B1 and B2, both derived from A.
TEST(Class, DiamondCastsAreAmbiguousButSinglePathsResolve)
{
    static stoClass *A, *B1, *B2, *D;
    TestSchema t("diamond");
    A = make_class(t.schema, "A", 8,
                   [](stoBuilder& b, void const*) { b.build_member(sto_type_int(), "a", 0, 4); });
    B1 = make_class(
        t.schema, "B1", 8, [](stoBuilder& b, void const*) { b.build_base(A->handle(), 0); },
        [](void const* p) { return stoObjectPtr(B1, p); });
    B2 = make_class(t.schema, "B2", 8, [](stoBuilder& b, void const*) { b.build_base(A->handle(), 0); });
    D = make_class(
        t.schema, "D", 16,
        [](stoBuilder& b, void const*) {
            b.build_base(B1->handle(), 0);
            b.build_base(B2->handle(), 8);
        },
        [](void const* p) { return stoObjectPtr(D, p); });

    char object[16];
    EXPECT_EQ(A->dynamic_cast_from(D, object), nullptr);
    EXPECT_EQ(B2->dynamic_cast_from(D, object), object + 8);
    EXPECT_EQ(B1->dynamic_cast_from(D, object), object);
    EXPECT_EQ(A->dynamic_cast_from(B1, object), object);
    EXPECT_EQ(D->dynamic_cast_from(D, static_cast<void*>(nullptr)), nullptr);
    auto compatible = [](stoClass const* c, stoClass const* with) {
        return c->is_compatible_with(with->handle());
    };
    EXPECT_EQ(std::to_string(compatible(A, A)) + std::to_string(compatible(D, A)) +
                  std::to_string(compatible(B1, A)) + std::to_string(compatible(D, B2)),
              "1011");
    EXPECT_EQ(table_of(D), (Names{"A::a@0", "A::a@8"}));
    // The type-level cast goes through the same walk.
    EXPECT_EQ(static_cast<stoType const*>(B2)->cast(*D, object), object + 8);
    EXPECT_EQ(static_cast<stoType const*>(B2)->cast(*sto_type_int(), object), nullptr);
}

TEST(Class, EqualityIsBySchemaAndNameAndHashesFollow)
{
    TestSchema t1("one"), t2("two");
    stoClass* a1 = make_class(t1.schema, "Same", 4, nullptr);
    stoClass* a1_again = make_class(t1.schema, "Same", 8, nullptr);
    stoClass* a2 = make_class(t2.schema, "Same", 4, nullptr);
    EXPECT_TRUE(*a1 == *a1_again && a1->handle() == a1_again->handle());
    EXPECT_EQ(co_hash(a1->handle()), co_hash(a1_again->handle()));
    EXPECT_FALSE(*a1 == *a2 || a1->handle() == a2->handle() || a1->handle() == sto_type_int());
    // The schema lookup finds the first of the two namesakes.
    EXPECT_EQ(t1.schema->look_up_object("Same"), static_cast<stoSchemaObject const*>(a1));
}

namespace {

int g_made, g_deleted;
struct Counted {
    int value = 7;
};

}  // namespace

TEST(Class, SchemaDeletionDestroysPrototypesAndTypesOnce)
{
    g_made = g_deleted = 0;
    {
        TestSchema t("owned");
        stoClass* c = new stoClass(
            t.schema, "Counted", sizeof(Counted),
            [](stoBuilder& b, void const* prototype) {
                EXPECT_EQ(static_cast<Counted const*>(prototype)->value, 7);
                b.build_member(sto_type_int(), "value", 0, 4);
                stoTypeHandle triple = b.build_unnamed_type(stoFixedArrayType::make(sto_type_int(), 3));
                b.build_member(triple, "triple", 4, 12);
            },
            []() -> void* { return ++g_made, new Counted; },
            [](void* p) { ++g_deleted, delete static_cast<Counted*>(p); }, nullptr, nullptr, nullptr,
            sto_mapper_stoStandardMapper());
        EXPECT_FALSE(c->is_abstract());
        c->finish();
        c->destroy(c->create());
        EXPECT_EQ(g_made * 10 + g_deleted, 21);  // the prototype and the instance made
    }
    EXPECT_EQ(g_deleted, 2);  // the prototype went with the class
}

TEST(Registry, ScrambleRotatesAndSchemaIdentitiesHash)
{
    for (unsigned int h : {0u, 1u, 0x80000000u, 0xdeadbeefu, 0x12345678u})
        for (int i : {0, 1, 5, 7, 11, 32, -1, -7, -11, 1000, 123456789, INT32_MIN, INT32_MAX})
            EXPECT_EQ(sto_scramble(h, i), rotate_right(h, i)) << h << " " << i;
    EXPECT_EQ(sto_scramble(1u, 7), 1u << 27);  // right by 5

    stoSchemaID id("registry_test", 4);
    EXPECT_EQ(co_hash(id), co_hash(utString("registry_test")) ^ rotate_right(4u, 7));
    stoSchema a("registry_hash", 2), b("registry_hash", 2);
    EXPECT_TRUE(a == b);
    EXPECT_EQ(co_hash(a), co_hash(a.schema_id()));
    EXPECT_EQ(co_hash(stoSchemacoSetPtrcoPtr()), 0u);
    EXPECT_EQ(co_hash(stoSchemacoSetPtrcoPtr(&a)), co_hash(a));
}

TEST(Registry, SchemasAreFoundByNameOrByNameAndVersion)
{
    stoSystem* sys = sto_system();
    auto loaded_as = [sys](char const* name, int version) {
        return sys->find_loaded_schema(stoSchemaID(name, version));
    };
    auto in_memory_as = [sys](char const* name, int version) {
        return sys->find_in_memory_schema(stoSchemaID(name, version));
    };
    stoSchema* store = sto_schema_sto_schema();
    EXPECT_EQ(in_memory_as("store", 7), store);
    EXPECT_EQ(loaded_as("store", 7), nullptr);
    EXPECT_EQ(loaded_as("store", 1), store);
    EXPECT_EQ(in_memory_as("registry_none", 1), nullptr);

    // Loaded first, saved second: the saved one is newest.
    stoSchema* older = new stoSchema("registry_pair", 2);
    stoSchema* newer = sys->save(new stoSchema("registry_pair", 2));
    EXPECT_EQ(loaded_as("registry_pair", 2), newer);
    delete older;

    // Only the name counts for in-memory schemas, and the newest wins.
    sys->save(new stoSchema("registry_versions", 1));
    stoSchema* v2 = sys->save(new stoSchema("registry_versions", 2));
    EXPECT_EQ(in_memory_as("registry_versions", 1), v2);
}

// Deleting a schema unlinks it from the system it joined, even a schema
// rebuilt by a reader, whose own system field was never set.
TEST(Registry, SchemasJoinAndLeaveTheSystemChain)
{
    RebuiltSchema* rebuilt = new RebuiltSchema;  // as a reader makes one, not in memory
    EXPECT_EQ(sto_system()->schema_chain()->schema(), rebuilt);  // newest first

    stoSchema* a = new stoSchema("registry_chain_a", 1);
    stoSchema* b = new stoSchema("registry_chain_b", 1);
    stoSchema* c = new stoSchema("registry_chain_c", 1);
    delete b;  // from the middle of the chain
    EXPECT_TRUE(on_chain(a) && !on_chain(b) && on_chain(c) && on_chain(rebuilt));
    std::vector<stoSchema const*> order;
    for (stoSchemaLink const* l = sto_system()->schema_chain(); l && order.size() < 3; l = l->next())
        order.push_back(l->schema());
    EXPECT_EQ(order, (std::vector<stoSchema const*>{c, a, rebuilt}));
    delete c;
    delete a;
    delete rebuilt;
    EXPECT_FALSE(on_chain(a) || on_chain(rebuilt));
}

TEST(Registry, BindingsKeepConstructionOrderAndOwnTheirTypes)
{
    g_type_deaths = 0;
    stoSchema* s = new stoSchema("registry_bindings", 1);
    EXPECT_EQ(s->look_up_object("Second"), nullptr);
    stoClass* first = make_class(s, "First", 8, nullptr);
    stoClass* second = make_class(s, "Second", 8, nullptr);  // after a miss, still found
    stoClass* third = make_class(s, "Third", 8, nullptr);
    new stoStandardMapper(s, "registry_mapper");

    // Forwards through next, backwards through prev_binding from the last.
    std::vector<stoSchemaObject const*> forwards, backwards, order = {first, second, third};
    for (stoSchemaTypeBinding const* b = s->first_binding(); b; b = b->next())
        forwards.push_back(b->object());
    for (stoSchemaBinding const* b = s->last_binding(); b; b = b->prev_binding())
        backwards.insert(backwards.begin(), b->object());
    EXPECT_EQ(forwards, order);
    EXPECT_EQ(backwards, order);

    EXPECT_EQ(s->look_up_object("Second"), static_cast<stoSchemaObject const*>(second));
    EXPECT_EQ(s->look_up_object("second"), nullptr);
    EXPECT_EQ(s->look_up_object("registry_mapper"), nullptr);  // mappers are not named types

    delete s;
    EXPECT_EQ(g_type_deaths, 3);
}

TEST(Registry, OwnersAndUnnamedRecordsDestroyTheirTypesOnce)
{
    g_type_deaths = 0;
    { stoTypeOwner none; }
    { stoTypeOwner none((stoTypeHandle())); }
    EXPECT_EQ(g_type_deaths, 0);
    {
        stoTypeOwner owner(make_counting());
        owner.destroy_type();
        EXPECT_TRUE(owner.is_null() && g_type_deaths == 1);
    }
    EXPECT_EQ(g_type_deaths, 1);

    // A handle equals itself whatever its type says; null equals only null.
    {
        stoTypeOwner contrary((new ContraryType)->handle());
        stoTypeHandle copy = contrary;
        EXPECT_TRUE(copy == contrary && stoTypeHandle() == stoTypeHandle());
        EXPECT_FALSE(*copy == *contrary || stoTypeHandle() == copy || copy == stoTypeHandle() ||
                     stoTypeHandle() == sto_type_int());
        EXPECT_EQ(co_hash(stoTypeHandle()), 0u);
    }

    // A build function hands its anonymous types to the class's schema,
    // newest at the head; the schema's end destroys them with the class.
    static stoTypeHandle built[3];
    g_type_deaths = 0;
    stoSchema* s = new stoSchema("registry_unnamed", 1);
    make_class(s, "Holder", 8, [](stoBuilder& b, void const*) {
        for (stoTypeHandle& h : built)
            h = b.build_unnamed_type(make_counting());
    })->finish();
    std::vector<stoType const*> chain;
    for (stoUnnamedType const* u = s->first_unnamed_type(); u; u = u->next())
        chain.push_back(u->type().type());
    EXPECT_EQ(chain, (std::vector<stoType const*>{built[2].type(), built[1].type(), built[0].type()}));
    delete s;
    EXPECT_EQ(g_type_deaths, 4);  // three anonymous types and the class
}
