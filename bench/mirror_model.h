// The sample document mirrored in plain C++ classes, for comparing sto files
// with general-purpose serialisation libraries (file_bench.cpp).
//
// Each class of the sample application has a struct here with the same
// members: counted pointers become shared_ptr, owning pointers and owned
// blocks become unique_ptr and vectors, plain pointers stay plain pointers,
// null-or-text strings are optional strings, byte arrays are byte vectors
// and type handles are the name of the class they name (none for null).
// Objects that plain pointers point at (sheets, leaders, items, the
// document) live on the heap, behind unique_ptr or shared_ptr, because a
// pointer-tracking archive cannot point into an object it has yet to write
// by value; sites are written by value before anything points at them, so
// they stay in a vector like the sample's block.
//
// mirror_document() builds the mirror of a sample document by walking it,
// with the same objects and the same sharing, and counts the objects it
// makes the way sample_census() counts the sample's.
#pragma once

#include "sample.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace mirror {

using Str = std::optional<std::string>;

struct Bytes {
    std::vector<unsigned char> data;
};

struct Document;
struct Sheet;

// ---------------------------------------------------------------- annotation

struct Point {
    double m_x = 0, m_y = 0, m_z = 0;
};

struct Vector {
    double m_dx = 0, m_dy = 0, m_dz = 0;
};

struct Style {
    Str m_name;
    int m_colour = 0;
    double m_line_width = 0;
    int m_bold = 0;
    Str m_font;
};

struct Units {
    int m_length_unit = 0;
    int m_angle_unit = 0;
    double m_scale = 1;
    Str m_symbol;
};

struct Attachable {
    Point m_anchor;
    int m_attached = 0;
    int m_attach_side = 0;
};

struct NamedItem {
    virtual ~NamedItem() = default;
    long long m_id = 0;
    Str m_name;
    Str m_comment;
    std::shared_ptr<Style> m_style;
    Sheet* m_sheet = nullptr;
    NamedItem* m_related = nullptr;
    int m_layer = 0;
    int m_visible = 1;
};

struct Dimension : NamedItem {
    double m_value = 0;
    double m_upper_tolerance = 0;
    double m_lower_tolerance = 0;
    int m_precision = 2;
    int m_reference = 0;
    Point m_text_position;
    Str m_prefix;
    Str m_suffix;
};

struct LinearDimension : Dimension {
    Point m_start;
    Point m_end;
    Vector m_direction;
};

struct AngularDimension : Dimension {
    Point m_vertex;
    Vector m_legs[2];
    int m_reflex = 0;
};

struct RadialDimension : Dimension {
    Point m_centre;
    double m_radius = 0;
    int m_diameter = 0;
};

struct OrdinateDimension : Dimension {
    Point m_origin;
    int m_axis = 0;
    OrdinateDimension* m_baseline = nullptr;
};

struct Leader {
    Point m_start;
    std::vector<Point> m_vertices;
    int m_arrow = 0;
    Leader* m_next_leader = nullptr;
    NamedItem* m_target = nullptr;
};

struct Note : NamedItem, Attachable {
    Str m_text;
    double m_text_height = 3.5;
    std::vector<std::unique_ptr<Leader>> m_leaders;
};

struct Balloon : Note {
    int m_shape = 0;
    int m_item_number = 0;
    double m_radius = 0;
};

struct Table : NamedItem {
    int m_rows = 0;
    int m_columns = 0;
    std::vector<double> m_column_widths;
    std::vector<Str> m_cells;
};

struct CentreMark : NamedItem {
    Point m_centre;
    double m_size = 0;
    int m_extended = 0;
};

struct Image : NamedItem {
    int m_width = 0;
    int m_height = 0;
    Bytes m_pixels;
    Str m_format;
};

struct Transform {
    std::vector<double> m_coefficients;
};

struct ItemList {
    std::vector<std::shared_ptr<NamedItem>> m_items;
};

struct Viewport {
    double m_bounds[4] = {};
    double m_scale = 1;
    Str m_label;
};

struct View {
    Str m_name;
    double m_matrix[3][3] = {};
    Transform m_transform;
    Str m_filter;
    std::unique_ptr<Viewport> m_viewport;
    std::unique_ptr<View> m_next_view;
    ItemList m_shown;
    Sheet* m_sheet = nullptr;
};

