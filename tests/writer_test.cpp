// The text of store files: records, numbering, stub names, inline values and literals, byte for byte.
#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

class wrtBase {
    STO_PERSISTENT(wrtBase)
public:
    virtual ~wrtBase() = default;
    int m_base = 5;
};
STO_DECLARE_CLASS(wrtBase)

class wrtLeaf : public wrtBase {
    STO_PERSISTENT(wrtLeaf)
public:
    ~wrtLeaf() override = default;
    double m_d = 0;
    utString m_s;
    stoByteArray m_bytes;
    wrtLeaf* m_other = nullptr;
    stoTypeHandle m_kind;
};
STO_DECLARE_CLASS(wrtLeaf)

class wrtHolder {
    STO_PERSISTENT(wrtHolder)
public:
    virtual ~wrtHolder() { delete m_first; }
    wrtLeaf* m_first = nullptr;
    wrtLeaf m_embedded;
    int m_numbers[3] = {1, 2, 3};
};
STO_DECLARE_CLASS(wrtHolder)

// An owning pointer to an int, and a plain one to the same int: a pointer whose target is neither an
// object nor a stub makes the writer count every value, not only objects and stubs.
class wrtOwnedInt {
    STO_PERSISTENT(wrtOwnedInt)
public:
    virtual ~wrtOwnedInt() { delete m_first; }
    int* m_first = new int(7);
    int m_target = 7;
    int* m_second = m_first;
    int m_numbers[2] = {8, 9};
    wrtLeaf m_leaf;
    wrtLeaf* m_to_leaf = &m_leaf;
};
STO_DECLARE_CLASS(wrtOwnedInt)

STO_CLASS(wrtBase, sto_test::saved_schema("writer_test", 3))
{
    STO_MEMBER(m_base);
}

STO_CLASS(wrtLeaf, sto_test::saved_schema("writer_test", 3))
{
    STO_BASE(wrtBase);
    STO_MEMBER(m_d);
    STO_MEMBER(m_s);
    STO_MEMBER(m_bytes);
    STO_MEMBER(m_other);
    STO_MEMBER(m_kind);
}

STO_CLASS(wrtHolder, sto_test::saved_schema("writer_test", 3))
{
    STO_OWNING_PTR(m_first);
    STO_MEMBER(m_embedded);
    STO_MEMBER(m_numbers);
}

STO_CLASS(wrtOwnedInt, sto_test::saved_schema("writer_test", 3))
{
    STO_MEMBER_AS(m_first, sto_builder.build_unnamed_type(stoPrgType::make(sto_type_int())));
    STO_MEMBER(m_target);
    STO_MEMBER_AS(m_second, sto_builder.build_unnamed_type(stoPtrType::make(sto_type_int())));
    STO_MEMBER(m_numbers);
    STO_MEMBER(m_leaf);
    STO_MEMBER(m_to_leaf);
}

namespace {

std::string line_starting(std::string const& text, std::string const& prefix)
{
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        if (line.compare(0, prefix.size(), prefix) == 0)
            return line;
    return "";
}

std::string leaf_body(wrtLeaf const& leaf)
{
    return line_starting(sto_test::written(&leaf, sto_type_wrtLeaf()), "root=");
}

}  // namespace

TEST(Writer, RecordsAreNumberedBreadthFirstAndPlainPointersReferToThemEitherWay)
{
    wrtHolder holder;
    holder.m_first = new wrtLeaf;
    holder.m_first->m_s = "first";
    holder.m_first->m_other = &holder.m_embedded;
    holder.m_embedded.m_other = holder.m_first;
    std::string text = sto_test::written(&holder, sto_type_wrtHolder());
    // The root keeps number 1 unprinted. Its children are numbered in member order (the inline pointer #2,
    // the embedded leaf #3, the inline array #4), their own children after them: the owned leaf is #5.
    EXPECT_EQ(line_starting(text, "root="), "root=wrtHolder{&#5,#3,(1,2,3)}");
    EXPECT_NE(text.find("\n#3=wrtLeaf{5,0,@,!{\n\n}!,&#5,&@}\n#5=wrtLeaf{5,0,\"first\",!{\n\n}!,&#3,&@}\n"),
              std::string::npos)
        << text;
    // A class with a base writes a stub for the base too.
    EXPECT_NE(text.find("\nwrtBase=stoClass(\"wrtBase\",&writer_test_3)\n"), std::string::npos);
}

TEST(Writer, StringLiteralsAndTheNullDoubleAreExact)
{
    wrtLeaf leaf;
    leaf.m_s = utString(utStringArray, "q\"b\\n\n\xC3\x01", 8);
    EXPECT_EQ(leaf_body(leaf), "root=wrtLeaf{5,0,\"q\\\"b\\\\n\\x0A\\xC3\\x01\",!{");
    leaf.m_s = utString("");
    leaf.m_d = -std::numeric_limits<double>::max();  // the null marker
    EXPECT_EQ(leaf_body(leaf), "root=wrtLeaf{5,@,\"\",!{");
}

