// The value layer at its edges: fakes whose copy fails, the identities of
// stubs (mappers included), the hashes and equalities of pointer and mapped
// types, the persisted form of the value classes,
// and value graphs converted back into live values.
#include "test_support.h"

#include <gtest/gtest.h>

namespace {

stoSchema* sto_schema_vct() { return sto_test::saved_schema("values_conformance_test", 1); }

int g_copies = 0;
int g_failures_left = 0;

}  // namespace

class vctModel {
    STO_PERSISTENT(vctModel)
public:
    virtual ~vctModel() = default;
    int m_count = 0;
};
STO_DECLARE_CLASS(vctModel)

class vctOpaque {
    STO_PERSISTENT(vctOpaque)
public:
    virtual ~vctOpaque() = default;
    int m_hidden = 0;
};
STO_DECLARE_CLASS(vctOpaque)

void sto_opaque_to_model(vctOpaque const& opaque, vctModel& model) { model.m_count = opaque.m_hidden; }

void sto_model_to_opaque(vctModel const& model, vctOpaque& opaque)
{
    ++g_copies;
    if (g_failures_left > 0) {
        --g_failures_left;
        throw new stoIntTooBigException();
    }
    opaque.m_hidden = model.m_count;
}

STO_DECLARE_CLASS_MAPPER(vctOpaque, vctModel)
STO_CLASS_MAPPER(vctOpaque, vctModel, sto_schema_vct())

STO_CLASS(vctModel, sto_schema_vct())
{
    STO_MEMBER(m_count);
}

STO_CLASS_MAPPED(vctOpaque, sto_schema_vct(), sto_mapper_stoMappervctOpaquevctModel())
{
    STO_MEMBERS_OF_MODEL(vctModel);
}

namespace {

stoObject* opaque_value(int n)
{
    stoClass const* cls = sto_class_vctOpaque();
    stoObject* v = new stoObject(cls);
    v->set_member(cls->find_member(cls->name(), "m_count"), new stoIntValue(n));
    return v;
}

}  // namespace

// A copy from the fake that fails at clean-up leaves the fake not applied:
// the synthesiser tries once more when it goes, and swallows that failure.
TEST(ValuesConformance, AFakeWhoseCopyFailsIsRetriedOnceWhenTheSynthesiserGoes)
{
    stoObject* value = opaque_value(7);
    vctOpaque target;
    g_copies = 0;
    g_failures_left = 2;
    {
        stoSynthesiser s;
        s.value_to_raw(value, &target);
        stoException* thrown = nullptr;
        try {
            s.clean_up();
        } catch (stoException* e) {
            thrown = e;
        }
        ASSERT_NE(thrown, nullptr);
        delete thrown;
        EXPECT_EQ(g_copies, 1);
    }
    EXPECT_EQ(g_copies, 2);
    EXPECT_EQ(target.m_hidden, 0);

    // Once a copy succeeds, neither a second clean-up nor the end copies again.
    g_copies = 0;
    g_failures_left = 0;
    {
        stoSynthesiser s;
        s.synthesise(value, &target);
        s.clean_up();
    }
    EXPECT_EQ(g_copies, 1);
    EXPECT_EQ(target.m_hidden, 7);
    delete value;
}

namespace {

std::string id_text(stoValue const* id)
{
    if (stoStringValue const* s = dynamic_cast<stoStringValue const*>(id))
        return s->value().str();
    if (stoIntValue const* i = dynamic_cast<stoIntValue const*>(id))
        return std::to_string(i->value());
    if (stoObject const* o = sto_as_object(id)) {
        utString name;
        int version = -5;
        stoValueUtils(o).find_schema_name_version(name, version);
        return o->type()->name().str() + "{" + name.str() + "," + std::to_string(version) + "}";
    }
    return "?";
}

// "Class(id)<-parent..." along the chain of parents.
std::string chain(stoValue const* v)
{
    std::string out;
    for (stoStub const* s = sto_as_stub(v); s; s = sto_as_stub(s->parent())) {
        stoObjectPtr t = s->type()->sto_object();
        stoClass const* cls = stoClass::sto_dynamic_cast(t.type(), t.ptr());
        out += cls ? cls->name().str() : std::string("?");
        out += "(" + id_text(s->id()) + ")";
        if (s->parent())
            out += "<-";
    }
    return out;
}

}  // namespace

TEST(ValuesConformance, MadeStubsNameTheObjectBySchemaAndName)
{
    stoValue* system = sto_system()->create_stub();
    stoValue* schema = sto_schema_vct()->create_stub();
    stoValue* cls = sto_class_vctModel()->create_stub();
    stoClassMemberIT it(sto_class_vctModel());
    ASSERT_TRUE(++it);
    stoValue* member = it()->create_stub();
    EXPECT_EQ(chain(system), "stoSystem(1)");
    EXPECT_EQ(chain(schema), "stoSchema(stoSchemaID{values_conformance_test,1})");
    EXPECT_EQ(chain(cls), "stoClass(vctModel)<-stoSchema(stoSchemaID{values_conformance_test,1})");
    EXPECT_EQ(chain(member), "stoMember(m_count)<-stoClass(vctModel)<-stoSchema(stoSchemaID{values_conformance_test,1})");
    for (stoValue* v : {system, schema, cls, member})
        sto_delete_stub_chain(v);
}

