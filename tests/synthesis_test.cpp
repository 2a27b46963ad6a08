// Value graphs built by hand, written into live objects (the conversion tests
// cover pointers that meet their targets late and shared and doubly owned
// targets): stubs, targets never written, values that do not fit their memory, and an opaque class filled through its model only
// once every pointer in the model is final.
#include "test_support.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

stoSchema* sto_schema_snt() { return sto_test::saved_schema("synthesis_test", 1); }

int g_live_leaves = 0;
int g_model_to_opaque_calls = 0;

}  // namespace

class sntLeaf {
    STO_PERSISTENT(sntLeaf)
public:
    sntLeaf() { ++g_live_leaves; }
    virtual ~sntLeaf() { --g_live_leaves; }
    int m_value = 0;
};
STO_DECLARE_CLASS(sntLeaf)

class sntRoot {
    STO_PERSISTENT(sntRoot)
public:
    virtual ~sntRoot()
    {
        delete m_owned_a;
        delete m_owned_b;
        delete[] m_values;
    }
    sntLeaf* m_plain = nullptr;
    sntLeaf* m_owned_a = nullptr;  // owning
    sntLeaf* m_owned_b = nullptr;  // owning
    coPrf<sntLeaf> m_shared_a;
    coPrf<sntLeaf> m_shared_b;
    int m_small = 77;
    long long m_wide = 0;
    utString m_text{"before"};
    int m_fixed[3] = {};
    int m_guard = 0x5a5a;  // not described: must survive writes to m_fixed
    int m_n_values = 0;
    double* m_values = nullptr;
};
STO_DECLARE_CLASS(sntRoot)

// An opaque class whose layout the store does not see, and its model.
class sntModel {
    STO_PERSISTENT(sntModel)
public:
    virtual ~sntModel() = default;
    int m_count = 0;
    sntLeaf* m_target = nullptr;
};
STO_DECLARE_CLASS(sntModel)

class sntOpaque {
    STO_PERSISTENT(sntOpaque)
public:
    virtual ~sntOpaque() = default;
    std::vector<int> m_hidden;
    sntLeaf* m_link = nullptr;
};
STO_DECLARE_CLASS(sntOpaque)

class sntHolder {
    STO_PERSISTENT(sntHolder)
public:
    virtual ~sntHolder() { delete m_leaf; }
    sntOpaque m_opaque;
    sntLeaf* m_leaf = nullptr;  // owning, written after the opaque member
};
STO_DECLARE_CLASS(sntHolder)

void sto_opaque_to_model(sntOpaque const& opaque, sntModel& model)
{
    model.m_count = static_cast<int>(opaque.m_hidden.size());
    model.m_target = opaque.m_link;
}

void sto_model_to_opaque(sntModel const& model, sntOpaque& opaque)
{
    ++g_model_to_opaque_calls;
    opaque.m_hidden.assign(static_cast<std::size_t>(model.m_count), 1);
    opaque.m_link = model.m_target;
}

STO_DECLARE_CLASS_MAPPER(sntOpaque, sntModel)
STO_CLASS_MAPPER(sntOpaque, sntModel, sto_schema_snt())

STO_CLASS(sntLeaf, sto_schema_snt())
{
    STO_MEMBER(m_value);
}

STO_CLASS(sntRoot, sto_schema_snt())
{
    STO_MEMBER(m_plain);
    STO_OWNING_PTR(m_owned_a);
    STO_OWNING_PTR(m_owned_b);
    STO_MEMBER(m_shared_a);
    STO_MEMBER(m_shared_b);
    STO_MEMBER(m_small);
    STO_MEMBER(m_wide);
    STO_MEMBER(m_text);
    STO_MEMBER(m_fixed);
    STO_SIZED_ARRAY(m_values, m_n_values);
}

STO_CLASS(sntModel, sto_schema_snt())
{
    STO_MEMBER(m_count);
    STO_MEMBER(m_target);
}

STO_CLASS_MAPPED(sntOpaque, sto_schema_snt(), sto_mapper_stoMappersntOpaquesntModel())
{
    STO_MEMBERS_OF_MODEL(sntModel);
}

STO_CLASS(sntHolder, sto_schema_snt())
{
    STO_MEMBER(m_opaque);
    STO_OWNING_PTR(m_leaf);
}

