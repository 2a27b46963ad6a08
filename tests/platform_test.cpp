// The platform layer as the store relies on it: null versus empty and shared
// strings, sets and tables, the pointer kinds and pointer hashes; Unicode
// strings, the Windows-1252 code page (against a hand-written table and the C
// library's converter), the file test and streams.
#include "test_support.h"

#include "platform/co_address_chains.h"
#include "platform/om_stream.h"
#include "platform/ve_string.h"

#include <gtest/gtest.h>

#include <iconv.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The C library's reading of one Windows-1252 byte: -1 when it rejects the
// byte, -2 when it has no such converter.
long iconv_cp1252(unsigned char byte)
{
    iconv_t cd = iconv_open("UTF-32LE", "CP1252");
    if (cd == reinterpret_cast<iconv_t>(-1))
        return -2;
    char in[1] = {static_cast<char>(byte)};
    unsigned char out[8] = {};
    char *inp = in, *outp = reinterpret_cast<char*>(out);
    size_t inleft = 1, outleft = sizeof out;
    size_t r = iconv(cd, &inp, &inleft, &outp, &outleft);
    iconv_close(cd);
    if (r == static_cast<size_t>(-1) || sizeof out - outleft != 4)
        return -1;
    return static_cast<long>(out[0] | (out[1] << 8) | (out[2] << 16) |
                             (static_cast<unsigned long>(out[3]) << 24));
}

// "count count ..." of the strings' shared buffers.
template <class... S>
std::string shares(S const&... s)
{
    std::string r;
    ((r += std::to_string(s.share_count()) + " "), ...);
    return r;
}

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
    utString null, empty("");
    EXPECT_TRUE(null.is_null() && utString(static_cast<char const*>(nullptr)).is_null());
    EXPECT_FALSE(empty.is_null() || null == empty || empty == null || null == "");
    EXPECT_TRUE(empty == "" && null == utString() && null.length() + empty.length() == 0);
    EXPECT_STREQ(null.c_str(), "");

    // Appending, even nothing, makes a null string real.
    utString grown, built, twice("ab");
    grown += "";
    EXPECT_TRUE(!grown.is_null() && grown == empty);
    built << "m_size@" << 3 << "," << -12 << "," << INT_MIN;
    twice += twice;  // appending a string to itself
    EXPECT_EQ(built.str() + " " + twice.str(), "m_size@3,-12,-2147483648 abab");
    EXPECT_TRUE(utString("m_size") + "@" + 3 == "m_size@3");

    // Copies share one buffer; a change gives the changed string its own.
    utString a("hello"), b(a), c;
    c = a;
    EXPECT_EQ(shares(a), "3 ");
    b += "!";
    EXPECT_EQ(a.str() + "|" + b.str() + "|" + shares(a, b), "hello|hello!|2 1 ");
    c = null;
    EXPECT_TRUE(c.is_null() && shares(a, null) == "1 0 ");
    utString d(a);
    utString& alias = a;  // assigning a shared string to itself keeps it whole
    a = alias;
    EXPECT_EQ(a.str() + "|" + shares(d), "hello|2 ");

    // Embedded zero bytes are part of the string.
    utString z(utStringArray, "a\0b\0", 4);
    EXPECT_TRUE(z.length() == 4 && z[1] == '\0' && z[2] == 'b' && (z + z).length() == 8);
    EXPECT_FALSE(z == utString(utStringArray, "a\0c\0", 4) || z == "a");
    EXPECT_FALSE(utString(utStringArray, "x", 0).is_null());
    std::ostringstream os;
    os << z;
    EXPECT_EQ(os.str(), std::string("a\0b\0", 4));

    // Equal strings in separate buffers hash alike.
    EXPECT_EQ(co_hash(utString("stoClass")), co_hash(utString("sto") + "Class"));
    EXPECT_EQ(co_hash(z), co_hash(utString(utStringArray, "a\0b\0", 4)));
}

