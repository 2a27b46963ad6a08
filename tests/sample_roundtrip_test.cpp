// Generated documents of the sample application round-trip through value
// graphs in memory, with the value pool installed as writes and reads install
// it, and through store files, which write again byte for byte: sharing,
// cycles, opaque and container classes included.
#include "sample.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

// Analyses a document, stubs what dangles, and synthesises a fresh one. Type
// handles to classes outside the document become stubs, which the type
// synthesiser resolves back to the classes in memory.
annDocument* round_trip(annDocument const& original, long* values = nullptr)
{
    annDocument* copy = new annDocument;
    stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
    stoAnalyser analyser;
    stoValue* root = analyser.raw_to_value(sto_type_annDocument(), &original);
    analyser.stub_dangling_pointers();
    if (values) {
        stoValuePtrcoSet all;
        root->participants(all);
        *values = all.size();
    }
    {
        stoTypeSynthesiser synthesiser;
        synthesiser.synthesise(root, copy);
    }
    delete root;
    analyser.destroy_stubs();
    return copy;
}

}  // namespace

// Opaque objects are filled once each, at clean-up. The copy is a document
// of its own: a second round trip from it gives the same document again.
TEST(SampleRoundTrip, GeneratedDocumentsComeBackEqualWithTheirSharing)
{
    sample_force_load();
    for (int items : {0, 1, 40, 700}) {
        SCOPED_TRACE(items);
        annDocument* original = sample_make_document(items, 1234u + static_cast<unsigned>(items));
        long transforms = sample_census(*original)["annTransform"];
        long before = sample_model_to_opaque_count();
        long values = 0;
        annDocument* copy = round_trip(*original, &values);
        EXPECT_EQ(sample_model_to_opaque_count() - before, transforms);
        std::string why;
        EXPECT_TRUE(sample_equal(*original, *copy, &why)) << why;
        EXPECT_GT(values, items);
        annDocument* again = round_trip(*copy);
        EXPECT_TRUE(sample_equal(*original, *again, &why)) << why;
        delete again;
        delete copy;
        delete original;
        EXPECT_EQ(stoValue::sto_memory_pool(), nullptr);
    }
}

TEST(SampleRoundTrip, AConversionThatThrowsPartWayLeavesNothingBehind)
{
    sample_force_load();
    annDocument* original = sample_make_document(60, 5u);
    // A synthesiser that fails at the first stub it meets: the graph, the
    // partly built document and the pool must all be released cleanly.
    struct Failing : stoTypeSynthesiser {
        void look_up_stub(stoRWRawPtr const&, stoStub const*) override { throw new stoIntTooBigException(); }
    };
    annDocument* copy = new annDocument;
    bool thrown = false;
    {
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        stoAnalyser analyser;
        stoValue* root = analyser.raw_to_value(sto_type_annDocument(), original);
        analyser.stub_dangling_pointers();
        try {
            Failing synthesiser;
            synthesiser.synthesise(root, copy);
        } catch (stoException* e) {
            delete e;
            thrown = true;
        }
        delete root;
        analyser.destroy_stubs();
    }
    EXPECT_TRUE(thrown);
    delete copy;
    delete original;
}

TEST(FileRoundTrip, GeneratedDocumentsReadBackEqualAndWriteAgainIdentically)
{
    sample_force_load();
    for (int items : {0, 30, 400}) {
        SCOPED_TRACE(items);
        annDocument* original = sample_make_document(items, 77u + static_cast<unsigned>(items));
        std::string text = sto_test::written(original, sto_type_annDocument());
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
        EXPECT_EQ(sto_test::written(copy, sto_type_annDocument()), text);
        delete copy;
        delete original;
    }
}
