// The sample application (examples/sample): its classes as the store sees them, the document generator
// and the deep equality that the round trips rely on; then generated documents round-trip through value
// graphs in memory, with the value pool installed as writes and reads install it, and through store
// files, which write again byte for byte: sharing, cycles, opaque and container classes included.
#include "test_support.h"

#include "sample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using sto_test::members_of;

namespace {

template <class T>
T const* as(stoObjectPtr const& o) { return T::sto_dynamic_cast(o.type(), o.ptr()); }

std::vector<stoClass const*> classes_of(stoSchema const* schema)
{
    std::vector<stoClass const*> out;
    for (stoSchemaIT it(schema); ++it;)
        if (stoClass const* c = as<stoClass>(it()->sto_object()))
            out.push_back(c);
    return out;
}

// The classes of the three schemas, built: building makes the prototypes, which stay.
std::vector<stoClass const*> all_sample_classes()
{
    sample_force_load();
    std::vector<stoClass const*> all;
    for (stoSchema* s : {sto_schema_annotation(), sto_schema_gdandtol(), sto_schema_vornetinput()})
        for (stoClass const* c : classes_of(s))
            all.push_back(c);
    for (stoClass const* c : all)
        c->build();
    return all;
}

// Every item listed by the document or one of its sheets, in list order.
std::vector<annNamedItem*> listed_items(annDocument const& doc)
{
    std::vector<annNamedItem*> out;
    for (int s = 0; s < doc.m_n_sheets; ++s)
        for (int i = 0; i < doc.m_sheets[s].m_items.size(); ++i)
            out.push_back(doc.m_sheets[s].m_items[i]);
    for (int i = 0; i < doc.m_items.size(); ++i)
        out.push_back(doc.m_items[i]);
    return out;
}

template <class T>
T* first_of(annDocument const& doc, std::function<bool(T const&)> const& wanted = nullptr)
{
    for (annNamedItem* item : listed_items(doc))
        if (T* t = dynamic_cast<T*>(item); t && (!wanted || wanted(*t)))
            return t;
    return nullptr;
}

}  // namespace

// Every class registers in its own schema; every member, inherited ones
// included, lies inside the object (an opaque class's members are its
// model's, laid out in the model).
TEST(SampleSchemas, EveryClassFitsItsDescriptionAndSchema)
{
    std::vector<stoClass const*> classes = all_sample_classes();
    struct Expected {
        stoSchema* schema;
        char const* name;
        int version;
        std::vector<std::string> classes;  // files name them: a rename breaks every file written
    } const expected[] = {
        {sto_schema_annotation(), "annotation", 16,
         {"annAngularDimension", "annAttachable", "annBalloon", "annCentreMark", "annDimension",
          "annDocument", "annImage", "annItemList", "annItemListMapper", "annLeader", "annLinearDimension",
          "annNamedItem", "annNote", "annOrdinateDimension", "annPoint", "annRadialDimension", "annRevision",
          "annSheet", "annStyle", "annTable", "annTitleBlock", "annTransform", "annTransformModel",
          "annUnits", "annVector", "annView", "annViewport", "stoMapperannTransformannTransformModel"}},
        {sto_schema_gdandtol(), "gdandtol", 6,
         {"gdtCompositeFrame", "gdtDatum", "gdtDatumReference", "gdtDatumSystem", "gdtDatumTarget",
          "gdtFeatureControlFrame", "gdtProfileTolerance", "gdtSymbol", "gdtToleranceZone"}},
        {sto_schema_vornetinput(), "vornetinput", 9,
         {"vniBoundary", "vniInput", "vniParameters", "vniPolyline", "vniSegment", "vniSite", "vniSource",
          "vniWeighting"}},
    };
    for (Expected const& e : expected) {
        SCOPED_TRACE(e.name);
        EXPECT_EQ(e.schema->name(), e.name);
        EXPECT_EQ(e.schema->version(), e.version);
        std::vector<std::string> names;
        for (stoClass const* c : classes_of(e.schema))
            names.push_back(c->name().str());
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, e.classes);
    }

    for (stoClass const* c : classes) {
        SCOPED_TRACE(c->name().str());
        stoClass const* layout = c;
        if (stoClassMapper const* cm = as<stoClassMapper>(c->mapper()->sto_object()))
            layout = cm->model_class(c);
        for (stoInheritedMemberIT it(c); ++it;) {
            EXPECT_GE(it.offset(), 8) << it()->name();  // after the virtual table pointer
            EXPECT_LE(it.offset() + it()->size(), layout->size()) << it()->name();
        }
    }
}

