// Deep equality of two documents and the census, over the walk of
// compare.h: the sheets, views, styles and other objects of the annotation
// model, and the objects inside gdandtol and vornetinput items.
#include "compare.h"

namespace sample_compare {

// ---------------------------------------------------------- value objects

void cmp(Comparer& c, annPoint const& a, annPoint const& b, Path const& p)
{
    c.count("annPoint");
    CMP(m_x);
    CMP(m_y);
    CMP(m_z);
}

void cmp(Comparer& c, annVector const& a, annVector const& b, Path const& p)
{
    c.count("annVector");
    CMP(m_dx);
    CMP(m_dy);
    CMP(m_dz);
}

void cmp(Comparer& c, annUnits const& a, annUnits const& b, Path const& p)
{
    c.count("annUnits");
    CMP(m_length_unit);
    CMP(m_angle_unit);
    CMP(m_scale);
    CMP(m_symbol);
}

void cmp(Comparer& c, annRevision const& a, annRevision const& b, Path const& p)
{
    c.count("annRevision");
    CMP(m_letter);
    CMP(m_description);
    CMP(m_date);
}

void cmp(Comparer& c, gdtToleranceZone const& a, gdtToleranceZone const& b, Path const& p)
{
    c.count("gdtToleranceZone");
    CMP(m_width);
    CMP(m_shape);
    CMP(m_projected);
    CMP(m_projection_length);
}

void cmp(Comparer& c, gdtDatumReference const& a, gdtDatumReference const& b, Path const& p)
{
    c.count("gdtDatumReference");
    CMP(m_datum);
    CMP(m_modifier);
    CMP(m_precedence);
}

void cmp(Comparer& c, vniParameters const& a, vniParameters const& b, Path const& p)
{
    c.count("vniParameters");
    CMP(m_tolerance);
    CMP(m_max_iterations);
    CMP(m_clip);
    CMP(m_output_kind);
}

void cmp(Comparer& c, vniSegment const& a, vniSegment const& b, Path const& p)
{
    c.count("vniSegment");
    CMP(m_from);
    CMP(m_to);
    CMP(m_kind);
    CMP(m_constrained);
}

void cmp(Comparer& c, annItemList const& a, annItemList const& b, Path const& p)
{
    c.count("annItemList");
    // The count field must agree with the elements in each list.
    if (a.m_size != a.m_array.size() || b.m_size != b.m_array.size())
        return c.fail(p, "m_size does not match the number of elements");
    CMP(m_size);
    for (int i = 0; i < a.m_size && !c.failed(); ++i)
        cmp(c, a.m_array[i], b.m_array[i], Path(Path(p, "m_array"), static_cast<long>(i)));
}

// ------------------------------------------------------ objects with identity

void cmp(Comparer& c, annStyle const& a, annStyle const& b, Path const& p)
{
    ENTER("annStyle");
    CMP(m_name);
    CMP(m_colour);
    CMP(m_line_width);
    CMP(m_bold);
    CMP(m_font);
}

void cmp(Comparer& c, annTransform const& a, annTransform const& b, Path const& p)
{
    ENTER("annTransform");
    for (int i = 0; i < annTransform::kSize; ++i)
        cmp(c, a.coefficient(i), b.coefficient(i), Path(p, static_cast<long>(i)));
}

void cmp(Comparer& c, annLeader const& a, annLeader const& b, Path const& p)
{
    ENTER("annLeader");
    CMP(m_start);
    SIZED(m_vertices, m_n_vertices);
    CMP(m_arrow);
    CMP(m_next_leader);
    CMP(m_target);
}

void cmp(Comparer& c, gdtSymbol const& a, gdtSymbol const& b, Path const& p)
{
    ENTER("gdtSymbol");
    CMP(m_name);
    CMP(m_text);
    CMP(m_glyph);
    CMP(m_characteristic);
}

void cmp(Comparer& c, vniSite const& a, vniSite const& b, Path const& p)
{
    ENTER("vniSite");
    CMP(m_id);
    CMP(m_position);
    CMP(m_weight);
    CMP(m_flags);
    CMP(m_tag);
}

void polyline_fields(Comparer& c, vniPolyline const& a, vniPolyline const& b, Path const& p)
{
    SIZED(m_vertices, m_n_vertices);
    CMP(m_closed);
    CMP(m_next);
}

void cmp(Comparer& c, vniPolyline const& a, vniPolyline const& b, Path const& p)
{
    if (typeid(a) == typeid(vniBoundary)) {
        ENTER("vniBoundary");
        polyline_fields(c, a, b, p);
        vniBoundary const& x = static_cast<vniBoundary const&>(a);
        vniBoundary const& y = static_cast<vniBoundary const&>(b);
        cmp(c, x.m_outer, y.m_outer, Path(p, "m_outer"));
        cmp(c, x.m_offset, y.m_offset, Path(p, "m_offset"));
        return;
    }
    ENTER("vniPolyline");
    polyline_fields(c, a, b, p);
}

void cmp(Comparer& c, vniWeighting const& a, vniWeighting const& b, Path const& p)
{
    ENTER("vniWeighting");
    CMP(m_scheme);
    SIZED(m_weights, m_n_weights);
}

void cmp(Comparer& c, vniSource const& a, vniSource const& b, Path const& p)
{
    ENTER("vniSource");
    CMP(m_path);
    CMP(m_raw);
    CMP(m_checksum);
}

void cmp(Comparer& c, annViewport const& a, annViewport const& b, Path const& p)
{
    ENTER("annViewport");
    CMP(m_bounds);
    CMP(m_scale);
    CMP(m_label);
}

void cmp(Comparer& c, annTitleBlock const& a, annTitleBlock const& b, Path const& p)
{
    ENTER("annTitleBlock");
    CMP(m_title);
    CMP(m_drawn_by);
    CMP(m_checked_by);
    CMP(m_drawing_number);
    CMP(m_logo);
    SIZED(m_revisions, m_n_revisions);
}

void cmp(Comparer& c, annView const& a, annView const& b, Path const& p)
{
    ENTER("annView");
    CMP(m_name);
    CMP(m_matrix);
    CMP(m_transform);
    CMP(m_filter);
    owned(c, a.m_viewport, b.m_viewport, Path(p, "m_viewport"));
    CMP(m_next_view);
    CMP(m_shown);
    CMP(m_sheet);
}

void cmp(Comparer& c, annSheet const& a, annSheet const& b, Path const& p)
{
    ENTER("annSheet");
    CMP(m_name);
    CMP(m_number);
    CMP(m_bounds);
    CMP(m_title_block);
    CMP(m_placement);
    CMP(m_views);
    CMP(m_items);
    CMP(m_document);
}

void cmp(Comparer& c, annDocument const& a, annDocument const& b, Path const& p)
{
    ENTER("annDocument");
    CMP(m_name);
    CMP(m_author);
    CMP(m_id);
    CMP(m_format);
    CMP(m_units);
    CMP(m_thumbnail);
    CMP(m_default_style);
    SIZED(m_sheets, m_n_sheets);
    CMP(m_items);
    CMP(m_focus);
}

}  // namespace sample_compare

using sample_compare::Comparer;
using sample_compare::Path;

bool sample_equal(annDocument const& a, annDocument const& b, std::string* why)
{
    Comparer c(nullptr);
    cmp(c, a, b, Path("document"));
    c.finish();
    if (c.failed() && why)
        *why = c.why();
    return !c.failed();
}

std::map<std::string, long> sample_census(annDocument const& document)
{
    std::map<std::string, long> census;
    Comparer c(&census);
    cmp(c, document, document, Path("document"));
    c.finish();
    return census;
}