namespace {

stoMemberHandle slot(stoClass const* c, char const* name) { return c->find_member(c->name(), name); }
stoTypeHandle type_of(stoClass const* c, char const* name) { return c->member(slot(c, name))->type(); }

void set(stoObject* o, char const* name, stoValue* v) { o->set_member(slot(o->type(), name), v); }
stoTypeHandle root_type(char const* name) { return type_of(sto_class_sntRoot(), name); }

stoObject* leaf_value(int n)
{
    stoObject* leaf = new stoObject(sto_class_sntLeaf());
    set(leaf, "m_value", new stoIntValue(n));
    return leaf;
}
stoObject* root_value() { return new stoObject(sto_class_sntRoot()); }
stoStub* leaf_stub() { return new stoStub(sto_type_sntLeaf(), nullptr, new stoStringValue("elsewhere")); }

// Finds the object a stub names: here, always the one it was given.
struct StubFinder : stoSynthesiser {
    sntLeaf* answer = nullptr;
    stoStub const* stub = nullptr;
    void* field = nullptr;
    stoTypeHandle field_type;
    void look_up_stub(stoRWRawPtr const& f, stoStub const* s) override
    {
        stub = s;
        field = f.write_ptr();
        field_type = f.type();
        *static_cast<sntLeaf**>(f.write_ptr()) = answer;
    }
};

}  // namespace

TEST(Synthesis, StubsAndUnwrittenTargetsLeaveFieldsAsTheyWere)
{
    sntLeaf sentinel;
    stoObject* value = root_value();
    stoObject* never_written = leaf_value(1);
    set(value, "m_plain", new stoPtrValue(root_type("m_plain"), never_written));
    set(value, "m_owned_a", new stoPrgValue(root_type("m_owned_a"), leaf_stub()));
    stoPrfValue* shared = new stoPrfValue(root_type("m_shared_a"), stoValuecoPrf());
    shared->set_pointee(leaf_stub());
    set(value, "m_shared_a", shared);
    sntRoot root;
    root.m_plain = &sentinel;
    sntLeaf* kept = new sntLeaf;
    root.m_owned_a = kept;
    root.m_shared_a = coPrf<sntLeaf>(new sntLeaf);
    sntLeaf* kept_shared = root.m_shared_a.get();
    double* caller_block = new double[2]{1.5, 2.5};
    root.m_values = caller_block;
    root.m_n_values = 2;
    {
        stoSynthesiser s;
        s.synthesise(value, &root);
    }
    EXPECT_EQ(root.m_plain, &sentinel);
    EXPECT_EQ(root.m_owned_a, kept);
    EXPECT_EQ(root.m_shared_a.get(), kept_shared);
    EXPECT_EQ(root.m_shared_a.count(), 1);
    EXPECT_EQ(root.m_values, caller_block);  // a null array value writes nothing
    EXPECT_EQ(root.m_n_values, 2);

    // A synthesiser that knows where stubs live is asked, with the field.
    stoObject* to_stub = root_value();
    stoStub* stub = leaf_stub();
    set(to_stub, "m_plain", new stoPtrValue(root_type("m_plain"), stub));
    StubFinder finder;
    finder.answer = &sentinel;
    sntRoot other;
    finder.synthesise(to_stub, &other);
    EXPECT_EQ(finder.stub, stub);
    EXPECT_EQ(finder.field, static_cast<void*>(&other.m_plain));
    EXPECT_TRUE(finder.field_type == root_type("m_plain"));
    EXPECT_EQ(other.m_plain, &sentinel);
    delete to_stub;
    delete stub;
    delete value;
    delete never_written;
}