// The opaque transform is described by its model; the item list by its count and elements.
TEST(SampleMappers, TransformModelAndItemListFields)
{
    sample_force_load();
    stoClass const* opaque = sto_class_annTransform();
    EXPECT_EQ(members_of(opaque), (std::vector<std::string>{"m_values:fixed(double,12)"}));
    stoClassMapper const* cm = as<stoClassMapper>(opaque->mapper()->sto_object());
    ASSERT_NE(cm, nullptr);
    EXPECT_EQ(cm->model_class(opaque), sto_class_annTransformModel());

    EXPECT_EQ(members_of(sto_class_annItemList()),
              (std::vector<std::string>{"m_size:int", "m_array:var(prf(annNamedItem))"}));
}

// One seed makes one document, and deleting it frees everything.
TEST(SampleGenerator, TheSeedAloneDecidesTheDocumentAndDeletingFreesIt)
{
    all_sample_classes();
    long live = sample_live_objects();
    for (int n : {0, 1, 300}) {
        SCOPED_TRACE(n);
        annDocument* a = sample_make_document(n, 7);
        annDocument* b = sample_make_document(n, 7);
        std::string why;
        EXPECT_TRUE(sample_equal(*a, *b, &why)) << why;
        EXPECT_EQ(static_cast<int>(listed_items(*a).size()), n);
        sample_delete_document(a);
        delete b;
        EXPECT_EQ(sample_live_objects(), live);
    }
    // Values fixed when the generator was written: a change here means that
    // files or benchmarks made elsewhere no longer describe the same document.
    annDocument* doc = sample_make_document(40, 2024);
    annLinearDimension const* linear = first_of<annLinearDimension>(*doc);
    ASSERT_NE(linear, nullptr);
    EXPECT_EQ(doc->m_id, 497979275518141967LL);
    EXPECT_EQ(doc->m_sheets[0].m_items[0]->m_name, "LIN675840");
    EXPECT_EQ(linear->m_start.m_x, -537.3125);
    EXPECT_EQ(sample_census(*doc).at("annPoint"), 103);
    delete doc;
}

// What the round trips rely on finding in a document.
TEST(SampleGenerator, DocumentsHaveTheAdvertisedShape)
{
    int const n = 2000;
    annDocument* doc = sample_make_document(n, 3);
    std::map<std::string, long> census = sample_census(*doc);
    // Every concrete class an item can have, and the parts of items.
    for (char const* cls :
         {"annLinearDimension", "annAngularDimension", "annRadialDimension", "annOrdinateDimension",
          "annNote", "annBalloon", "annTable", "annCentreMark", "annImage", "gdtDatum",
          "gdtFeatureControlFrame", "gdtCompositeFrame", "gdtProfileTolerance", "gdtDatumTarget",
          "gdtDatumSystem", "vniInput", "annLeader", "annView", "annViewport", "annTitleBlock", "annRevision",
          "gdtSymbol", "vniSite", "vniSegment", "vniPolyline", "vniBoundary", "vniWeighting", "vniSource"})
        EXPECT_GE(census[cls], 1) << cls;
    std::vector<annNamedItem*> items = listed_items(*doc);
    ASSERT_EQ(static_cast<int>(items.size()), n);
    EXPECT_GE(doc->m_n_sheets, 2);

    // Features the round trips must meet: styles shared by many items or absent, plain pointers forwards,
    // backwards and into the sheets that list the items, null and empty comments, 64-bit ids.
    std::map<std::string, int> seen;
    for (annNamedItem const* item : items) {
        seen["shared style"] += item->m_style && item->m_style.count() > 2;
        seen["no style"] += !item->m_style;
        seen["pointer forwards"] += item->m_related && item->m_related->m_id > item->m_id;
        seen["pointer backwards"] += item->m_related && item->m_related->m_id < item->m_id;
        seen["pointer into a sheet"] += item->m_sheet && item->m_sheet->m_document == doc;
        seen["null comment"] += item->m_comment.is_null();
        seen["empty comment"] += !item->m_comment.is_null() && item->m_comment.length() == 0;
        seen["wide id"] += item->m_id > INT_MAX;
    }
    for (auto const& [feature, count] : seen)
        EXPECT_GT(count, 0) << feature;
    EXPECT_EQ(seen["wide id"], n);
    delete doc;
}