TEST(Platform, SetsAnswerThePresentElementAndTablesCreateOnRead)
{
    coSet<utString> names(4, 50);
    utString first("m_next"), again("m_next");
    EXPECT_TRUE(names.add(first).is_null());             // added: the nil element
    EXPECT_EQ(names.add(again).c_str(), first.c_str());  // the element already there
    EXPECT_TRUE(names.add(utString("")).is_null());      // the empty string is not null
    EXPECT_EQ(names.remove(again), 1);
    EXPECT_EQ(names.remove_any().str(), "");
    EXPECT_TRUE(names.is_empty() && names.remove_any().is_null());

    coTable<utString, stoSchemaObject const*> objects(4, 50);
    EXPECT_TRUE(objects.find("int") == nullptr && objects.size() == 0);  // find never creates
    stoSchemaObject const*& entry = objects["int"];
    EXPECT_TRUE(entry == nullptr && &objects["int"] == &entry && objects.find("int") == &entry);

    coTable<utString, int> counts;
    ++counts[utString()];
    ++counts[utString("")];
    ++counts[utString("")];
    EXPECT_EQ(counts.size(), 2);  // null and empty keys are separate entries
    EXPECT_EQ(counts[utString("")] * 10 + counts[utString()], 21);
}

TEST(Platform, OwningPointersHandOverAndDeleteOnce)
{
    g_deaths = 0;
    {
        coPrg<Counted> a(new Counted);
        Counted* raw = a.get();
        coPrg<Counted> b(a), c;
        EXPECT_TRUE(a.get() == nullptr && b.get() == raw);
        c = b;
        EXPECT_TRUE(b.get() == nullptr && c.get() == raw);
        c.reset(raw);  // the pointee it already holds: nothing is deleted
        c.reset(new Counted);
        EXPECT_EQ(g_deaths, 1);
        Counted* released = c.release();
        EXPECT_EQ(c.get(), nullptr);
        delete released;
        EXPECT_EQ(g_deaths, 2);
        a = new CountedTwice;  // deleted as a whole at the end of the scope
    }
    EXPECT_EQ(g_deaths, 4);
}

TEST(Platform, CountedPointersDeleteAtTheLastRelease)
{
    g_deaths = 0;
    coPrf<Counted> outer;
    EXPECT_TRUE(outer.count() == 0 && outer.unique());
    {
        coPrf<Counted> a(new Counted);
        {
            coPrf<Counted> b(a);
            b = a;  // same pointee: the count does not move
            EXPECT_TRUE(a.count() == 2 && !b.unique() && a.ref() == b.ref());
        }
        EXPECT_TRUE(g_deaths == 0 && a.unique());
        outer = a;
    }
    EXPECT_TRUE(g_deaths == 0 && outer.unique());
    outer = coPrf<Counted>(new Counted);  // lets go of the last reference to the first
    EXPECT_EQ(g_deaths, 1);
    outer.release();
    EXPECT_EQ(g_deaths, 2);

    // -1 marks an object that was never shared.
    utRef never(-1);
    never.increment();
    EXPECT_TRUE(never.count() == 2 && !never.unique());
    EXPECT_TRUE(never.decrement() == 1 && never.unique());
    EXPECT_TRUE(utRef(-1).unique() && utRef(-1).decrement() == 0);
}

// Addresses that differ only above bit 31 (never dereferenced).
TEST(Platform, PointersHashEveryByteOfTheAddress)
{
    auto address = [](std::uintptr_t a) { return reinterpret_cast<void const*>(a); };
    void const *low = address(0x0000000100001000ull), *high = address(0x0000000200001000ull);
    EXPECT_NE(co_hash_pointer(low), co_hash_pointer(high));
    EXPECT_NE(co_hash_pointer(low), co_hash_pointer(address(0x7f00000000001000ull)));
    EXPECT_TRUE(co_hash(low) == co_hash_pointer(low) && co_hash(const_cast<void*>(low)) == co_hash(low));
    EXPECT_EQ(co_hash_pointer(high), co_hash(&high, static_cast<int>(sizeof high)));  // every byte of it
}

