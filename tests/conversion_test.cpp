// The value graph and the conversion of live objects to values and back, over one set of classes:
// values and their owners (leaks and double frees are the sanitizers' to find), stubs, analysis of
// pointers and identities, and synthesis with sharing, cycles, opaque classes, stubs and failures part-way.
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <string>
#include <vector>

using namespace sto_test;

namespace {

stoSchema* sto_schema_cnv() { return saved_schema("conversion_test", 3); }

int g_live_leaves = 0;
int g_model_to_opaque_calls = 0;
int g_model_to_opaque_failures = 0;  // how many of the next copies throw

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

// Its first base sits at the same address as the whole object.
class cnvDerived : public cnvLeaf {
    STO_PERSISTENT(cnvDerived)
public:
    int m_extra = 0;
};
STO_DECLARE_CLASS(cnvDerived)

// A stubbable application class: named within an optional folder.
class cnvNamed;
STO_DECLARE_CLASS(cnvNamed)

class cnvNamed : public stoStubbable {
    STO_PERSISTENT(cnvNamed)
public:
    explicit cnvNamed(char const* name = "", cnvNamed* folder = nullptr) : m_name(name), m_folder(folder) {}
    stoValue* create_stub() const override
    {
        return new stoStub(sto_type_cnvNamed(), nullptr, new stoStringValue(m_name));
    }
    stoRawPtr stub_parent() const override
    {
        return m_folder ? stoRawPtr(sto_type_cnvNamed(), m_folder, int(sizeof(cnvNamed))) : stoRawPtr();
    }
    stoRawPtr stub_id() const override { return stoRawPtr(sto_type_utString(), &m_name, int(sizeof m_name)); }
    utString m_name;
    cnvNamed* m_folder;
};

class cnvRoot {
    STO_PERSISTENT(cnvRoot)
public:
    virtual ~cnvRoot() { delete m_owned_a; delete m_owned_named; delete[] m_numbers; delete[] m_values; }
    cnvLeaf* m_early = nullptr;            // plain, written before its target
    cnvLeaf* m_owned_a = nullptr;          // owning
    cnvLeaf* m_owned_b = nullptr;          // owning; the tests leave it unset or on m_owned_a's object
    cnvLeaf* m_late = nullptr;             // plain, written after its target
    cnvLeaf* m_outside = nullptr;          // plain, to a leaf no owner reaches
    coPrf<cnvLeaf> m_shared_a;
    coPrf<cnvLeaf> m_shared_b;
    cnvNamed* m_owned_named = nullptr;     // owning, stubbable
    cnvNamed* m_to_owned_named = nullptr;  // plain
    cnvNamed* m_ref_a = nullptr;           // plain, to a named object outside
    cnvNamed* m_ref_b = nullptr;           // plain, to the same one
    coPrf<cnvNamed> m_shared_named;        // counted, stubbable
    stoMember const* m_member = nullptr;   // plain, to a member of a class
    stoClass const* m_class = nullptr;     // plain, to a class
    stoTypeHandle m_kind;                  // a class outside the graph
    stoTypeHandle m_basic;
    cnvRoot* m_self = nullptr;  // a cycle back to the root
    cnvLeaf m_embedded;
    cnvLeaf* m_to_embedded = nullptr;
    int m_small = 77;
    long long m_wide = 0;
    utString m_text{"before"};
    utString m_null_text;
    utString m_empty_text{""};
    int m_fixed[3] = {};
    int m_guard = 0x5a5a;  // not described: must survive writes to m_fixed
    double m_pair[2] = {0, 0};
    int m_n_numbers = 0;
    long long* m_numbers = nullptr;
    int m_n_values = 0;
    double* m_values = nullptr;
    stoByteArray m_bytes;
};
STO_DECLARE_CLASS(cnvRoot)

// An opaque class whose layout the store does not see, and its model.
class cnvModel {
    STO_PERSISTENT(cnvModel)
public:
    virtual ~cnvModel() = default;
    int m_count = 0;
    cnvLeaf* m_target = nullptr;
};
STO_DECLARE_CLASS(cnvModel)

class cnvOpaque {
    STO_PERSISTENT(cnvOpaque)
public:
    virtual ~cnvOpaque() = default;
    std::vector<int> m_hidden;
    cnvLeaf* m_link = nullptr;
};
STO_DECLARE_CLASS(cnvOpaque)

class cnvHolder {
    STO_PERSISTENT(cnvHolder)
public:
    virtual ~cnvHolder() { delete m_leaf; }
    cnvOpaque m_opaque;
    cnvLeaf* m_leaf = nullptr;  // owning, written after the opaque member
};
STO_DECLARE_CLASS(cnvHolder)

// Counted pointers to one object through its whole class, a base at a non-zero offset and an unrelated class.
class cnvWeight {
    STO_PERSISTENT(cnvWeight)
public:
    virtual ~cnvWeight() = default;
    double m_weight = 0;
};
STO_DECLARE_CLASS(cnvWeight)

class cnvBoth : public cnvWeight, public cnvLeaf {
    STO_PERSISTENT(cnvBoth)
};
STO_DECLARE_CLASS(cnvBoth)

class cnvSharers {
    STO_PERSISTENT(cnvSharers)
public:
    virtual ~cnvSharers() = default;
    coPrf<cnvBoth> m_whole;
    coPrf<cnvLeaf> m_part;
    coPrf<cnvNamed> m_unrelated;
};
STO_DECLARE_CLASS(cnvSharers)

// Plain pointers at members that are not objects: written before and after
// their targets, into a fixed array, into an owned object, and at an int that
// no object of the graph holds.
class cnvNumbers {
    STO_PERSISTENT(cnvNumbers)
public:
    virtual ~cnvNumbers() { delete m_leaf; }
    int* m_to_count = nullptr;
    int* m_to_leaf_value = nullptr;
    int m_count = 0;
    double m_scale = 0;
    int m_fixed[3] = {};
    cnvLeaf* m_leaf = nullptr;  // owning
    double* m_to_scale = nullptr;
    int* m_to_element = nullptr;
    int* m_outside = nullptr;
};
STO_DECLARE_CLASS(cnvNumbers)

void sto_opaque_to_model(cnvOpaque const& opaque, cnvModel& model)
{
    model.m_count = static_cast<int>(opaque.m_hidden.size());
    model.m_target = opaque.m_link;
}

void sto_model_to_opaque(cnvModel const& model, cnvOpaque& opaque)
{
    ++g_model_to_opaque_calls;
    if (g_model_to_opaque_failures > 0) {
        --g_model_to_opaque_failures;
        throw new stoIntTooBigException();
    }
    opaque.m_hidden.assign(static_cast<std::size_t>(model.m_count), 1);
    opaque.m_link = model.m_target;
}

STO_DECLARE_CLASS_MAPPER(cnvOpaque, cnvModel)
STO_CLASS_MAPPER(cnvOpaque, cnvModel, sto_schema_cnv())

STO_CLASS(cnvLeaf, sto_schema_cnv()) { STO_MEMBER(m_value); STO_MEMBER(m_text); }
STO_CLASS(cnvDerived, sto_schema_cnv()) { STO_BASE(cnvLeaf); STO_MEMBER(m_extra); }
STO_CLASS(cnvNamed, sto_schema_cnv()) { STO_BASE(stoStubbable); STO_MEMBER(m_name); STO_MEMBER(m_folder); }
STO_CLASS(cnvModel, sto_schema_cnv()) { STO_MEMBER(m_count); STO_MEMBER(m_target); }
STO_CLASS_MAPPED(cnvOpaque, sto_schema_cnv(), sto_mapper_stoMappercnvOpaquecnvModel())
{
    STO_MEMBERS_OF_MODEL(cnvModel);
}
STO_CLASS(cnvHolder, sto_schema_cnv()) { STO_MEMBER(m_opaque); STO_OWNING_PTR(m_leaf); }
STO_CLASS(cnvWeight, sto_schema_cnv()) { STO_MEMBER(m_weight); }
STO_CLASS(cnvBoth, sto_schema_cnv()) { STO_BASE(cnvWeight); STO_BASE(cnvLeaf); }
STO_CLASS(cnvSharers, sto_schema_cnv()) { STO_MEMBER(m_whole); STO_MEMBER(m_part); STO_MEMBER(m_unrelated); }

STO_CLASS(cnvNumbers, sto_schema_cnv())
{
    STO_MEMBER(m_to_count); STO_MEMBER(m_to_leaf_value); STO_MEMBER(m_count); STO_MEMBER(m_scale);
    STO_MEMBER(m_fixed); STO_OWNING_PTR(m_leaf); STO_MEMBER(m_to_scale); STO_MEMBER(m_to_element);
    STO_MEMBER(m_outside);
}

STO_CLASS(cnvRoot, sto_schema_cnv())
{
    STO_MEMBER(m_early); STO_OWNING_PTR(m_owned_a); STO_OWNING_PTR(m_owned_b); STO_MEMBER(m_late);
    STO_MEMBER(m_outside); STO_MEMBER(m_shared_a); STO_MEMBER(m_shared_b); STO_OWNING_PTR(m_owned_named);
    STO_MEMBER(m_to_owned_named); STO_MEMBER(m_ref_a); STO_MEMBER(m_ref_b); STO_MEMBER(m_shared_named);
    STO_MEMBER(m_member); STO_MEMBER(m_class); STO_MEMBER(m_kind); STO_MEMBER(m_basic); STO_MEMBER(m_self);
    STO_MEMBER(m_embedded); STO_MEMBER(m_to_embedded); STO_MEMBER(m_small); STO_MEMBER(m_wide);
    STO_MEMBER(m_text); STO_MEMBER(m_null_text); STO_MEMBER(m_empty_text); STO_MEMBER(m_fixed);
    STO_MEMBER(m_pair); STO_SIZED_ARRAY(m_numbers, m_n_numbers); STO_SIZED_ARRAY(m_values, m_n_values);
    STO_MEMBER(m_bytes);
}

namespace {

stoTypeHandle root_type(char const* name) { return member_type(sto_class_cnvRoot(), name); }
stoMemberHandle root_slot(char const* name) { return slot(sto_class_cnvRoot(), name); }
utString string_of(stoValue const* v) { return dynamic_cast<stoStringValue const&>(*v).value(); }
int int_of(stoValue const* v) { return dynamic_cast<stoIntValue const&>(*v).value(); }
stoPrfValue const* counted(stoValue const* root, char const* name)
{
    return dynamic_cast<stoPrfValue const*>(member_value(root, name));
}

stoPrgValue* owning(stoValue* v = nullptr) { return new stoPrgValue(root_type("m_owned_a"), v); }
stoPrfValue* counted() { return new stoPrfValue(root_type("m_shared_a"), stoValuecoPrf()); }
stoPtrValue* plain(stoValue const* v = nullptr) { return new stoPtrValue(root_type("m_late"), v); }
stoObject* root_value() { return new stoObject(sto_class_cnvRoot()); }
stoValuePtrcoSet participants_of(stoValue const* v, stoValue const* already_collected = nullptr)
{
    stoValuePtrcoSet all;
    if (already_collected)
        all.add(already_collected);
    v->participants(all);
    return all;
}
stoStub* leaf_stub() { return new stoStub(sto_type_cnvLeaf(), nullptr, new stoStringValue("elsewhere")); }
stoObject* object_with(stoClass const* c, char const* name, int n)
{
    stoObject* o = new stoObject(c);
    set_member(o, name, new stoIntValue(n));
    return o;
}
stoObject* leaf_value(int n) { return object_with(sto_class_cnvLeaf(), "m_value", n); }
stoObject* opaque_value(int count) { return object_with(sto_class_cnvOpaque(), "m_count", count); }

// Analyses a root, stubs what dangles, and owns the result.
struct Analysed {
    stoAnalyser analyser;
    stoValue* root;
    Analysed(stoTypeHandle const& type, void const* object) : root(analyser.raw_to_value(type, object))
    {
        analyser.stub_dangling_pointers();
    }
    ~Analysed()
    {
        delete root;
        analyser.destroy_stubs();
    }
};

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

// "Class(id)<-parent..." along a stub's chain of parents.
std::string chain(stoValue const* v)
{
    std::string out;
    for (stoStub const* s = sto_as_stub(v); s; s = sto_as_stub(s->parent())) {
        stoObjectPtr t = s->type()->sto_object();
        stoClass const* cls = stoClass::sto_dynamic_cast(t.type(), t.ptr());
        out += (cls ? cls->name().str() : "?") + "(" + id_text(s->id()) + ")" + (s->parent() ? "<-" : "");
    }
    return out;
}

std::string const kSchemaStub = "stoSchema(stoSchemaID{conversion_test,3})";

}  // namespace

TEST(ValueModel, ParticipantsVisitSharedValuesOnceAndEndCycles)
{
    stoObject* root = root_value();
    ASSERT_EQ(root->number_of_children(), sto_class_cnvRoot()->number_of_inherited_members());
    stoObject* target = new stoObject(sto_class_cnvLeaf());
    stoPtrValue* seen = plain(target);
    root->set_member(root_slot("m_late"), seen);
    root->set_member(root_slot("m_owned_a"), owning(target));
    stoPtrValue* back = new stoPtrValue(root_type("m_self"), root);
    root->set_member(root_slot("m_self"), back);

    // Every kind of owner joins the graph; a stub's parent is not its child to
    // delete, and two counted pointers free their target once.
    root->set_member(root_slot("m_owned_b"), owning(new stoObject(sto_class_cnvLeaf())));
    stoPrfValue* shared = counted();
    shared->set_pointee(new stoDoubleValue(0.5));
    root->set_member(root_slot("m_shared_a"), shared);
    stoArrayValue* array = new stoArrayValue(root_type("m_fixed"), 3);
    stoStub* parent_stub = new stoStub(sto_type_cnvLeaf(), nullptr, new stoStringValue("parent"));
    array->set_element(0, parent_stub);
    array->set_element(1, new stoStub(sto_type_cnvLeaf(), parent_stub, new stoIntValue(2)));
    stoPrfValue* again = counted();
    again->become_clone(shared);
    stoMappedValue* mapped = new stoMappedValue(sto_type_int(), sto_mapper_stoStandardMapper(), 2);
    mapped->set_element(0, again);
    mapped->set_element(1, new stoByteArrayValue(stoByteArray(3)));
    array->set_element(2, mapped);
    root->set_member(root_slot("m_fixed"), array);
    // root, three pointers, one target; then owning + object, counted + double, array, two stubs + two
    // ids, mapped, second counted, byte array
    EXPECT_EQ(participants_of(root).size(), 5u + 12u);

    // A visit that a visitor does not take goes to the operation for the value's base class: here 8 for
    // each of the six pointers, 1 for each of the eleven other values.
    struct Visitor : stoProcessValue {
        int process_stoValue(stoValue const*) override { return 1; }
        int process_stoPtrValue(stoPtrValue const*) override { return 8; }
    } visitor;
    int codes = 0;
    for (stoValue const* v : participants_of(root))
        codes += v->process(&visitor);
    EXPECT_EQ(codes, 6 * 8 + 11);

    // The walk goes down only, and stops at a value already collected.
    EXPECT_EQ(participants_of(seen).size(), 2);
    EXPECT_FALSE(participants_of(seen).contains(root));
    EXPECT_EQ(participants_of(root, root).size(), 1);
    delete root;  // owning pointers delete their targets; the plain ones nothing
}

TEST(ValueModel, IntegersKeepSixtyFourBitsAndNarrowOnlyWhenTheyFit)
{
    EXPECT_EQ(stoIntValue(INT_MIN).value64(), static_cast<long long>(INT_MIN));
    EXPECT_EQ(stoIntValue(stoIntValue64Tag, 1LL << 31).value64(), 2147483648LL);
    EXPECT_EQ(stoIntValue(stoIntValue64Tag, INT_MAX).value(), INT_MAX);
    EXPECT_EQ(stoIntValue(stoIntValue64Tag, INT_MIN).value(), INT_MIN);
    for (long long too_big : {1LL << 31, -(1LL << 31) - 1, 1LL << 32}) {  // the last one's low word is 0
        stoIntValue v(stoIntValue64Tag, too_big);
        EXPECT_NE(caught<stoIntTooBigException>([&] { (void)v.value(); }), nullptr) << too_big;
    }
}

TEST(ValueModel, HandleHandsOwnershipToExactlyOnePointer)
{
    {  // owning pointers: the first takes it, the second gets null
        std::unique_ptr<stoPrgValue> first(owning()), second(owning());
        std::unique_ptr<stoPtrValue> early(plain());
        stoValueHandle h;
        stoValue* v = new stoIntValue(5);
        h.become(utPtrClaim, v);
        h.set_pointee(early.get());  // a plain pointer leaves ownership where it is
        EXPECT_TRUE(h.owns());
        h.set_pointee(first.get());
        h.set_pointee(second.get());
        EXPECT_EQ(first->pointee(), v);
        EXPECT_EQ(second->pointee(), nullptr);
        EXPECT_FALSE(h.owns());
    }
    // Counted pointers share one count whatever order they go in; reading the
    // value through the survivors proves it still lives.
    std::vector<int> order = {0, 1, 2};
    do {
        stoPrfValue* c[3] = {counted(), counted(), counted()};
        {
            stoValueHandle h;
            h.become(utPtrClaim, new stoIntValue(7));
            for (stoPrfValue* p : c)
                h.set_pointee(p);
        }
        EXPECT_TRUE(c[0]->counted().ref() == c[1]->counted().ref() &&
                    c[1]->counted().ref() == c[2]->counted().ref());
        for (int i : order) {
            for (stoPrfValue* p : c)
                EXPECT_TRUE(!p || int_of(p->pointee()) == 7);
            delete c[i];
            c[i] = nullptr;
        }
    } while (std::next_permutation(order.begin(), order.end()));

    {  // an owner first: the counted pointer points without owning
        stoValueHandle h;
        h.become(utPtrClaim, new stoIntValue(1));
        h.become(utPtrClaim, new stoIntValue(2));  // the first value is deleted
        stoPrgValue* owner = owning();
        stoPrfValue* sharer = counted();
        h.set_pointee(owner);
        h.set_pointee(sharer);
        EXPECT_EQ(sharer->pointee(), owner->pointee());
        delete sharer;
        EXPECT_EQ(int_of(owner->pointee()), 2);
        delete owner;
    }
    stoValueHandle unused;
    unused.become(utPtrClaim, new stoStringValue("never handed on"));
}

TEST(ValueModel, BecomeCloneSharesOnlyWhatTheKindAllows)
{
    stoPrgValue* owner = owning(new stoIntValue(3));
    stoPrgValue* other = owning();
    other->become_clone(owner);
    EXPECT_EQ(other->pointee(), nullptr);
    stoPrgValue* busy = owning(new stoIntValue(4));
    stoValue const* kept = busy->pointee();
    busy->become_clone(owner);
    EXPECT_EQ(busy->pointee(), kept);

    stoPtrValue* p = plain();
    p->become_clone(owner);
    EXPECT_EQ(p->pointee(), owner->pointee());
    stoTypeHandleValue* th = new stoTypeHandleValue(root_type("m_kind"), nullptr);
    th->become_clone(owner);
    EXPECT_EQ(th->pointee(), owner->pointee());

    stoPrfValue* a = counted();
    a->set_pointee(new stoIntValue(9));
    stoPrfValue* b = counted();
    b->become_clone(a);
    EXPECT_EQ(a->counted().count(), 2);
    delete a;
    EXPECT_EQ(int_of(b->pointee()), 9);
    for (stoValue* v : std::initializer_list<stoValue*>{b, th, p, busy, other, owner})
        delete v;
}

TEST(ValueModel, MemberValueLooksOnlyAtTheObjectsOwnMembers)
{
    stoObject object(sto_class_cnvDerived());
    stoIntValue* number = new stoIntValue(12);
    object.set_member(slot(sto_class_cnvDerived(), "m_extra"), number);
    object.set_member_at(0, new stoIntValue(1));  // the base's m_value
    stoObject root(sto_class_cnvRoot());
    struct {
        stoValue const* in;
        char const* name;
        stoValue const* found;
        int missing;
    } const cases[] = {
        {&object, "m_extra", number, 0},  {&object, "m_absent", nullptr, 1},
        {&object, "m_value", nullptr, 1},  // declared by the base
        {number, "m_extra", nullptr, 1},   {&root, "m_late", nullptr, 0},  // declared, but empty
    };
    for (auto const& c : cases) {
        int missing = -1;
        EXPECT_EQ(stoValueUtils(c.in).member_value(c.name, missing), c.found) << c.name;
        EXPECT_EQ(missing, c.missing) << c.name;
    }
}

// Pointer types of every kind hash by their pointee alone; mapped types compare and hash by their mapper.
TEST(ValuesConformance, PointerAndMappedTypesCompareByKindAndHashByTheirParts)
{
    stoTypeOwner plain(stoPtrType::make(sto_type_cnvModel())), shared(stoPrfType::make(sto_type_cnvModel()));
    EXPECT_EQ(co_hash(plain), sto_scramble(co_hash(sto_type_cnvModel()), 13));
    EXPECT_EQ(co_hash(shared), co_hash(plain));

    stoMapper const* mapper = sto_mapper_stoMappercnvOpaquecnvModel();
    stoTypeHandle small = stoMappedType::make(mapper, 4);
    stoTypeHandle big = stoMappedType::make(mapper, 400);
    EXPECT_TRUE(small == big);
    EXPECT_EQ(co_hash(small), sto_scramble(co_hash(*sto_schema_cnv()), 5) | co_hash(mapper->name()));
    stoTypeOwner standard(stoMappedType::make(sto_mapper_stoStandardMapper(), 4));
    EXPECT_FALSE(small == standard);

    int x = 0;
    stoRawPtr p(sto_type_int(), &x, 4);
    EXPECT_EQ(co_hash(p), co_hash_pointer(&x) ^ sto_scramble(co_hash(sto_type_int()), 7));
    EXPECT_TRUE(p == stoRawPtr(sto_type_int(), &x, 8));
    EXPECT_FALSE(p == stoRawPtr(sto_type_double(), &x, 4));
    stoRawPtrstoValuePtrcoTable values(4, 50);  // the size takes no part in the hash either
    values[p] = nullptr;
    EXPECT_NE(values.find(stoRawPtr(sto_type_int(), &x, 8)), nullptr);
    for (stoTypeHandle const& t : {small, big})
        delete t.type();
}

// A value graph is itself persisted under these names, in this order.
TEST(ValuesConformance, ValueClassesDeclareTheirBasesAndMembersInOrder)
{
    // "Bases: members" of each class.
    std::pair<stoClass const* (*)(), std::string> const rows[] = {
        {sto_class_stoValue, ": m_type:handle"},
        {sto_class_stoIntValue, "stoValue: m_value:int"},
        {sto_class_stoDoubleValue, "stoValue: m_value:double"},
        {sto_class_stoStringValue, "stoValue: m_value:utString"},
        {sto_class_stoByteArrayValue, "stoValue: m_value:stoByteArray"},
        {sto_class_stoObject, "stoValue: m_class:ptr(stoClass) m_member_values:var(prg(stoValue))"},
        {sto_class_stoArrayValue, "stoValue: m_n_elements:int m_array:var(prg(stoValue))"},
        {sto_class_stoMappedValue,
         "stoValue: m_mapper:ptr(stoMapper) m_n_elements:int m_array:var(prg(stoValue))"},
        {sto_class_stoStub, "stoValue: m_parent:ptr(stoValue) m_id:prg(stoValue)"},
        {sto_class_stoPtrValue, "stoValue: m_value:ptr(stoValue)"},
        {sto_class_stoPrgValue, "stoPtrValue: m_value:prg(stoValue)"},
        {sto_class_stoPrfValue, "stoPtrValue: m_value:prf(stoValue)"},
        {sto_class_stoTypeHandleValue, "stoPtrValue:"},
        {sto_class_stoClassMapper, "stoMapper:"},
    };
    for (auto const& [cls, expected] : rows) {
        std::string got;
        for (stoClassBaseIT it(cls()); ++it;)
            got += (got.empty() ? "" : " ") + it()->base_class()->name().str();
        got += ":";
        for (std::string const& m : members_of(cls()))
            got += " " + m;
        EXPECT_EQ(got, expected) << cls()->name();
    }
    EXPECT_TRUE(sto_class_stoValue()->is_abstract());

    // The 64-bit number is the store's int over 8 bytes; the member slots
    // are counted by the function named "inherited_members".
    EXPECT_EQ(sto_class_stoIntValue()->member(slot(sto_class_stoIntValue(), "m_value"))->size(), 8);
    stoObjectPtr so = member_type(sto_class_stoObject(), "m_member_values")->sto_object();
    stoVariableArrayType const* var = stoVariableArrayType::sto_dynamic_cast(so.type(), so.ptr());
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
        EXPECT_EQ(back->type(), sto_class_cnvOpaque());
        ASSERT_EQ(back->number_of_children(), 2);
        EXPECT_EQ(int_of(back->child(0)), 42);
        EXPECT_EQ(back->child(1), nullptr);
        ASSERT_EQ(back2->number_of_elements(), 2);
        EXPECT_EQ(int_of(back2->element(0)), 5);
        EXPECT_EQ(back2->element(1), nullptr);
        for (stoValue* v : std::initializer_list<stoValue*>{back, back2, graph, graph2})
            delete v;
        analyser.destroy_stubs();
    }
    delete live;
    delete list->type().type();
    delete list;
    sto_value_allocator_checks(checks);
}

