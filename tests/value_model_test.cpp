// The value graph itself: participants, children and their iterator, the
// 64-bit integers, pointer values and the value handle that hands a fresh
// value to its pointers, the visitor's forwarding defaults, member look-up,
// and ownership (leak and double-free freedom is proven by the sanitizers).
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <vector>

namespace {

stoSchema* sto_schema_vmd() { return sto_test::saved_schema("value_model_test", 1); }

}  // namespace

class vmdEmpty {
    STO_PERSISTENT(vmdEmpty)
public:
    virtual ~vmdEmpty() = default;
};
STO_DECLARE_CLASS(vmdEmpty)

class vmdBase {
    STO_PERSISTENT(vmdBase)
public:
    virtual ~vmdBase() = default;
    int m_base_only = 0;
};
STO_DECLARE_CLASS(vmdBase)

// Only its description is used: values of it are built by hand.
class vmdHolder : public vmdBase {
    STO_PERSISTENT(vmdHolder)
public:
    int m_number = 0;
    vmdEmpty* m_plain = nullptr;
    vmdEmpty* m_owned = nullptr;
    coPrf<vmdEmpty> m_counted;
    stoTypeHandle m_handle;
    vmdHolder* m_next = nullptr;
    int m_trio[3] = {};
};
STO_DECLARE_CLASS(vmdHolder)

STO_CLASS(vmdEmpty, sto_schema_vmd()) {}

STO_CLASS(vmdBase, sto_schema_vmd())
{
    STO_MEMBER(m_base_only);
}

STO_CLASS(vmdHolder, sto_schema_vmd())
{
    STO_BASE(vmdBase);
    STO_MEMBER(m_number);
    STO_MEMBER(m_plain);
    STO_OWNING_PTR(m_owned);
    STO_MEMBER(m_counted);
    STO_MEMBER(m_handle);
    STO_MEMBER(m_next);
    STO_MEMBER(m_trio);
}

namespace {

stoMemberHandle slot(char const* name) { return sto_class_vmdHolder()->find_member("vmdHolder", name); }
stoTypeHandle type_of(char const* name) { return sto_class_vmdHolder()->member(slot(name))->type(); }

stoPrgValue* owning(stoValue* v = nullptr) { return new stoPrgValue(type_of("m_owned"), v); }
stoPrfValue* counted() { return new stoPrfValue(type_of("m_counted"), stoValuecoPrf()); }
stoPtrValue* plain(stoValue const* v = nullptr) { return new stoPtrValue(type_of("m_plain"), v); }

bool value_throws_too_big(stoIntValue const& v)
{
    return sto_test::caught<stoIntTooBigException>([&] { (void)v.value(); }) != nullptr;
}

// Answers a code per visited operation, so that the dispatch shows.
struct PointersOnly : stoProcessValue {
    int process_stoPtrValue(stoPtrValue const*) override { return 8; }
};
struct Everything : stoProcessValue {
    int seen = 0;
    int process_stoValue(stoValue const*) override { return ++seen; }
};

}  // namespace

TEST(ValueModel, ParticipantsVisitSharedValuesOnceAndEndCycles)
{
    std::unique_ptr<stoValue> empty(new stoObject(sto_class_vmdEmpty()));
    EXPECT_EQ(empty->number_of_children(), 0);
    stoValuePtrcoSet alone;
    empty->participants(alone);
    EXPECT_EQ(alone.size(), 1);
    EXPECT_TRUE(alone.contains(empty.get()));

    stoObject* root = new stoObject(sto_class_vmdHolder());
    ASSERT_EQ(root->number_of_children(), 8);  // the base's member first, then seven
    stoObject* target = new stoObject(sto_class_vmdEmpty());
    stoPtrValue* seen = plain(target);
    root->set_member(slot("m_plain"), seen);
    root->set_member(slot("m_owned"), owning(target));
    stoPtrValue* back = new stoPtrValue(type_of("m_next"), root);
    root->set_member(slot("m_next"), back);

    stoValuePtrcoSet all;
    root->participants(all);
    EXPECT_EQ(all.size(), 5);  // root, three pointers, one target
    EXPECT_TRUE(all.contains(target));
    EXPECT_TRUE(all.contains(back));

    // The walk goes down only, and stops at a value already collected.
    stoValuePtrcoSet below;
    seen->participants(below);
    EXPECT_EQ(below.size(), 2);
    EXPECT_FALSE(below.contains(root));
    stoValuePtrcoSet seeded;
    seeded.add(root);
    root->participants(seeded);
    EXPECT_EQ(seeded.size(), 1);
    delete root;  // the owning pointer deletes the target; the plain ones nothing
}

