// Boost.Serialization of the mirror model (mirror_model.h), non-intrusive,
// with the library's defaults: object tracking for every class that is ever
// written through a pointer, plain pointers and smart pointers resolved by
// the archive, polymorphic items through exported class names, byte arrays
// as binary objects (Base64 in a text archive).
//
// Include it in one translation unit only: it exports the item classes.
#pragma once

#include "mirror_model.h"

#include <boost/archive/text_iarchive.hpp>
#include <boost/archive/text_oarchive.hpp>
#include <boost/serialization/base_object.hpp>
#include <boost/serialization/binary_object.hpp>
#include <boost/serialization/export.hpp>
#include <boost/serialization/shared_ptr.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/unique_ptr.hpp>
#include <boost/serialization/vector.hpp>

namespace boost::serialization {

// Boost 1.74 knows boost::optional only: a flag, then the text. (Not split
// into save and load: their overload set in shared_ptr_helper.hpp does not
// compile against std::optional.)
template <class A>
void serialize(A& ar, std::optional<std::string>& s, unsigned)
{
    bool has = s.has_value();
    ar & has;
    if constexpr (A::is_saving::value) {
        if (has)
            ar & *s;
    } else {
        if (has) {
            std::string text;
            ar & text;
            s = std::move(text);
        } else {
            s.reset();
        }
    }
}

// A byte count, then the bytes as a binary object.
template <class A>
void serialize(A& ar, mirror::Bytes& b, unsigned)
{
    std::size_t n = b.data.size();
    ar & n;
    if constexpr (A::is_loading::value)
        b.data.resize(n);
    if (n) {
        binary_object data(b.data.data(), n);
        ar & data;
    }
}

// ---------------------------------------------------------------- annotation

template <class A>
void serialize(A& ar, mirror::Point& x, unsigned)
{
    ar & x.m_x & x.m_y & x.m_z;
}

template <class A>
void serialize(A& ar, mirror::Vector& x, unsigned)
{
    ar & x.m_dx & x.m_dy & x.m_dz;
}

template <class A>
void serialize(A& ar, mirror::Style& x, unsigned)
{
    ar & x.m_name & x.m_colour & x.m_line_width & x.m_bold & x.m_font;
}

template <class A>
void serialize(A& ar, mirror::Units& x, unsigned)
{
    ar & x.m_length_unit & x.m_angle_unit & x.m_scale & x.m_symbol;
}

template <class A>
void serialize(A& ar, mirror::Attachable& x, unsigned)
{
    ar & x.m_anchor & x.m_attached & x.m_attach_side;
}

template <class A>
void serialize(A& ar, mirror::NamedItem& x, unsigned)
{
    ar & x.m_id & x.m_name & x.m_comment & x.m_style & x.m_sheet & x.m_related & x.m_layer & x.m_visible;
}

template <class A>
void serialize(A& ar, mirror::Dimension& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x);
    ar & x.m_value & x.m_upper_tolerance & x.m_lower_tolerance & x.m_precision & x.m_reference & x.m_text_position
        & x.m_prefix & x.m_suffix;
}

template <class A>
void serialize(A& ar, mirror::LinearDimension& x, unsigned)
{
    ar & base_object<mirror::Dimension>(x);
    ar & x.m_start & x.m_end & x.m_direction;
}

template <class A>
void serialize(A& ar, mirror::AngularDimension& x, unsigned)
{
    ar & base_object<mirror::Dimension>(x);
    ar & x.m_vertex & x.m_legs & x.m_reflex;
}

template <class A>
void serialize(A& ar, mirror::RadialDimension& x, unsigned)
{
    ar & base_object<mirror::Dimension>(x);
    ar & x.m_centre & x.m_radius & x.m_diameter;
}

template <class A>
void serialize(A& ar, mirror::OrdinateDimension& x, unsigned)
{
    ar & base_object<mirror::Dimension>(x);
    ar & x.m_origin & x.m_axis & x.m_baseline;
}

