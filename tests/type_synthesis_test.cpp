// Resolving stubs to the live meta objects they name: schemas by identity,
// classes and basic types by name, members within their class; and the
// failures for schemas and classes that do not exist.
#include "test_support.h"

#include <gtest/gtest.h>

namespace {

stoSchema* sto_schema_tsy() { return sto_test::saved_schema("type_synthesis_test", 2); }

}  // namespace

class tsyBase {
    STO_PERSISTENT(tsyBase)
public:
    virtual ~tsyBase() = default;
    int m_inherited = 0;
};
STO_DECLARE_CLASS(tsyBase)

class tsyHolder : public tsyBase {
    STO_PERSISTENT(tsyHolder)
public:
    stoTypeHandle m_kind;
    stoTypeHandle m_basic;
    stoMember const* m_member = nullptr;
    stoClass const* m_class = nullptr;
};
STO_DECLARE_CLASS(tsyHolder)

STO_CLASS(tsyBase, sto_schema_tsy())
{
    STO_MEMBER(m_inherited);
}

STO_CLASS(tsyHolder, sto_schema_tsy())
{
    STO_BASE(tsyBase);
    STO_MEMBER(m_kind);
    STO_MEMBER(m_basic);
    STO_MEMBER(m_member);
    STO_MEMBER(m_class);
}

TEST(TypeSynthesis, StubsOfClassesBasicTypesAndMembersResolveToTheLiveObjects)
{
    stoClassMemberIT members(sto_class_tsyHolder());
    ASSERT_TRUE(++members);
    tsyHolder original;
    original.m_kind = sto_type_tsyBase();
    original.m_basic = sto_type_double();
    original.m_member = members();
    original.m_class = sto_class_tsyBase();

    stoAnalyser analyser;
    stoValue* root = analyser.raw_to_value(sto_type_tsyHolder(), &original);
    analyser.stub_dangling_pointers();
    ASSERT_NE(root, nullptr);

    tsyHolder copy;
    {
        stoTypeSynthesiser synthesiser;
        synthesiser.synthesise(root, &copy);
    }
    // A type-handle slot receives the handle, a plain pointer slot the address.
    EXPECT_TRUE(copy.m_kind == sto_type_tsyBase());
    EXPECT_EQ(copy.m_kind.type(), sto_type_tsyBase().type());
    EXPECT_EQ(copy.m_basic.type(), sto_type_double().type());
    EXPECT_EQ(copy.m_member, original.m_member);
    EXPECT_EQ(copy.m_class, sto_class_tsyBase());

    // The plain synthesiser leaves stubbed fields alone.
    tsyHolder untouched;
    {
        stoSynthesiser plain;
        plain.synthesise(root, &untouched);
    }
    EXPECT_TRUE(untouched.m_kind.is_null());
    EXPECT_EQ(untouched.m_member, nullptr);
    delete root;
}

namespace {

// A class stub over a schema stub over the system stub, made by hand.
struct StubChain {
    stoStub* system;
    stoStub* schema;
    stoStub* cls;
    StubChain(char const* schema_name, int version, char const* class_name)
    {
        system = new stoStub(sto_type_stoSystem(), nullptr, new stoIntValue(1));
        stoSchemaID id(schema_name, version);
        stoAnalyser a;
        stoValue* id_value = a.raw_to_value(sto_type_stoSchemaID(), &id);
        schema = new stoStub(sto_type_stoSchema(), system, id_value);
        cls = new stoStub(sto_type_stoClass(), schema, new stoStringValue(class_name));
    }
    ~StubChain()
    {
        delete cls;
        delete schema;
        delete system;
    }
};

}  // namespace

TEST(TypeSynthesis, MissingSchemasAndClassesAreReported)
{
    sto_class_tsyHolder();
    stoTypeOwner handle_type(stoTypeHandleType::make());
    stoTypeHandle out;
    auto look_up = [&](char const* schema, int version, char const* cls) {
        StubChain chain(schema, version, cls);
        stoTypeSynthesiser().look_up_stub(stoRWRawPtr(handle_type, &out, handle_type->size()), chain.cls);
    };
    using sto_test::caught;
    auto no_schema = caught<stoMissingSchemaException>([&] { look_up("type_synthesis_test", 5, "tsyHolder"); });
    ASSERT_NE(no_schema, nullptr);
    EXPECT_EQ(no_schema->schema_name(), "type_synthesis_test");
    EXPECT_EQ(no_schema->version(), 5);
    auto no_class = caught<stoMissingClassException>([&] { look_up("type_synthesis_test", 2, "tsyAbsent"); });
    ASSERT_NE(no_class, nullptr);
    EXPECT_EQ(no_class->class_id(), "tsyAbsent");
    EXPECT_EQ(no_class->schema_name(), "type_synthesis_test");
    EXPECT_EQ(no_class->schema_version(), 2);
    EXPECT_TRUE(out.is_null());

    look_up("type_synthesis_test", 2, "tsyHolder");
    EXPECT_EQ(out.type(), sto_type_tsyHolder().type());
    // A stub of a kind that names nothing leaves the slot untouched.
    stoStub odd(sto_type_stoBase(), nullptr, new stoIntValue(3));
    stoTypeSynthesiser().look_up_stub(stoRWRawPtr(handle_type, &out, handle_type->size()), &odd);
    EXPECT_EQ(out.type(), sto_type_tsyHolder().type());

    // Only the class's own members are found by name.
    EXPECT_NE(find_class_member(sto_class_tsyHolder(), "m_kind"), nullptr);
    EXPECT_EQ(find_class_member(sto_class_tsyHolder(), "m_inherited"), nullptr);
    EXPECT_NE(find_class_member(sto_class_tsyBase(), "m_inherited"), nullptr);
    EXPECT_EQ(find_class_member(sto_class_tsyHolder(), ""), nullptr);
    EXPECT_EQ(find_class_member(nullptr, "m_kind"), nullptr);
}
