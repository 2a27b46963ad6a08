// cereal JSON of the mirror model (mirror_model.h). cereal resolves shared
// and owning smart pointers itself, polymorphic ones through registered
// class names; it has no plain pointers, so these are written as ids the way
// cereal users do: an item by its m_id, a sheet by its place in the
// document, a leader by its place in its note, a site by its place in its
// input, the document as 0. Reading collects the ids and sets the pointers
// once their targets exist. Byte arrays are Base64 (the archive's binary
// values), optional strings use cereal's own optional support. The output
// is not indented.
//
// Include it in one translation unit only: it registers the item classes.
#pragma once

#include "mirror_model.h"

#include <cereal/archives/json.hpp>
#include <cereal/types/base_class.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/optional.hpp>
#include <cereal/types/polymorphic.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>

namespace mirror {

// What writing and reading one document needs besides the archive: the
// places that turn pointers into ids and back. One document at a time.
struct CerealContext {
    // Writing.
    Document const* document = nullptr;
    std::vector<std::unique_ptr<Leader>> const* leaders = nullptr;  // of the note being written
    std::vector<Site> const* sites = nullptr;                       // of the input being written

    // Reading.
    struct ItemFix {
        void* slot;
        void (*set)(void*, NamedItem*);
        long long id;
    };
    std::unordered_map<long long, NamedItem*> items;
    std::vector<ItemFix> item_fixes;
    std::vector<std::pair<Sheet**, long long>> sheet_fixes;
    std::vector<Document**> document_fixes;
    std::vector<std::pair<Leader**, long long>> leader_fixes;  // resolved at the end of each note
    std::vector<std::pair<Site**, long long>> site_fixes;      // resolved at the end of each input

