#include "annotation.h"
#include "sample_arrays.h"

stoSchema* sto_schema_annotation()
{
    static stoSchema* s_schema = nullptr;
    if (!s_schema)
        s_schema = sto_system()->save(new stoSchema("annotation", 16));
    return s_schema;
}

// ------------------------------------------------------------ live counts

namespace {
long g_live_objects = 0;
long g_model_to_opaque_runs = 0;
}  // namespace

long sample_live_objects() { return g_live_objects; }

sampleCounted::sampleCounted() { ++g_live_objects; }
sampleCounted::sampleCounted(sampleCounted const&) { ++g_live_objects; }
sampleCounted::~sampleCounted() { --g_live_objects; }

// ------------------------------------------------------------ behaviour

void annLeader::set_vertices(int n)
{
    sample_resize(m_vertices, m_n_vertices, n);
}

void annNote::set_leaders(int n)
{
    sample_resize(m_leaders, m_n_leaders, n);
    for (int i = 0; i < m_n_leaders; ++i)
        m_leaders[i].m_next_leader = &m_leaders[(i + 1) % m_n_leaders];
}

annTable::~annTable()
{
    delete[] m_column_widths;
    delete[] m_cells;
}

int annTable::cell_count(void const* table)
{
    // Follows from members stored before the cells, so it is known before
    // the cells are.
    annTable const* t = static_cast<annTable const*>(table);
    return t->m_rows * t->m_columns;
}

void annTable::set_shape(int rows, int columns)
{
    delete[] m_column_widths;
    delete[] m_cells;
    m_rows = rows;
    m_columns = columns;
    m_column_widths = columns > 0 ? new double[static_cast<std::size_t>(columns)]() : nullptr;
    m_cells = rows * columns > 0 ? new utString[static_cast<std::size_t>(rows * columns)] : nullptr;
}

annTransform::annTransform() : m_coefficients(kSize, 0.0)
{
    m_coefficients[0] = m_coefficients[5] = m_coefficients[10] = 1.0;
}

int annTransform::is_identity() const
{
    annTransform identity;
    return m_coefficients == identity.m_coefficients;
}

void sto_opaque_to_model(annTransform const& opaque, annTransformModel& model)
{
    for (int i = 0; i < annTransform::kSize; ++i)
        model.m_values[i] = opaque.m_coefficients[static_cast<std::size_t>(i)];
}

void sto_model_to_opaque(annTransformModel const& model, annTransform& opaque)
{
    ++g_model_to_opaque_runs;
    opaque.m_coefficients.assign(model.m_values, model.m_values + annTransform::kSize);
}

long sample_model_to_opaque_count() { return g_model_to_opaque_runs; }

void annItemList::append(coPrf<annNamedItem> const& item)
{
    m_array.append(item);
    ++m_size;
}

void annItemList::reset(int n)
{
    m_array.clear();
    m_array.resize(n);
    m_size = n;
}

void annTitleBlock::set_revisions(int n)
{
    sample_resize(m_revisions, m_n_revisions, n);
}

void annDocument::set_sheets(int n)
{
    sample_resize(m_sheets, m_n_sheets, n);
    for (int i = 0; i < m_n_sheets; ++i)
        m_sheets[i].m_document = this;
}

// ------------------------------------------------------- the item list's mapper

annItemListMapper const* sto_mapper_annItemListMapper()
{
    static annItemListMapper const* s_mapper = nullptr;
    if (!s_mapper)
        s_mapper = new annItemListMapper(sto_schema_annotation(), "annItemListMapper");
    return s_mapper;
}

int annItemListMapper::container_size(void const* container) const
{
    return static_cast<annItemList const*>(container)->m_size;
}

void const* annItemListMapper::count_field(void const* container) const
{
    return &static_cast<annItemList const*>(container)->m_size;
}

void const* annItemListMapper::storage_field(void const* container) const
{
    return &static_cast<annItemList const*>(container)->m_array;
}