TEST(Platform, AddressChainsGiveEachAddressItsItemsInOrderAndKeepTheRest)
{
    int a = 0, b = 0;  // two addresses
    coAddressChains<int> chains;
    for (int item : {1, 2, 3, 4, 5})
        chains.add(item % 2 ? &a : &b, item);
    std::vector<int> got;
    auto collect = [&](int item) { got.push_back(item); };

    // Only the items the predicate wants leave; the others stay chained in order.
    chains.take_if(&a, [](int item) { return item != 3; }, collect);
    EXPECT_EQ(got, (std::vector<int>{1, 5}));
    EXPECT_TRUE(chains.any(&a, [](int item) { return item == 3; }));
    EXPECT_EQ(chains.size(), 3);
    std::vector<int> waiting;
    chains.for_each([&](void const*, int item) { waiting.push_back(item); });
    EXPECT_EQ(waiting, (std::vector<int>{2, 3, 4}));

    // An item added while a chain is taken waits for the next take.
    got.clear();
    chains.take(&b, [&](int item) {
        got.push_back(item);
        if (item == 2)
            chains.add(&b, 6);
    });
    EXPECT_EQ(got, (std::vector<int>{2, 4}));
    got.clear();
    chains.take(&a, collect);
    chains.take(&b, collect);
    chains.take(&b, collect);  // nothing left
    EXPECT_EQ(got, (std::vector<int>{3, 6}));
    EXPECT_EQ(chains.size(), 0);

    // Emptied, the chains start again and stay right.
    chains.add(&b, 7);
    chains.add(&a, 8);
    EXPECT_FALSE(chains.any(&a, [](int item) { return item == 3; }));
    got.clear();
    chains.take(&b, collect);
    EXPECT_EQ(got, (std::vector<int>{7}));

    // Once taken items outnumber the waiting ones, the rest is chained anew,
    // in the same order.
    int c = 0;
    std::vector<int> expected{8};
    for (int item = 100; item < 3100; ++item) {
        chains.add(item % 3 == 0 ? &c : &b, item);
        if (item % 3 == 0)
            expected.push_back(item);
    }
    chains.take(&b, [](int) {});
    got.clear();
    chains.for_each([&](void const*, int item) { got.push_back(item); });
    EXPECT_EQ(got, expected);
    got.clear();
    chains.take(&c, collect);
    chains.take(&a, collect);
    expected.erase(expected.begin());
    expected.push_back(8);
    EXPECT_EQ(got, expected);
}

TEST(PlatformIoStrings, Utf8AndCodesConvertBothWaysAndIllFormedInputFails)
{
    struct Case {
        const char* text;  // null: none at all
        std::u32string codes;
        bool fails;
    };
    const Case cases[] = {
        {"A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", {U'A', 0xE9, 0x20AC, 0x1F600}, false},
        {"", U"", false},
        {nullptr, U"", false},
        {"\x80", U"\uFFFD", true},                                // lone tail byte
        {"\xC0\x80", U"\uFFFD\uFFFD", true},                      // overlong zero
        {"\xE0\x80\x80", U"\uFFFD\uFFFD\uFFFD", true},            // overlong three bytes
        {"\xED\xA0\x80", U"\uFFFD\uFFFD\uFFFD", true},            // surrogate
        {"\xF4\x90\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD", true},  // 0x110000
        {"a\xE2\x82", U"a\uFFFD", true},                          // cut short: one for the start
        {"\xE2\x82z", U"\uFFFDz", true},
        {"\xFF", U"\uFFFD", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text ? c.text : "null");
        int failure = 7;  // every call assigns the flag
        veString s(veStringUTF8, c.text, failure);
        EXPECT_EQ(failure != 0, c.fails);
        EXPECT_EQ(s.codes(), c.codes);
        if (!c.fails) {
            EXPECT_STREQ(s.convert(veStringUTF8), c.text ? c.text : "");
        }
    }

    int failure = 7;
    const char32_t codes[] = {0x41, 0xE9, 0x20AC, 0x10FFFF};
    EXPECT_STREQ(veString(veStringUTF32, codes, 4, failure).convert(veStringUTF8),
                 "A\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF");
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(veString(veStringUTF32, codes, 0, failure).length(), 0);
    const unsigned int bad[] = {0x41, 0xD800, 0x110000};
    EXPECT_EQ(veString(veStringUTF32, bad, 3, failure).codes(), (std::u32string{U'A', 0xFFFD, 0xFFFD}));
    EXPECT_NE(failure, 0);
}