    template <class T>
    static void set_as(void* slot, NamedItem* item)
    {
        *static_cast<T**>(slot) = static_cast<T*>(item);
    }
};

inline CerealContext* g_cereal = nullptr;

#define MIRROR_NVP(m) cereal::make_nvp(#m, x.m)

template <class A, class T>
void item_ref(A& ar, char const* name, T*& p)
{
    long long id = -1;
    if constexpr (A::is_saving::value) {
        if (p)
            id = p->m_id;
        ar(cereal::make_nvp(name, id));
    } else {
        ar(cereal::make_nvp(name, id));
        p = nullptr;
        if (id >= 0)
            g_cereal->item_fixes.push_back(CerealContext::ItemFix{&p, &CerealContext::set_as<T>, id});
    }
}

template <class A>
void sheet_ref(A& ar, char const* name, Sheet*& p)
{
    long long at = -1;
    if constexpr (A::is_saving::value) {
        auto const& sheets = g_cereal->document->m_sheets;
        for (std::size_t i = 0; i < sheets.size() && p; ++i)
            if (sheets[i].get() == p)
                at = static_cast<long long>(i);
        ar(cereal::make_nvp(name, at));
    } else {
        ar(cereal::make_nvp(name, at));
        p = nullptr;
        if (at >= 0)
            g_cereal->sheet_fixes.emplace_back(&p, at);
    }
}

template <class A>
void document_ref(A& ar, char const* name, Document*& p)
{
    long long at = -1;
    if constexpr (A::is_saving::value) {
        if (p)
            at = 0;
        ar(cereal::make_nvp(name, at));
    } else {
        ar(cereal::make_nvp(name, at));
        p = nullptr;
        if (at == 0)
            g_cereal->document_fixes.push_back(&p);
    }
}

template <class A>
void leader_ref(A& ar, char const* name, Leader*& p)
{
    long long at = -1;
    if constexpr (A::is_saving::value) {
        auto const& leaders = *g_cereal->leaders;
        for (std::size_t i = 0; i < leaders.size() && p; ++i)
            if (leaders[i].get() == p)
                at = static_cast<long long>(i);
        ar(cereal::make_nvp(name, at));
    } else {
        ar(cereal::make_nvp(name, at));
        p = nullptr;
        if (at >= 0)
            g_cereal->leader_fixes.emplace_back(&p, at);
    }
}

template <class A>
void site_ref(A& ar, char const* name, Site*& p)
{
    long long at = -1;
    if constexpr (A::is_saving::value) {
        if (p)
            at = p - g_cereal->sites->data();
        ar(cereal::make_nvp(name, at));
    } else {
        ar(cereal::make_nvp(name, at));
        p = nullptr;
        if (at >= 0)
            g_cereal->site_fixes.emplace_back(&p, at);
    }
}

template <class A>
void save(A& ar, Bytes const& x)
{
    ar(cereal::make_nvp("size", static_cast<std::uint64_t>(x.data.size())));
    ar.saveBinaryValue(x.data.data(), x.data.size(), "data");
}

template <class A>
void load(A& ar, Bytes& x)
{
    std::uint64_t n = 0;
    ar(cereal::make_nvp("size", n));
    x.data.resize(static_cast<std::size_t>(n));
    ar.loadBinaryValue(x.data.data(), x.data.size(), "data");
}

// ---------------------------------------------------------------- annotation

template <class A>
void serialize(A& ar, Point& x)
{
    ar(MIRROR_NVP(m_x), MIRROR_NVP(m_y), MIRROR_NVP(m_z));
}

template <class A>
void serialize(A& ar, Vector& x)
{
    ar(MIRROR_NVP(m_dx), MIRROR_NVP(m_dy), MIRROR_NVP(m_dz));
}

template <class A>
void serialize(A& ar, Style& x)
{
    ar(MIRROR_NVP(m_name), MIRROR_NVP(m_colour), MIRROR_NVP(m_line_width), MIRROR_NVP(m_bold), MIRROR_NVP(m_font));
}

template <class A>
void serialize(A& ar, Units& x)
{
    ar(MIRROR_NVP(m_length_unit), MIRROR_NVP(m_angle_unit), MIRROR_NVP(m_scale), MIRROR_NVP(m_symbol));
}

template <class A>
void serialize(A& ar, Attachable& x)
{
    ar(MIRROR_NVP(m_anchor), MIRROR_NVP(m_attached), MIRROR_NVP(m_attach_side));
}

template <class A>
void serialize(A& ar, NamedItem& x)
{
    ar(MIRROR_NVP(m_id), MIRROR_NVP(m_name), MIRROR_NVP(m_comment), MIRROR_NVP(m_style));
    sheet_ref(ar, "m_sheet", x.m_sheet);
    item_ref(ar, "m_related", x.m_related);
    ar(MIRROR_NVP(m_layer), MIRROR_NVP(m_visible));
    if constexpr (A::is_loading::value)
        g_cereal->items.emplace(x.m_id, &x);
}

template <class A>
void serialize(A& ar, Dimension& x)
{
    ar(cereal::base_class<NamedItem>(&x));
    ar(MIRROR_NVP(m_value), MIRROR_NVP(m_upper_tolerance), MIRROR_NVP(m_lower_tolerance), MIRROR_NVP(m_precision),
       MIRROR_NVP(m_reference), MIRROR_NVP(m_text_position), MIRROR_NVP(m_prefix), MIRROR_NVP(m_suffix));
}

template <class A>
void serialize(A& ar, LinearDimension& x)
{
    ar(cereal::base_class<Dimension>(&x));
    ar(MIRROR_NVP(m_start), MIRROR_NVP(m_end), MIRROR_NVP(m_direction));
}

template <class A>
void serialize(A& ar, AngularDimension& x)
{
    ar(cereal::base_class<Dimension>(&x));
    ar(MIRROR_NVP(m_vertex), MIRROR_NVP(m_legs), MIRROR_NVP(m_reflex));
}

template <class A>
void serialize(A& ar, RadialDimension& x)
{
    ar(cereal::base_class<Dimension>(&x));
    ar(MIRROR_NVP(m_centre), MIRROR_NVP(m_radius), MIRROR_NVP(m_diameter));
}

template <class A>
void serialize(A& ar, OrdinateDimension& x)
{
    ar(cereal::base_class<Dimension>(&x));
    ar(MIRROR_NVP(m_origin), MIRROR_NVP(m_axis));
    item_ref(ar, "m_baseline", x.m_baseline);
}

template <class A>
void serialize(A& ar, Leader& x)
{
    ar(MIRROR_NVP(m_start), MIRROR_NVP(m_vertices), MIRROR_NVP(m_arrow));
    leader_ref(ar, "m_next_leader", x.m_next_leader);
    item_ref(ar, "m_target", x.m_target);
}

template <class A>
void serialize(A& ar, Note& x)
{
    ar(cereal::base_class<NamedItem>(&x), cereal::base_class<Attachable>(&x));
    ar(MIRROR_NVP(m_text), MIRROR_NVP(m_text_height));
    if constexpr (A::is_saving::value) {
        g_cereal->leaders = &x.m_leaders;
        ar(MIRROR_NVP(m_leaders));
    } else {
        g_cereal->leader_fixes.clear();
        ar(MIRROR_NVP(m_leaders));
        for (auto const& [slot, at] : g_cereal->leader_fixes)
            *slot = x.m_leaders.at(static_cast<std::size_t>(at)).get();
        g_cereal->leader_fixes.clear();
    }
}

template <class A>
void serialize(A& ar, Balloon& x)
{
    ar(cereal::base_class<Note>(&x));
    ar(MIRROR_NVP(m_shape), MIRROR_NVP(m_item_number), MIRROR_NVP(m_radius));
}

template <class A>
void serialize(A& ar, Table& x)
{
    ar(cereal::base_class<NamedItem>(&x));
    ar(MIRROR_NVP(m_rows), MIRROR_NVP(m_columns), MIRROR_NVP(m_column_widths), MIRROR_NVP(m_cells));
}

template <class A>
void serialize(A& ar, CentreMark& x)
{
    ar(cereal::base_class<NamedItem>(&x));
    ar(MIRROR_NVP(m_centre), MIRROR_NVP(m_size), MIRROR_NVP(m_extended));
}

template <class A>
void serialize(A& ar, Image& x)
{
    ar(cereal::base_class<NamedItem>(&x));
    ar(MIRROR_NVP(m_width), MIRROR_NVP(m_height), MIRROR_NVP(m_pixels), MIRROR_NVP(m_format));
}

template <class A>
void serialize(A& ar, Transform& x)
{
    ar(MIRROR_NVP(m_coefficients));
}

template <class A>
void serialize(A& ar, ItemList& x)
{
    ar(MIRROR_NVP(m_items));
}

template <class A>
void serialize(A& ar, Viewport& x)
{
    ar(MIRROR_NVP(m_bounds), MIRROR_NVP(m_scale), MIRROR_NVP(m_label));
}

template <class A>
void serialize(A& ar, View& x)
{
    ar(MIRROR_NVP(m_name), MIRROR_NVP(m_matrix), MIRROR_NVP(m_transform), MIRROR_NVP(m_filter),
       MIRROR_NVP(m_viewport), MIRROR_NVP(m_next_view), MIRROR_NVP(m_shown));
    sheet_ref(ar, "m_sheet", x.m_sheet);
}

template <class A>
void serialize(A& ar, Revision& x)
{
    ar(MIRROR_NVP(m_letter), MIRROR_NVP(m_description), MIRROR_NVP(m_date));
}

template <class A>
void serialize(A& ar, TitleBlock& x)
{
    ar(MIRROR_NVP(m_title), MIRROR_NVP(m_drawn_by), MIRROR_NVP(m_checked_by), MIRROR_NVP(m_drawing_number),
       MIRROR_NVP(m_logo), MIRROR_NVP(m_revisions));
}

template <class A>
void serialize(A& ar, Sheet& x)
{
    ar(MIRROR_NVP(m_name), MIRROR_NVP(m_number), MIRROR_NVP(m_bounds), MIRROR_NVP(m_title_block),
       MIRROR_NVP(m_placement), MIRROR_NVP(m_views), MIRROR_NVP(m_items));
    document_ref(ar, "m_document", x.m_document);
}

template <class A>
void serialize(A& ar, Document& x)
{
    if constexpr (A::is_saving::value)
        g_cereal->document = &x;
    ar(MIRROR_NVP(m_name), MIRROR_NVP(m_author), MIRROR_NVP(m_id), MIRROR_NVP(m_format), MIRROR_NVP(m_units),
       MIRROR_NVP(m_thumbnail), MIRROR_NVP(m_default_style), MIRROR_NVP(m_sheets), MIRROR_NVP(m_items));
    item_ref(ar, "m_focus", x.m_focus);
}

// ------------------------------------------------------------------ gdandtol

template <class A>
void serialize(A& ar, Symbol& x)
{
    ar(MIRROR_NVP(m_name), MIRROR_NVP(m_text), MIRROR_NVP(m_glyph), MIRROR_NVP(m_characteristic));
}

template <class A>
void serialize(A& ar, Datum& x)
{
    ar(cereal::base_class<NamedItem>(&x));
    ar(MIRROR_NVP(m_label), MIRROR_NVP(m_location), MIRROR_NVP(m_feature_kind));
}

template <class A>
void serialize(A& ar, DatumReference& x)
{
    item_ref(ar, "m_datum", x.m_datum);
    ar(MIRROR_NVP(m_modifier), MIRROR_NVP(m_precedence));
}

template <class A>
void serialize(A& ar, ToleranceZone& x)
{
    ar(MIRROR_NVP(m_width), MIRROR_NVP(m_shape), MIRROR_NVP(m_projected), MIRROR_NVP(m_projection_length));
}

template <class A>
void serialize(A& ar, FeatureControlFrame& x)
{
    ar(cereal::base_class<NamedItem>(&x), cereal::base_class<Attachable>(&x));
    ar(MIRROR_NVP(m_characteristic), MIRROR_NVP(m_zone), MIRROR_NVP(m_references));
    item_ref(ar, "m_feature", x.m_feature);
    ar(MIRROR_NVP(m_symbol), MIRROR_NVP(m_note));
}

template <class A>
void serialize(A& ar, CompositeFrame& x)
{
    ar(cereal::base_class<FeatureControlFrame>(&x));
    ar(MIRROR_NVP(m_lower_segment));
}

template <class A>
void serialize(A& ar, ProfileTolerance& x)
{
    ar(cereal::base_class<FeatureControlFrame>(&x));
    ar(MIRROR_NVP(m_all_around), MIRROR_NVP(m_unequal_offset), MIRROR_NVP(m_profile_of));
}

template <class A>
void serialize(A& ar, DatumTarget& x)
{
    ar(cereal::base_class<NamedItem>(&x));
    item_ref(ar, "m_datum", x.m_datum);
    ar(MIRROR_NVP(m_index), MIRROR_NVP(m_area), MIRROR_NVP(m_point));
}

template <class A>
void serialize(A& ar, DatumSystem& x)
{
    ar(cereal::base_class<NamedItem>(&x));
    ar(MIRROR_NVP(m_references), MIRROR_NVP(m_frame));
}

// --------------------------------------------------------------- vornetinput

template <class A>
void serialize(A& ar, Site& x)
{
    ar(MIRROR_NVP(m_id), MIRROR_NVP(m_position), MIRROR_NVP(m_weight), MIRROR_NVP(m_flags), MIRROR_NVP(m_tag));
}

template <class A>
void serialize(A& ar, Segment& x)
{
    site_ref(ar, "m_from", x.m_from);
    site_ref(ar, "m_to", x.m_to);
    ar(MIRROR_NVP(m_kind), MIRROR_NVP(m_constrained));
}

template <class A>
void polyline_fields(A& ar, Polyline& x)
{
    std::vector<long long> at;
    if constexpr (A::is_saving::value) {
        at.reserve(x.m_vertices.size());
        for (Site* v : x.m_vertices)
            at.push_back(v ? v - g_cereal->sites->data() : -1);
        ar(cereal::make_nvp("m_vertices", at));
    } else {
        ar(cereal::make_nvp("m_vertices", at));
        x.m_vertices.assign(at.size(), nullptr);
        for (std::size_t i = 0; i < at.size(); ++i)
            if (at[i] >= 0)
                g_cereal->site_fixes.emplace_back(&x.m_vertices[i], at[i]);
    }
    ar(MIRROR_NVP(m_closed), MIRROR_NVP(m_next));
}

template <class A>
void serialize(A& ar, Polyline& x)
{
    polyline_fields(ar, x);
}

template <class A>
void serialize(A& ar, Boundary& x)
{
    polyline_fields(ar, x);
    ar(MIRROR_NVP(m_outer), MIRROR_NVP(m_offset));
}

template <class A>
void serialize(A& ar, Parameters& x)
{
    ar(MIRROR_NVP(m_tolerance), MIRROR_NVP(m_max_iterations), MIRROR_NVP(m_clip), MIRROR_NVP(m_output_kind));
}

template <class A>
void serialize(A& ar, Weighting& x)
{
    ar(MIRROR_NVP(m_scheme), MIRROR_NVP(m_weights));
}

template <class A>
void serialize(A& ar, Source& x)
{
    ar(MIRROR_NVP(m_path), MIRROR_NVP(m_raw), MIRROR_NVP(m_checksum));
}

template <class A>
void serialize(A& ar, Input& x)
{
    ar(cereal::base_class<NamedItem>(&x));
    if constexpr (A::is_saving::value)
        g_cereal->sites = &x.m_sites;
    else
        g_cereal->site_fixes.clear();
    ar(MIRROR_NVP(m_parameters), MIRROR_NVP(m_sites), MIRROR_NVP(m_segments), MIRROR_NVP(m_polylines),
       MIRROR_NVP(m_boundary), MIRROR_NVP(m_weighting), MIRROR_NVP(m_source), MIRROR_NVP(m_bbox));
    if constexpr (A::is_loading::value) {
        for (auto const& [slot, at] : g_cereal->site_fixes)
            *slot = &x.m_sites.at(static_cast<std::size_t>(at));
        g_cereal->site_fixes.clear();
    }
}

#undef MIRROR_NVP

inline void cereal_write(std::ostream& os, Document const& doc)
{
    CerealContext context;
    g_cereal = &context;
    {
        cereal::JSONOutputArchive ar(os, cereal::JSONOutputArchive::Options::NoIndent());
        ar(cereal::make_nvp("document", const_cast<Document&>(doc)));
    }
    g_cereal = nullptr;
}

inline std::unique_ptr<Document> cereal_read(std::istream& is)
{
    CerealContext context;
    g_cereal = &context;
    auto doc = std::make_unique<Document>();
    {
        cereal::JSONInputArchive ar(is);
        ar(cereal::make_nvp("document", *doc));
    }
    for (auto const& fix : context.item_fixes) {
        auto found = context.items.find(fix.id);
        if (found == context.items.end())
            throw std::runtime_error("cereal: an item id that no item has");
        fix.set(fix.slot, found->second);
    }
    for (auto const& [slot, at] : context.sheet_fixes)
        *slot = doc->m_sheets.at(static_cast<std::size_t>(at)).get();
    for (Document** slot : context.document_fixes)
        *slot = doc.get();
    g_cereal = nullptr;
    return doc;
}

}  // namespace mirror

CEREAL_REGISTER_TYPE(mirror::LinearDimension)
CEREAL_REGISTER_TYPE(mirror::AngularDimension)
CEREAL_REGISTER_TYPE(mirror::RadialDimension)
CEREAL_REGISTER_TYPE(mirror::OrdinateDimension)
CEREAL_REGISTER_TYPE(mirror::Note)
CEREAL_REGISTER_TYPE(mirror::Balloon)
CEREAL_REGISTER_TYPE(mirror::Table)
CEREAL_REGISTER_TYPE(mirror::CentreMark)
CEREAL_REGISTER_TYPE(mirror::Image)
CEREAL_REGISTER_TYPE(mirror::Datum)
CEREAL_REGISTER_TYPE(mirror::FeatureControlFrame)
CEREAL_REGISTER_TYPE(mirror::CompositeFrame)
CEREAL_REGISTER_TYPE(mirror::ProfileTolerance)
CEREAL_REGISTER_TYPE(mirror::DatumTarget)
CEREAL_REGISTER_TYPE(mirror::DatumSystem)
CEREAL_REGISTER_TYPE(mirror::Input)
