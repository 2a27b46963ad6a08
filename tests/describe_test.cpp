// Classes described with the macros: the generated hooks, the deduced member
// kinds, offsets taken from the prototype, casts through several bases, and
// registration on first use. Then the store's own classes as the "store"
// schema describes them: files name these bases and members in this order, so
// any drift here breaks every schema file ever written.
#include "test_support.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using sto_test::bases_of;
using sto_test::members_of;
using sto_test::table_of;
using Names = std::vector<std::string>;

namespace {

stoSchema* sto_schema_dsc() { return sto_test::saved_schema("describe_test", 2); }

int g_builds_of_node = 0;
int g_live_nodes = 0;

}  // namespace

enum dscColour { dscRed, dscGreen };

class dscNode {
    STO_PERSISTENT(dscNode)
public:
    dscNode() { ++g_live_nodes; }
    virtual ~dscNode() { --g_live_nodes; }
    int m_id = 0;
    dscNode* m_next = nullptr;  // plain pointer to its own class
    coPrg<dscNode> m_child;     // owning pointer to its own class
};
STO_DECLARE_CLASS(dscNode)

class dscAbstract {
    STO_PERSISTENT(dscAbstract)
public:
    virtual ~dscAbstract() = default;
    virtual int kind() const = 0;
    double m_weight = 0;
};
STO_DECLARE_CLASS(dscAbstract)

class dscTagged {
    STO_PERSISTENT(dscTagged)
public:
    virtual ~dscTagged() = default;
    utString m_tag;
};
STO_DECLARE_CLASS(dscTagged)

// Two bases, the second at a non-zero offset, and every member kind.
class dscItem : public dscAbstract, public dscTagged {
    STO_PERSISTENT(dscItem)
public:
    ~dscItem() override { delete[] m_values; }
    int kind() const override { return 1; }
    static int row_count(void const* item) { return static_cast<dscItem const*>(item)->m_rows ? 3 : 0; }

    long long m_big = 0;
    utBool m_flag = 0;
    dscColour m_colour = dscRed;
    stoByteArray m_bytes;
    dscNode m_embedded;
    coPrf<dscNode> m_shared;
    coPtr<dscNode> m_seen;
    stoTypeHandle m_type;
    int m_grid[2][3] = {};
    dscNode* m_pair[2] = {nullptr, nullptr};
    int m_n_values = 0;
    double* m_values = nullptr;
    int* m_rows = nullptr;
    dscNode* m_owned = nullptr;
};
STO_DECLARE_CLASS(dscItem)

STO_CLASS(dscNode, sto_schema_dsc())
{
    if (sto_phase == sto_detail::kMembers)
        ++g_builds_of_node;
    STO_MEMBER(m_id);
    STO_MEMBER(m_next);
    STO_MEMBER(m_child);
}
STO_ABSTRACT_CLASS(dscAbstract, sto_schema_dsc()) { STO_MEMBER(m_weight); }
STO_CLASS(dscTagged, sto_schema_dsc()) { STO_MEMBER(m_tag); }
STO_CLASS(dscItem, sto_schema_dsc())
{
    STO_BASE(dscAbstract);
    STO_BASE(dscTagged);
    STO_MEMBER(m_big);
    STO_MEMBER(m_flag);
    STO_MEMBER(m_colour);
    STO_MEMBER(m_bytes);
    STO_MEMBER(m_embedded);
    STO_MEMBER(m_shared);
    STO_MEMBER(m_seen);
    STO_MEMBER(m_type);
    STO_MEMBER(m_grid);
    STO_MEMBER(m_pair);
    STO_SIZED_ARRAY(m_values, m_n_values);
    STO_METHOD_ARRAY(m_rows, row_count);
    STO_OWNING_PTR(m_owned);
}

TEST(Describe, RegistrationIsLazyBuildsOnceAndDeducesMemberKinds)
{
    stoClass const* first = sto_class_dscNode();
    EXPECT_EQ(sto_schema_dsc()->look_up_object("dscNode"), static_cast<stoSchemaObject const*>(first));
    // A class whose members point at itself describes without recursion.
    EXPECT_EQ(members_of(first), (Names{"m_id:int", "m_next:ptr(dscNode)", "m_child:prg(dscNode)"}));
    EXPECT_EQ(g_builds_of_node, 1);

    // Member kinds are deduced from the declarations; a 64-bit integer keeps its width.
    stoClass const* c = sto_class_dscItem();
    EXPECT_EQ(members_of(c), (Names{"m_big:int", "m_flag:int", "m_colour:int", "m_bytes:stoByteArray",
                                    "m_embedded:dscNode", "m_shared:prf(dscNode)", "m_seen:ptr(dscNode)",
                                    "m_type:handle", "m_grid:fixed(fixed(int,3),2)",
                                    "m_pair:fixed(ptr(dscNode),2)", "m_n_values:int", "m_values:var(double)",
                                    "m_rows:var(int)", "m_owned:prg(dscNode)"}));
    stoClassMemberIT it(c);
    ASSERT_TRUE(++it);
    EXPECT_EQ(it()->size(), 8);
    EXPECT_TRUE(sto_class_dscAbstract()->is_abstract() == 1 && c->is_abstract() == 0);
}