// Doubles print as %.17g prints them, through the stream in whatever format the caller gave it; integers are
// decimal whatever the stream says. The caller's precision comes back, and the format is left alone.
TEST(Writer, DoublesTakeTheStreamsFormatAtPrecisionSeventeen)
{
    using std::ios_base;
    struct Case {
        ios_base::fmtflags flags;
        double d;
        std::string printed;
    };
    std::vector<Case> cases = {
        {ios_base::scientific, 2.5, "2.50000000000000000e+00"}, {ios_base::fixed, 0.1, "0.10000000000000001"},
        {ios_base::showpos, 2.5, "+2.5"},
        {ios_base::hex | ios_base::uppercase, 1e300, "1.0000000000000001E+300"},
    };
    for (double d : {0.1, 2.5, 3.0, 1e300, -2.5, 5e-324, 2.2250738585072014e-308, 123456789.125, -0.0, 1 / 3.}) {
        char printed[64];
        std::snprintf(printed, sizeof printed, "%.17g", d);
        cases.push_back({ios_base::fmtflags(), d, printed});
    }
    for (Case const& c : cases) {
        SCOPED_TRACE(c.printed);
        wrtLeaf leaf;
        leaf.m_base = 42;
        leaf.m_d = c.d;
        std::ostringstream os;
        os.flags(c.flags);
        os.precision(3);
        EXPECT_EQ(stoFileWriter().write(os, &leaf, sto_type_wrtLeaf()), 1);
        EXPECT_EQ(line_starting(os.str(), "root="), "root=wrtLeaf{42," + c.printed + ",@,!{");
        EXPECT_EQ(os.precision(), 3);
        EXPECT_EQ(os.flags(), c.flags);
    }
}

// Lines of 60 characters (45 bytes), then an empty line ends the data; an independent encoder is the oracle.
TEST(Writer, ByteArraysAreBase64InLinesOfSixty)
{
    wrtLeaf leaf;
    std::vector<unsigned char> bytes;
    for (int n : {0, 1, 2, 3, 44, 45, 46, 90, 200}) {
        bytes.resize(static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i)
            bytes[static_cast<std::size_t>(i)] = static_cast<unsigned char>(i * 37 + 11);
        leaf.m_bytes = stoByteArray(bytes.data(), n);
        std::string expected = "!{\n" + sto_test::base64_block(bytes) + "}!";
        EXPECT_NE(sto_test::written(&leaf, sto_type_wrtLeaf()).find(expected), std::string::npos) << n;
    }
}

TEST(Writer, StubsAreNamedAndCollisionsGetTheirFileId)
{
    wrtLeaf leaf;
    leaf.m_kind = sto_type_wrtHolder();
    std::string text = sto_test::written(&leaf, sto_type_wrtLeaf());
    // The class reached through the type handle is an object stub; its schema stub's name is taken already
    // in TYPE STUBS, so it carries its file id.
    std::string stub = line_starting(text, "wrtHolder=");
    EXPECT_EQ(stub.substr(0, 39), "wrtHolder=stoClass(\"wrtHolder\",&writer_");
    EXPECT_NE(stub.find("&writer_test_3#$"), std::string::npos);
    std::string schema_key = stub.substr(stub.find("&") + 1);
    schema_key.pop_back();
    EXPECT_EQ(line_starting(text, schema_key + "=").substr(0, schema_key.size() + 10),
              schema_key + "=stoSchema");
    EXPECT_NE(text.find("\n}!,&@,&wrtHolder}\n"), std::string::npos) << text;
}

TEST(Writer, NonFiniteNumbersFailBeforeAnythingIsPrinted)
{
    wrtLeaf leaf;
    for (double bad : {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                       std::numeric_limits<double>::quiet_NaN()}) {
        leaf.m_d = bad;
        int ok = 1;
        EXPECT_EQ(sto_test::written(&leaf, sto_type_wrtLeaf(), &ok), "");
        EXPECT_EQ(ok, 0);
    }
    EXPECT_EQ(stoValue::sto_memory_pool(), nullptr);
}

TEST(Writer, CountingEveryValueKeepsTheText)
{
    wrtOwnedInt owner;
    owner.m_leaf.m_other = &owner.m_leaf;
    std::string text = sto_test::written(&owner, sto_type_wrtOwnedInt());
    // Numbers as ever: the root 1, its members 2 to 7 in order (the leaf is #6), then the int that both
    // pointers reach, a record of its own; the leaf met three times.
    EXPECT_EQ(line_starting(text, "root="), "root=wrtOwnedInt{&#8,7,&#8,(8,9),#6,&#6}") << text;
    EXPECT_NE(text.find("\n#6=wrtLeaf{5,0,@,!{\n\n}!,&#6,&@}\n#8=int:7\n-OBJECT STUBS\n"), std::string::npos) << text;

    // Read back, the owner makes the int and the plain pointer points at it.
    std::ostringstream diagnostics;
    stoReadMemoryMap map(text.data(), static_cast<int>(text.size()));
    stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
    ASSERT_EQ(reader.error_count(), 0) << diagnostics.str();
    wrtOwnedInt copy;
    delete copy.m_first;
    copy.m_first = copy.m_second = nullptr;
    stoSynthesiser().synthesise(reader.look_up_value("root"), &copy);
    ASSERT_NE(copy.m_first, nullptr);
    EXPECT_EQ(*copy.m_first, 7);
    EXPECT_EQ(copy.m_second, copy.m_first);
    EXPECT_EQ(copy.m_leaf.m_other, &copy.m_leaf);
}