struct Revision {
    Str m_letter;
    Str m_description;
    long long m_date = 0;
};

struct TitleBlock {
    Str m_title;
    Str m_drawn_by;
    Str m_checked_by;
    long long m_drawing_number = 0;
    Bytes m_logo;
    std::vector<Revision> m_revisions;
};

struct Sheet {
    Str m_name;
    int m_number = 0;
    double m_bounds[4] = {};
    std::unique_ptr<TitleBlock> m_title_block;
    std::shared_ptr<Transform> m_placement;
    std::unique_ptr<View> m_views;
    ItemList m_items;
    Document* m_document = nullptr;
};

struct Document {
    Str m_name;
    Str m_author;
    long long m_id = 0;
    int m_format[3] = {};
    Units m_units;
    Bytes m_thumbnail;
    std::shared_ptr<Style> m_default_style;
    std::vector<std::unique_ptr<Sheet>> m_sheets;
    ItemList m_items;
    NamedItem* m_focus = nullptr;
};

// ------------------------------------------------------------------ gdandtol

struct Symbol {
    Str m_name;
    Str m_text;
    Bytes m_glyph;
    int m_characteristic = 0;
};

struct Datum : NamedItem {
    Str m_label;
    Point m_location;
    int m_feature_kind = 0;
};

struct DatumReference {
    Datum* m_datum = nullptr;
    int m_modifier = 0;
    int m_precedence = 0;
};

struct ToleranceZone {
    double m_width = 0;
    int m_shape = 0;
    int m_projected = 0;
    double m_projection_length = 0;
};

struct FeatureControlFrame : NamedItem, Attachable {
    int m_characteristic = 0;
    ToleranceZone m_zone;
    DatumReference m_references[3];
    NamedItem* m_feature = nullptr;
    std::shared_ptr<Symbol> m_symbol;
    Str m_note;
};

struct CompositeFrame : FeatureControlFrame {
    std::unique_ptr<FeatureControlFrame> m_lower_segment;
};

struct ProfileTolerance : FeatureControlFrame {
    int m_all_around = 0;
    double m_unequal_offset = 0;
    Str m_profile_of;
};

struct DatumTarget : NamedItem {
    Datum* m_datum = nullptr;
    int m_index = 0;
    double m_area = 0;
    Point m_point;
};

struct DatumSystem : NamedItem {
    std::vector<DatumReference> m_references;
    std::unique_ptr<Transform> m_frame;
};

// --------------------------------------------------------------- vornetinput

struct Site {
    long long m_id = 0;
    Point m_position;
    double m_weight = 1;
    int m_flags = 0;
    Str m_tag;
};

struct Segment {
    Site* m_from = nullptr;
    Site* m_to = nullptr;
    int m_kind = 0;
    int m_constrained = 0;
};

struct Polyline {
    std::vector<Site*> m_vertices;
    int m_closed = 0;
    std::unique_ptr<Polyline> m_next;
};

struct Boundary : Polyline {
    int m_outer = 1;
    double m_offset = 0;
};

struct Parameters {
    double m_tolerance = 1e-6;
    int m_max_iterations = 100;
    int m_clip = 1;
    Str m_output_kind;
};

struct Weighting {
    Str m_scheme;
    std::vector<double> m_weights;
};

struct Source {
    Str m_path;
    Bytes m_raw;
    long long m_checksum = 0;
};

struct Input : NamedItem {
    Parameters m_parameters;
    std::vector<Site> m_sites;
    std::vector<Segment> m_segments;
    std::unique_ptr<Polyline> m_polylines;
    std::unique_ptr<Boundary> m_boundary;
    std::shared_ptr<Weighting> m_weighting;
    std::unique_ptr<Source> m_source;
    double m_bbox[4] = {};
};

// ------------------------------------------------- building from a sample

