// The utility and container layer as the store relies on it: null versus
// empty strings and shared string buffers, the answers of sets and tables,
// the hand-over and counting of the pointer kinds, stable element addresses,
// and pointer hashes over the whole address.
#include "test_support.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

namespace {

int g_deaths;

struct Counted {
    virtual ~Counted() { ++g_deaths; }
    int value = 0;
};

// Deleted through the base's virtual destructor.
struct CountedTwice : Counted {
    ~CountedTwice() override { ++g_deaths; }
};

}  // namespace

TEST(Platform, NullAndEmptyStringsStayDistinctAndCopiesShareUntilChanged)
{
    utString null;
    utString empty("");
    EXPECT_TRUE(null.is_null());
    EXPECT_FALSE(empty.is_null());
    EXPECT_FALSE(null == empty);
    EXPECT_FALSE(empty == null);
    EXPECT_FALSE(null == "");
    EXPECT_TRUE(empty == "");
    EXPECT_TRUE(null == utString());
    EXPECT_EQ(null.length() + empty.length(), 0);
    EXPECT_STREQ(null.c_str(), "");
    EXPECT_TRUE(utString(static_cast<char const*>(nullptr)).is_null());

    // Appending, even nothing, makes a null string real.
    utString grown;
    grown += "";
    EXPECT_FALSE(grown.is_null());
    EXPECT_TRUE(grown == empty);
    utString built;
    built << "m_size@" << 3 << "," << -12 << "," << INT_MIN;
    EXPECT_EQ(built.str(), "m_size@3,-12,-2147483648");
    EXPECT_TRUE(utString("m_size") + "@" + 3 == "m_size@3");
    utString twice("ab");
    twice += twice;  // appending a string to itself
    EXPECT_EQ(twice.str(), "abab");

    // Copies share one buffer; a change gives the changed string its own.
    utString a("hello");
    utString b(a);
    utString c;
    c = a;
    EXPECT_EQ(a.share_count(), 3);
    EXPECT_EQ(a.c_str(), b.c_str());
    b += "!";
    EXPECT_EQ(a.str(), "hello");
    EXPECT_EQ(b.str(), "hello!");
    EXPECT_EQ(a.share_count(), 2);
    EXPECT_EQ(b.share_count(), 1);
    c = null;
    EXPECT_TRUE(c.is_null());
    EXPECT_EQ(a.share_count(), 1);
    EXPECT_EQ(null.share_count(), 0);
    utString d(a);
    utString& alias = a;  // assigning a shared string to itself keeps it whole
    a = alias;
    EXPECT_EQ(a.str(), "hello");
    EXPECT_EQ(d.share_count(), 2);

    // Embedded zero bytes are part of the string.
    utString z(utStringArray, "a\0b\0", 4);
    EXPECT_EQ(z.length(), 4);
    EXPECT_EQ(z[1], '\0');
    EXPECT_EQ(z[2], 'b');
    EXPECT_FALSE(z == utString(utStringArray, "a\0c\0", 4));
    EXPECT_FALSE(z == "a");
    EXPECT_EQ((z + z).length(), 8);
    EXPECT_FALSE(utString(utStringArray, "x", 0).is_null());
    std::ostringstream os;
    os << z;
    EXPECT_EQ(os.str(), std::string("a\0b\0", 4));

    // Equal strings in separate buffers hash alike.
    utString x("stoClass");
    utString y = utString("sto") + "Class";
    EXPECT_NE(x.c_str(), y.c_str());
    EXPECT_EQ(co_hash(x), co_hash(y));
    EXPECT_EQ(co_hash(z), co_hash(utString(utStringArray, "a\0b\0", 4)));
}

TEST(Platform, SetsAnswerThePresentElementAndTablesCreateOnRead)
{
    coSet<utString> names(4, 50);
    utString first("m_next");
    EXPECT_TRUE(names.add(first).is_null());  // added: the nil element
    utString again("m_next");
    utString present = names.add(again);
    EXPECT_EQ(present.c_str(), first.c_str());  // the element already there
    EXPECT_EQ(names.size(), 1);
    EXPECT_TRUE(names.add(utString("")).is_null());  // the empty string is not null
    EXPECT_EQ(names.size(), 2);
    EXPECT_EQ(names.remove(again), 1);
    EXPECT_EQ(names.remove(again), 0);
    EXPECT_FALSE(names.contains(first));
    EXPECT_EQ(names.remove_any().str(), "");
    EXPECT_TRUE(names.is_empty());
    EXPECT_TRUE(names.remove_any().is_null());
    coSet<Counted*> pointers;
    EXPECT_EQ(pointers.remove_any(), nullptr);

    coTable<utString, stoSchemaObject const*> objects(4, 50);
    EXPECT_EQ(objects.find("int"), nullptr);  // find never creates
    EXPECT_EQ(objects.size(), 0);
    stoSchemaObject const*& entry = objects["int"];
    EXPECT_EQ(entry, nullptr);
    EXPECT_EQ(objects.size(), 1);
    EXPECT_EQ(&objects["int"], &entry);  // a second read answers the same entry
    EXPECT_EQ(objects.find("int"), &entry);
    EXPECT_EQ(objects.size(), 1);

    coTable<utString, int> counts;
    ++counts[utString()];
    ++counts[utString("")];
    ++counts[utString("")];
    EXPECT_EQ(counts.size(), 2);  // null and empty keys are separate entries
    EXPECT_EQ(counts[utString("")], 2);
    EXPECT_EQ(counts[utString()], 1);
    EXPECT_EQ(counts.remove(utString()), 1);
    EXPECT_EQ(counts.remove(utString()), 0);
}