TEST(Synthesis, ValuesThatDoNotFitLeaveTheirMemoryAlone)
{
    stoObject* value = root_value();
    set(value, "m_small", new stoStringValue("12"));
    set(value, "m_wide", new stoDoubleValue(2.0));
    set(value, "m_text", new stoIntValue(5));
    set(value, "m_owned_a", new stoIntValue(6));
    stoArrayValue* five = new stoArrayValue(root_type("m_fixed"), 5);
    for (int i = 0; i < 5; ++i)
        five->set_element(i, new stoIntValue(i + 1));
    set(value, "m_fixed", five);
    set(value, "m_n_values", new stoIntValue(0));
    set(value, "m_values", new stoArrayValue(root_type("m_values"), 0));
    sntRoot root;
    sntLeaf* kept = new sntLeaf;
    root.m_owned_a = kept;
    ASSERT_EQ(reinterpret_cast<char*>(&root.m_guard) - reinterpret_cast<char*>(root.m_fixed), 12);
    stoSynthesiser s;
    s.synthesise(value, &root);
    EXPECT_EQ(root.m_small, 77);
    EXPECT_EQ(root.m_wide, 0);
    EXPECT_EQ(root.m_text, "before");
    EXPECT_EQ(root.m_owned_a, kept);
    EXPECT_EQ(root.m_fixed[0], 1);
    EXPECT_EQ(root.m_fixed[2], 3);
    EXPECT_EQ(root.m_guard, 0x5a5a);
    EXPECT_NE(root.m_values, nullptr);  // an empty block, not no block
    EXPECT_EQ(root.m_n_values, 0);
    delete value;

    stoObject* too_big = root_value();
    set(too_big, "m_wide", new stoIntValue(stoIntValue64Tag, 1LL << 33));
    set(too_big, "m_small", new stoIntValue(stoIntValue64Tag, 1LL << 33));
    sntRoot target;
    try {
        stoSynthesiser t;
        t.synthesise(too_big, &target);
        ADD_FAILURE() << "expected stoIntTooBigException";
    } catch (stoException* e) {
        stoExceptioncoPrf owner(e);
        EXPECT_NE(stoIntTooBigException::ut_dynamic_cast(e), nullptr);
    }
    EXPECT_EQ(target.m_small, 77);
    delete too_big;
    stoObject* wide = root_value();
    set(wide, "m_wide", new stoIntValue(stoIntValue64Tag, 1LL << 33));
    stoSynthesiser fresh;
    fresh.synthesise(wide, &target);
    EXPECT_EQ(target.m_wide, 1LL << 33);
    delete wide;
}

TEST(Synthesis, AnOpaqueObjectIsFilledOnceAtCleanUpWithFinalPointers)
{
    stoClass const* opaque_class = sto_class_sntOpaque();
    stoObject* value = new stoObject(sto_class_sntHolder());
    stoObject* leaf = leaf_value(5);
    stoObject* opaque = new stoObject(opaque_class);
    set(opaque, "m_count", new stoIntValue(4));
    set(opaque, "m_target", new stoPtrValue(type_of(opaque_class, "m_target"), leaf));
    set(value, "m_opaque", opaque);
    set(value, "m_leaf", new stoPrgValue(type_of(sto_class_sntHolder(), "m_leaf"), leaf));

    int calls = g_model_to_opaque_calls;
    sntHolder holder;
    {
        stoSynthesiser s;
        s.value_to_raw(value, &holder);
        ASSERT_NE(holder.m_leaf, nullptr);
        EXPECT_EQ(holder.m_leaf->m_value, 5);
        EXPECT_EQ(g_model_to_opaque_calls, calls);  // not before clean-up
        EXPECT_EQ(holder.m_opaque.m_link, nullptr);
        s.clean_up();
        EXPECT_EQ(g_model_to_opaque_calls, calls + 1);
        EXPECT_EQ(holder.m_opaque.m_link, holder.m_leaf);  // set after the model was written
        EXPECT_EQ(holder.m_opaque.m_hidden.size(), 4u);
        holder.m_opaque.m_hidden.clear();
        s.clean_up();
    }
    EXPECT_EQ(g_model_to_opaque_calls, calls + 1);
    EXPECT_TRUE(holder.m_opaque.m_hidden.empty());

    // The opaque object analyses back through its model.
    stoAnalyser a;
    holder.m_opaque.m_hidden.assign(3, 0);
    stoValue* back = a.raw_to_value(sto_type_sntHolder(), &holder);
    stoObject const* back_opaque = sto_as_object(sto_as_object(back)->member(slot(sto_class_sntHolder(), "m_opaque")));
    ASSERT_NE(back_opaque, nullptr);
    EXPECT_EQ(dynamic_cast<stoIntValue const&>(*back_opaque->member(slot(opaque_class, "m_count"))).value(), 3);
    stoPtrValue const* target = sto_as_ptr(back_opaque->member(slot(opaque_class, "m_target")));
    EXPECT_EQ(target->pointee(), sto_as_ptr(sto_as_object(back)->member(slot(sto_class_sntHolder(), "m_leaf")))->pointee());
    delete back;
    delete value;
}