TEST(ValuesConformance, PointerAndMappedTypesCompareByKindAndHashByTheirParts)
{
    stoTypeHandle plain = stoPtrType::make(sto_type_vctModel());
    stoTypeHandle plain2 = stoPtrType::make(sto_type_vctModel());
    stoTypeHandle owning = stoPrgType::make(sto_type_vctModel());
    stoTypeHandle counted = stoPrfType::make(sto_type_vctModel());
    stoTypeHandle other = stoPtrType::make(sto_type_vctOpaque());
    EXPECT_TRUE(plain == plain2);
    EXPECT_FALSE(plain == owning);
    EXPECT_FALSE(owning == counted);
    EXPECT_FALSE(plain == other);
    EXPECT_EQ(co_hash(plain), sto_scramble(co_hash(sto_type_vctModel()), 13));
    EXPECT_EQ(co_hash(counted), co_hash(plain));
    EXPECT_EQ(counted->size(), 2 * static_cast<int>(sizeof(void*)));
    EXPECT_EQ(plain->size(), static_cast<int>(sizeof(void*)));

    stoMapper const* mapper = sto_mapper_stoMappervctOpaquevctModel();
    stoTypeHandle small = stoMappedType::make(mapper, 4);
    stoTypeHandle big = stoMappedType::make(mapper, 400);
    EXPECT_TRUE(small == big);
    EXPECT_EQ(co_hash(small), sto_scramble(co_hash(*sto_schema_vct()), 5) | co_hash(mapper->name()));
    stoTypeOwner standard(stoMappedType::make(sto_mapper_stoStandardMapper(), 4));
    EXPECT_FALSE(small == standard);

    int x = 0;
    stoRawPtr p(sto_type_int(), &x, 4);
    EXPECT_EQ(co_hash(p), co_hash_pointer(&x) ^ sto_scramble(co_hash(sto_type_int()), 7));
    EXPECT_TRUE(p == stoRawPtr(sto_type_int(), &x, 8));
    EXPECT_FALSE(p == stoRawPtr(sto_type_double(), &x, 4));
    stoRawPtrstoValuePtrcoTable values(4, 50);
    stoIntValue v(1);
    values[p] = &v;
    EXPECT_NE(values.find(stoRawPtr(sto_type_int(), &x, 8)), nullptr);
    EXPECT_EQ(values.find(stoRawPtr(sto_type_double(), &x, 4)), nullptr);
    for (stoTypeHandle const& t : {plain, plain2, owning, counted, other, small, big})
        delete t.type();
}

// A mapper shares its name with its own persistent class, which is a named
// type of the same schema; its stub must still name the mapper.
TEST(ValuesConformance, AStubbedMapperIsAMapperStubEvenWhenAClassHasItsName)
{
    stoMapper const* mapper = sto_mapper_stoMappervctOpaquevctModel();
    ASSERT_EQ(sto_schema_vct()->look_up_object(mapper->name()), sto_class_stoMappervctOpaquevctModel());
    stoAnalyser analyser;
    analyser.set_stub_mode(1);
    stoValue* stub = analyser.raw_to_value(stoRawPtr(mapper->sto_object()));
    std::string named = "stoMappervctOpaquevctModel(stoMappervctOpaquevctModel)<-stoSchema(stoSchemaID{values_conformance_test,1})";
    EXPECT_EQ(chain(stub), named + "<-stoSystem(1)");
    // Reading the stub back finds the mapper, not the class of its name.
    stoTypeOwner field_type(stoPtrType::make(sto_type_stoMapper()));
    stoMapper const* found = nullptr;
    stoTypeSynthesiser().look_up_stub(stoRWRawPtr(field_type, &found, field_type->size()),
                                      static_cast<stoStub const*>(stub));
    EXPECT_EQ(found, mapper);
    stoValue* made = mapper->create_stub();
    EXPECT_EQ(chain(made), named);
    sto_delete_stub_chain(made);
    analyser.destroy_stubs();
}

