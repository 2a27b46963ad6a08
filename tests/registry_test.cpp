// The registry and schemas: the hash mixer and schema hashes, finding
// schemas by identity, name look-ups, the system's chain of schemas, the
// order of type bindings, and ownership of types through owners, bindings
// and unnamed-type records.
#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

// Rotation right one bit at a time, by the product's residue taken without
// 32-bit wrap-around (32 divides 2^32, so the residue is the same).
unsigned int rotate_right(unsigned int h, int i)
{
    long long r = (static_cast<long long>(i) * 19) % 32;
    if (r < 0)
        r += 32;
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

stoClass* make_class(stoSchema* s, char const* name, stoClass::BuildFn build = nullptr)
{
    return new CountingClass(s, name, 8, build, nullptr, nullptr, nullptr, nullptr, nullptr,
                             sto_mapper_stoStandardMapper());
}

struct RebuiltSchema : stoSchema {
    RebuiltSchema() = default;
};

struct BareBinding : stoSchemaTypeBinding {
    BareBinding() = default;
};

struct Unnamed : stoUnnamedType {
    Unnamed(stoTypeHandle const& type, stoUnnamedType* next) : stoUnnamedType(type, next) {}
};

}  // namespace

TEST(Registry, ScrambleRotatesAndSchemaIdentitiesHash)
{
    for (unsigned int h : {0u, 1u, 0x80000000u, 0xdeadbeefu, 0x12345678u}) {
        EXPECT_EQ(sto_scramble(h, 0), h);
        for (int i : {1, 5, 7, 11, 32, -1, -7, -11, 1000, 123456789, INT32_MIN, INT32_MAX})
            EXPECT_EQ(sto_scramble(h, i), rotate_right(h, i)) << h << " " << i;
    }
    EXPECT_EQ(sto_scramble(1u, 7), 1u << 27);            // right by 5
    EXPECT_EQ(sto_scramble(0x80000000u, 7), 1u << 26);
    EXPECT_EQ(sto_scramble(1u, 11), 1u << 15);           // right by 17
    EXPECT_EQ(sto_scramble(1u, -1), 1u << 19);           // -19 is right by 13

    stoSchemaID id("registry_test", 4);
    EXPECT_EQ(co_hash(id), co_hash(utString("registry_test")) ^ rotate_right(4u, 7));
    EXPECT_NE(co_hash(id), co_hash(stoSchemaID("registry_test", 5)));
    stoSchema a("registry_hash", 2);
    stoSchema b("registry_hash", 2);
    EXPECT_TRUE(a == b);
    EXPECT_EQ(co_hash(a), co_hash(b));
    EXPECT_EQ(co_hash(a), co_hash(a.schema_id()));
    EXPECT_EQ(co_hash(stoSchemacoSetPtrcoPtr()), 0u);
    EXPECT_EQ(co_hash(stoSchemacoSetPtrcoPtr(&a)), co_hash(a));
}

TEST(Registry, SchemasAreFoundByNameOrByNameAndVersion)
{
    stoSystem* sys = sto_system();
    stoSchema* store = sto_schema_sto_schema();
    EXPECT_EQ(store->version(), 1);
    EXPECT_TRUE(store->in_memory());
    EXPECT_EQ(sys->find_in_memory_schema(stoSchemaID("store", 7)), store);
    EXPECT_EQ(sys->find_loaded_schema(stoSchemaID("store", 7)), nullptr);
    EXPECT_EQ(sys->find_loaded_schema(stoSchemaID("store", 1)), store);
    EXPECT_EQ(sys->find_in_memory_schema(stoSchemaID("registry_none", 1)), nullptr);

    // Saved first, loaded second: the loaded one is newest.
    stoSchema* saved = sys->save(new stoSchema("registry_twin", 3));
    stoSchema* loaded = new stoSchema("registry_twin", 3);
    EXPECT_FALSE(loaded->in_memory());
    EXPECT_EQ(sys->find_loaded_schema(stoSchemaID("registry_twin", 3)), loaded);
    EXPECT_EQ(sys->find_in_memory_schema(stoSchemaID("registry_twin", 3)), saved);
    delete loaded;
    EXPECT_EQ(sys->find_loaded_schema(stoSchemaID("registry_twin", 3)), saved);

    // Loaded first, saved second: the saved one is newest.
    stoSchema* older = new stoSchema("registry_pair", 2);
    stoSchema* newer = sys->save(new stoSchema("registry_pair", 2));
    EXPECT_EQ(sys->find_loaded_schema(stoSchemaID("registry_pair", 2)), newer);
    delete older;

    // Only the name counts for in-memory schemas, and the newest wins.
    sys->save(new stoSchema("registry_versions", 1));
    stoSchema* v2 = sys->save(new stoSchema("registry_versions", 2));
    EXPECT_EQ(sys->find_in_memory_schema(stoSchemaID("registry_versions", 1)), v2);
}

