// Store files to the letter: the dump of read nodes and the text the writer
// prints for doubles.
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
