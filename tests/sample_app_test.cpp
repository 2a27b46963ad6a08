// The sample application (examples/sample): its classes as the store sees them, its two mappers' hooks,
// the document generator and the deep equality that the round trips rely on; then generated documents
// round-trip through value graphs in memory, with the value pool installed as writes and reads install
// it, and through store files, which write again byte for byte: sharing, cycles, opaque and container
// classes included.
#include "test_support.h"

#include "sample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using sto_test::bases_of;
using sto_test::describe;
using sto_test::members_of;

namespace {

std::vector<stoClass const*> classes_of(stoSchema const* schema)
{
    std::vector<stoClass const*> out;
    stoSchemaIT it(schema);
    while (++it) {
        stoObjectPtr o = it()->sto_object();
        if (stoClass const* c = stoClass::sto_dynamic_cast(o.type(), o.ptr()))
            out.push_back(c);
    }
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

template <class T>
T const* as(stoObjectPtr const& o)
{
    return T::sto_dynamic_cast(o.type(), o.ptr());
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
annNote* note_with_leaders(annDocument const& d)
{
    return first_of<annNote>(d, [](annNote const& n) { return n.m_n_leaders >= 2; });
}

}  // namespace

// ------------------------------------------------------------------ classes

// Every class registers in its own schema; every member, inherited ones
// included, lies inside the object (an opaque class's members are its
// model's, laid out in the model); every concrete object knows its class.
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
        ASSERT_NE(e.schema, nullptr);
        EXPECT_EQ(e.schema->name(), e.name);
        EXPECT_EQ(e.schema->version(), e.version);
        EXPECT_EQ(sto_system()->find_in_memory_schema(stoSchemaID(e.name, e.version)), e.schema);
        std::vector<std::string> names;
        for (stoClass const* c : classes_of(e.schema)) {
            EXPECT_EQ(c->schema(), e.schema) << c->name();
            names.push_back(c->name().str());
        }
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, e.classes);
    }

    long live = sample_live_objects();
    for (stoClass const* c : classes) {
        SCOPED_TRACE(c->name().str());
        stoClass const* layout = c;
        if (stoClassMapper const* cm = as<stoClassMapper>(c->mapper()->sto_object()))
            layout = cm->model_class(c);
        stoInheritedMemberIT it(c);
        int members = 0;
        for (; ++it; ++members) {
            EXPECT_GE(it.offset(), 8) << it()->name();  // after the virtual table pointer
            EXPECT_LE(it.offset() + it()->size(), layout->size()) << it()->name();
        }
        EXPECT_EQ(members, c->number_of_inherited_members());
        if (c->is_abstract())
            continue;
        // A class that forgot STO_PERSISTENT would answer its base's class here.
        void* p = c->create();
        ASSERT_NE(p, nullptr);
        stoRawPtr whole = c->true_type(p);
        EXPECT_TRUE(whole.type() == c->handle());
        EXPECT_EQ(whole.ptr(), p);
        c->destroy(p);
    }
    EXPECT_EQ(sample_live_objects(), live);
    EXPECT_TRUE(sto_class_annDimension()->is_abstract());
    EXPECT_FALSE(sto_class_annNote()->is_abstract());
}

// The round trips rely on the sample holding every kind of member somewhere.
TEST(SampleSchemas, EveryMemberKindAppearsSomewhere)
{
    std::map<std::string, std::string> where;  // kind -> first "Class::member" (or "Class")
    auto note = [&where](std::string const& kind, std::string const& place) { where.emplace(kind, place); };
    for (stoClass const* c : all_sample_classes()) {
        std::string name = c->name().str();
        if (c->is_abstract())
            note("abstract base", name);
        for (std::string const& b : bases_of(c))
            if (b.substr(b.find('@')) != "@0")
                note("base at a non-zero offset", name + " : " + b);
        if (as<stoClassMapper>(c->mapper()->sto_object()))
            note("opaque class", name);
        if (dynamic_cast<stoContainerMapper const*>(c->mapper()))
            note("container class", name);
        stoClassMemberIT it(c);
        while (++it) {
            std::string type = describe(it()->type());
            std::string kind = type.substr(0, type.find('('));
            stoObjectPtr t = it()->type()->sto_object();
            if (type == "int" && it()->size() == 8)
                kind = "64-bit int";
            else if (stoVariableArrayType const* v = as<stoVariableArrayType>(t))
                kind = as<stoOffsetArraySize>(v->array_size()->sto_object()) ? "sized array" : "method array";
            else if (as<stoClass>(t))
                kind = "embedded object";
            note(kind, name + "::" + it()->name().str());
        }
    }
    std::set<std::string> kinds;
    std::string map;
    for (auto const& [kind, place] : where) {
        kinds.insert(kind);
        map += "  " + kind + ": " + place + "\n";
    }
    EXPECT_EQ(kinds, (std::set<std::string>{"64-bit int", "abstract base", "base at a non-zero offset",
                                            "container class", "prf", "double", "embedded object", "fixed",
                                            "int", "method array", "opaque class", "prg", "ptr",
                                            "sized array", "stoByteArray", "handle", "utString"}))
        << map;
}