// A value graph is itself persisted under these names, in this order.
TEST(ValuesConformance, ValueClassesDeclareTheirBasesAndMembersInOrder)
{
    using sto_test::members_of;
    struct Row {
        stoClass const* (*cls)();
        std::string base;
        std::vector<std::string> members;
    };
    std::string array = "var(prg(stoValue))";
    std::vector<Row> const rows = {
        {sto_class_stoValue, "", {"m_type:handle"}},
        {sto_class_stoIntValue, "stoValue", {"m_value:int"}},
        {sto_class_stoDoubleValue, "stoValue", {"m_value:double"}},
        {sto_class_stoStringValue, "stoValue", {"m_value:utString"}},
        {sto_class_stoByteArrayValue, "stoValue", {"m_value:stoByteArray"}},
        {sto_class_stoObject, "stoValue", {"m_class:ptr(stoClass)", "m_member_values:" + array}},
        {sto_class_stoArrayValue, "stoValue", {"m_n_elements:int", "m_array:" + array}},
        {sto_class_stoMappedValue, "stoValue", {"m_mapper:ptr(stoMapper)", "m_n_elements:int", "m_array:" + array}},
        {sto_class_stoStub, "stoValue", {"m_parent:ptr(stoValue)", "m_id:prg(stoValue)"}},
        {sto_class_stoPtrValue, "stoValue", {"m_value:ptr(stoValue)"}},
        {sto_class_stoPrgValue, "stoPtrValue", {"m_value:prg(stoValue)"}},
        {sto_class_stoPrfValue, "stoPtrValue", {"m_value:prf(stoValue)"}},
        {sto_class_stoTypeHandleValue, "stoPtrValue", {}},
        {sto_class_stoClassMapper, "stoMapper", {}},
    };
    for (Row const& row : rows) {
        stoClass const* c = row.cls();
        SCOPED_TRACE(c->name().str());
        std::vector<std::string> bases;
        stoClassBaseIT it(c);
        while (++it)
            bases.push_back(it()->base_class()->name().str());
        EXPECT_EQ(bases, row.base.empty() ? std::vector<std::string>{} : std::vector<std::string>{row.base});
        EXPECT_EQ(members_of(c), row.members);
    }
    EXPECT_TRUE(sto_class_stoValue()->is_abstract());

    // The 64-bit number is the store's int over 8 bytes; the member slots
    // are counted by the function named "inherited_members".
    stoClass const* int_value = sto_class_stoIntValue();
    stoMember const* number = int_value->member(int_value->find_member("stoIntValue", "m_value"));
    EXPECT_EQ(number->size(), 8);
    EXPECT_TRUE(number->type() == sto_type_int());
    stoClass const* object = sto_class_stoObject();
    stoTypeHandle slots = object->member(object->find_member("stoObject", "m_member_values"))->type();
    stoObjectPtr so = slots->sto_object();
    stoVariableArrayType const* var = stoVariableArrayType::sto_dynamic_cast(so.type(), so.ptr());
    ASSERT_NE(var, nullptr);
    stoObjectPtr no = var->array_size()->sto_object();
    stoMethodArraySize const* by_method = stoMethodArraySize::sto_dynamic_cast(no.type(), no.ptr());
    ASSERT_NE(by_method, nullptr);
    EXPECT_EQ(by_method->method_name(), "inherited_members");
}

// Values are persistent objects themselves: a graph of values converts to
// values and back into live values, which are then deleted as any other.
TEST(ValuesConformance, AValueGraphConvertsBackIntoLiveValues)
{
    int checks = sto_value_allocator_checks(1);
    sto_finish_values();
    stoObject* live = opaque_value(42);
    stoArrayValue* list = new stoArrayValue(stoFixedArrayType::make(sto_type_int(), 2), 2);
    list->set_element(0, new stoIntValue(5));
    {
        stoAnalyser analyser;
        stoValue* graph = analyser.raw_to_value(stoRawPtr(live->sto_object()));
        stoValue* graph2 = analyser.raw_to_value(stoRawPtr(list->sto_object()));
        ASSERT_NE(graph, nullptr);
        analyser.stub_dangling_pointers();
        stoObject* back = static_cast<stoObject*>(sto_class_stoObject()->create());
        stoArrayValue* back2 = static_cast<stoArrayValue*>(sto_class_stoArrayValue()->create());
        {
            stoTypeSynthesiser s;
            s.synthesise(graph, back);
            s.synthesise(graph2, back2);
        }
        EXPECT_EQ(back->type(), sto_class_vctOpaque());
        ASSERT_EQ(back->number_of_children(), 1);
        stoIntValue const* n = dynamic_cast<stoIntValue const*>(back->child(0));
        ASSERT_NE(n, nullptr);
        EXPECT_EQ(n->value(), 42);
        ASSERT_EQ(back2->number_of_elements(), 2);
        EXPECT_EQ(back2->element(1), nullptr);
        EXPECT_EQ(static_cast<stoIntValue const*>(back2->element(0))->value(), 5);
        delete back;
        delete back2;
        delete graph;
        delete graph2;
        analyser.destroy_stubs();
    }
    delete live;
    delete list->type().type();
    delete list;
    sto_value_allocator_checks(checks);
}