// Builds the mirror of a sample document. objects() is then the number of
// objects made, counted as sample_census() counts the sample's: embedded
// objects and array elements included, shared objects once.
class Builder {
public:
    std::unique_ptr<Document> build(annDocument const& d)
    {
        auto doc = std::make_unique<Document>();
        ++m_objects;
        doc->m_name = str(d.m_name);
        doc->m_author = str(d.m_author);
        doc->m_id = d.m_id;
        for (int i = 0; i < 3; ++i)
            doc->m_format[i] = d.m_format[i];
        doc->m_units.m_length_unit = d.m_units.m_length_unit;
        doc->m_units.m_angle_unit = d.m_units.m_angle_unit;
        doc->m_units.m_scale = d.m_units.m_scale;
        doc->m_units.m_symbol = str(d.m_units.m_symbol);
        ++m_objects;
        doc->m_thumbnail = bytes(d.m_thumbnail);
        doc->m_default_style = style(d.m_default_style);
        for (int s = 0; s < d.m_n_sheets; ++s) {
            auto sheet = std::make_unique<Sheet>();
            m_sheets[&d.m_sheets[s]] = sheet.get();
            doc->m_sheets.push_back(std::move(sheet));
        }
        for (int s = 0; s < d.m_n_sheets; ++s)
            fill(*doc->m_sheets[static_cast<std::size_t>(s)], d.m_sheets[s], doc.get());
        list(doc->m_items, d.m_items);
        plain(doc->m_focus, d.m_focus);
        for (Fix const& fix : m_item_fixes) {
            auto found = m_items.find(fix.target);
            if (found == m_items.end())
                throw std::runtime_error("mirror: a plain pointer leads to an item no list holds");
            fix.set(fix.slot, found->second.get());
        }
        return doc;
    }

    long objects() const { return m_objects; }

private:
    static Str str(utString const& s) { return s.is_null() ? Str() : Str(std::string(s.view())); }

    static Bytes bytes(stoByteArray const& b)
    {
        Bytes out;
        if (b.size() > 0)
            out.data.assign(b.array(), b.array() + b.size());
        return out;
    }

    static Str type_name(stoTypeHandle const& h)
    {
        if (h.is_null())
            return Str();
        static std::pair<stoTypeHandle (*)(), char const*> const known[] = {
            {sto_type_annNamedItem, "annNamedItem"},
            {sto_type_annDimension, "annDimension"},
            {sto_type_annLinearDimension, "annLinearDimension"},
            {sto_type_annRadialDimension, "annRadialDimension"},
            {sto_type_annNote, "annNote"},
            {sto_type_gdtFeatureControlFrame, "gdtFeatureControlFrame"},
            {sto_type_vniSegment, "vniSegment"},
        };
        for (auto const& [type, name] : known)
            if (h == type())
                return Str(name);
        throw std::runtime_error("mirror: a type handle names a class the mirror does not know");
    }

    Point point(annPoint const& p)
    {
        ++m_objects;
        return Point{p.m_x, p.m_y, p.m_z};
    }

    Vector vector(annVector const& v)
    {
        ++m_objects;
        return Vector{v.m_dx, v.m_dy, v.m_dz};
    }

    std::shared_ptr<Style> style(coPrf<annStyle> const& s)
    {
        if (!s)
            return nullptr;
        std::shared_ptr<Style>& made = m_styles[s.get()];
        if (!made) {
            made = std::make_shared<Style>();
            ++m_objects;
            made->m_name = str(s->m_name);
            made->m_colour = s->m_colour;
            made->m_line_width = s->m_line_width;
            made->m_bold = s->m_bold;
            made->m_font = str(s->m_font);
        }
        return made;
    }

    void transform(Transform& t, annTransform const& a)
    {
        ++m_objects;
        for (int i = 0; i < annTransform::kSize; ++i)
            t.m_coefficients.push_back(a.coefficient(i));
    }

    std::shared_ptr<Transform> shared_transform(coPrf<annTransform> const& a)
    {
        if (!a)
            return nullptr;
        std::shared_ptr<Transform>& made = m_transforms[a.get()];
        if (!made) {
            made = std::make_shared<Transform>();
            transform(*made, *a);
        }
        return made;
    }

    // Plain pointers to items are set once every item exists.
    template <class T>
    static void set_as(void* slot, NamedItem* item)
    {
        T* typed = dynamic_cast<T*>(item);
        if (!typed)
            throw std::runtime_error("mirror: a plain pointer leads to an item of another class");
        *static_cast<T**>(slot) = typed;
    }

    template <class T>
    void plain(T*& slot, annNamedItem const* target)
    {
        slot = nullptr;
        if (target)
            m_item_fixes.push_back(Fix{&slot, &set_as<T>, target});
    }

