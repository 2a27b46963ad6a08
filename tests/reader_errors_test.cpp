// Malformed files: every problem is reported as "Error on line N: message" with the line of the record, and
// reading goes on; the inputs that once broke the reader read to the end; the dump of read nodes.
#include "fuzz/read_any.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
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
std::string const kHeader = "STO1\n-TYPE STUBS\n"
                            "stoSchemaID=stoClass(\"stoSchemaID\",&store_1)\n"
                            "store_1=stoSchema(%$3,&%$2)\n"
                            "%$2=stoSystem(1,&@)\n"
                            "%$3=stoSchemaID{\"store\",1}\n"
                            "-TYPES\n-OBJECTS\n";

}  // namespace

TEST(ReaderErrors, EachMessageNamesTheLineOfItsRecord)
{
    std::string const missing = "Error on line 9: Can't find beginning of section\n";
    struct Case {
        std::string text, expected;
        bool whole = false;  // the reports are exactly these, not only among them
    } const cases[] = {
        {kHeader + "root=stoSchemaID{\"a\"}\n",
         "Error on line 9: Number of fields does not match for class stoSchemaID\n"},
        {kHeader + "root=stoSchemaID{\"a\",\"b\"}\n",
         "Error on line 9: Basic type mismatch\nLooking for a stoIntType, I found a stoStringType\n"},
        {kHeader + "root=stoSchemaID{\"a\",1\n", "Error on line 9: unterminated paren list\n"},
        {kHeader + "root=stoSchemaID{\"a\",1}\r\r\n",
         "Error on line 9: Expected a '\n' but got a '\r' 0x0d\n"},
        {kHeader + "root=stoSchemaID{\"a\",^}\n", "Error on line 9: unexpected character '^' 0x5e\n"},
        {"-TYPE STUBS\nx=nope(1,&@)\n-TYPES\n-OBJECTS\n",
         "Error on line 2: Can't find meta type called 'nope'\n"},
        {"-TYPE STUBS\nx=int(1,&@)\n-TYPES\n-OBJECTS\n", "Error on line 2: Non class meta type 'int'\n"},
        // The line number counts the line feeds the reader steps over, not those a string literal swallows:
        // every report a runaway literal causes, in the scan and in the read, names the line where it began.
        {kHeader + "root=stoSchemaID{\"a,1}\n-OBJECT STUBS\n",
         "Error on line 9: string format" + missing +
             "Error on line 9: string formatError on line 9: unterminated paren list\n"
             "Error on line 9: Expected a '}' but got a '\xff' 0xffffffff\n" + missing,
         true},
        // A line feed inside a closed literal is not a line of the file.
        {kHeader + "#2=utString:\"a\nb\"\nroot=stoSchemaID{\"a\"}\n-OBJECT STUBS\n",
         "Error on line 10: Number of fields does not match for class stoSchemaID\n", true},
        // Three headers only: the fourth section is missing in the scan and in the read.
        {"-TYPE STUBS\n-TYPES\n-OBJECTS\n",
         "Error on line 4: Can't find beginning of section\n"
         "Error on line 4: Can't find beginning of section\n",
         true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        Read r = read_text(c.whole ? c.text : c.text + "-OBJECT STUBS\n");
        if (c.whole) {
            EXPECT_EQ(r.diagnostics, c.expected);
            int reports = 0;
            for (std::size_t at = 0; (at = c.expected.find("Error on line ", at)) != std::string::npos; ++at)
                ++reports;
            EXPECT_EQ(r.errors, reports);
        } else {
            EXPECT_GT(r.errors, 0);
            EXPECT_NE(r.diagnostics.find(c.expected), std::string::npos) << r.diagnostics;
        }
    }
}

TEST(ReaderErrors, ValidFilesAndEmptySectionsReadCleanly)
{
    Read empty = read_text("-TYPE STUBS\n-TYPES\n-OBJECTS\n-OBJECT STUBS\n");
    EXPECT_EQ(empty.errors, 0) << empty.diagnostics;
    EXPECT_FALSE(empty.has_root);

    // Text before the first header is skipped; CR LF line ends are accepted.
    Read root =
        read_text("STO1\nroot=annDocument\n" + kHeader.substr(5) + "root=stoSchemaID{\"a\",1}\r\n-OBJECT STUBS\n");
    EXPECT_EQ(root.errors, 0) << root.diagnostics;
    EXPECT_TRUE(root.has_root);
}

TEST(ReaderErrors, HostileNestingAndReferenceChainsAreBounded)
{
    Read r = read_text(kHeader + "root=stoSchemaID{" + std::string(1500, '<') + "\n-OBJECT STUBS\n");
    EXPECT_GT(r.errors, 0);
    EXPECT_FALSE(r.has_root);

    // A chain of records each embedding the next, longer than the bound.
    std::string chain = kHeader;
    for (int i = 2; i < 1202; ++i)
        chain += "#" + std::to_string(i) + "=int:#" + std::to_string(i + 1) + "\n";
    EXPECT_GT(read_text(chain + "-OBJECT STUBS\n").errors, 0);
}

// Pointers to later records are fixed at the end; an owning one that would close a ring of owners is refused
// on the line of its record, and the records before it in the ring still point where they say.
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

// Every input under tests/fuzz/regressions/ once crashed, hung, leaked or tripped a sanitizer in the reader.
// Each goes through the reader fuzz target's read path again: it must finish, and the sanitizer build checks
// that it does so cleanly.
TEST(FuzzReplay, EveryRegressionInputReadsToTheEnd)
{
    std::set<std::filesystem::path> inputs;
    for (auto const& entry : std::filesystem::directory_iterator(STO_FUZZ_REGRESSIONS_DIR))
        if (entry.is_regular_file())
            inputs.insert(entry.path());
    ASSERT_FALSE(inputs.empty()) << "no inputs in " << STO_FUZZ_REGRESSIONS_DIR;
    for (auto const& path : inputs) {
        SCOPED_TRACE(path.filename().string());
        std::ifstream in(path, std::ios::binary);
        ASSERT_TRUE(in) << path;
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        // A buffer of exactly the input's size, as the fuzzer gives it, so that reads past the end are caught.
        std::unique_ptr<char[]> exact(new char[std::max<std::size_t>(bytes.size(), 1)]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        // Twice, as the fuzzer runs an input again to look for leaks: what the first reading leaves behind
        // in the process (a schema linked into the system, say) must not trouble the second.
        for (int run = 0; run < 2; ++run)
            sto_fuzz::read_any(exact.get(), bytes.size());
    }
}

// A node's dump: its own line, its kind (which ends no line), then each child one level in; a missing child
// is a null address two spaces in from the node.
TEST(ReadNodes, DumpsIndentMissingChildrenLikeTheNodeLine)
{
    sto_force_load();
    std::string const empty = "-TYPE STUBS\n-TYPES\n-OBJECTS\n-OBJECT STUBS\n";
    std::ostringstream diagnostics, dump, expected;
    stoReadMemoryMap map(empty.data(), static_cast<int>(empty.size()));
    stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
    stoReadTypeSection section(&reader);
    stoReadNodeArena arena;
    stoReadNode* array = new (arena) stoReadArrayNode(&section);
    stoReadNode* basic = new (arena) stoReadBasicNode(&section, nullptr);
    array->add_child(nullptr);
    array->add_child(basic);
    array->dump(dump, 1);
    expected << "  Node " << static_cast<void const*>(array) << "\n    (array)" << "    "
             << static_cast<void const*>(nullptr) << "\n    Node " << static_cast<void const*>(basic)
             << "\n      (basic)";
    EXPECT_EQ(dump.str(), expected.str());
    delete array;
}