TEST(Describe, OffsetsHooksAndCastsThroughEveryBase)
{
    stoClass const* c = sto_class_dscItem();
    // Building makes the prototypes, which live as long as their classes.
    c->build();
    sto_class_dscNode()->build();
    int before = g_live_nodes;
    void* p = c->create();
    ASSERT_NE(p, nullptr);
    dscItem* item = static_cast<dscItem*>(p);
    dscTagged* tagged = item;

    // Offsets come from the prototype, wherever the compiler put a base.
    auto at = [item](void const* part) {
        return std::to_string(static_cast<char const*>(part) - reinterpret_cast<char const*>(item));
    };
    Names table = table_of(c);
    ASSERT_TRUE(at(tagged) != "0" && table.size() == 16u);
    EXPECT_EQ(bases_of(c)[1] + " " + table[1] + " " + table[15],
              "dscTagged@" + at(tagged) + " dscTagged::m_tag@" + at(&item->m_tag) + " dscItem::m_owned@" +
                  at(&item->m_owned));

    // The true class is found through any base, with the whole object's address.
    stoRawPtr raw = sto_class_dscTagged()->true_type(tagged);
    EXPECT_TRUE(raw.type() == sto_type_dscItem() && raw.ptr() == item && raw.size() == c->size());

    // The store's own casts, seen from any class of the object.
    void* as_tagged = tagged;
    EXPECT_EQ(dscTagged::sto_dynamic_cast(c, p), tagged);
    EXPECT_EQ(dscItem::sto_dynamic_cast(sto_class_dscTagged(), as_tagged), item);
    EXPECT_EQ(dscAbstract::sto_dynamic_cast(sto_class_dscTagged(), as_tagged),
              static_cast<dscAbstract*>(item));
    EXPECT_EQ(dscNode::sto_dynamic_cast(c, p), nullptr);
    EXPECT_EQ(dscItem::sto_dynamic_cast(c, static_cast<void*>(nullptr)), nullptr);

    c->destroy(p);
    void* many = sto_class_dscNode()->create_array(3);
    EXPECT_EQ(g_live_nodes, before + 3);
    sto_class_dscNode()->destroy_array(many, 3);
    EXPECT_EQ(g_live_nodes, before);
}