    Sheet* sheet(annSheet const* s)
    {
        if (!s)
            return nullptr;
        auto found = m_sheets.find(s);
        if (found == m_sheets.end())
            throw std::runtime_error("mirror: a pointer leads to a sheet the document does not hold");
        return found->second;
    }

    void list(ItemList& l, annItemList const& a)
    {
        ++m_objects;
        for (int i = 0; i < a.size(); ++i)
            l.m_items.push_back(item(a.at(i)));
    }

    void fill(Sheet& s, annSheet const& a, Document* doc)
    {
        ++m_objects;
        s.m_name = str(a.m_name);
        s.m_number = a.m_number;
        for (int i = 0; i < 4; ++i)
            s.m_bounds[i] = a.m_bounds[i];
        if (a.m_title_block) {
            annTitleBlock const& t = *a.m_title_block;
            s.m_title_block = std::make_unique<TitleBlock>();
            ++m_objects;
            s.m_title_block->m_title = str(t.m_title);
            s.m_title_block->m_drawn_by = str(t.m_drawn_by);
            s.m_title_block->m_checked_by = str(t.m_checked_by);
            s.m_title_block->m_drawing_number = t.m_drawing_number;
            s.m_title_block->m_logo = bytes(t.m_logo);
            for (int i = 0; i < t.m_n_revisions; ++i) {
                ++m_objects;
                s.m_title_block->m_revisions.push_back(Revision{str(t.m_revisions[i].m_letter),
                                                                 str(t.m_revisions[i].m_description),
                                                                 t.m_revisions[i].m_date});
            }
        }
        s.m_placement = shared_transform(a.m_placement);
        std::unique_ptr<View>* place = &s.m_views;
        for (annView const* v = a.m_views.get(); v; v = v->m_next_view.get()) {
            *place = std::make_unique<View>();
            view(**place, *v);
            place = &(*place)->m_next_view;
        }
        list(s.m_items, a.m_items);
        s.m_document = a.m_document ? doc : nullptr;
    }

    void view(View& v, annView const& a)
    {
        ++m_objects;
        v.m_name = str(a.m_name);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                v.m_matrix[i][j] = a.m_matrix[i][j];
        transform(v.m_transform, a.m_transform);
        v.m_filter = type_name(a.m_filter);
        if (a.m_viewport) {
            v.m_viewport = std::make_unique<Viewport>();
            ++m_objects;
            for (int i = 0; i < 4; ++i)
                v.m_viewport->m_bounds[i] = a.m_viewport->m_bounds[i];
            v.m_viewport->m_scale = a.m_viewport->m_scale;
            v.m_viewport->m_label = str(a.m_viewport->m_label);
        }
        list(v.m_shown, a.m_shown);
        v.m_sheet = sheet(a.m_sheet);
    }

    void named(NamedItem& n, annNamedItem const& a)
    {
        ++m_objects;
        n.m_id = a.m_id;
        n.m_name = str(a.m_name);
        n.m_comment = str(a.m_comment);
        n.m_style = style(a.m_style);
        n.m_sheet = sheet(a.m_sheet);
        plain(n.m_related, a.m_related);
        n.m_layer = a.m_layer;
        n.m_visible = a.m_visible;
    }

    void attachable(Attachable& n, annAttachable const& a)
    {
        n.m_anchor = point(a.m_anchor);
        n.m_attached = a.m_attached;
        n.m_attach_side = a.m_attach_side;
    }

    void dimension(Dimension& n, annDimension const& a)
    {
        named(n, a);
        n.m_value = a.m_value;
        n.m_upper_tolerance = a.m_upper_tolerance;
        n.m_lower_tolerance = a.m_lower_tolerance;
        n.m_precision = a.m_precision;
        n.m_reference = a.m_reference;
        n.m_text_position = point(a.m_text_position);
        n.m_prefix = str(a.m_prefix);
        n.m_suffix = str(a.m_suffix);
    }