TEST(Registry, SchemasJoinAndLeaveTheSystemChain)
{
    RebuiltSchema* rebuilt = new RebuiltSchema;
    EXPECT_EQ(rebuilt->name(), "schema_prototype");
    EXPECT_EQ(rebuilt->version(), -1);
    EXPECT_EQ(rebuilt->in_memory(), 0);
    EXPECT_EQ(rebuilt->system(), sto_system());
    EXPECT_EQ(rebuilt->first_binding(), nullptr);
    EXPECT_EQ(sto_system()->schema_chain()->schema(), rebuilt);  // newest first

    stoSchema* a = new stoSchema("registry_chain_a", 1);
    stoSchema* b = new stoSchema("registry_chain_b", 1);
    stoSchema* c = new stoSchema("registry_chain_c", 1);
    delete b;  // from the middle of the chain
    EXPECT_TRUE(on_chain(a));
    EXPECT_FALSE(on_chain(b));
    EXPECT_TRUE(on_chain(c));
    EXPECT_TRUE(on_chain(rebuilt));
    std::vector<stoSchema const*> order;
    for (stoSchemaLink const* l = sto_system()->schema_chain(); l && order.size() < 3; l = l->next())
        order.push_back(l->schema());
    EXPECT_EQ(order, (std::vector<stoSchema const*>{c, a, rebuilt}));
    delete c;
    delete a;
    delete rebuilt;
    EXPECT_FALSE(on_chain(a));
    EXPECT_FALSE(on_chain(rebuilt));
}

TEST(Registry, BindingsKeepConstructionOrderAndOwnTheirTypes)
{
    g_type_deaths = 0;
    stoSchema* s = new stoSchema("registry_bindings", 1);
    EXPECT_EQ(s->look_up_object("Second"), nullptr);
    EXPECT_EQ(s->look_up_object("Second"), nullptr);
    stoClass* first = make_class(s, "First");
    stoClass* second = make_class(s, "Second");  // after a miss, still found
    stoClass* third = make_class(s, "Third");
    new stoStandardMapper(s, "registry_mapper");

    // Forwards through next, backwards through prev_binding from the last.
    std::vector<stoSchemaObject const*> forwards, backwards;
    for (stoSchemaTypeBinding const* b = s->first_binding(); b; b = b->next()) {
        EXPECT_EQ(b->schema(), s);
        EXPECT_EQ(static_cast<stoSchemaObject const*>(static_cast<stoClass const*>(b->type().type())), b->object());
        forwards.push_back(b->object());
    }
    for (stoSchemaBinding const* b = s->last_binding(); b; b = b->prev_binding())
        backwards.insert(backwards.begin(), b->object());
    std::vector<stoSchemaObject const*> order = {first, second, third};
    EXPECT_EQ(forwards, order);
    EXPECT_EQ(backwards, order);

    std::vector<std::string> names;
    stoSchemaIT it(s);
    while (++it)
        names.push_back(it()->name().str());
    EXPECT_EQ(names, (std::vector<std::string>{"First", "Second", "Third"}));
    EXPECT_FALSE(++it);

    EXPECT_EQ(s->look_up_object("Second"), static_cast<stoSchemaObject const*>(second));
    EXPECT_EQ(s->look_up_object("Second"), static_cast<stoSchemaObject const*>(second));
    EXPECT_EQ(s->look_up_object("second"), nullptr);
    EXPECT_EQ(s->look_up_object("registry_mapper"), nullptr);  // mappers are not named types
    ASSERT_NE(s->first_mapper_binding(), nullptr);
    EXPECT_EQ(s->first_mapper_binding()->mapper()->name(), "registry_mapper");

    delete s;
    EXPECT_EQ(g_type_deaths, 3);

    BareBinding bare;
    EXPECT_TRUE(bare.type().is_null());
    EXPECT_EQ(bare.object(), nullptr);
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
        EXPECT_TRUE(owner.is_null());
        EXPECT_EQ(g_type_deaths, 1);
    }
    EXPECT_EQ(g_type_deaths, 1);

    // A handle equals itself whatever its type says; null equals only null.
    {
        stoTypeOwner contrary((new ContraryType)->handle());
        stoTypeHandle copy = contrary;
        EXPECT_TRUE(copy == contrary);
        EXPECT_FALSE(*copy == *contrary);
        EXPECT_TRUE(stoTypeHandle() == stoTypeHandle());
        EXPECT_FALSE(stoTypeHandle() == copy);
        EXPECT_FALSE(copy == stoTypeHandle());
        EXPECT_FALSE(stoTypeHandle() == sto_type_int());
        EXPECT_EQ(co_hash(stoTypeHandle()), 0u);
    }

    g_type_deaths = 0;
    stoTypeHandle t1 = make_counting();
    stoTypeHandle t2 = make_counting();
    stoTypeHandle t3 = make_counting();
    stoUnnamedType* head = new Unnamed(t3, new Unnamed(t2, new Unnamed(t1, nullptr)));
    EXPECT_EQ(head->type().type(), t3.type());
    EXPECT_EQ(head->next()->next()->type().type(), t1.type());
    delete head;
    EXPECT_EQ(g_type_deaths, 3);

    // A build function hands its anonymous types to the class's schema,
    // newest at the head; the schema's end destroys them with the class.
    static stoTypeHandle built[3];
    g_type_deaths = 0;
    stoSchema* s = new stoSchema("registry_unnamed", 1);
    stoClass* c = make_class(s, "Holder", [](stoBuilder& b, void const*) {
        for (stoTypeHandle& h : built)
            h = b.build_unnamed_type(make_counting());
    });
    c->finish();
    std::vector<stoType const*> chain;
    for (stoUnnamedType const* u = s->first_unnamed_type(); u; u = u->next())
        chain.push_back(u->type().type());
    EXPECT_EQ(chain, (std::vector<stoType const*>{built[2].type(), built[1].type(), built[0].type()}));
    delete s;
    EXPECT_EQ(g_type_deaths, 4);  // three anonymous types and the class
}