TEST(Analysis, NullFieldsGiveNullPointerValuesOfTheFieldsType)
{
    cnvRoot root;
    Analysed a(sto_type_cnvRoot(), &root);
    ASSERT_NE(a.root, nullptr);
    for (char const* name : {"m_early", "m_owned_a", "m_shared_a", "m_kind"}) {
        stoPtrValue const* p = pointer_value(a.root, name);
        ASSERT_NE(p, nullptr) << name;
        EXPECT_EQ(p->pointee(), nullptr) << name;
        EXPECT_TRUE(p->type() == root_type(name)) << name;
    }
    EXPECT_EQ(pointer_value(a.root, "m_early")->kind(), stoValue::kPtrKind);
    EXPECT_NE(dynamic_cast<stoPrgValue const*>(pointer_value(a.root, "m_owned_a")), nullptr);
    EXPECT_NE(counted(a.root, "m_shared_a"), nullptr);
    EXPECT_NE(dynamic_cast<stoTypeHandleValue const*>(pointer_value(a.root, "m_kind")), nullptr);
}

TEST(Analysis, AnObjectIsItsTypeAndAddress)
{
    // A first base shares the object's address, yet it is another object.
    cnvDerived derived;
    ASSERT_EQ(static_cast<void*>(static_cast<cnvLeaf*>(&derived)), static_cast<void*>(&derived));
    stoAnalyser b;
    std::unique_ptr<stoValue> whole(b.raw_to_value(sto_type_cnvDerived(), &derived));
    std::unique_ptr<stoValue> part(
        b.raw_to_value(stoRawPtr(sto_type_cnvLeaf(), &derived, sto_class_cnvLeaf()->size())));
    ASSERT_NE(part, nullptr);
    EXPECT_NE(part, whole);
    EXPECT_EQ(sto_as_object(part.get())->type(), sto_class_cnvLeaf());
    EXPECT_EQ(b.raw_to_value(sto_type_cnvDerived(), &derived), whole.get());
}