    void note(Note& n, annNote const& a)
    {
        named(n, a);
        attachable(n, a);
        n.m_text = str(a.m_text);
        n.m_text_height = a.m_text_height;
        for (int i = 0; i < a.m_n_leaders; ++i)
            n.m_leaders.push_back(std::make_unique<Leader>());
        for (int i = 0; i < a.m_n_leaders; ++i) {
            annLeader const& l = a.m_leaders[i];
            Leader& m = *n.m_leaders[static_cast<std::size_t>(i)];
            ++m_objects;
            m.m_start = point(l.m_start);
            for (int v = 0; v < l.m_n_vertices; ++v)
                m.m_vertices.push_back(point(l.m_vertices[v]));
            m.m_arrow = l.m_arrow;
            if (l.m_next_leader) {
                long at = l.m_next_leader - a.m_leaders;
                if (at < 0 || at >= a.m_n_leaders)
                    throw std::runtime_error("mirror: a leader leads out of its note");
                m.m_next_leader = n.m_leaders[static_cast<std::size_t>(at)].get();
            }
            plain(m.m_target, l.m_target);
        }
    }

    void reference(DatumReference& r, gdtDatumReference const& a)
    {
        ++m_objects;
        plain(r.m_datum, a.m_datum);
        r.m_modifier = a.m_modifier;
        r.m_precedence = a.m_precedence;
    }

    std::shared_ptr<Symbol> symbol(coPrf<gdtSymbol> const& s)
    {
        if (!s)
            return nullptr;
        std::shared_ptr<Symbol>& made = m_symbols[s.get()];
        if (!made) {
            made = std::make_shared<Symbol>();
            ++m_objects;
            made->m_name = str(s->m_name);
            made->m_text = str(s->m_text);
            made->m_glyph = bytes(s->m_glyph);
            made->m_characteristic = s->m_characteristic;
        }
        return made;
    }

    void frame(FeatureControlFrame& f, gdtFeatureControlFrame const& a)
    {
        named(f, a);
        attachable(f, a);
        f.m_characteristic = a.m_characteristic;
        ++m_objects;
        f.m_zone = ToleranceZone{a.m_zone.m_width, a.m_zone.m_shape, a.m_zone.m_projected,
                                 a.m_zone.m_projection_length};
        for (int i = 0; i < 3; ++i)
            reference(f.m_references[i], a.m_references[i]);
        plain(f.m_feature, a.m_feature);
        f.m_symbol = symbol(a.m_symbol);
        f.m_note = str(a.m_note);
    }

    void input(Input& n, vniInput const& a)
    {
        named(n, a);
        ++m_objects;
        n.m_parameters.m_tolerance = a.m_parameters.m_tolerance;
        n.m_parameters.m_max_iterations = a.m_parameters.m_max_iterations;
        n.m_parameters.m_clip = a.m_parameters.m_clip;
        n.m_parameters.m_output_kind = type_name(a.m_parameters.m_output_kind);
        n.m_sites.resize(static_cast<std::size_t>(a.m_n_sites));
        for (int i = 0; i < a.m_n_sites; ++i) {
            vniSite const& s = a.m_sites[i];
            ++m_objects;
            n.m_sites[static_cast<std::size_t>(i)] =
                Site{s.m_id, point(s.m_position), s.m_weight, s.m_flags, str(s.m_tag)};
        }
        auto site = [&](vniSite const* s) -> Site* {
            if (!s)
                return nullptr;
            long at = s - a.m_sites;
            if (at < 0 || at >= a.m_n_sites)
                throw std::runtime_error("mirror: a site pointer leads out of its input");
            return &n.m_sites[static_cast<std::size_t>(at)];
        };
        for (int i = 0; i < a.m_n_segments; ++i) {
            vniSegment const& s = a.m_segments[i];
            ++m_objects;
            n.m_segments.push_back(Segment{site(s.m_from), site(s.m_to), s.m_kind, s.m_constrained});
        }
        std::unique_ptr<Polyline>* place = &n.m_polylines;
        for (vniPolyline const* l = a.m_polylines; l; l = l->m_next.get()) {
            if (typeid(*l) != typeid(vniPolyline))
                throw std::runtime_error("mirror: only plain polylines are chained");
            *place = std::make_unique<Polyline>();
            ++m_objects;
            for (int i = 0; i < l->m_n_vertices; ++i)
                (*place)->m_vertices.push_back(site(l->m_vertices[i]));
            (*place)->m_closed = l->m_closed;
            place = &(*place)->m_next;
        }
        if (vniBoundary const* b = a.m_boundary.get()) {
            if (b->m_next)
                throw std::runtime_error("mirror: a boundary has no chain");
            n.m_boundary = std::make_unique<Boundary>();
            ++m_objects;
            for (int i = 0; i < b->m_n_vertices; ++i)
                n.m_boundary->m_vertices.push_back(site(b->m_vertices[i]));
            n.m_boundary->m_closed = b->m_closed;
            n.m_boundary->m_outer = b->m_outer;
            n.m_boundary->m_offset = b->m_offset;
        }
        if (a.m_weighting) {
            std::shared_ptr<Weighting>& made = m_weightings[a.m_weighting.get()];
            if (!made) {
                made = std::make_shared<Weighting>();
                ++m_objects;
                made->m_scheme = str(a.m_weighting->m_scheme);
                made->m_weights.assign(a.m_weighting->m_weights,
                                       a.m_weighting->m_weights + a.m_weighting->m_n_weights);
            }
            n.m_weighting = made;
        }
        if (a.m_source) {
            n.m_source = std::make_unique<Source>();
            ++m_objects;
            n.m_source->m_path = str(a.m_source->m_path);
            n.m_source->m_raw = bytes(a.m_source->m_raw);
            n.m_source->m_checksum = a.m_source->m_checksum;
        }
        for (int i = 0; i < 4; ++i)
            n.m_bbox[i] = a.m_bbox[i];
    }

