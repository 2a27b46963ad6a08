// Live documents written as store files and read back: equal documents, and
// files that write again byte for byte.
#include "sample.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

std::string write_document(annDocument const& document)
{
    std::ostringstream os;
    stoFileWriter writer;
    EXPECT_EQ(writer.write(os, &document, sto_type_annDocument()), 1);
    return os.str();
}

}  // namespace

TEST(FileRoundTrip, GeneratedDocumentsReadBackEqualAndWriteAgainIdentically)
{
    sample_force_load();
    for (int items : {0, 30, 400}) {
        SCOPED_TRACE(items);
        annDocument* original = sample_make_document(items, 77u + static_cast<unsigned>(items));
        std::string text = write_document(*original);
        std::ostringstream diagnostics;
        annDocument* copy = new annDocument;
        {
            stoReadMemoryMap map(text.data(), static_cast<int>(text.size()));
            stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
            EXPECT_EQ(reader.error_count(), 0) << diagnostics.str();
            stoValue const* root = reader.look_up_value("root");
            ASSERT_NE(root, nullptr);
            stoTypeSynthesiser synthesiser;
            synthesiser.synthesise(root, copy);
        }
        std::string why;
        EXPECT_TRUE(sample_equal(*original, *copy, &why)) << why;
        EXPECT_EQ(write_document(*copy), text);
        delete copy;
        delete original;
    }
}