TEST(SampleEqual, NoticesEveryKindOfDifference)
{
    using Item = annNamedItem;
    struct Mutation {
        char const* what;
        std::function<void(annDocument&)> apply;
        char const* expected_in_why;
    } const mutations[] = {
        {"zero against negative zero",
         [](annDocument& d) {
             first_of<annCentreMark>(d, [](annCentreMark const& c) { return c.m_centre.m_z == 0; })
                 ->m_centre.m_z = -0.0;
         },
         "m_centre.m_z"},
        {"null string against empty",
         [](annDocument& d) {
             first_of<Item>(d, [](Item const& i) { return i.m_comment.is_null(); })->m_comment = "";
         },
         "m_comment"},
        {"one byte", [](annDocument& d) { d.m_thumbnail.array()[3] ^= 1; }, "m_thumbnail"},
        {"a type handle",
         [](annDocument& d) {
             annView* v = d.m_sheets[0].m_views;
             v->m_filter = v->m_filter == sto_type_annNote() ? sto_type_annTable() : sto_type_annNote();
         },
         "m_filter"},
        {"a shared opaque object",
         [](annDocument& d) { d.m_sheets[0].m_placement->set_coefficient(3, 1234.5); }, "m_placement"},
        {"a plain pointer redirected",
         [](annDocument& d) {
             Item* item = first_of<Item>(d, [](Item const& i) { return i.m_related; });
             item->m_related = item->m_related == item ? d.m_sheets[0].m_items[1] : item;
         },
         "m_related"},
        {"a ring of leaders cut short",
         [](annDocument& d) {
             annNote* n = first_of<annNote>(d, [](annNote const& x) { return x.m_n_leaders >= 2; });
             n->m_leaders[n->m_n_leaders - 1].m_next_leader = &n->m_leaders[n->m_n_leaders - 1];
         },
         "share"},
        {"a counted pointer no longer shared",
         [](annDocument& d) {
             Item* item = first_of<Item>(d, [](Item const& i) { return i.m_style && i.m_style.count() > 2; });
             item->m_style = coPrf<annStyle>(new annStyle(*item->m_style));
         },
         "share"},
        {"two items swapped in a list",
         [](annDocument& d) { std::swap(d.m_sheets[0].m_items.at(0), d.m_sheets[0].m_items.at(1)); },
         "m_items"},
    };
    annDocument* original = sample_make_document(500, 11);
    for (Mutation const& m : mutations) {
        SCOPED_TRACE(m.what);
        annDocument* changed = sample_make_document(500, 11);
        m.apply(*changed);
        std::string why;
        EXPECT_FALSE(sample_equal(*original, *changed, &why));
        EXPECT_NE(why.find(m.expected_in_why), std::string::npos) << why;
        EXPECT_FALSE(sample_equal(*changed, *original));
        delete changed;
    }
    delete original;
}

namespace {

// Fails at the first stub it meets.
struct FailingSynthesiser : stoTypeSynthesiser {
    void look_up_stub(stoRWRawPtr const&, stoStub const*) override { throw new stoIntTooBigException(); }
};

// Analyses a document, stubs what dangles, and synthesises a fresh one, or null when the synthesiser
// throws: then the graph, the partly built document and the pool must all be released cleanly. Type
// handles to classes outside the document become stubs, which the type synthesiser resolves back to the
// classes in memory.
template <class Synthesiser = stoTypeSynthesiser>
annDocument* round_trip(annDocument const& original)
{
    annDocument* copy = new annDocument;
    bool thrown = false;
    {
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        stoAnalyser analyser;
        stoValue* root = analyser.raw_to_value(sto_type_annDocument(), &original);
        analyser.stub_dangling_pointers();
        try {
            Synthesiser synthesiser;
            synthesiser.synthesise(root, copy);
        } catch (stoException* e) {
            delete e;
            thrown = true;
        }
        delete root;
        analyser.destroy_stubs();
    }
    if (thrown) {
        delete copy;
        return nullptr;
    }
    return copy;
}

}  // namespace

// Opaque objects are filled once each, at clean-up.
TEST(SampleRoundTrip, GeneratedDocumentsComeBackEqualWithTheirSharing)
{
    sample_force_load();
    for (int items : {0, 1, 700}) {
        SCOPED_TRACE(items);
        annDocument* original = sample_make_document(items, 1234u + static_cast<unsigned>(items));
        long transforms = sample_census(*original)["annTransform"];
        long before = sample_model_to_opaque_count();
        annDocument* copy = round_trip(*original);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(sample_model_to_opaque_count() - before, transforms);
        std::string why;
        EXPECT_TRUE(sample_equal(*original, *copy, &why)) << why;
        delete copy;
        delete original;
        EXPECT_EQ(stoValue::sto_memory_pool(), nullptr);
    }
}

TEST(SampleRoundTrip, AConversionThatThrowsPartWayLeavesNothingBehind)
{
    sample_force_load();
    annDocument* original = sample_make_document(60, 5u);
    EXPECT_EQ(round_trip<FailingSynthesiser>(*original), nullptr);
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
