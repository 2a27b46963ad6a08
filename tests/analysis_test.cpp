// Live objects to values: null fields of every pointer kind, plain pointers
// resolved early or late, objects identified by type and address, stubs for
// stubbable objects outside the graph (application classes and members of
// the store's classes), and an analyser reused for a second root.
#include "test_support.h"

#include <gtest/gtest.h>

namespace {

stoSchema* sto_schema_alz() { return sto_test::saved_schema("analysis_test", 3); }

}  // namespace

class alzLeaf {
    STO_PERSISTENT(alzLeaf)
public:
    virtual ~alzLeaf() = default;
    int m_value = 0;
};
STO_DECLARE_CLASS(alzLeaf)

// Its first base sits at the same address as the whole object.
class alzDerived : public alzLeaf {
    STO_PERSISTENT(alzDerived)
public:
    int m_extra = 0;
};
STO_DECLARE_CLASS(alzDerived)

// A stubbable application class: named within an optional folder.
class alzNamed;
STO_DECLARE_CLASS(alzNamed)

class alzNamed : public stoStubbable {
    STO_PERSISTENT(alzNamed)
public:
    explicit alzNamed(char const* name = "", alzNamed* folder = nullptr) : m_name(name), m_folder(folder) {}
    stoValue* create_stub() const override
    {
        return new stoStub(sto_type_alzNamed(), nullptr, new stoStringValue(m_name));
    }
    stoRawPtr stub_parent() const override
    {
        return m_folder ? stoRawPtr(sto_type_alzNamed(), m_folder, static_cast<int>(sizeof(alzNamed))) : stoRawPtr();
    }
    stoRawPtr stub_id() const override { return stoRawPtr(sto_type_utString(), &m_name, static_cast<int>(sizeof m_name)); }
    utString m_name;
    alzNamed* m_folder;
};
STO_DECLARE_CLASS(alzNamed)

class alzRoot {
    STO_PERSISTENT(alzRoot)
public:
    virtual ~alzRoot()
    {
        delete m_owned_leaf;
        delete m_owned_named;
    }
    alzLeaf* m_before = nullptr;           // plain, written before its target
    alzLeaf* m_owned_leaf = nullptr;       // owning
    alzLeaf* m_after = nullptr;            // plain, written after its target
    alzLeaf* m_outside = nullptr;          // plain, to a leaf no owner reaches
    alzNamed* m_owned_named = nullptr;     // owning, stubbable
    alzNamed* m_to_owned_named = nullptr;  // plain
    alzNamed* m_ref_a = nullptr;           // plain, to a named object outside
    alzNamed* m_ref_b = nullptr;           // plain, to the same one
    stoMember const* m_member = nullptr;   // plain, to a member of a class
    coPrf<alzLeaf> m_counted;
    coPrf<alzNamed> m_shared_named;        // counted, stubbable
    stoTypeHandle m_handle;
    alzLeaf m_embedded;
    alzLeaf* m_to_embedded = nullptr;
};
STO_DECLARE_CLASS(alzRoot)

STO_CLASS(alzLeaf, sto_schema_alz())
{
    STO_MEMBER(m_value);
}

STO_CLASS(alzDerived, sto_schema_alz())
{
    STO_BASE(alzLeaf);
    STO_MEMBER(m_extra);
}

STO_CLASS(alzNamed, sto_schema_alz())
{
    STO_BASE(stoStubbable);
    STO_MEMBER(m_name);
    STO_MEMBER(m_folder);
}

STO_CLASS(alzRoot, sto_schema_alz())
{
    STO_MEMBER(m_before);
    STO_OWNING_PTR(m_owned_leaf);
    STO_MEMBER(m_after);
    STO_MEMBER(m_outside);
    STO_OWNING_PTR(m_owned_named);
    STO_MEMBER(m_to_owned_named);
    STO_MEMBER(m_ref_a);
    STO_MEMBER(m_ref_b);
    STO_MEMBER(m_member);
    STO_MEMBER(m_counted);
    STO_MEMBER(m_shared_named);
    STO_MEMBER(m_handle);
    STO_MEMBER(m_embedded);
    STO_MEMBER(m_to_embedded);
}