void* annItemListMapper::element_address(void* container, int i) const
{
    return &static_cast<annItemList*>(container)->at(i);
}

void annItemListMapper::reset(void* container, int n) const { static_cast<annItemList*>(container)->reset(n); }

STO_CLASS(annItemListMapper, sto_schema_annotation())
{
    STO_BASE(stoMapper);
}

STO_CLASS_MAPPER(annTransform, annTransformModel, sto_schema_annotation())

// ------------------------------------------------------------ descriptions

STO_CLASS(annPoint, sto_schema_annotation())
{
    STO_MEMBER(m_x);
    STO_MEMBER(m_y);
    STO_MEMBER(m_z);
}

STO_CLASS(annVector, sto_schema_annotation())
{
    STO_MEMBER(m_dx);
    STO_MEMBER(m_dy);
    STO_MEMBER(m_dz);
}

STO_CLASS(annStyle, sto_schema_annotation())
{
    STO_MEMBER(m_name);
    STO_MEMBER(m_colour);
    STO_MEMBER(m_line_width);
    STO_MEMBER(m_bold);
    STO_MEMBER(m_font);
}

STO_CLASS(annUnits, sto_schema_annotation())
{
    STO_MEMBER(m_length_unit);
    STO_MEMBER(m_angle_unit);
    STO_MEMBER(m_scale);
    STO_MEMBER(m_symbol);
}

STO_CLASS(annAttachable, sto_schema_annotation())
{
    STO_MEMBER(m_anchor);
    STO_MEMBER(m_attached);
    STO_MEMBER(m_attach_side);
}

STO_ABSTRACT_CLASS(annNamedItem, sto_schema_annotation())
{
    STO_MEMBER(m_id);
    STO_MEMBER(m_name);
    STO_MEMBER(m_comment);
    STO_MEMBER(m_style);
    STO_MEMBER(m_sheet);
    STO_MEMBER(m_related);
    STO_MEMBER(m_layer);
    STO_MEMBER(m_visible);
}

STO_ABSTRACT_CLASS(annDimension, sto_schema_annotation())
{
    STO_BASE(annNamedItem);
    STO_MEMBER(m_value);
    STO_MEMBER(m_upper_tolerance);
    STO_MEMBER(m_lower_tolerance);
    STO_MEMBER(m_precision);
    STO_MEMBER(m_reference);
    STO_MEMBER(m_text_position);
    STO_MEMBER(m_prefix);
    STO_MEMBER(m_suffix);
}

STO_CLASS(annLinearDimension, sto_schema_annotation())
{
    STO_BASE(annDimension);
    STO_MEMBER(m_start);
    STO_MEMBER(m_end);
    STO_MEMBER(m_direction);
}

STO_CLASS(annAngularDimension, sto_schema_annotation())
{
    STO_BASE(annDimension);
    STO_MEMBER(m_vertex);
    STO_MEMBER(m_legs);
    STO_MEMBER(m_reflex);
}

STO_CLASS(annRadialDimension, sto_schema_annotation())
{
    STO_BASE(annDimension);
    STO_MEMBER(m_centre);
    STO_MEMBER(m_radius);
    STO_MEMBER(m_diameter);
}

STO_CLASS(annOrdinateDimension, sto_schema_annotation())
{
    STO_BASE(annDimension);
    STO_MEMBER(m_origin);
    STO_MEMBER(m_axis);
    STO_MEMBER(m_baseline);
}

STO_CLASS(annLeader, sto_schema_annotation())
{
    STO_MEMBER(m_start);
    STO_SIZED_ARRAY(m_vertices, m_n_vertices);
    STO_MEMBER(m_arrow);
    STO_MEMBER(m_next_leader);
    STO_MEMBER(m_target);
}