// Every byte against the C library's converter, where it has one; these
// rows hold where it has none. 0: undefined, which fails and reads as a
// replacement character. Every defined byte encodes back to itself.
TEST(PlatformIoStrings, Windows1252DecodesItsOwnRangeAndRoundTripsEveryDefinedByte)
{
    const std::pair<unsigned char, char32_t> rows[] = {
        {0x41, 0x41}, {0x80, 0x20AC}, {0x8A, 0x0160}, {0x9F, 0x0178}, {0xA0, 0x00A0}, {0xFF, 0x00FF},
        {0x81, 0},    {0x8D, 0},      {0x8F, 0},      {0x90, 0},      {0x9D, 0},
    };
    const veIStringEncoding* cp = veStringEncodingChooser::mb_encoding();
    EXPECT_STREQ(cp->name(), "Windows-1252");
    for (auto [byte, code] : rows) {
        char text[4] = {'a', static_cast<char>(byte), 'b', 0};
        int failure = 7;
        veString s = cp->decode(text, failure);
        EXPECT_EQ(failure != 0, code == 0) << int(byte);
        EXPECT_EQ(s.codes(), (std::u32string{U'a', code ? code : 0xFFFD, U'b'})) << int(byte);
    }

    bool have_iconv = iconv_cp1252('A') != -2;
    std::string all;
    for (int b = 1; b < 256; ++b) {
        char text[2] = {static_cast<char>(b), 0};
        int failure = 0;
        veString s = cp->decode(text, failure);
        if (failure == 0)
            all += static_cast<char>(b);
        long expected = have_iconv ? iconv_cp1252(static_cast<unsigned char>(b)) : -3;
        if (expected == -1) {
            EXPECT_NE(failure, 0) << b;
        } else if (expected >= 0) {
            EXPECT_TRUE(failure == 0 && s.codes() == std::u32string(1, static_cast<char32_t>(expected))) << b;
        }
    }
    EXPECT_EQ(all.size(), 250u);
    int failure = 7;
    veString s = cp->decode(all.c_str(), failure);
    EXPECT_TRUE(failure == 0 && s.length() == 250);
    failure = 7;
    EXPECT_EQ(cp->encode(s, failure).str(), all);
    EXPECT_EQ(failure, 0);

    // U+0081 is a C1 control: its byte is undefined, so it cannot go there.
    for (char32_t c : {char32_t(0x4E2D), char32_t(0x0081), char32_t(0x0100), char32_t(0x1F600)}) {
        const char32_t codes[] = {U'a', c};
        veString t(veStringUTF32, codes, 2, failure);
        ASSERT_EQ(failure, 0);
        EXPECT_EQ(cp->encode(t, failure).str(), "a?") << unsigned(c);
        EXPECT_NE(failure, 0) << unsigned(c);
    }
}

// A U+0000 inside the text survives encoding.
TEST(PlatformIoStrings, Utf8EncodingEncodesEverything)
{
    const veIStringEncoding* ut = veStringEncodingChooser::ut_encoding();
    EXPECT_STREQ(ut->name(), "UTF-8");
    const char32_t codes[] = {U'a', 0, 0x20AC};
    int failure = 0;
    veString z(veStringUTF32, codes, 3, failure);
    failure = 7;
    EXPECT_EQ(ut->encode(z, failure).str(), std::string("a\0\xE2\x82\xAC", 5));
    EXPECT_EQ(failure, 0);
    EXPECT_TRUE(ut->decode("\xE9", failure).codes() == U"\uFFFD" && failure != 0);
}

TEST(PlatformIoFiles, ModeValuesMapToStandardOpenModes)
{
    using std::ios_base;
    EXPECT_EQ(om_open_mode(1), ios_base::in);
    EXPECT_EQ(om_open_mode(2), ios_base::out);
    EXPECT_EQ(om_open_mode(33), ios_base::in | ios_base::binary);
    EXPECT_EQ(om_open_mode(omOut | omTrunc | omBinary), ios_base::out | ios_base::trunc | ios_base::binary);
    EXPECT_EQ(om_open_mode(omApp | omAte), ios_base::app | ios_base::ate);
}

// Mode 2 truncates; the file test sees files but not folders or missing
// names, which no stream opens.
TEST(PlatformIoFiles, OutputStreamsTruncateAndTheFileTestSeesOnlyFiles)
{
    std::string text = STO_TEST_OUTPUT_DIR "/platform_io_text.txt";
    omOFStream(text.c_str(), 2) << "a much longer first text\n";
    {
        omOFStream out;
        out.open(utString(text.c_str()), 2);
        static_cast<std::ostream&>(out) << "Error on line " << 3 << ": x\n";
    }
    omIFStream back(text, 1);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(back), {}), "Error on line 3: x\n");

    using F = veFileFinder;
    EXPECT_TRUE(F::check_file_exists(text));
    std::remove(text.c_str());
    EXPECT_FALSE(F::check_file_exists(text) || F::check_file_exists(STO_TEST_OUTPUT_DIR) ||
                 F::check_file_exists(utString("")) ||
                 F::check_file_exists(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(omIFStream(text, 1).good() || omIFStream(utString(text.c_str()), 33).good() ||
                 omIFStream(static_cast<const char*>(nullptr), 1).good());
}