namespace {

stoValue const* member(stoValue const* object, char const* name)
{
    stoObject const* o = sto_as_object(object);
    stoMemberHandle h = o->type()->find_member(o->type()->name(), name);
    return h.invalid() ? nullptr : o->member(h);
}
stoPtrValue const* pointer(stoValue const* object, char const* name) { return sto_as_ptr(member(object, name)); }
stoTypeHandle root_member_type(char const* name)
{
    stoClass const* c = sto_class_alzRoot();
    return c->member(c->find_member("alzRoot", name))->type();
}
utString string_of(stoValue const* v) { return dynamic_cast<stoStringValue const&>(*v).value(); }

}  // namespace

TEST(Analysis, NullFieldsGiveNullPointerValuesOfTheFieldsType)
{
    alzRoot root;
    stoAnalyser a;
    stoValue* value = a.raw_to_value(sto_type_alzRoot(), &root);
    ASSERT_NE(value, nullptr);
    char const* fields[] = {"m_before", "m_owned_leaf", "m_counted", "m_handle"};
    for (char const* name : fields) {
        stoPtrValue const* p = pointer(value, name);
        ASSERT_NE(p, nullptr) << name;
        EXPECT_EQ(p->pointee(), nullptr) << name;
        EXPECT_TRUE(p->type() == root_member_type(name)) << name;
    }
    EXPECT_EQ(pointer(value, "m_before")->kind(), stoValue::kPtrKind);
    EXPECT_EQ(pointer(value, "m_owned_leaf")->kind(), stoValue::kPrgKind);
    EXPECT_NE(dynamic_cast<stoPrgValue const*>(pointer(value, "m_owned_leaf")), nullptr);
    stoPrfValue const* counted = dynamic_cast<stoPrfValue const*>(pointer(value, "m_counted"));
    ASSERT_NE(counted, nullptr);
    EXPECT_EQ(counted->counted().get(), nullptr);
    EXPECT_NE(dynamic_cast<stoTypeHandleValue const*>(pointer(value, "m_handle")), nullptr);
    EXPECT_EQ(a.number_of_dangling_pointers(), 0);
    delete value;
}

TEST(Analysis, PlainPointersResolveWhenTheirTargetIsMadeOrAtOnce)
{
    alzLeaf leaf;
    alzRoot fields;
    fields.m_before = &leaf;
    fields.m_after = &leaf;
    {  // field by field: the wait, then the resolution
        stoAnalyser a;
        stoValue* early_value = a.raw_to_value(root_member_type("m_before"), &fields.m_before);
        stoPtrValue const* early = sto_as_ptr(early_value);
        ASSERT_NE(early, nullptr);
        EXPECT_EQ(early->pointee(), nullptr);
        stoRawPtr waiting = a.dangling_pointer(early);
        EXPECT_EQ(waiting.ptr(), &leaf);
        EXPECT_TRUE(waiting.type() == sto_type_alzLeaf());
        stoValue* target = a.raw_to_value(sto_type_alzLeaf(), &leaf);
        EXPECT_EQ(early->pointee(), target);
        EXPECT_EQ(a.dangling_pointer(early).ptr(), nullptr);
        EXPECT_EQ(a.number_of_dangling_pointers(), 0);
        stoValue* late = a.raw_to_value(root_member_type("m_after"), &fields.m_after);
        EXPECT_EQ(sto_as_ptr(late)->pointee(), target);
        delete late;
        delete early_value;
        delete target;
    }
}