STO_CLASS(annNote, sto_schema_annotation())
{
    STO_BASE(annNamedItem);
    STO_BASE(annAttachable);
    STO_MEMBER(m_text);
    STO_MEMBER(m_text_height);
    STO_SIZED_ARRAY(m_leaders, m_n_leaders);
}

STO_CLASS(annBalloon, sto_schema_annotation())
{
    STO_BASE(annNote);
    STO_MEMBER(m_shape);
    STO_MEMBER(m_item_number);
    STO_MEMBER(m_radius);
}

STO_CLASS(annTable, sto_schema_annotation())
{
    STO_BASE(annNamedItem);
    STO_MEMBER(m_rows);
    STO_SIZED_ARRAY(m_column_widths, m_columns);
    STO_METHOD_ARRAY(m_cells, cell_count);
}

STO_CLASS(annCentreMark, sto_schema_annotation())
{
    STO_BASE(annNamedItem);
    STO_MEMBER(m_centre);
    STO_MEMBER(m_size);
    STO_MEMBER(m_extended);
}

STO_CLASS(annImage, sto_schema_annotation())
{
    STO_BASE(annNamedItem);
    STO_MEMBER(m_width);
    STO_MEMBER(m_height);
    STO_MEMBER(m_pixels);
    STO_MEMBER(m_format);
}

// Opaque: its value has the model's members, in the model's order.
STO_CLASS_MAPPED(annTransform, sto_schema_annotation(), sto_mapper_stoMapperannTransformannTransformModel())
{
    STO_MEMBERS_OF_MODEL(annTransformModel);
}

STO_CLASS(annTransformModel, sto_schema_annotation())
{
    STO_MEMBER(m_values);
}

STO_CLASS_MAPPED(annItemList, sto_schema_annotation(), sto_mapper_annItemListMapper())
{
    STO_SIZED_ARRAY_AS(m_array, m_size, sto_detail::type_of<coPrf<annNamedItem>>(sto_builder));
}

STO_CLASS(annViewport, sto_schema_annotation())
{
    STO_MEMBER(m_bounds);
    STO_MEMBER(m_scale);
    STO_MEMBER(m_label);
}

STO_CLASS(annView, sto_schema_annotation())
{
    STO_MEMBER(m_name);
    STO_MEMBER(m_matrix);
    STO_MEMBER(m_transform);
    STO_MEMBER(m_filter);
    STO_OWNING_PTR(m_viewport);
    STO_MEMBER(m_next_view);
    STO_MEMBER(m_shown);
    STO_MEMBER(m_sheet);
}

STO_CLASS(annRevision, sto_schema_annotation())
{
    STO_MEMBER(m_letter);
    STO_MEMBER(m_description);
    STO_MEMBER(m_date);
}

STO_CLASS(annTitleBlock, sto_schema_annotation())
{
    STO_MEMBER(m_title);
    STO_MEMBER(m_drawn_by);
    STO_MEMBER(m_checked_by);
    STO_MEMBER(m_drawing_number);
    STO_MEMBER(m_logo);
    STO_SIZED_ARRAY(m_revisions, m_n_revisions);
}

STO_CLASS(annSheet, sto_schema_annotation())
{
    STO_MEMBER(m_name);
    STO_MEMBER(m_number);
    STO_MEMBER(m_bounds);
    STO_MEMBER(m_title_block);
    STO_MEMBER(m_placement);
    STO_MEMBER(m_views);
    STO_MEMBER(m_items);
    STO_MEMBER(m_document);
}

STO_CLASS(annDocument, sto_schema_annotation())
{
    STO_MEMBER(m_name);
    STO_MEMBER(m_author);
    STO_MEMBER(m_id);
    STO_MEMBER(m_format);
    STO_MEMBER(m_units);
    STO_MEMBER(m_thumbnail);
    STO_MEMBER(m_default_style);
    STO_SIZED_ARRAY(m_sheets, m_n_sheets);
    STO_MEMBER(m_items);
    STO_MEMBER(m_focus);
}