    template <class T>
    static T const& as(annNamedItem const& a)
    {
        return static_cast<T const&>(a);
    }

    std::unique_ptr<FeatureControlFrame> any_frame(gdtFeatureControlFrame const& a)
    {
        std::type_info const& t = typeid(a);
        if (t == typeid(gdtFeatureControlFrame)) {
            auto f = std::make_unique<FeatureControlFrame>();
            frame(*f, a);
            return f;
        }
        if (t == typeid(gdtCompositeFrame)) {
            auto f = std::make_unique<CompositeFrame>();
            frame(*f, a);
            auto const& c = static_cast<gdtCompositeFrame const&>(a);
            if (c.m_lower_segment)
                f->m_lower_segment = any_frame(*c.m_lower_segment);
            return f;
        }
        if (t == typeid(gdtProfileTolerance)) {
            auto f = std::make_unique<ProfileTolerance>();
            frame(*f, a);
            auto const& p = static_cast<gdtProfileTolerance const&>(a);
            f->m_all_around = p.m_all_around;
            f->m_unequal_offset = p.m_unequal_offset;
            f->m_profile_of = type_name(p.m_profile_of);
            return f;
        }
        throw std::runtime_error("mirror: unknown kind of frame");
    }

    std::unique_ptr<NamedItem> make_item(annNamedItem const& a)
    {
        std::type_info const& t = typeid(a);
        if (t == typeid(annLinearDimension)) {
            auto const& x = as<annLinearDimension>(a);
            auto n = std::make_unique<LinearDimension>();
            dimension(*n, x);
            n->m_start = point(x.m_start);
            n->m_end = point(x.m_end);
            n->m_direction = vector(x.m_direction);
            return n;
        }
        if (t == typeid(annAngularDimension)) {
            auto const& x = as<annAngularDimension>(a);
            auto n = std::make_unique<AngularDimension>();
            dimension(*n, x);
            n->m_vertex = point(x.m_vertex);
            n->m_legs[0] = vector(x.m_legs[0]);
            n->m_legs[1] = vector(x.m_legs[1]);
            n->m_reflex = x.m_reflex;
            return n;
        }
        if (t == typeid(annRadialDimension)) {
            auto const& x = as<annRadialDimension>(a);
            auto n = std::make_unique<RadialDimension>();
            dimension(*n, x);
            n->m_centre = point(x.m_centre);
            n->m_radius = x.m_radius;
            n->m_diameter = x.m_diameter;
            return n;
        }
        if (t == typeid(annOrdinateDimension)) {
            auto const& x = as<annOrdinateDimension>(a);
            auto n = std::make_unique<OrdinateDimension>();
            dimension(*n, x);
            n->m_origin = point(x.m_origin);
            n->m_axis = x.m_axis;
            plain(n->m_baseline, x.m_baseline);
            return n;
        }
        if (t == typeid(annNote)) {
            auto n = std::make_unique<Note>();
            note(*n, as<annNote>(a));
            return n;
        }
        if (t == typeid(annBalloon)) {
            auto const& x = as<annBalloon>(a);
            auto n = std::make_unique<Balloon>();
            note(*n, x);
            n->m_shape = x.m_shape;
            n->m_item_number = x.m_item_number;
            n->m_radius = x.m_radius;
            return n;
        }
        if (t == typeid(annTable)) {
            auto const& x = as<annTable>(a);
            auto n = std::make_unique<Table>();
            named(*n, x);
            n->m_rows = x.m_rows;
            n->m_columns = x.m_columns;
            n->m_column_widths.assign(x.m_column_widths, x.m_column_widths + x.m_columns);
            for (int i = 0; i < annTable::cell_count(&x); ++i)
                n->m_cells.push_back(str(x.m_cells[i]));
            return n;
        }
        if (t == typeid(annCentreMark)) {
            auto const& x = as<annCentreMark>(a);
            auto n = std::make_unique<CentreMark>();
            named(*n, x);
            n->m_centre = point(x.m_centre);
            n->m_size = x.m_size;
            n->m_extended = x.m_extended;
            return n;
        }
        if (t == typeid(annImage)) {
            auto const& x = as<annImage>(a);
            auto n = std::make_unique<Image>();
            named(*n, x);
            n->m_width = x.m_width;
            n->m_height = x.m_height;
            n->m_pixels = bytes(x.m_pixels);
            n->m_format = str(x.m_format);
            return n;
        }
        if (t == typeid(gdtDatum)) {
            auto const& x = as<gdtDatum>(a);
            auto n = std::make_unique<Datum>();
            named(*n, x);
            n->m_label = str(x.m_label);
            n->m_location = point(x.m_location);
            n->m_feature_kind = x.m_feature_kind;
            return n;
        }
        if (t == typeid(gdtFeatureControlFrame) || t == typeid(gdtCompositeFrame) || t == typeid(gdtProfileTolerance))
            return any_frame(as<gdtFeatureControlFrame>(a));
        if (t == typeid(gdtDatumTarget)) {
            auto const& x = as<gdtDatumTarget>(a);
            auto n = std::make_unique<DatumTarget>();
            named(*n, x);
            plain(n->m_datum, x.m_datum);
            n->m_index = x.m_index;
            n->m_area = x.m_area;
            n->m_point = point(x.m_point);
            return n;
        }
        if (t == typeid(gdtDatumSystem)) {
            auto const& x = as<gdtDatumSystem>(a);
            auto n = std::make_unique<DatumSystem>();
            named(*n, x);
            n->m_references.resize(static_cast<std::size_t>(x.m_n_references));
            for (int i = 0; i < x.m_n_references; ++i)
                reference(n->m_references[static_cast<std::size_t>(i)], x.m_references[i]);
            if (x.m_frame) {
                n->m_frame = std::make_unique<Transform>();
                transform(*n->m_frame, *x.m_frame);
            }
            return n;
        }
        if (t == typeid(vniInput)) {
            auto n = std::make_unique<Input>();
            input(*n, as<vniInput>(a));
            return n;
        }
        throw std::runtime_error("mirror: unknown kind of item");
    }

    std::shared_ptr<NamedItem> item(coPrf<annNamedItem> const& a)
    {
        if (!a)
            return nullptr;
        std::shared_ptr<NamedItem>& made = m_items[a.get()];
        if (!made)
            made = make_item(*a);
        return made;
    }

    long m_objects = 0;
    std::unordered_map<annStyle const*, std::shared_ptr<Style>> m_styles;
    std::unordered_map<annTransform const*, std::shared_ptr<Transform>> m_transforms;
    std::unordered_map<gdtSymbol const*, std::shared_ptr<Symbol>> m_symbols;
    std::unordered_map<vniWeighting const*, std::shared_ptr<Weighting>> m_weightings;
    std::unordered_map<annNamedItem const*, std::shared_ptr<NamedItem>> m_items;
    std::unordered_map<annSheet const*, Sheet*> m_sheets;
    struct Fix {
        void* slot;
        void (*set)(void*, NamedItem*);
        annNamedItem const* target;
    };
    std::vector<Fix> m_item_fixes;
};

}  // namespace mirror