TEST(Analysis, AnObjectIsItsTypeAndAddress)
{
    alzRoot root;
    root.m_to_embedded = &root.m_embedded;
    stoAnalyser a;
    stoValue* value = a.raw_to_value(sto_type_alzRoot(), &root);
    stoValue const* embedded = member(value, "m_embedded");
    ASSERT_NE(sto_as_object(embedded), nullptr);
    EXPECT_EQ(pointer(value, "m_to_embedded")->pointee(), embedded);
    delete value;

    // A first base shares the object's address, yet it is another object.
    alzDerived derived;
    ASSERT_EQ(static_cast<void*>(static_cast<alzLeaf*>(&derived)), static_cast<void*>(&derived));
    stoAnalyser b;
    stoValue* whole = b.raw_to_value(sto_type_alzDerived(), &derived);
    stoValue* part = b.raw_to_value(stoRawPtr(sto_type_alzLeaf(), &derived, sto_class_alzLeaf()->size()));
    ASSERT_NE(part, nullptr);
    EXPECT_NE(part, whole);
    EXPECT_EQ(sto_as_object(part)->type(), sto_class_alzLeaf());
    EXPECT_EQ(b.raw_to_value(sto_type_alzDerived(), &derived), whole);
    delete part;
    delete whole;
}

TEST(Analysis, OnlyStubbableObjectsOutsideTheGraphBecomeStubs)
{
    alzLeaf outside_leaf;
    alzNamed folder("folder");
    alzNamed outside("outside", &folder);
    alzRoot root;
    root.m_outside = &outside_leaf;
    root.m_owned_named = new alzNamed("owned", &folder);
    root.m_to_owned_named = root.m_owned_named;
    root.m_ref_a = &outside;
    root.m_ref_b = &outside;

    stoAnalyser a;
    stoValue* value = a.raw_to_value(sto_type_alzRoot(), &root);
    EXPECT_EQ(pointer(value, "m_ref_a")->pointee(), nullptr);  // still waiting
    a.stub_dangling_pointers();

    // Owned before the stub mode: written whole, and the plain pointer to it agrees.
    stoValue const* owned = pointer(value, "m_owned_named")->pointee();
    ASSERT_NE(sto_as_object(owned), nullptr);
    EXPECT_EQ(string_of(member(owned, "m_name")), "owned");
    EXPECT_EQ(pointer(value, "m_to_owned_named")->pointee(), owned);

    stoStub const* stub = sto_as_stub(pointer(value, "m_ref_a")->pointee());
    ASSERT_NE(stub, nullptr);
    EXPECT_EQ(pointer(value, "m_ref_b")->pointee(), stub);
    EXPECT_TRUE(stub->type() == sto_type_alzNamed());
    EXPECT_EQ(string_of(stub->id()), "outside");
    stoStub const* parent = sto_as_stub(stub->parent());
    ASSERT_NE(parent, nullptr);
    EXPECT_EQ(string_of(parent->id()), "folder");
    EXPECT_EQ(parent->parent(), nullptr);
    // The owned object's folder pointer is resolved to the folder's stub.
    EXPECT_EQ(pointer(owned, "m_folder")->pointee(), parent);

    stoPtrValue const* lost = pointer(value, "m_outside");
    EXPECT_EQ(lost->pointee(), nullptr);
    EXPECT_EQ(a.dangling_pointer(lost).ptr(), &outside_leaf);
    EXPECT_EQ(a.number_of_dangling_pointers(), 1);
    delete value;
}