TEST(Platform, OwningPointersHandOverAndDeleteOnce)
{
    g_deaths = 0;
    {
        coPrg<Counted> a(new Counted);
        Counted* raw = a.get();
        coPrg<Counted> b(a);
        EXPECT_EQ(a.get(), nullptr);
        EXPECT_EQ(b.get(), raw);
        coPrg<Counted> c;
        c = b;
        EXPECT_EQ(b.get(), nullptr);
        EXPECT_EQ(c.get(), raw);
        c.reset(raw);  // the pointee it already holds: nothing is deleted
        EXPECT_EQ(g_deaths, 0);
        c.reset(new Counted);
        EXPECT_EQ(g_deaths, 1);
        Counted* released = c.release();
        EXPECT_EQ(c.get(), nullptr);
        delete released;
        EXPECT_EQ(g_deaths, 2);
        a = new CountedTwice;  // deleted as a whole at the end of the scope
    }
    EXPECT_EQ(g_deaths, 4);

    g_deaths = 0;
    {
        coStack<coPrg<Counted>> stack;
        for (int i = 0; i < 3; ++i) {
            stack.push(coPrg<Counted>(new Counted));
            stack.top()->value = i;
        }
        EXPECT_EQ(stack.top()->value, 2);
        stack.pop();
        EXPECT_EQ(g_deaths, 1);
        EXPECT_EQ(stack.top()->value, 1);
        EXPECT_EQ(stack.size(), 2);
    }
    EXPECT_EQ(g_deaths, 3);
}

TEST(Platform, CountedPointersDeleteAtTheLastRelease)
{
    g_deaths = 0;
    coPrf<Counted> outer;
    EXPECT_EQ(outer.count(), 0);
    EXPECT_TRUE(outer.unique());
    {
        coPrf<Counted> a(new Counted);
        EXPECT_EQ(a.count(), 1);
        EXPECT_TRUE(a.unique());
        {
            coPrf<Counted> b(a);
            EXPECT_EQ(a.count(), 2);
            EXPECT_FALSE(b.unique());
            EXPECT_EQ(a.ref(), b.ref());
            b = a;  // same pointee: the count does not move
            EXPECT_EQ(a.count(), 2);
        }
        EXPECT_EQ(g_deaths, 0);
        EXPECT_TRUE(a.unique());
        outer = a;
        EXPECT_EQ(outer.count(), 2);
    }
    EXPECT_EQ(g_deaths, 0);
    outer = coPrf<Counted>(new Counted);  // lets go of the last reference to the first
    EXPECT_EQ(g_deaths, 1);
    outer.release();
    EXPECT_EQ(g_deaths, 2);

    // -1 marks an object that was never shared.
    utRef never(-1);
    EXPECT_TRUE(never.unique());
    never.increment();
    EXPECT_EQ(never.count(), 2);
    EXPECT_FALSE(never.unique());
    EXPECT_EQ(never.decrement(), 1);
    EXPECT_TRUE(never.unique());
    EXPECT_EQ(utRef(-1).decrement(), 0);
}

TEST(Platform, ElementsStayPutAndPointersHashEveryByte)
{
    coVariableArr<int> array;
    array.append(42);
    int* first = &array[0];
    for (int i = 1; i < 50000; ++i)
        array.append(i);
    EXPECT_EQ(&array[0], first);
    EXPECT_EQ(*first, 42);
    *first = 7;
    EXPECT_EQ(array[0], 7);
    EXPECT_EQ(array[49999], 49999);

    // Addresses that differ only above bit 31 (never dereferenced).
    void const* low = reinterpret_cast<void const*>(static_cast<std::uintptr_t>(0x0000000100001000ull));
    void const* high = reinterpret_cast<void const*>(static_cast<std::uintptr_t>(0x0000000200001000ull));
    void const* top = reinterpret_cast<void const*>(static_cast<std::uintptr_t>(0x7f00000000001000ull));
    EXPECT_NE(co_hash_pointer(low), co_hash_pointer(high));
    EXPECT_NE(co_hash_pointer(low), co_hash_pointer(top));
    EXPECT_EQ(co_hash_pointer(low), co_hash(const_cast<void*>(low)));
    coSet<void const*> set;
    EXPECT_EQ(set.add(low), nullptr);
    EXPECT_EQ(set.add(high), nullptr);
    EXPECT_EQ(set.add(low), low);
    EXPECT_EQ(set.size(), 2);
}