template <class A>
void serialize(A& ar, mirror::Leader& x, unsigned)
{
    ar & x.m_start & x.m_vertices & x.m_arrow & x.m_next_leader & x.m_target;
}

template <class A>
void serialize(A& ar, mirror::Note& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x) & base_object<mirror::Attachable>(x);
    ar & x.m_text & x.m_text_height & x.m_leaders;
}

template <class A>
void serialize(A& ar, mirror::Balloon& x, unsigned)
{
    ar & base_object<mirror::Note>(x);
    ar & x.m_shape & x.m_item_number & x.m_radius;
}

template <class A>
void serialize(A& ar, mirror::Table& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x);
    ar & x.m_rows & x.m_columns & x.m_column_widths & x.m_cells;
}

template <class A>
void serialize(A& ar, mirror::CentreMark& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x);
    ar & x.m_centre & x.m_size & x.m_extended;
}

template <class A>
void serialize(A& ar, mirror::Image& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x);
    ar & x.m_width & x.m_height & x.m_pixels & x.m_format;
}

template <class A>
void serialize(A& ar, mirror::Transform& x, unsigned)
{
    ar & x.m_coefficients;
}

template <class A>
void serialize(A& ar, mirror::ItemList& x, unsigned)
{
    ar & x.m_items;
}

template <class A>
void serialize(A& ar, mirror::Viewport& x, unsigned)
{
    ar & x.m_bounds & x.m_scale & x.m_label;
}

template <class A>
void serialize(A& ar, mirror::View& x, unsigned)
{
    ar & x.m_name & x.m_matrix & x.m_transform & x.m_filter & x.m_viewport & x.m_next_view & x.m_shown & x.m_sheet;
}

template <class A>
void serialize(A& ar, mirror::Revision& x, unsigned)
{
    ar & x.m_letter & x.m_description & x.m_date;
}

template <class A>
void serialize(A& ar, mirror::TitleBlock& x, unsigned)
{
    ar & x.m_title & x.m_drawn_by & x.m_checked_by & x.m_drawing_number & x.m_logo & x.m_revisions;
}

template <class A>
void serialize(A& ar, mirror::Sheet& x, unsigned)
{
    ar & x.m_name & x.m_number & x.m_bounds & x.m_title_block & x.m_placement & x.m_views & x.m_items
        & x.m_document;
}

template <class A>
void serialize(A& ar, mirror::Document& x, unsigned)
{
    ar & x.m_name & x.m_author & x.m_id & x.m_format & x.m_units & x.m_thumbnail & x.m_default_style & x.m_sheets
        & x.m_items & x.m_focus;
}

// ------------------------------------------------------------------ gdandtol

template <class A>
void serialize(A& ar, mirror::Symbol& x, unsigned)
{
    ar & x.m_name & x.m_text & x.m_glyph & x.m_characteristic;
}

template <class A>
void serialize(A& ar, mirror::Datum& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x);
    ar & x.m_label & x.m_location & x.m_feature_kind;
}

template <class A>
void serialize(A& ar, mirror::DatumReference& x, unsigned)
{
    ar & x.m_datum & x.m_modifier & x.m_precedence;
}

template <class A>
void serialize(A& ar, mirror::ToleranceZone& x, unsigned)
{
    ar & x.m_width & x.m_shape & x.m_projected & x.m_projection_length;
}

template <class A>
void serialize(A& ar, mirror::FeatureControlFrame& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x) & base_object<mirror::Attachable>(x);
    ar & x.m_characteristic & x.m_zone & x.m_references & x.m_feature & x.m_symbol & x.m_note;
}

template <class A>
void serialize(A& ar, mirror::CompositeFrame& x, unsigned)
{
    ar & base_object<mirror::FeatureControlFrame>(x);
    ar & x.m_lower_segment;
}

template <class A>
void serialize(A& ar, mirror::ProfileTolerance& x, unsigned)
{
    ar & base_object<mirror::FeatureControlFrame>(x);
    ar & x.m_all_around & x.m_unequal_offset & x.m_profile_of;
}