TEST(Analysis, OnlyStubbableObjectsOutsideTheGraphBecomeStubs)
{
    cnvLeaf outside_leaf;
    cnvNamed folder("folder");
    cnvNamed outside("outside", &folder);
    cnvRoot root;
    root.m_outside = &outside_leaf;
    root.m_owned_named = root.m_to_owned_named = new cnvNamed("owned", &folder);
    root.m_ref_a = root.m_ref_b = &outside;

    stoAnalyser a;
    std::unique_ptr<stoValue> value(a.raw_to_value(sto_type_cnvRoot(), &root));
    EXPECT_EQ(pointer_value(value.get(), "m_ref_a")->pointee(), nullptr);  // still waiting
    a.stub_dangling_pointers();

    // Owned before the stub mode: written whole, and the plain pointer to it agrees.
    stoValue const* owned = pointer_value(value.get(), "m_owned_named")->pointee();
    ASSERT_NE(sto_as_object(owned), nullptr);
    EXPECT_EQ(string_of(member_value(owned, "m_name")), "owned");
    EXPECT_EQ(pointer_value(value.get(), "m_to_owned_named")->pointee(), owned);

    stoStub const* stub = sto_as_stub(pointer_value(value.get(), "m_ref_a")->pointee());
    ASSERT_NE(stub, nullptr);
    EXPECT_EQ(pointer_value(value.get(), "m_ref_b")->pointee(), stub);
    EXPECT_EQ(chain(stub), "cnvNamed(outside)<-cnvNamed(folder)");
    // The owned object's folder pointer is resolved to the folder's stub.
    EXPECT_EQ(pointer_value(owned, "m_folder")->pointee(), stub->parent());

    stoPtrValue const* lost = pointer_value(value.get(), "m_outside");
    EXPECT_EQ(lost->pointee(), nullptr);
    EXPECT_EQ(a.dangling_pointer(lost).ptr(), &outside_leaf);
    EXPECT_TRUE(a.dangling_pointer(lost).type() == sto_type_cnvLeaf());
    EXPECT_EQ(a.number_of_dangling_pointers(), 1);
}

