// Malformed files: every problem is reported as "Error on line N: message"
// with the line of the record, and reading goes on.
#include "test_support.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

struct Read {
    std::string diagnostics;
    int errors = 0;
    bool has_root = false;
};

Read read_text(std::string const& text)
{
    sto_force_load();
    std::ostringstream diagnostics;
    stoReadMemoryMap map(text.data(), static_cast<int>(text.size()));
    stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
    return {diagnostics.str(), reader.error_count(), reader.look_up_value("root") != nullptr};
}

// Lines 1 to 8; the first record of OBJECTS is on line 9.
std::string const kHeader =
    "STO1\n-TYPE STUBS\n"
    "stoSchemaID=stoClass(\"stoSchemaID\",&store_1)\n"
    "store_1=stoSchema(%$3,&%$2)\n"
    "%$2=stoSystem(1,&@)\n"
    "%$3=stoSchemaID{\"store\",1}\n"
    "-TYPES\n-OBJECTS\n";

}  // namespace

TEST(ReaderErrors, EachMessageNamesTheLineOfItsRecord)
{
    struct Case {
        std::string objects;
        std::string expected;
    };
    Case const cases[] = {
        {"root=stoSchemaID{\"a\"}\n",
         "Error on line 9: Number of fields does not match for class stoSchemaID\n"},
        {"root=stoSchemaID{\"a\",\"b\"}\n",
         "Error on line 9: Basic type mismatch\nLooking for a stoIntType, I found a stoStringType\n"},
        {"root=stoSchemaID{\"a\",1\n", "Error on line 9: unterminated paren list\n"},
        {"root=stoSchemaID{\"a\",1}x\n", "Error on line 9: Expected a new line, but got a 'x' 0x78\n"},
        {"root=stoSchemaID{\"a\",1}\r\r\n", "Error on line 9: Expected a '\n' but got a '\r' 0x0d\n"},
        {"root=stoSchemaID{\"a\",^}\n", "Error on line 9: unexpected character '^' 0x5e\n"},
        {"root=stoSchemaID{\"a,1}\n", ": string format"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.objects);
        std::string text = kHeader;
        text += c.objects;
        text += "-OBJECT STUBS\n";
        Read r = read_text(text);
        EXPECT_GT(r.errors, 0);
        EXPECT_NE(r.diagnostics.find(c.expected), std::string::npos) << r.diagnostics;
    }
}

// The line number counts the line feeds the reader steps over, not those a
// string literal swallows: every report a runaway literal causes, in the
// scan and in the read, names the line where the literal began.
TEST(ReaderErrors, ReportsAfterARunawayStringNameItsLine)
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
        int reports = 0;
        for (std::size_t at = 0; (at = c.expected.find("Error on line ", at)) != std::string::npos; ++at)
            ++reports;
        EXPECT_EQ(r.errors, reports);
    }
}

TEST(ReaderErrors, TypeRecordsNameMetaClassesOfTheStoreSchema)
{
    Read r = read_text("-TYPE STUBS\nx=nope(1,&@)\ny=int(1,&@)\n-TYPES\n-OBJECTS\n-OBJECT STUBS\n");
    EXPECT_NE(r.diagnostics.find("Error on line 2: Can't find meta type called 'nope'\n"), std::string::npos)
        << r.diagnostics;
    EXPECT_NE(r.diagnostics.find("Error on line 3: Non class meta type 'int'\n"), std::string::npos)
        << r.diagnostics;
}

TEST(ReaderErrors, ValidFilesAndEmptySectionsReadCleanly)
{
    Read empty = read_text("-TYPE STUBS\n-TYPES\n-OBJECTS\n-OBJECT STUBS\n");
    EXPECT_EQ(empty.errors, 0) << empty.diagnostics;
    EXPECT_FALSE(empty.has_root);

    // Text before the first header is skipped; CR LF line ends are accepted.
    std::string text = "STO1\nroot=annDocument\n";
    text += kHeader.substr(5);
    text += "root=stoSchemaID{\"a\",1}\r\n-OBJECT STUBS\n";
    Read root = read_text(text);
    EXPECT_EQ(root.errors, 0) << root.diagnostics;
    EXPECT_TRUE(root.has_root);

    // Three headers only: the fourth section is missing in the scan and in the read.
    Read short_file = read_text("-TYPE STUBS\n-TYPES\n-OBJECTS\n");
    EXPECT_EQ(short_file.errors, 2);
    EXPECT_EQ(short_file.diagnostics, "Error on line 4: Can't find beginning of section\n"
                                      "Error on line 4: Can't find beginning of section\n");
}

TEST(ReaderErrors, HostileNestingAndReferenceChainsAreBounded)
{
    std::string deep = kHeader;
    deep += "root=stoSchemaID{";
    deep.append(1500, '<');
    deep += "\n-OBJECT STUBS\n";
    Read r = read_text(deep);
    EXPECT_GT(r.errors, 0);
    EXPECT_FALSE(r.has_root);

    // A chain of records each embedding the next, longer than the bound.
    std::string chain = kHeader;
    for (int i = 0; i < 1200; ++i) {
        chain += '#';
        chain += std::to_string(i + 2);
        chain += "=int:#";
        chain += std::to_string(i + 3);
        chain += '\n';
    }
    chain += "-OBJECT STUBS\n";
    Read c = read_text(chain);
    EXPECT_GT(c.errors, 0);
}

// Pointers to later records are fixed at the end; an owning one that would
// close a ring of owners is refused on the line of its record, and the
// records before it in the ring still point where they say.
TEST(ReaderErrors, OwningPointersClosingARingAreRefused)
{
    auto links = [](std::string const& last_target) {
        return "-TYPE STUBS\n"
               "stoSchemaLink=stoClass(\"stoSchemaLink\",&store_1)\n"
               "store_1=stoSchema(%$3,&%$2)\n"
               "%$2=stoSystem(1,&@)\n"
               "%$3=stoSchemaID{\"store\",1}\n"
               "-TYPES\n-OBJECTS\n"
               "#2=stoSchemaLink{&#3,&@}\n"
               "#3=stoSchemaLink{&#4,&@}\n"
               "#4=stoSchemaLink{&" + last_target + ",&@}\n"
               "-OBJECT STUBS\n";
    };
    Read ring = read_text(links("#2"));
    EXPECT_EQ(ring.errors, 1);
    EXPECT_EQ(ring.diagnostics, "Error on line 9: Record #4 would own itself through a pointer\n");
    Read chain = read_text(links("@"));
    EXPECT_EQ(chain.errors, 0) << chain.diagnostics;
}