template <class A>
void serialize(A& ar, mirror::DatumTarget& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x);
    ar & x.m_datum & x.m_index & x.m_area & x.m_point;
}

template <class A>
void serialize(A& ar, mirror::DatumSystem& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x);
    ar & x.m_references & x.m_frame;
}

// --------------------------------------------------------------- vornetinput

template <class A>
void serialize(A& ar, mirror::Site& x, unsigned)
{
    ar & x.m_id & x.m_position & x.m_weight & x.m_flags & x.m_tag;
}

template <class A>
void serialize(A& ar, mirror::Segment& x, unsigned)
{
    ar & x.m_from & x.m_to & x.m_kind & x.m_constrained;
}

template <class A>
void serialize(A& ar, mirror::Polyline& x, unsigned)
{
    ar & x.m_vertices & x.m_closed & x.m_next;
}

template <class A>
void serialize(A& ar, mirror::Boundary& x, unsigned)
{
    ar & base_object<mirror::Polyline>(x);
    ar & x.m_outer & x.m_offset;
}

template <class A>
void serialize(A& ar, mirror::Parameters& x, unsigned)
{
    ar & x.m_tolerance & x.m_max_iterations & x.m_clip & x.m_output_kind;
}

template <class A>
void serialize(A& ar, mirror::Weighting& x, unsigned)
{
    ar & x.m_scheme & x.m_weights;
}

template <class A>
void serialize(A& ar, mirror::Source& x, unsigned)
{
    ar & x.m_path & x.m_raw & x.m_checksum;
}

template <class A>
void serialize(A& ar, mirror::Input& x, unsigned)
{
    ar & base_object<mirror::NamedItem>(x);
    ar & x.m_parameters & x.m_sites & x.m_segments & x.m_polylines & x.m_boundary & x.m_weighting & x.m_source
        & x.m_bbox;
}

}  // namespace boost::serialization

BOOST_CLASS_EXPORT_GUID(mirror::LinearDimension, "LinearDimension")
BOOST_CLASS_EXPORT_GUID(mirror::AngularDimension, "AngularDimension")
BOOST_CLASS_EXPORT_GUID(mirror::RadialDimension, "RadialDimension")
BOOST_CLASS_EXPORT_GUID(mirror::OrdinateDimension, "OrdinateDimension")
BOOST_CLASS_EXPORT_GUID(mirror::Note, "Note")
BOOST_CLASS_EXPORT_GUID(mirror::Balloon, "Balloon")
BOOST_CLASS_EXPORT_GUID(mirror::Table, "Table")
BOOST_CLASS_EXPORT_GUID(mirror::CentreMark, "CentreMark")
BOOST_CLASS_EXPORT_GUID(mirror::Image, "Image")
BOOST_CLASS_EXPORT_GUID(mirror::Datum, "Datum")
BOOST_CLASS_EXPORT_GUID(mirror::FeatureControlFrame, "FeatureControlFrame")
BOOST_CLASS_EXPORT_GUID(mirror::CompositeFrame, "CompositeFrame")
BOOST_CLASS_EXPORT_GUID(mirror::ProfileTolerance, "ProfileTolerance")
BOOST_CLASS_EXPORT_GUID(mirror::DatumTarget, "DatumTarget")
BOOST_CLASS_EXPORT_GUID(mirror::DatumSystem, "DatumSystem")
BOOST_CLASS_EXPORT_GUID(mirror::Input, "Input")

namespace mirror {

inline void boost_write(std::ostream& os, Document const& doc)
{
    boost::archive::text_oarchive ar(os);
    Document const* root = &doc;
    ar << root;
}

inline std::unique_ptr<Document> boost_read(std::istream& is)
{
    boost::archive::text_iarchive ar(is);
    Document* root = nullptr;
    ar >> root;
    return std::unique_ptr<Document>(root);
}

}  // namespace mirror