// A mapper shares its name with its own persistent class, which is a named
// type of the same schema; its stub must still name the mapper.
TEST(ValuesConformance, AStubbedMapperIsAMapperStubEvenWhenAClassHasItsName)
{
    stoMapper const* mapper = sto_mapper_stoMappercnvOpaquecnvModel();
    ASSERT_EQ(sto_schema_cnv()->look_up_object(mapper->name()), sto_class_stoMappercnvOpaquecnvModel());
    stoAnalyser analyser;
    analyser.set_stub_mode(1);
    stoValue* stub = analyser.raw_to_value(stoRawPtr(mapper->sto_object()));
    std::string named = "stoMappercnvOpaquecnvModel(stoMappercnvOpaquecnvModel)<-" + kSchemaStub;
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

TEST(Analysis, OneAnalyserReusesValuesAcrossRootsAndForgetsDestroyedStubs)
{
    cnvNamed outside("outside");
    cnvRoot first;
    first.m_owned_a = new cnvLeaf;
    first.m_shared_a = coPrf<cnvLeaf>(new cnvLeaf);
    first.m_ref_a = &outside;
    cnvRoot second;
    second.m_early = first.m_owned_a;
    second.m_shared_a = first.m_shared_a;
    second.m_ref_a = &outside;

    stoAnalyser a;
    stoValue* one = a.raw_to_value(sto_type_cnvRoot(), &first);
    a.stub_dangling_pointers();
    EXPECT_EQ(a.raw_to_value(sto_type_cnvRoot(), &first), one);
    a.destroy_stubs();

    stoValue* two = a.raw_to_value(sto_type_cnvRoot(), &second);
    EXPECT_EQ(pointer_value(two, "m_early")->pointee(), pointer_value(one, "m_owned_a")->pointee());
    EXPECT_EQ(counted(two, "m_shared_a")->counted().ref(), counted(one, "m_shared_a")->counted().ref());
    // The destroyed stub is not found again: the pointer waits for a new one.
    EXPECT_EQ(pointer_value(two, "m_ref_a")->pointee(), nullptr);
    a.stub_dangling_pointers();
    EXPECT_EQ(chain(pointer_value(two, "m_ref_a")->pointee()), "cnvNamed(outside)");
    delete one;
    delete two;
}

// Once the stub mode is on, an owning or counted pointer to a stubbable object
// is given the analyser's stub. The stub must still be freed exactly once:
// either by the analyser or by the pointer, not by both.
TEST(Analysis, OwnedStubbableObjectsOfALaterRootAreFreedOnce)
{
    cnvNamed outside("outside");
    cnvRoot first;
    first.m_ref_a = &outside;
    cnvRoot second;
    second.m_owned_named = new cnvNamed("owned");
    second.m_shared_named = coPrf<cnvNamed>(new cnvNamed("shared"));
    stoAnalyser a;
    stoValue* one = a.raw_to_value(sto_type_cnvRoot(), &first);
    a.stub_dangling_pointers();  // the stub mode stays on for the next root
    stoValue* two = a.raw_to_value(sto_type_cnvRoot(), &second);
    EXPECT_NE(pointer_value(two, "m_owned_named")->pointee(), nullptr);
    EXPECT_NE(pointer_value(two, "m_shared_named")->pointee(), nullptr);
    delete two;
    delete one;
    a.destroy_stubs();
}

// What the sample's round trips do not hold: two owners of one object, plain pointers to it written
// before and after it, a sized array of 64-bit numbers.
TEST(Conversion, SharingOwnershipAndCyclesRoundTrip)
{
    sto_class_cnvLeaf()->build();  // prototypes live as long as their classes
    sto_class_cnvRoot()->build();
    int before = g_live_leaves;
    {
        cnvRoot root;
        root.m_early = root.m_owned_a = root.m_owned_b = root.m_late = new cnvLeaf;
        root.m_owned_a->m_value = 11;
        root.m_shared_a = root.m_shared_b = coPrf<cnvLeaf>(new cnvLeaf);
        root.m_self = &root;
        root.m_to_embedded = &root.m_embedded;
        root.m_n_numbers = 2;
        root.m_numbers = new long long[2]{-1, 1LL << 40};  // elements of 64 bits

        // One value per live object, so one leaf in the copy: the two owning pointers and the plain ones
        // lead to it, and the second owner gets none.
        Analysed a(sto_type_cnvRoot(), &root);
        cnvRoot copy;
        stoSynthesiser().synthesise(a.root, &copy);
        ASSERT_NE(copy.m_owned_a, nullptr);
        EXPECT_EQ(copy.m_owned_a->m_value, 11);
        EXPECT_EQ(copy.m_early, copy.m_owned_a);  // fixed up once its target existed
        EXPECT_EQ(copy.m_late, copy.m_owned_a);
        EXPECT_EQ(copy.m_owned_b, nullptr);
        EXPECT_EQ(copy.m_shared_a.get(), copy.m_shared_b.get());
        EXPECT_EQ(copy.m_shared_a.count(), 2);
        EXPECT_EQ(copy.m_self, &copy);
        EXPECT_EQ(copy.m_to_embedded, &copy.m_embedded);
        EXPECT_EQ(std::vector<long long>(copy.m_numbers, copy.m_numbers + copy.m_n_numbers),
                  std::vector<long long>({-1, 1LL << 40}));
    }
    EXPECT_EQ(g_live_leaves, before);
}

TEST(Conversion, AnArrayLargerThanAPoolBlockRoundTripsUnderThePool)
{
    // 200,000 slots of 8 bytes do not fit in a block of the pool a write installs.
    constexpr int n = 200000;
    sto_class_cnvLeaf()->build();
    sto_class_cnvRoot()->build();
    cnvRoot root;
    root.m_n_numbers = n;
    root.m_numbers = new long long[n];
    for (int i = 0; i < n; ++i)
        root.m_numbers[i] = (static_cast<long long>(i) << 33) - i;
    cnvRoot copy;
    {
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        Analysed a(sto_type_cnvRoot(), &root);
        stoSynthesiser().synthesise(a.root, &copy);
    }
    ASSERT_EQ(copy.m_n_numbers, n);
    EXPECT_TRUE(std::equal(root.m_numbers, root.m_numbers + n, copy.m_numbers));
}

TEST(Conversion, ACountedPointerSharesTheCountButPointsAtItsOwnBase)
{
    stoValuecoPrf both(new stoObject(sto_class_cnvBoth()));
    stoObject* root = new stoObject(sto_class_cnvSharers());
    for (char const* name : {"m_whole", "m_part", "m_unrelated"})
        set_member(root, name, new stoPrfValue(member_type(sto_class_cnvSharers(), name), both));
    {
        cnvSharers copy;
        stoSynthesiser().synthesise(root, &copy);
        ASSERT_NE(copy.m_whole.get(), nullptr);
        EXPECT_EQ(copy.m_part.get(), static_cast<cnvLeaf*>(copy.m_whole.get()));
        EXPECT_NE(static_cast<void*>(copy.m_part.get()), static_cast<void*>(copy.m_whole.get()));
        EXPECT_EQ(copy.m_whole.count(), 2);
        EXPECT_EQ(copy.m_unrelated.get(), nullptr);  // a cnvBoth is no cnvNamed
    }
    delete root;
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
    auto missing = caught<stoSchemaNotInMemoryException>([&] { s.synthesise(value, &target); });
    ASSERT_NE(missing, nullptr);
    EXPECT_EQ(missing->schema_name(), "conversion_loaded");
    EXPECT_EQ(missing->version(), 1);
    delete value;
    delete loaded;
}

namespace {

// Finds the object a stub names: here, always the one it was given.
struct StubFinder : stoSynthesiser {
    cnvLeaf* answer = nullptr;
    stoStub const* stub = nullptr;
    stoTypeHandle field_type;
    void look_up_stub(stoRWRawPtr const& f, stoStub const* s) override
    {
        stub = s;
        field_type = f.type();
        *static_cast<cnvLeaf**>(f.write_ptr()) = answer;
    }
};

}  // namespace

TEST(Synthesis, StubsAndUnwrittenTargetsLeaveFieldsAsTheyWere)
{
    cnvLeaf sentinel;
    std::unique_ptr<stoObject> value(root_value()), never_written(leaf_value(1));
    set_member(value.get(), "m_late", plain(never_written.get()));
    set_member(value.get(), "m_owned_a", owning(leaf_stub()));
    stoPrfValue* shared = counted();
    shared->set_pointee(leaf_stub());
    set_member(value.get(), "m_shared_a", shared);
    cnvRoot root;
    root.m_late = &sentinel;
    cnvLeaf* kept = root.m_owned_a = new cnvLeaf;
    root.m_shared_a = coPrf<cnvLeaf>(new cnvLeaf);
    cnvLeaf* kept_shared = root.m_shared_a.get();
    double* caller_block = root.m_values = new double[2]{1.5, 2.5};
    root.m_n_values = 2;
    stoSynthesiser().synthesise(value.get(), &root);
    EXPECT_EQ(root.m_late, &sentinel);
    EXPECT_EQ(root.m_owned_a, kept);
    EXPECT_EQ(root.m_shared_a.get(), kept_shared);
    EXPECT_EQ(root.m_shared_a.count(), 1);
    EXPECT_EQ(root.m_values, caller_block);  // a null array value writes nothing
    EXPECT_EQ(root.m_n_values, 2);

    // A synthesiser that knows where stubs live is asked, with the field.
    std::unique_ptr<stoObject> to_stub(root_value());
    std::unique_ptr<stoStub> stub(leaf_stub());
    set_member(to_stub.get(), "m_late", plain(stub.get()));
    StubFinder finder;
    finder.answer = &sentinel;
    cnvRoot other;
    finder.synthesise(to_stub.get(), &other);
    EXPECT_EQ(finder.stub, stub.get());
    EXPECT_TRUE(finder.field_type == root_type("m_late"));
    EXPECT_EQ(other.m_late, &sentinel);  // so the field's own address was given
}

TEST(Synthesis, ValuesThatDoNotFitLeaveTheirMemoryAlone)
{
    std::unique_ptr<stoObject> value(root_value());
    set_member(value.get(), "m_small", new stoStringValue("12"));
    set_member(value.get(), "m_wide", new stoDoubleValue(2.0));
    set_member(value.get(), "m_text", new stoIntValue(5));
    set_member(value.get(), "m_owned_a", new stoIntValue(6));
    stoArrayValue* five = new stoArrayValue(root_type("m_fixed"), 5);
    for (int i = 0; i < 5; ++i)
        five->set_element(i, new stoIntValue(i + 1));
    set_member(value.get(), "m_fixed", five);
    set_member(value.get(), "m_n_values", new stoIntValue(0));
    set_member(value.get(), "m_values", new stoArrayValue(root_type("m_values"), 0));
    cnvRoot root;
    cnvLeaf* kept = root.m_owned_a = new cnvLeaf;
    ASSERT_EQ(reinterpret_cast<char*>(&root.m_guard) - reinterpret_cast<char*>(root.m_fixed), 12);
    stoSynthesiser().synthesise(value.get(), &root);
    EXPECT_EQ(root.m_small, 77);
    EXPECT_EQ(root.m_wide, 0);
    EXPECT_EQ(root.m_text, "before");
    EXPECT_EQ(root.m_owned_a, kept);
    EXPECT_EQ(std::vector<int>(root.m_fixed, root.m_fixed + 3), std::vector<int>({1, 2, 3}));
    EXPECT_EQ(root.m_guard, 0x5a5a);
    EXPECT_NE(root.m_values, nullptr);  // an empty block, not no block
    EXPECT_EQ(root.m_n_values, 0);

    std::unique_ptr<stoObject> too_big(root_value());
    set_member(too_big.get(), "m_small", new stoIntValue(stoIntValue64Tag, 1LL << 33));
    cnvRoot target;
    EXPECT_NE(caught<stoIntTooBigException>([&] { stoSynthesiser().synthesise(too_big.get(), &target); }),
              nullptr);
    EXPECT_EQ(target.m_small, 77);
}

TEST(Synthesis, AnOpaqueObjectIsFilledOnceAtCleanUpWithFinalPointers)
{
    stoClass const* holder_class = sto_class_cnvHolder();
    std::unique_ptr<stoObject> value(new stoObject(holder_class));
    stoObject* leaf = leaf_value(5);
    stoObject* opaque = opaque_value(4);
    set_member(opaque, "m_target", new stoPtrValue(member_type(sto_class_cnvOpaque(), "m_target"), leaf));
    set_member(value.get(), "m_opaque", opaque);
    set_member(value.get(), "m_leaf", new stoPrgValue(member_type(holder_class, "m_leaf"), leaf));

    int calls = g_model_to_opaque_calls;
    cnvHolder holder;
    stoSynthesiser s;
    s.value_to_raw(value.get(), &holder);
    ASSERT_NE(holder.m_leaf, nullptr);
    EXPECT_EQ(g_model_to_opaque_calls, calls);  // not before clean-up
    EXPECT_EQ(holder.m_opaque.m_link, nullptr);
    s.clean_up();
    EXPECT_EQ(g_model_to_opaque_calls, calls + 1);
    EXPECT_EQ(holder.m_opaque.m_link, holder.m_leaf);  // set after the model was written
    EXPECT_EQ(holder.m_opaque.m_hidden.size(), 4u);
}

// A copy into the opaque object that fails at clean-up leaves it not filled:
// the synthesiser tries once more when it goes, and swallows that failure.
TEST(ValuesConformance, AFakeWhoseCopyFailsIsRetriedOnceWhenTheSynthesiserGoes)
{
    std::unique_ptr<stoObject> value(opaque_value(7));
    cnvOpaque target;
    int calls = g_model_to_opaque_calls;
    g_model_to_opaque_failures = 2;
    {
        stoSynthesiser s;
        s.value_to_raw(value.get(), &target);
        EXPECT_NE(caught<stoIntTooBigException>([&] { s.clean_up(); }), nullptr);
        EXPECT_EQ(g_model_to_opaque_calls, calls + 1);
    }
    EXPECT_EQ(g_model_to_opaque_calls, calls + 2);
    EXPECT_TRUE(target.m_hidden.empty());
    // Once a copy succeeds, neither a second clean-up nor the end copies again.
    {
        stoSynthesiser s;
        s.synthesise(value.get(), &target);
        s.clean_up();
    }
    EXPECT_EQ(g_model_to_opaque_calls, calls + 3);
    EXPECT_EQ(target.m_hidden.size(), 7u);
}

// A member, or a class in a type handle, outside the graph: one chain of stubs from the system down,
// shared by both, under the schema's version (3), not the system's (1). The type synthesiser resolves
// them: a type-handle slot receives the handle, a plain pointer slot the address.
TEST(TypeSynthesis, StubsOfClassesBasicTypesAndMembersResolveToTheLiveObjects)
{
    stoClassMemberIT members(sto_class_cnvLeaf());
    ASSERT_TRUE(++members);
    cnvRoot original;
    original.m_kind = sto_type_cnvLeaf();
    original.m_basic = sto_type_double();
    original.m_member = members();
    original.m_class = sto_class_cnvDerived();
    Analysed a(sto_type_cnvRoot(), &original);
    ASSERT_NE(a.root, nullptr);
    EXPECT_EQ(a.analyser.number_of_dangling_pointers(), 0);
    stoStub const* m = sto_as_stub(pointer_value(a.root, "m_member")->pointee());
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(chain(m), "stoMember(m_value)<-stoClass(cnvLeaf)<-" + kSchemaStub + "<-stoSystem(1)");
    EXPECT_EQ(pointer_value(a.root, "m_kind")->pointee(), m->parent());

    cnvRoot copy;
    stoTypeSynthesiser().synthesise(a.root, &copy);
    EXPECT_EQ(copy.m_kind.type(), sto_type_cnvLeaf().type());
    EXPECT_EQ(copy.m_basic.type(), sto_type_double().type());
    EXPECT_EQ(copy.m_member, original.m_member);
    EXPECT_EQ(copy.m_class, sto_class_cnvDerived());
    stoValue* made = original.m_member->create_stub();  // names its class and schema, not the system
    EXPECT_EQ(chain(made), "stoMember(m_value)<-stoClass(cnvLeaf)<-" + kSchemaStub);
    sto_delete_stub_chain(made);
}

// A class stub over a schema stub over the system stub, made by hand.
TEST(TypeSynthesis, MissingSchemasAndClassesAreReported)
{
    sto_class_cnvRoot();
    stoTypeOwner handle_type(stoTypeHandleType::make());
    stoTypeHandle out;
    auto look_up = [&](int version, char const* class_name) {
        std::unique_ptr<stoStub> system(new stoStub(sto_type_stoSystem(), nullptr, new stoIntValue(1)));
        stoSchemaID id("conversion_test", version);
        std::unique_ptr<stoStub> schema(new stoStub(sto_type_stoSchema(), system.get(),
                                                    stoAnalyser().raw_to_value(sto_type_stoSchemaID(), &id)));
        stoStub cls(sto_type_stoClass(), schema.get(), new stoStringValue(class_name));
        stoTypeSynthesiser().look_up_stub(stoRWRawPtr(handle_type, &out, handle_type->size()), &cls);
    };
    auto no_schema = caught<stoMissingSchemaException>([&] { look_up(5, "cnvRoot"); });
    ASSERT_NE(no_schema, nullptr);
    EXPECT_EQ(no_schema->schema_name(), "conversion_test");
    EXPECT_EQ(no_schema->version(), 5);
    auto no_class = caught<stoMissingClassException>([&] { look_up(3, "cnvAbsent"); });
    ASSERT_NE(no_class, nullptr);
    EXPECT_EQ(no_class->class_id(), "cnvAbsent");
    EXPECT_EQ(no_class->schema_name(), "conversion_test");
    EXPECT_EQ(no_class->schema_version(), 3);
    EXPECT_TRUE(out.is_null());

    look_up(3, "cnvRoot");
    EXPECT_EQ(out.type(), sto_type_cnvRoot().type());
    // A stub of a kind that names nothing leaves the slot untouched.
    stoStub odd(sto_type_stoBase(), nullptr, new stoIntValue(3));
    stoTypeSynthesiser().look_up_stub(stoRWRawPtr(handle_type, &out, handle_type->size()), &odd);
    EXPECT_EQ(out.type(), sto_type_cnvRoot().type());

    // Only the class's own members are found by name.
    EXPECT_NE(find_class_member(sto_class_cnvDerived(), "m_extra"), nullptr);
    EXPECT_EQ(find_class_member(sto_class_cnvDerived(), "m_value"), nullptr);
    EXPECT_EQ(find_class_member(nullptr, "m_value"), nullptr);
}

TEST(Conversion, PlainPointersAtMembersThatAreNotObjectsFindThoseMembers)
{
    sto_class_cnvLeaf()->build();
    sto_class_cnvNumbers()->build();
    int outside = 5;
    cnvNumbers numbers;
    numbers.m_count = 3;
    numbers.m_scale = 0.5;
    numbers.m_fixed[1] = 4;
    numbers.m_leaf = new cnvLeaf;
    numbers.m_leaf->m_value = 8;
    numbers.m_to_count = &numbers.m_count;
    numbers.m_to_leaf_value = &numbers.m_leaf->m_value;
    numbers.m_to_scale = &numbers.m_scale;
    numbers.m_to_element = &numbers.m_fixed[1];
    numbers.m_outside = &outside;
    auto expect_copy = [](cnvNumbers const& copy) {
        EXPECT_EQ(copy.m_to_count, &copy.m_count);
        EXPECT_EQ(copy.m_count, 3);
        EXPECT_EQ(copy.m_to_scale, &copy.m_scale);
        EXPECT_EQ(copy.m_to_element, &copy.m_fixed[1]);
        EXPECT_EQ(copy.m_fixed[1], 4);
        ASSERT_NE(copy.m_leaf, nullptr);
        EXPECT_EQ(copy.m_to_leaf_value, &copy.m_leaf->m_value);
        EXPECT_EQ(copy.m_leaf->m_value, 8);
        EXPECT_EQ(copy.m_outside, nullptr);  // nothing of the graph held its target
    };
    {
        Analysed a(sto_type_cnvNumbers(), &numbers);
        // Each pointer points at the very value in its target's slot.
        EXPECT_EQ(pointer_value(a.root, "m_to_count")->pointee(), member_value(a.root, "m_count"));
        EXPECT_EQ(pointer_value(a.root, "m_to_scale")->pointee(), member_value(a.root, "m_scale"));
        EXPECT_EQ(pointer_value(a.root, "m_to_element")->pointee(), member_value(a.root, "m_fixed")->child(1));
        stoValue const* leaf = pointer_value(a.root, "m_leaf")->pointee();
        ASSERT_NE(leaf, nullptr);
        EXPECT_EQ(pointer_value(a.root, "m_to_leaf_value")->pointee(), member_value(leaf, "m_value"));
        EXPECT_EQ(pointer_value(a.root, "m_outside")->pointee(), nullptr);
        EXPECT_EQ(a.analyser.number_of_dangling_pointers(), 1);

        cnvNumbers copy;
        stoSynthesiser().synthesise(a.root, &copy);
        expect_copy(copy);
    }
    // Through a file: the numbers pointed at are written where they stand and
    // the pointers refer to them.
    std::string text = written(&numbers, sto_type_cnvNumbers());
    std::ostringstream diagnostics;
    stoReadMemoryMap map(text.data(), static_cast<int>(text.size()));
    stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
    ASSERT_EQ(reader.error_count(), 0) << diagnostics.str() << text;
    cnvNumbers copy;
    stoSynthesiser().synthesise(reader.look_up_value("root"), &copy);
    expect_copy(copy);
}