namespace {

struct Expected {
    stoClass const* (*cls)();
    char const* name;
    bool abstract;
    Names bases, members;
};
#define STORE_CLASS(X) sto_class_##X, #X

std::vector<Expected> const kStoreClasses = {
    {STORE_CLASS(stoStubbable), true, {}, {}},
    {STORE_CLASS(stoSystem), false, {"stoStubbable"}, {"m_version:int", "m_schema_chain:prg(stoSchemaLink)"}},
    {STORE_CLASS(stoSchema), false, {"stoStubbable"},
     {"m_system:ptr(stoSystem)", "m_schema_id:stoSchemaID", "m_last_binding:ptr(stoSchemaTypeBinding)",
      "m_binding_chain:prg(stoSchemaTypeBinding)", "m_unnamed_type_chain:prg(stoUnnamedType)"}},
    {STORE_CLASS(stoSchemaID), false, {}, {"m_name:utString", "m_version:int"}},
    {STORE_CLASS(stoSchemaObject), true, {"stoStubbable"}, {"m_schema:ptr(stoSchema)", "m_name:utString"}},
    {STORE_CLASS(stoSchemaLink), false, {}, {"m_next:prg(stoSchemaLink)", "m_schema:prg(stoSchema)"}},
    {STORE_CLASS(stoType), true, {}, {"m_handle:handle"}},
    {STORE_CLASS(stoTypeOwner), false, {}, {"m_type:prg(stoType)"}},
    {STORE_CLASS(stoUnnamedType), false, {}, {"m_type:stoTypeOwner", "m_next_type:prg(stoUnnamedType)"}},
    {STORE_CLASS(stoBasic), true, {"stoType", "stoSchemaObject"}, {"m_size:int"}},
    {STORE_CLASS(stoIntType), false, {"stoBasic"}, {}},
    {STORE_CLASS(stoDoubleType), false, {"stoBasic"}, {}},
    {STORE_CLASS(stoStringType), false, {"stoBasic"}, {}},
    {STORE_CLASS(stoByteArrayType), false, {"stoType"}, {}},
    {STORE_CLASS(stoClass), false, {"stoType", "stoSchemaObject"},
     {"m_size:int", "m_base_chain:prg(stoBase)", "m_n_members:int", "m_member_chain:prg(stoMember)",
      "m_n_indirect_members:int", "m_inherited_members:var(stoMemberInstance)"}},
    {STORE_CLASS(stoBase), false, {},
     {"m_base_class:ptr(stoClass)", "m_base_offset:int", "m_next_base:prg(stoBase)"}},
    {STORE_CLASS(stoMember), false, {"stoStubbable"},
     {"m_class:ptr(stoClass)", "m_type:handle", "m_name:utString", "m_offset:int",
      "m_next_member:prg(stoMember)"}},
    {STORE_CLASS(stoMemberInstance), false, {}, {"m_member:ptr(stoMember)", "m_offset:int"}},
    {STORE_CLASS(stoArraySize), true, {}, {}},
    {STORE_CLASS(stoOffsetArraySize), false, {"stoArraySize"}, {"m_size_member:ptr(stoMember)"}},
    {STORE_CLASS(stoMethodArraySize), false, {"stoArraySize"}, {"m_method_name:utString"}},
    {STORE_CLASS(stoArrayType), true, {"stoType"}, {"m_type:handle"}},
    {STORE_CLASS(stoFixedArrayType), false, {"stoArrayType"}, {"m_n_elements:int"}},
    {STORE_CLASS(stoVariableArrayType), false, {"stoArrayType"},
     {"m_member:ptr(stoMember)", "m_array_size:prg(stoArraySize)"}},
    {STORE_CLASS(stoSchemaBinding), true, {},
     {"m_schema:ptr(stoSchema)", "m_object:ptr(stoSchemaObject)", "m_prev_binding:ptr(stoSchemaBinding)",
      "m_next_binding:prg(stoSchemaBinding)"}},
    {STORE_CLASS(stoSchemaTypeBinding), false, {"stoSchemaBinding"}, {"m_type:stoTypeOwner"}},
    {STORE_CLASS(stoSchemaMapperBinding), false, {"stoSchemaBinding"}, {"m_mapper:prg(stoMapper)"}},
    {STORE_CLASS(stoPtrType), false, {"stoType"}, {"m_type:handle"}},
    {STORE_CLASS(stoPrgType), false, {"stoPtrType"}, {}},
    {STORE_CLASS(stoPrfType), false, {"stoPtrType"}, {}},
    {STORE_CLASS(stoTypeHandleType), false, {"stoPtrType"}, {}},
    {STORE_CLASS(stoMapper), true, {"stoSchemaObject"}, {}},
    {STORE_CLASS(stoStandardMapper), false, {"stoMapper"}, {}},
    {STORE_CLASS(stoMappedType), false, {"stoType"}, {"m_mapper:ptr(stoMapper)", "m_size:int"}},
};

}  // namespace

// Found by name in the store schema once force-loaded (all but three that
// load on use), before anything asks for the class itself.
TEST(StoreSchema, EveryStoreClassHasItsDeclaredBasesAndMembersInOrder)
{
    sto_force_load();
    stoSchema* store = sto_schema_sto_schema();
    std::set<std::string> const loaded_on_use = {"stoTypeOwner", "stoUnnamedType", "stoStandardMapper"};
    for (Expected const& e : kStoreClasses)
        EXPECT_TRUE(loaded_on_use.count(e.name) || store->look_up_object(e.name)) << e.name;
    for (Expected const& e : kStoreClasses) {
        SCOPED_TRACE(e.name);
        stoClass const* c = e.cls();
        EXPECT_EQ(store->look_up_object(e.name), static_cast<stoSchemaObject const*>(c));
        EXPECT_EQ(c->is_abstract(), e.abstract ? 1 : 0);
        Names bases;
        for (std::string const& base : bases_of(c))
            bases.push_back(base.substr(0, base.find('@')));
        EXPECT_EQ(bases, e.bases);
        EXPECT_EQ(members_of(c), e.members);
        EXPECT_EQ(c->mapper(), static_cast<stoMapper const*>(sto_mapper_stoStandardMapper()));
    }
}