TEST(ValueModel, IntegersKeepSixtyFourBitsAndNarrowOnlyWhenTheyFit)
{
    stoIntValue minus_one(-1);
    EXPECT_EQ(minus_one.value64(), -1);
    EXPECT_EQ(minus_one.value(), -1);
    EXPECT_TRUE(minus_one.type() == sto_type_int());
    EXPECT_EQ(stoIntValue(INT_MIN).value64(), static_cast<long long>(INT_MIN));

    stoIntValue big(stoIntValue64Tag, 1LL << 31);
    EXPECT_EQ(big.value64(), 2147483648LL);
    EXPECT_TRUE(value_throws_too_big(big));
    EXPECT_TRUE(value_throws_too_big(stoIntValue(stoIntValue64Tag, -(1LL << 31) - 1)));
    EXPECT_TRUE(value_throws_too_big(stoIntValue(stoIntValue64Tag, 1LL << 32)));  // low word 0
    EXPECT_FALSE(value_throws_too_big(stoIntValue(stoIntValue64Tag, INT_MAX)));
    EXPECT_EQ(stoIntValue(stoIntValue64Tag, INT_MIN).value(), INT_MIN);
}

TEST(ValueModel, HandleHandsOwnershipToExactlyOnePointer)
{
    {  // owning pointers: the first takes it, the second gets null
        stoPrgValue* first = owning();
        stoPrgValue* second = owning();
        stoPtrValue* early = plain();
        stoValueHandle h;
        stoValue* v = new stoIntValue(5);
        h.become(utPtrClaim, v);
        h.set_pointee(early);  // a plain pointer leaves ownership where it is
        EXPECT_EQ(early->pointee(), v);
        EXPECT_TRUE(h.owns());
        h.set_pointee(first);
        h.set_pointee(second);
        EXPECT_EQ(first->pointee(), v);
        EXPECT_EQ(second->pointee(), nullptr);
        EXPECT_FALSE(h.owns());
        EXPECT_EQ(h.release(), nullptr);
        delete early;
        delete second;
        delete first;
    }
    // Counted pointers share one count whatever order they go in; reading the
    // value through the survivors proves it still lives.
    std::vector<int> order = {0, 1, 2};
    do {
        stoPrfValue* c[3] = {counted(), counted(), counted()};
        stoValue* v = new stoIntValue(7);
        {
            stoValueHandle h;
            h.become(utPtrClaim, v);
            for (stoPrfValue* p : c)
                h.set_pointee(p);
        }
        EXPECT_EQ(c[0]->counted().get(), v);
        EXPECT_EQ(c[0]->counted().ref(), c[1]->counted().ref());
        EXPECT_EQ(c[0]->counted().ref(), c[2]->counted().ref());
        for (int i : order) {
            for (stoPrfValue* p : c) {
                if (p) {
                    EXPECT_EQ(static_cast<stoIntValue const*>(p->pointee())->value(), 7);
                }
            }
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
        EXPECT_EQ(static_cast<stoIntValue const*>(owner->pointee())->value(), 2);
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
    stoTypeHandleValue* th = new stoTypeHandleValue(type_of("m_handle"), nullptr);
    th->become_clone(owner);
    EXPECT_EQ(th->pointee(), owner->pointee());

    stoPrfValue* a = counted();
    a->set_pointee(new stoIntValue(9));
    stoPrfValue* b = counted();
    b->become_clone(a);
    EXPECT_EQ(b->pointee(), a->pointee());
    EXPECT_EQ(b->counted().ref(), a->counted().ref());
    EXPECT_EQ(a->counted().count(), 2);
    delete a;
    EXPECT_EQ(static_cast<stoIntValue const*>(b->pointee())->value(), 9);
    delete b;
    for (stoValue* v : std::initializer_list<stoValue*>{th, p, busy, other, owner})
        delete v;
}

TEST(ValueModel, IteratorYieldsChildrenThenEndsThenStartsAgain)
{
    std::unique_ptr<stoValue> parent(new stoStub(sto_type_vmdEmpty(), nullptr, new stoIntValue(1)));
    stoStringValue* id = new stoStringValue("name");
    std::unique_ptr<stoValue> stub(new stoStub(sto_type_vmdEmpty(), parent.get(), id));
    stoValueIT it(stub.get());
    EXPECT_TRUE(it.undefined());
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(++it);
        EXPECT_EQ(it.index(), 0);
        EXPECT_EQ(it(), parent.get());
        ASSERT_TRUE(++it);
        EXPECT_EQ(it(), id);
        EXPECT_FALSE(++it);
        EXPECT_TRUE(it.undefined());
    }

    stoIntValue leaf(3);
    stoValueIT none(&leaf);
    EXPECT_FALSE(++none);
    EXPECT_FALSE(++none);
    EXPECT_EQ(leaf.child(0), nullptr);

    stoObject object(sto_class_vmdHolder());
    stoValueIT members(&object);
    int steps = 0;
    for (; ++members; ++steps)
        EXPECT_EQ(members(), nullptr);  // every slot starts empty
    EXPECT_EQ(steps, 8);

    std::unique_ptr<stoPtrValue> p(plain(&leaf));
    EXPECT_EQ(p->number_of_children(), 1);
    EXPECT_EQ(p->child(5), &leaf);  // the pointee, whatever the index
}

TEST(ValueModel, VisitorDefaultsForwardToTheBaseOperation)
{
    stoValue* pointers[] = {plain(), owning(), counted(), new stoTypeHandleValue(type_of("m_handle"), nullptr)};
    unsigned char bytes[] = {1, 2};
    stoValue* others[] = {new stoIntValue(1),
                          new stoDoubleValue(0.5),
                          new stoStringValue("s"),
                          new stoByteArrayValue(stoByteArray(bytes, 2)),
                          new stoObject(sto_class_vmdEmpty()),
                          new stoArrayValue(type_of("m_trio"), 2),
                          new stoStub(sto_type_vmdEmpty(), nullptr, nullptr),
                          new stoMappedValue(sto_type_int(), sto_mapper_stoStandardMapper(), 0)};
    PointersOnly pointers_only;
    Everything everything;
    for (stoValue* v : pointers) {
        EXPECT_EQ(v->process(&pointers_only), 8) << v->sto_dynamic_class()->name();
        v->process(&everything);
    }
    for (stoValue* v : others) {
        EXPECT_EQ(v->process(&pointers_only), 0) << v->sto_dynamic_class()->name();
        v->process(&everything);
    }
    EXPECT_EQ(everything.seen, 12);
    for (stoValue* v : pointers)
        delete v;
    for (stoValue* v : others)
        delete v;
}

TEST(ValueModel, MemberValueLooksOnlyAtTheObjectsOwnMembers)
{
    stoObject object(sto_class_vmdHolder());
    stoIntValue* number = new stoIntValue(12);
    object.set_member(slot("m_number"), number);
    object.set_member_at(0, new stoIntValue(1));  // the base's m_base_only
    stoValueUtils utils(&object);
    int missing = -1;
    EXPECT_EQ(utils.member_value("m_number", missing), number);
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(utils.member_value("m_plain", missing), nullptr);  // declared, but empty
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(utils.member_value("m_absent", missing), nullptr);
    EXPECT_EQ(missing, 1);
    missing = 0;
    EXPECT_EQ(utils.member_value("m_base_only", missing), nullptr);  // declared by the base
    EXPECT_EQ(missing, 1);
    missing = 0;
    EXPECT_EQ(stoValueUtils(number).member_value("m_number", missing), nullptr);
    EXPECT_EQ(missing, 1);
}

// Every kind of owner in one graph; a stub's parent is not its child to
// delete, and two counted pointers free their target once.
TEST(ValueModel, DeletingTheRootDeletesTheWholeGraph)
{
    stoObject* root = new stoObject(sto_class_vmdHolder());
    root->set_member(slot("m_owned"), owning(new stoObject(sto_class_vmdEmpty())));
    stoPrfValue* shared = counted();
    shared->set_pointee(new stoStringValue("shared"));
    root->set_member(slot("m_counted"), shared);
    stoArrayValue* array = new stoArrayValue(type_of("m_trio"), 3);
    stoStub* parent_stub = new stoStub(sto_type_vmdEmpty(), nullptr, new stoStringValue("parent"));
    array->set_element(0, parent_stub);
    array->set_element(1, new stoStub(sto_type_vmdEmpty(), parent_stub, new stoIntValue(2)));
    stoPrfValue* again = counted();
    again->become_clone(shared);
    stoMappedValue* mapped = new stoMappedValue(sto_type_int(), sto_mapper_stoStandardMapper(), 2);
    mapped->set_element(0, again);
    mapped->set_element(1, new stoByteArrayValue(stoByteArray(3)));
    array->set_element(2, mapped);
    root->set_member(slot("m_trio"), array);

    stoValuePtrcoSet all;
    root->participants(all);
    // root, owning + object, counted + string, array, two stubs + two ids,
    // mapped, second counted, byte array
    EXPECT_EQ(all.size(), 13);
    delete root;
}