// ------------------------------------------------------------------ mappers

// The opaque transform is described by its model; the item list's mapper
// reports the fields where the class description puts them and keeps
// elements in place while the list grows.
TEST(SampleMappers, TransformModelAndItemListFields)
{
    sample_force_load();
    stoClass const* opaque = sto_class_annTransform();
    EXPECT_EQ(members_of(opaque), (std::vector<std::string>{"m_values:fixed(double,12)"}));
    stoClassMapper const* cm = as<stoClassMapper>(opaque->mapper()->sto_object());
    ASSERT_NE(cm, nullptr);
    EXPECT_EQ(cm->model_class(opaque), sto_class_annTransformModel());

    stoClass const* c = sto_class_annItemList();
    EXPECT_EQ(members_of(c), (std::vector<std::string>{"m_size:int", "m_array:var(prf(annNamedItem))"}));
    annItemListMapper const* mapper = sto_mapper_annItemListMapper();
    long live = sample_live_objects();
    {
        annItemList list;
        for (int i = 0; i < 3; ++i) {
            list.append(coPrf<annNamedItem>(new annCentreMark()));
            list[i]->m_id = i;
        }
        char const* base = reinterpret_cast<char const*>(&list);
        EXPECT_EQ(mapper->count_field(&list), base + c->offset(sto_test::slot(c, "m_size")));
        EXPECT_EQ(mapper->storage_field(&list), base + c->offset(sto_test::slot(c, "m_array")));
        EXPECT_EQ(*static_cast<int const*>(mapper->count_field(&list)), 3);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(static_cast<coPrf<annNamedItem>*>(mapper->element_address(&list, i))->get()->m_id, i);

        void* first = mapper->element_address(&list, 0);
        for (int i = 0; i < 5000; ++i)
            list.append(coPrf<annNamedItem>());
        EXPECT_EQ(mapper->element_address(&list, 0), first);
        EXPECT_EQ(mapper->container_size(&list), 5003);

        mapper->reset(&list, 4);
        EXPECT_EQ(list.m_size, 4);
        EXPECT_EQ(mapper->container_size(&list), 4);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(list[i], nullptr);
        EXPECT_EQ(sample_live_objects(), live);  // the earlier items were let go
        mapper->reset(&list, 0);
        EXPECT_EQ(list.m_array.size(), 0);
    }
    EXPECT_EQ(sample_live_objects(), live);
}

// ---------------------------------------------------------------- generator

