// Deep equality of items: one function per concrete item class, reached
// through the item's dynamic class.
#include "compare.h"

namespace sample_compare {

// The members of a base class part; `a` and `b` have the same class.
void fields(Comparer& c, annNamedItem const& a, annNamedItem const& b, Path const& p)
{
    CMP(m_id);
    CMP(m_name);
    CMP(m_comment);
    CMP(m_style);
    CMP(m_sheet);
    CMP(m_related);
    CMP(m_layer);
    CMP(m_visible);
}

void fields(Comparer& c, annAttachable const& a, annAttachable const& b, Path const& p)
{
    CMP(m_anchor);
    CMP(m_attached);
    CMP(m_attach_side);
}

void fields(Comparer& c, annDimension const& a, annDimension const& b, Path const& p)
{
    fields(c, static_cast<annNamedItem const&>(a), static_cast<annNamedItem const&>(b), p);
    CMP(m_value);
    CMP(m_upper_tolerance);
    CMP(m_lower_tolerance);
    CMP(m_precision);
    CMP(m_reference);
    CMP(m_text_position);
    CMP(m_prefix);
    CMP(m_suffix);
}

void fields(Comparer& c, annNote const& a, annNote const& b, Path const& p)
{
    fields(c, static_cast<annNamedItem const&>(a), static_cast<annNamedItem const&>(b), p);
    fields(c, static_cast<annAttachable const&>(a), static_cast<annAttachable const&>(b), p);
    CMP(m_text);
    CMP(m_text_height);
    SIZED(m_leaders, m_n_leaders);
}

void fields(Comparer& c, gdtFeatureControlFrame const& a, gdtFeatureControlFrame const& b, Path const& p)
{
    fields(c, static_cast<annNamedItem const&>(a), static_cast<annNamedItem const&>(b), p);
    fields(c, static_cast<annAttachable const&>(a), static_cast<annAttachable const&>(b), p);
    CMP(m_characteristic);
    CMP(m_zone);
    CMP(m_references);
    CMP(m_feature);
    CMP(m_symbol);
    CMP(m_note);
}

template <class T>
T const& as(annNamedItem const& item)
{
    return static_cast<T const&>(item);
}

// One function per concrete item class, reached through the item's
// dynamic class.
void concrete(Comparer& c, annNamedItem const& item_a, annNamedItem const& item_b, Path const& p)
{
    std::type_info const& t = typeid(item_a);
    if (t == typeid(annLinearDimension)) {
        c.count("annLinearDimension");
        auto const& a = as<annLinearDimension>(item_a);
        auto const& b = as<annLinearDimension>(item_b);
        fields(c, a, b, p);
        CMP(m_start);
        CMP(m_end);
        CMP(m_direction);
    } else if (t == typeid(annAngularDimension)) {
        c.count("annAngularDimension");
        auto const& a = as<annAngularDimension>(item_a);
        auto const& b = as<annAngularDimension>(item_b);
        fields(c, a, b, p);
        CMP(m_vertex);
        CMP(m_legs);
        CMP(m_reflex);
    } else if (t == typeid(annRadialDimension)) {
        c.count("annRadialDimension");
        auto const& a = as<annRadialDimension>(item_a);
        auto const& b = as<annRadialDimension>(item_b);
        fields(c, a, b, p);
        CMP(m_centre);
        CMP(m_radius);
        CMP(m_diameter);
    } else if (t == typeid(annOrdinateDimension)) {
        c.count("annOrdinateDimension");
        auto const& a = as<annOrdinateDimension>(item_a);
        auto const& b = as<annOrdinateDimension>(item_b);
        fields(c, a, b, p);
        CMP(m_origin);
        CMP(m_axis);
        CMP(m_baseline);
    } else if (t == typeid(annNote)) {
        c.count("annNote");
        fields(c, as<annNote>(item_a), as<annNote>(item_b), p);
    } else if (t == typeid(annBalloon)) {
        c.count("annBalloon");
        auto const& a = as<annBalloon>(item_a);
        auto const& b = as<annBalloon>(item_b);
        fields(c, static_cast<annNote const&>(a), static_cast<annNote const&>(b), p);
        CMP(m_shape);
        CMP(m_item_number);
        CMP(m_radius);
    } else if (t == typeid(annTable)) {
        c.count("annTable");
        auto const& a = as<annTable>(item_a);
        auto const& b = as<annTable>(item_b);
        fields(c, item_a, item_b, p);
        CMP(m_rows);
        SIZED(m_column_widths, m_columns);
        elements(c, a.m_cells, b.m_cells, annTable::cell_count(&a), Path(p, "m_cells"));
    } else if (t == typeid(annCentreMark)) {
        c.count("annCentreMark");
        auto const& a = as<annCentreMark>(item_a);
        auto const& b = as<annCentreMark>(item_b);
        fields(c, item_a, item_b, p);
        CMP(m_centre);
        CMP(m_size);
        CMP(m_extended);
    } else if (t == typeid(annImage)) {
        c.count("annImage");
        auto const& a = as<annImage>(item_a);
        auto const& b = as<annImage>(item_b);
        fields(c, item_a, item_b, p);
        CMP(m_width);
        CMP(m_height);
        CMP(m_pixels);
        CMP(m_format);
    } else if (t == typeid(gdtDatum)) {
        c.count("gdtDatum");
        auto const& a = as<gdtDatum>(item_a);
        auto const& b = as<gdtDatum>(item_b);
        fields(c, item_a, item_b, p);
        CMP(m_label);
        CMP(m_location);
        CMP(m_feature_kind);
    } else if (t == typeid(gdtFeatureControlFrame)) {
        c.count("gdtFeatureControlFrame");
        fields(c, as<gdtFeatureControlFrame>(item_a), as<gdtFeatureControlFrame>(item_b), p);
    } else if (t == typeid(gdtCompositeFrame)) {
        c.count("gdtCompositeFrame");
        auto const& a = as<gdtCompositeFrame>(item_a);
        auto const& b = as<gdtCompositeFrame>(item_b);
        fields(c, static_cast<gdtFeatureControlFrame const&>(a), static_cast<gdtFeatureControlFrame const&>(b), p);
        CMP(m_lower_segment);
    } else if (t == typeid(gdtProfileTolerance)) {
        c.count("gdtProfileTolerance");
        auto const& a = as<gdtProfileTolerance>(item_a);
        auto const& b = as<gdtProfileTolerance>(item_b);
        fields(c, static_cast<gdtFeatureControlFrame const&>(a), static_cast<gdtFeatureControlFrame const&>(b), p);
        CMP(m_all_around);
        CMP(m_unequal_offset);
        CMP(m_profile_of);
    } else if (t == typeid(gdtDatumTarget)) {
        c.count("gdtDatumTarget");
        auto const& a = as<gdtDatumTarget>(item_a);
        auto const& b = as<gdtDatumTarget>(item_b);
        fields(c, item_a, item_b, p);
        CMP(m_datum);
        CMP(m_index);
        CMP(m_area);
        CMP(m_point);
    } else if (t == typeid(gdtDatumSystem)) {
        c.count("gdtDatumSystem");
        auto const& a = as<gdtDatumSystem>(item_a);
        auto const& b = as<gdtDatumSystem>(item_b);
        fields(c, item_a, item_b, p);
        SIZED(m_references, m_n_references);
        CMP(m_frame);
    } else if (t == typeid(vniInput)) {
        c.count("vniInput");
        auto const& a = as<vniInput>(item_a);
        auto const& b = as<vniInput>(item_b);
        fields(c, item_a, item_b, p);
        CMP(m_parameters);
        SIZED(m_sites, m_n_sites);
        SIZED(m_segments, m_n_segments);
        owned(c, a.m_polylines, b.m_polylines, Path(p, "m_polylines"));
        CMP(m_boundary);
        CMP(m_weighting);
        CMP(m_source);
        CMP(m_bbox);
    } else {
        c.fail(p, std::string("an item of a class the sample does not know: ") + t.name());
    }
}

void cmp(Comparer& c, annNamedItem const& a, annNamedItem const& b, Path const& p)
{
    if (typeid(a) != typeid(b))
        return c.fail(p, std::string("a ") + a.kind_name() + " in the first document, a " + b.kind_name() +
                             " in the second");
    if (!c.enter(dynamic_cast<void const*>(&a), dynamic_cast<void const*>(&b), p))
        return;
    concrete(c, a, b, labelled(p, a.m_name.c_str()));
}

}  // namespace sample_compare
