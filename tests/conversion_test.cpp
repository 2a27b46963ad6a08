// Live objects to values and back: sharing, ownership, late plain pointers,
// cycles, a class outside the graph, and failures part-way.
#include "test_support.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

stoSchema* sto_schema_conv() { return sto_test::saved_schema("conversion_test", 4); }

int g_live_leaves = 0;

}  // namespace

class cnvLeaf {
    STO_PERSISTENT(cnvLeaf)
public:
    cnvLeaf() { ++g_live_leaves; }
    virtual ~cnvLeaf() { --g_live_leaves; }
    int m_value = 0;
    utString m_text;
};
STO_DECLARE_CLASS(cnvLeaf)

class cnvRoot {
    STO_PERSISTENT(cnvRoot)
public:
    virtual ~cnvRoot()
    {
        delete m_owned_a;
        delete[] m_numbers;
    }
    cnvLeaf* m_early = nullptr;      // plain, written before its target
    cnvLeaf* m_owned_a = nullptr;    // owning
    cnvLeaf* m_owned_b = nullptr;    // owning the same object (left unset after synthesis)
    coPrf<cnvLeaf> m_shared_a;
    coPrf<cnvLeaf> m_shared_b;
    cnvRoot* m_self = nullptr;       // a cycle back to the root
    stoTypeHandle m_kind;            // a class outside the graph
    double m_pair[2] = {0, 0};
    int m_n_numbers = 0;
    long long* m_numbers = nullptr;
    stoByteArray m_bytes;
    utString m_null_text;
    utString m_empty_text{""};
};
STO_DECLARE_CLASS(cnvRoot)

STO_CLASS(cnvLeaf, sto_schema_conv())
{
    STO_MEMBER(m_value);
    STO_MEMBER(m_text);
}

STO_CLASS(cnvRoot, sto_schema_conv())
{
    STO_MEMBER(m_early);
    STO_OWNING_PTR(m_owned_a);
    STO_OWNING_PTR(m_owned_b);
    STO_MEMBER(m_shared_a);
    STO_MEMBER(m_shared_b);
    STO_MEMBER(m_self);
    STO_MEMBER(m_kind);
    STO_MEMBER(m_pair);
    STO_SIZED_ARRAY(m_numbers, m_n_numbers);
    STO_MEMBER(m_bytes);
    STO_MEMBER(m_null_text);
    STO_MEMBER(m_empty_text);
}

namespace {

// Analyses a root, stubs what dangles, and owns the result.
struct Analysed {
    stoAnalyser analyser;
    stoValue* root = nullptr;
    Analysed(stoTypeHandle const& type, void const* object)
    {
        root = analyser.raw_to_value(type, object);
        analyser.stub_dangling_pointers();
    }
    ~Analysed()
    {
        delete root;
        analyser.destroy_stubs();
    }
};

stoValue const* member(stoValue const* object, char const* cls, char const* name)
{
    stoObject const* o = sto_as_object(object);
    stoMemberHandle h = o->type()->find_member(cls, name);
    return h.invalid() ? nullptr : o->member(h);
}

}  // namespace