// A member, or a class in a type handle, outside the graph: one chain of
// stubs from the system down, shared by both.
TEST(Analysis, MembersAndClassesOutsideTheGraphAreNamedByTheirPath)
{
    stoClassMemberIT it(sto_class_alzLeaf());
    ASSERT_TRUE(++it);
    alzRoot root;
    root.m_member = it();
    root.m_handle = sto_type_alzLeaf();
    stoAnalyser a;
    stoValue* value = a.raw_to_value(sto_type_alzRoot(), &root);
    a.stub_dangling_pointers();
    EXPECT_EQ(a.number_of_dangling_pointers(), 0);
    stoStub const* m = sto_as_stub(pointer(value, "m_member")->pointee());
    ASSERT_NE(m, nullptr);
    EXPECT_TRUE(m->type() == sto_type_stoMember());
    EXPECT_EQ(string_of(m->id()), "m_value");
    stoStub const* cls = sto_as_stub(m->parent());
    ASSERT_NE(cls, nullptr);
    EXPECT_TRUE(cls->type() == sto_type_stoClass());
    EXPECT_EQ(string_of(cls->id()), "alzLeaf");
    EXPECT_EQ(pointer(value, "m_handle")->pointee(), cls);
    stoStub const* schema = sto_as_stub(cls->parent());
    ASSERT_NE(schema, nullptr);
    utString name;
    int version = 0;
    stoValueUtils(schema->id()).find_schema_name_version(name, version);
    EXPECT_EQ(name, "analysis_test");
    EXPECT_EQ(version, 3);  // not the system's version, 1
    stoStub const* system = sto_as_stub(schema->parent());
    ASSERT_NE(system, nullptr);
    EXPECT_TRUE(system->type() == sto_type_stoSystem());
    EXPECT_EQ(system->parent(), nullptr);
    EXPECT_EQ(dynamic_cast<stoIntValue const&>(*system->id()).value(), sto_system()->version());
    delete value;
    a.destroy_stubs();
}

TEST(Analysis, OneAnalyserReusesValuesAcrossRootsAndForgetsDestroyedStubs)
{
    alzNamed outside("outside");
    alzRoot first;
    first.m_owned_leaf = new alzLeaf;
    first.m_counted = coPrf<alzLeaf>(new alzLeaf);
    first.m_ref_a = &outside;
    alzRoot second;
    second.m_before = first.m_owned_leaf;
    second.m_counted = first.m_counted;
    second.m_ref_a = &outside;

    stoAnalyser a;
    stoValue* one = a.raw_to_value(sto_type_alzRoot(), &first);
    a.stub_dangling_pointers();
    stoStub const* old_stub = sto_as_stub(pointer(one, "m_ref_a")->pointee());
    ASSERT_NE(old_stub, nullptr);
    EXPECT_EQ(a.raw_to_value(sto_type_alzRoot(), &first), one);
    a.destroy_stubs();

    stoValue* two = a.raw_to_value(sto_type_alzRoot(), &second);
    EXPECT_EQ(pointer(two, "m_before")->pointee(), pointer(one, "m_owned_leaf")->pointee());
    auto counted = [](stoValue const* root) {
        return dynamic_cast<stoPrfValue const*>(pointer(root, "m_counted"));
    };
    ASSERT_NE(counted(two)->pointee(), nullptr);
    EXPECT_EQ(counted(two)->counted().ref(), counted(one)->counted().ref());
    // The destroyed stub is not found again: the pointer waits for a new one.
    EXPECT_EQ(pointer(two, "m_ref_a")->pointee(), nullptr);
    a.stub_dangling_pointers();
    stoStub const* fresh = sto_as_stub(pointer(two, "m_ref_a")->pointee());
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(string_of(fresh->id()), "outside");
    delete one;
    delete two;
}

// Once the stub mode is on, an owning or counted pointer to a stubbable object
// is given the analyser's stub. The stub must still be freed exactly once:
// either by the analyser or by the pointer, not by both.
TEST(Analysis, OwnedStubbableObjectsOfALaterRootAreFreedOnce)
{
    alzNamed outside("outside");
    alzRoot first;
    first.m_ref_a = &outside;
    alzRoot second;
    second.m_owned_named = new alzNamed("owned");
    second.m_shared_named = coPrf<alzNamed>(new alzNamed("shared"));
    stoAnalyser a;
    stoValue* one = a.raw_to_value(sto_type_alzRoot(), &first);
    a.stub_dangling_pointers();  // the stub mode stays on for the next root
    stoValue* two = a.raw_to_value(sto_type_alzRoot(), &second);
    EXPECT_NE(pointer(two, "m_owned_named")->pointee(), nullptr);
    EXPECT_NE(pointer(two, "m_shared_named")->pointee(), nullptr);
    delete two;
    delete one;
    a.destroy_stubs();
}