// The seed alone decides the document, and deleting it frees everything.
TEST(SampleGenerator, TheSeedAloneDecidesTheDocumentAndDeletingFreesIt)
{
    all_sample_classes();
    long live = sample_live_objects();
    for (int n : {0, 1, 17, 300, 3000}) {
        SCOPED_TRACE(n);
        annDocument* a = sample_make_document(n, 7);
        annDocument* b = sample_make_document(n, 7);
        std::string why;
        EXPECT_TRUE(sample_equal(*a, *b, &why)) << why;
        EXPECT_EQ(why, "");
        EXPECT_EQ(static_cast<int>(listed_items(*a).size()), n);
        sample_delete_document(a);
        delete b;
        EXPECT_EQ(sample_live_objects(), live);
    }
    annDocument* a = sample_make_document(300, 7);
    annDocument* b = sample_make_document(300, 8);
    std::string why;
    EXPECT_FALSE(sample_equal(*a, *b, &why));
    EXPECT_EQ(why.rfind("document", 0), 0u) << why;
    EXPECT_FALSE(sample_equal(*b, *a));
    delete a;
    delete b;

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
    EXPECT_GT(doc->m_thumbnail.size(), 0);

    // A few styles are shared by very many items; plain pointers run forwards
    // and backwards; ids need 64 bits; comments are null or empty.
    std::map<annStyle const*, int> uses;
    int forwards = 0, backwards = 0, wide = 0, null_comments = 0, empty_comments = 0;
    for (annNamedItem const* item : items) {
        ++uses[item->m_style.get()];
        if (item->m_related) {
            forwards += item->m_related->m_id > item->m_id;
            backwards += item->m_related->m_id < item->m_id;
        }
        wide += item->m_id > INT_MAX;
        null_comments += item->m_comment.is_null();
        empty_comments += !item->m_comment.is_null() && item->m_comment.length() == 0;
    }
    int most = 0;
    for (auto const& [style, count] : uses)
        most = style ? std::max(most, count) : most;
    EXPECT_GE(most, n / 10);
    EXPECT_GT(uses[nullptr], 0);
    EXPECT_GT(forwards, 0);
    EXPECT_GT(backwards, 0);
    EXPECT_EQ(wide, n);
    EXPECT_GT(null_comments, 0);
    EXPECT_GT(empty_comments, 0);

    // Each sheet's items point back at it; views share items with the sheet.
    int shown = 0;
    for (int s = 0; s < doc->m_n_sheets; ++s) {
        annSheet const& sheet = doc->m_sheets[s];
        EXPECT_EQ(sheet.m_document, doc);
        EXPECT_EQ(sheet.m_placement.get(), doc->m_sheets[0].m_placement.get());
        for (int i = 0; i < sheet.m_items.size(); ++i)
            EXPECT_EQ(sheet.m_items[i]->m_sheet, &sheet);
        for (annView const* v = sheet.m_views; v; v = v->m_next_view)
            for (int i = 0; i < v->m_shown.size(); ++i, ++shown)
                EXPECT_GE(v->m_shown.at(i).count(), 2);  // listed by the sheet as well
    }
    EXPECT_GT(shown, 0);

    // The leaders of a note form a ring.
    annNote const* note = note_with_leaders(*doc);
    ASSERT_NE(note, nullptr);
    annLeader const* l = &note->m_leaders[0];
    for (int i = 0; i < note->m_n_leaders; ++i)
        l = l->m_next_leader;
    EXPECT_EQ(l, &note->m_leaders[0]);

    // One placement shared by every sheet, one transform per view, one per
    // computed datum system frame: the census counts shared objects once.
    long frames = 0;
    for (annNamedItem const* item : items)
        if (gdtDatumSystem const* d = dynamic_cast<gdtDatumSystem const*>(item))
            frames += d->m_frame.get() != nullptr;
    EXPECT_EQ(census["annTransform"], 1 + census["annView"] + frames);
    delete doc;
}

// ----------------------------------------------------------------- equality

TEST(SampleEqual, NoticesEveryKindOfDifference)
{
    using Item = annNamedItem;
    struct Mutation {
        char const* what;
        std::function<void(annDocument&)> apply;
        char const* expected_in_why;
    } const mutations[] = {
        {"one double", [](annDocument& d) { first_of<annLinearDimension>(d)->m_start.m_x += 1.0 / 64; },
         "m_start.m_x"},
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
             annNote* n = note_with_leaders(d);
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
        ASSERT_TRUE(sample_equal(*original, *changed));
        m.apply(*changed);
        std::string why;
        EXPECT_FALSE(sample_equal(*original, *changed, &why));
        EXPECT_NE(why.find(m.expected_in_why), std::string::npos) << why;
        EXPECT_FALSE(sample_equal(*changed, *original));
        delete changed;
    }
    delete original;
}

// ---------------------------------------------------------------- round trips

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
annDocument* round_trip(annDocument const& original, long* values = nullptr)
{
    annDocument* copy = new annDocument;
    bool thrown = false;
    {
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        stoAnalyser analyser;
        stoValue* root = analyser.raw_to_value(sto_type_annDocument(), &original);
        analyser.stub_dangling_pointers();
        if (values) {
            stoValuePtrcoSet all;
            root->participants(all);
            *values = all.size();
        }
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
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(sample_model_to_opaque_count() - before, transforms);
        std::string why;
        EXPECT_TRUE(sample_equal(*original, *copy, &why)) << why;
        EXPECT_GT(values, items);
        annDocument* again = round_trip(*copy);
        ASSERT_NE(again, nullptr);
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