TEST(Conversion, SharingOwnershipAndCyclesRoundTrip)
{
    sto_class_cnvLeaf()->build();  // its prototype lives as long as the class
    int before = g_live_leaves;
    {
        cnvRoot root;
        cnvLeaf* owned = new cnvLeaf;
        owned->m_value = 11;
        owned->m_text = "owned";
        root.m_early = owned;
        root.m_owned_a = owned;
        root.m_owned_b = owned;
        root.m_shared_a = coPrf<cnvLeaf>(new cnvLeaf);
        root.m_shared_a->m_value = 22;
        root.m_shared_b = root.m_shared_a;
        root.m_self = &root;
        root.m_kind = sto_type_cnvLeaf();
        root.m_pair[0] = 0.1;
        root.m_pair[1] = -2.5e300;
        root.m_n_numbers = 3;
        root.m_numbers = new long long[3]{1, -1, 1LL << 40};
        unsigned char bytes[] = {0, 1, 254, 255};
        root.m_bytes = stoByteArray(bytes, 4);

        Analysed a(sto_type_cnvRoot(), &root);
        ASSERT_NE(a.root, nullptr);
        // One value per live object: the two owning pointers and the plain one
        // lead to one value; the second owning pointer value stays null.
        stoPtrValue const* early = sto_as_ptr(member(a.root, "cnvRoot", "m_early"));
        stoPtrValue const* owned_a = sto_as_ptr(member(a.root, "cnvRoot", "m_owned_a"));
        stoPtrValue const* owned_b = sto_as_ptr(member(a.root, "cnvRoot", "m_owned_b"));
        ASSERT_NE(owned_a->pointee(), nullptr);
        EXPECT_EQ(early->pointee(), owned_a->pointee());
        EXPECT_EQ(owned_b->pointee(), nullptr);
        stoPrfValue const* shared_a = dynamic_cast<stoPrfValue const*>(member(a.root, "cnvRoot", "m_shared_a"));
        stoPrfValue const* shared_b = dynamic_cast<stoPrfValue const*>(member(a.root, "cnvRoot", "m_shared_b"));
        ASSERT_NE(shared_a, nullptr);
        EXPECT_EQ(shared_a->counted().ref(), shared_b->counted().ref());
        EXPECT_EQ(sto_as_ptr(member(a.root, "cnvRoot", "m_self"))->pointee(), a.root);

        stoValuePtrcoSet all;
        a.root->participants(all);
        EXPECT_TRUE(all.contains(owned_a->pointee()));

        cnvRoot copy;
        {
            stoSynthesiser s;
            s.synthesise(a.root, &copy);
        }
        ASSERT_NE(copy.m_owned_a, nullptr);
        EXPECT_EQ(copy.m_owned_a->m_value, 11);
        EXPECT_EQ(copy.m_owned_a->m_text, "owned");
        EXPECT_EQ(copy.m_early, copy.m_owned_a);  // fixed up once its target existed
        EXPECT_EQ(copy.m_owned_b, nullptr);
        ASSERT_NE(copy.m_shared_a.get(), nullptr);
        EXPECT_EQ(copy.m_shared_a.get(), copy.m_shared_b.get());
        EXPECT_EQ(copy.m_shared_a.count(), 2);
        EXPECT_EQ(copy.m_shared_a->m_value, 22);
        EXPECT_EQ(copy.m_self, &copy);
        EXPECT_EQ(copy.m_pair[0], 0.1);
        EXPECT_EQ(copy.m_pair[1], -2.5e300);
        ASSERT_EQ(copy.m_n_numbers, 3);
        EXPECT_EQ(copy.m_numbers[2], 1LL << 40);
        EXPECT_TRUE(copy.m_bytes == root.m_bytes);
        EXPECT_TRUE(copy.m_null_text.is_null());
        EXPECT_FALSE(copy.m_empty_text.is_null());
        EXPECT_EQ(copy.m_empty_text.length(), 0);
        // The stub of the type handle's class left the field as it was.
        EXPECT_TRUE(copy.m_kind.is_null());
    }
    EXPECT_EQ(g_live_leaves, before);
}

TEST(Conversion, AnUnsavedSchemaFailsSynthesisWithoutLeaks)
{
    stoSchema* loaded = new stoSchema("conversion_loaded", 1);
    stoClass* cls = new stoClass(loaded, "cnvLeaf", sizeof(cnvLeaf), nullptr, &cnvLeaf::sto_make_new,
                                 &cnvLeaf::sto_delete, nullptr, nullptr, &cnvLeaf::sto_true_class,
                                 sto_mapper_stoStandardMapper());
    stoObject* value = new stoObject(cls);
    cnvLeaf target;
    stoSynthesiser s;
    try {
        s.synthesise(value, &target);
        ADD_FAILURE() << "expected stoSchemaNotInMemoryException";
    } catch (stoException* e) {
        stoExceptioncoPrf owner(e);
        stoSchemaNotInMemoryException* missing = stoSchemaNotInMemoryException::ut_dynamic_cast(e);
        ASSERT_NE(missing, nullptr);
        EXPECT_EQ(missing->schema_name(), "conversion_loaded");
        EXPECT_EQ(missing->version(), 1);
    }
    delete value;
    delete loaded;
}
