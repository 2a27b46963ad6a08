// Store files read and written to the letter: the exact reports of malformed
// records, with the lines they name, and the text the writer prints.
#include "test_support.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

class iocDoubles {
    STO_PERSISTENT(iocDoubles)
public:
    virtual ~iocDoubles() = default;
    double m_d = 2.5;
    int m_i = 42;
};
STO_DECLARE_CLASS(iocDoubles)

STO_CLASS(iocDoubles, sto_test::saved_schema("io_conformance", 1))
{
    STO_MEMBER(m_d);
    STO_MEMBER(m_i);
}

namespace {

struct Read {
    std::string diagnostics;
    int errors = 0;
};

Read read_text(std::string const& text)
{
    sto_force_load();
    std::ostringstream diagnostics;
    stoReadMemoryMap map(text.data(), static_cast<int>(text.size()));
    stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
    return {diagnostics.str(), reader.error_count()};
}

// Lines 1 to 8; the first record of OBJECTS is on line 9.
std::string const kHeader =
    "STO1\n-TYPE STUBS\n"
    "stoSchemaID=stoClass(\"stoSchemaID\",&store_1)\n"
    "store_1=stoSchema(%$3,&%$2)\n"
    "%$2=stoSystem(1,&@)\n"
    "%$3=stoSchemaID{\"store\",1}\n"
    "-TYPES\n-OBJECTS\n";

int reports(std::string const& diagnostics)
{
    int n = 0;
    for (std::size_t at = diagnostics.find("Error on line "); at != std::string::npos;
         at = diagnostics.find("Error on line ", at + 1))
        ++n;
    return n;
}

}  // namespace

// The line number counts the line feeds the reader steps over, not those a
// string literal swallows: every report a runaway literal causes, in the
// scan and in the read, names the line where the literal began.
TEST(IoConformance, ReportsAfterARunawayStringNameItsLine)
{
    struct Case {
        std::string objects;
        std::string expected;
    };
    std::string const missing = "Error on line 9: Can't find beginning of section\n";
    Case const cases[] = {
        {"root=stoSchemaID{\"a,1}\n-OBJECT STUBS\n",
         "Error on line 9: string format" + missing +
             "Error on line 9: string formatError on line 9: unterminated paren list\n"
             "Error on line 9: Expected a '}' but got a '\xff' 0xffffffff\n" +
             missing},
        // A line feed inside a closed literal is not a line of the file.
        {"#2=utString:\"a\nb\"\nroot=stoSchemaID{\"a\"}\n-OBJECT STUBS\n",
         "Error on line 10: Number of fields does not match for class stoSchemaID\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.objects);
        Read r = read_text(kHeader + c.objects);
        EXPECT_EQ(r.diagnostics, c.expected);
        EXPECT_EQ(r.errors, reports(c.expected));
    }
}

// A node's dump: its own line, its kind (which ends no line), then each child
// one level in; a missing child is a null address two spaces in from the
// node.
TEST(IoConformance, NodeDumpsIndentMissingChildrenLikeTheNodeLine)
{
    sto_force_load();
    std::string const empty = "-TYPE STUBS\n-TYPES\n-OBJECTS\n-OBJECT STUBS\n";
    std::ostringstream diagnostics;
    stoReadMemoryMap map(empty.data(), static_cast<int>(empty.size()));
    stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
    stoReadTypeSection section(&reader);
    stoReadNodeArena arena;
    stoReadNode* array = new (arena) stoReadArrayNode(&section);
    stoReadNode* basic = new (arena) stoReadBasicNode(&section, nullptr);
    array->add_child(nullptr);
    array->add_child(basic);

    std::ostringstream dump, expected;
    array->dump(dump, 1);
    expected << "  Node " << static_cast<void const*>(array) << "\n    (array)"
             << "    " << static_cast<void const*>(nullptr) << "\n"
             << "    Node " << static_cast<void const*>(basic) << "\n      (basic)";
    EXPECT_EQ(dump.str(), expected.str());
    delete array;
}

// Doubles are printed through the stream at precision 17, in whatever
// format the caller gave it; integers are decimal whatever the stream says.
// The caller's precision comes back, and the format is left alone.
TEST(IoConformance, DoublesTakeTheStreamsFormatAtPrecisionSeventeen)
{
    struct Case {
        std::ios_base::fmtflags flags;
        double d;
        std::string root;
    };
    Case const cases[] = {
        {std::ios_base::fmtflags(), 2.5, "root=iocDoubles{2.5,42}"},
        {std::ios_base::fmtflags(), 0.1, "root=iocDoubles{0.10000000000000001,42}"},
        {std::ios_base::scientific, 2.5, "root=iocDoubles{2.50000000000000000e+00,42}"},
        {std::ios_base::fixed, 0.1, "root=iocDoubles{0.10000000000000001,42}"},
        {std::ios_base::showpos, 2.5, "root=iocDoubles{+2.5,42}"},
        {std::ios_base::hex | std::ios_base::uppercase, 1e300, "root=iocDoubles{1.0000000000000001E+300,42}"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.root);
        iocDoubles object;
        object.m_d = c.d;
        std::ostringstream os;
        os.flags(c.flags);
        os.precision(3);
        stoFileWriter writer;
        EXPECT_EQ(writer.write(os, &object, sto_type_iocDoubles()), 1);
        EXPECT_NE(os.str().find("\n" + c.root + "\n"), std::string::npos) << os.str();
        EXPECT_EQ(os.precision(), 3);
        EXPECT_EQ(os.flags(), c.flags);
    }
}
