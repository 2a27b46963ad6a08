// Application classes described with the macros: the generated hooks, the
// deduced member kinds, offsets taken from the prototype, casts through
// several bases, and registration on first use.
#include "test_support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using sto_test::bases_of;
using sto_test::members_of;
using sto_test::table_of;

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
    dscNode* m_next = nullptr;       // plain pointer to its own class
    coPrg<dscNode> m_child;          // owning pointer to its own class
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

STO_ABSTRACT_CLASS(dscAbstract, sto_schema_dsc())
{
    STO_MEMBER(m_weight);
}

STO_CLASS(dscTagged, sto_schema_dsc())
{
    STO_MEMBER(m_tag);
}

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

namespace {

template <class Base, class Derived>
int offset_of_base()
{
    alignas(Derived) static unsigned char storage[sizeof(Derived)];
    Derived* d = reinterpret_cast<Derived*>(storage);
    return static_cast<int>(reinterpret_cast<char*>(static_cast<Base*>(d)) - reinterpret_cast<char*>(d));
}

}  // namespace

TEST(Describe, RegistrationIsLazyBuildsOnceAndDeducesMemberKinds)
{
    stoClass const* first = sto_class_dscNode();
    EXPECT_EQ(first, dscNode::sto_class());
    EXPECT_EQ(sto_schema_dsc()->look_up_object("dscNode"), static_cast<stoSchemaObject const*>(first));
    EXPECT_EQ(first->size(), static_cast<int>(sizeof(dscNode)));
    EXPECT_EQ(first->mapper(), static_cast<stoMapper const*>(sto_mapper_stoStandardMapper()));

    EXPECT_EQ(first->number_of_direct_members(), 3);
    EXPECT_EQ(first->number_of_inherited_members(), 3);
    EXPECT_EQ(g_builds_of_node, 1);
    // A class whose members point at itself describes without recursion.
    EXPECT_EQ(members_of(first),
              (std::vector<std::string>{"m_id:int", "m_next:ptr(dscNode)", "m_child:prg(dscNode)"}));

    // Member kinds are deduced from the declarations.
    stoClass const* c = sto_class_dscItem();
    EXPECT_EQ(members_of(c),
              (std::vector<std::string>{"m_big:int", "m_flag:int", "m_colour:int", "m_bytes:stoByteArray",
                                        "m_embedded:dscNode", "m_shared:prf(dscNode)", "m_seen:ptr(dscNode)",
                                        "m_type:handle", "m_grid:fixed(fixed(int,3),2)",
                                        "m_pair:fixed(ptr(dscNode),2)", "m_n_values:int",
                                        "m_values:var(double)", "m_rows:var(int)", "m_owned:prg(dscNode)"}));
    stoClassMemberIT it(c);
    ASSERT_TRUE(++it);
    EXPECT_EQ(it()->size(), 8);  // a 64-bit integer keeps its width
    ASSERT_TRUE(++it);
    EXPECT_EQ(it()->size(), 4);
    EXPECT_EQ(sto_class_dscAbstract()->is_abstract(), 1);
    EXPECT_EQ(sto_class_dscItem()->is_abstract(), 0);
}

TEST(Describe, OffsetsComeFromThePrototypeWhateverTheLayout)
{
    stoClass const* c = sto_class_dscItem();
    int tagged_at = offset_of_base<dscTagged, dscItem>();
    ASSERT_GT(tagged_at, 0);
    EXPECT_EQ(bases_of(c),
              (std::vector<std::string>{"dscAbstract@0", "dscTagged@" + std::to_string(tagged_at)}));

    dscItem item;
    auto at = [&item](void const* member) {
        return std::to_string(reinterpret_cast<char const*>(member) - reinterpret_cast<char const*>(&item));
    };
    std::vector<std::string> table = table_of(c);
    ASSERT_EQ(table.size(), 16u);
    EXPECT_EQ(table[0], "dscAbstract::m_weight@" + at(&item.m_weight));
    EXPECT_EQ(table[1], "dscTagged::m_tag@" + at(&item.m_tag));
    EXPECT_EQ(table[13], "dscItem::m_values@" + at(&item.m_values));
    EXPECT_EQ(table[15], "dscItem::m_owned@" + at(&item.m_owned));
}

TEST(Describe, HooksCreateDeleteAndCastThroughEveryBase)
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

    // The true class is found through any base, with the whole object's address.
    stoObjectPtr whole = tagged->sto_object();
    EXPECT_EQ(whole.type(), c);
    EXPECT_EQ(whole.ptr(), static_cast<void const*>(item));
    EXPECT_EQ(tagged->sto_dynamic_class(), c);
    EXPECT_TRUE(tagged->sto_type() == sto_type_dscItem());
    EXPECT_EQ(dscTagged::sto_true_class(tagged).ptr(), static_cast<void const*>(item));

    // The store's own casts, seen from any class of the object.
    EXPECT_EQ(dscTagged::sto_dynamic_cast(c, p), tagged);
    EXPECT_EQ(dscItem::sto_dynamic_cast(sto_class_dscTagged(), static_cast<void*>(tagged)), item);
    EXPECT_EQ(dscAbstract::sto_dynamic_cast(sto_class_dscTagged(), static_cast<void*>(tagged)),
              static_cast<dscAbstract*>(item));
    EXPECT_EQ(dscNode::sto_dynamic_cast(c, p), nullptr);
    EXPECT_EQ(dscItem::sto_dynamic_cast(c, static_cast<void*>(nullptr)), nullptr);
    stoRawPtr raw = sto_class_dscTagged()->true_type(tagged);
    EXPECT_TRUE(raw.type() == sto_type_dscItem());
    EXPECT_EQ(raw.ptr(), static_cast<void const*>(item));
    EXPECT_EQ(raw.size(), c->size());

    c->destroy(p);
    void* many = sto_class_dscNode()->create_array(3);
    EXPECT_EQ(g_live_nodes, before + 3);
    sto_class_dscNode()->destroy_array(many, 3);
    EXPECT_EQ(g_live_nodes, before);
}
