// The annotation model of the sample application: a drawing document with
// sheets and views, and the named items placed on them (dimensions, notes
// with leaders, tables, centre marks, images). Items share their styles
// through counted pointers; sheets and views list items through annItemList,
// a container with a mapper of its own; view placement is an annTransform,
// whose live layout is private and is stored through a model class.
//
// Ownership: the document owns its sheets (an array) and its document-level
// item list; a sheet owns its title block, its views and its item list; a
// list shares its items with every other list that shows them; a note owns
// its leaders. Plain pointers (m_sheet, m_related, m_next_leader, ...) own
// nothing, so deleting the document frees everything.
#pragma once

#include <sto.h>

#include <vector>

// Created once and saved in the system as this program's current version.
stoSchema* sto_schema_annotation();

// Number of live objects of the counted classes (items, styles, leaders,
// sheets, views, transforms, sites): tests check that it comes back to where
// it was once a document is deleted.
long sample_live_objects();

// An empty base that counts its live instances in sample_live_objects().
class sampleCounted {
protected:
    sampleCounted();
    sampleCounted(sampleCounted const&);
    sampleCounted& operator=(sampleCounted const&) = default;
    ~sampleCounted();
};

class annSheet;
class annDocument;
class annTransformModel;

// ---------------------------------------------------------------- geometry

class annPoint {
    STO_PERSISTENT(annPoint)
public:
    annPoint() = default;
    annPoint(double x, double y, double z = 0) : m_x(x), m_y(y), m_z(z) {}
    virtual ~annPoint() = default;
    double m_x = 0;
    double m_y = 0;
    double m_z = 0;
};
STO_DECLARE_CLASS(annPoint)

class annVector {
    STO_PERSISTENT(annVector)
public:
    annVector() = default;
    annVector(double dx, double dy, double dz = 0) : m_dx(dx), m_dy(dy), m_dz(dz) {}
    virtual ~annVector() = default;
    double m_dx = 0;
    double m_dy = 0;
    double m_dz = 0;
};
STO_DECLARE_CLASS(annVector)

// ------------------------------------------------------------ presentation

// Shared by many items; deleting the last item that uses it frees it.
class annStyle : private sampleCounted {
    STO_PERSISTENT(annStyle)
public:
    virtual ~annStyle() = default;
    utString m_name;
    int m_colour = 0;         // 0xRRGGBB
    double m_line_width = 0;  // millimetres
    utBool m_bold = 0;
    utString m_font;          // null: the sheet's font; empty: no text at all
};
STO_DECLARE_CLASS(annStyle)

class annUnits {
    STO_PERSISTENT(annUnits)
public:
    virtual ~annUnits() = default;
    enum Length { kMillimetre, kInch, kMetre };
    int m_length_unit = kMillimetre;
    int m_angle_unit = 0;  // 0 degrees, 1 radians
    double m_scale = 1;    // drawing units per model unit
    utString m_symbol;
};
STO_DECLARE_CLASS(annUnits)

// Something that can be attached to geometry. It is the second base of the
// attachable items, so it sits at a non-zero offset inside them.
class annAttachable {
    STO_PERSISTENT(annAttachable)
public:
    virtual ~annAttachable() = default;
    annPoint m_anchor;
    utBool m_attached = 0;
    int m_attach_side = 0;  // 0 left, 1 right, 2 above, 3 below
};
STO_DECLARE_CLASS(annAttachable)

// ------------------------------------------------------------------ items

// What every item placed on a sheet has. Abstract.
class annNamedItem : private sampleCounted {
    STO_PERSISTENT(annNamedItem)
public:
    virtual ~annNamedItem() = default;
    // A word for messages ("linear dimension", "datum").
    virtual char const* kind_name() const = 0;

    long long m_id = 0;               // unique in the document, beyond 32 bits
    utString m_name;
    utString m_comment;               // often null, sometimes empty
    coPrf<annStyle> m_style;          // shared with other items; may be null
    annSheet* m_sheet = nullptr;      // the sheet that lists the item, not owned
    annNamedItem* m_related = nullptr;  // any other item it refers to, not owned
    int m_layer = 0;
    utBool m_visible = 1;
};
STO_DECLARE_CLASS(annNamedItem)

class annDimension : public annNamedItem {
    STO_PERSISTENT(annDimension)
public:
    double m_value = 0;
    double m_upper_tolerance = 0;
    double m_lower_tolerance = 0;
    int m_precision = 2;     // decimals shown
    utBool m_reference = 0;  // shown in brackets, not toleranced
    annPoint m_text_position;
    utString m_prefix;       // usually null
    utString m_suffix;       // usually empty
};
STO_DECLARE_CLASS(annDimension)

class annLinearDimension : public annDimension {
    STO_PERSISTENT(annLinearDimension)
public:
    char const* kind_name() const override { return "linear dimension"; }
    annPoint m_start;
    annPoint m_end;
    annVector m_direction;
};
STO_DECLARE_CLASS(annLinearDimension)

class annAngularDimension : public annDimension {
    STO_PERSISTENT(annAngularDimension)
public:
    char const* kind_name() const override { return "angular dimension"; }
    annPoint m_vertex;
    annVector m_legs[2];
    utBool m_reflex = 0;
};
STO_DECLARE_CLASS(annAngularDimension)

class annRadialDimension : public annDimension {
    STO_PERSISTENT(annRadialDimension)
public:
    char const* kind_name() const override { return "radial dimension"; }
    annPoint m_centre;
    double m_radius = 0;
    utBool m_diameter = 0;
};
STO_DECLARE_CLASS(annRadialDimension)

class annOrdinateDimension : public annDimension {
    STO_PERSISTENT(annOrdinateDimension)
public:
    char const* kind_name() const override { return "ordinate dimension"; }
    annPoint m_origin;
    int m_axis = 0;  // 0 x, 1 y
    // The ordinate that holds the common origin; the first of a sheet's
    // ordinates points at itself.
    annOrdinateDimension* m_baseline = nullptr;
};
STO_DECLARE_CLASS(annOrdinateDimension)

// One leader line of a note. The leaders of a note form a ring through
// m_next_leader: the last one points back at the first.
class annLeader : private sampleCounted {
    STO_PERSISTENT(annLeader)
public:
    annLeader() = default;
    annLeader(annLeader const&) = delete;
    annLeader& operator=(annLeader const&) = delete;
    virtual ~annLeader() { delete[] m_vertices; }
    void set_vertices(int n);  // n default points

    annPoint m_start;
    int m_n_vertices = 0;
    annPoint* m_vertices = nullptr;       // m_n_vertices points, owned
    int m_arrow = 0;                      // 0 closed, 1 open, 2 dot, 3 none
    annLeader* m_next_leader = nullptr;   // not owned
    annNamedItem* m_target = nullptr;     // what the arrow points at, not owned
};
STO_DECLARE_CLASS(annLeader)

class annNote : public annNamedItem, public annAttachable {
    STO_PERSISTENT(annNote)
public:
    annNote() = default;
    annNote(annNote const&) = delete;
    annNote& operator=(annNote const&) = delete;
    ~annNote() override { delete[] m_leaders; }
    char const* kind_name() const override { return "note"; }
    // n leaders linked into a ring.
    void set_leaders(int n);

    utString m_text;
    double m_text_height = 3.5;
    int m_n_leaders = 0;
    annLeader* m_leaders = nullptr;  // m_n_leaders leaders, owned
};
STO_DECLARE_CLASS(annNote)

class annBalloon : public annNote {
    STO_PERSISTENT(annBalloon)
public:
    char const* kind_name() const override { return "balloon"; }
    int m_shape = 0;  // 0 circle, 1 square, 2 triangle
    int m_item_number = 0;
    double m_radius = 0;
};
STO_DECLARE_CLASS(annBalloon)

// A table of text cells; the number of cells follows from the row and
// column counts, so it is not stored separately.
class annTable : public annNamedItem {
    STO_PERSISTENT(annTable)
public:
    annTable() = default;
    annTable(annTable const&) = delete;
    annTable& operator=(annTable const&) = delete;
    ~annTable() override;
    char const* kind_name() const override { return "table"; }
    static int cell_count(void const* table);
    void set_shape(int rows, int columns);  // empty cells, zero widths

    int m_rows = 0;
    int m_columns = 0;
    double* m_column_widths = nullptr;  // m_columns widths, owned
    utString* m_cells = nullptr;        // m_rows * m_columns cells, row by row, owned
};
STO_DECLARE_CLASS(annTable)

class annCentreMark : public annNamedItem {
    STO_PERSISTENT(annCentreMark)
public:
    char const* kind_name() const override { return "centre mark"; }
    annPoint m_centre;
    double m_size = 0;
    utBool m_extended = 0;
};
STO_DECLARE_CLASS(annCentreMark)

class annImage : public annNamedItem {
    STO_PERSISTENT(annImage)
public:
    char const* kind_name() const override { return "image"; }
    int m_width = 0;
    int m_height = 0;
    stoByteArray m_pixels;
    utString m_format;
};
STO_DECLARE_CLASS(annImage)

// --------------------------------------------------------- the transform

// A placement: a 3x4 matrix kept in a vector, which the store cannot
// describe, so it is stored through annTransformModel.
class annTransform : private sampleCounted {
    STO_PERSISTENT(annTransform)
public:
    static constexpr int kSize = 12;
    annTransform();  // the identity
    virtual ~annTransform() = default;
    double coefficient(int i) const { return m_coefficients[static_cast<std::size_t>(i)]; }
    void set_coefficient(int i, double v) { m_coefficients[static_cast<std::size_t>(i)] = v; }
    int is_identity() const;

private:
    friend void sto_opaque_to_model(annTransform const&, annTransformModel&);
    friend void sto_model_to_opaque(annTransformModel const&, annTransform&);
    std::vector<double> m_coefficients;
};
STO_DECLARE_CLASS(annTransform)

// How a transform is stored: its coefficients row by row.
class annTransformModel {
    STO_PERSISTENT(annTransformModel)
public:
    virtual ~annTransformModel() = default;
    double m_values[annTransform::kSize] = {};
};
STO_DECLARE_CLASS(annTransformModel)

void sto_opaque_to_model(annTransform const& opaque, annTransformModel& model);
void sto_model_to_opaque(annTransformModel const& model, annTransform& opaque);

// How many times a transform has been filled from its model since the
// program started: once per transform read, whatever shares it.
long sample_model_to_opaque_count();

STO_DECLARE_CLASS_MAPPER(annTransform, annTransformModel)

// --------------------------------------------------------- the item list

// The items of a sheet or view. Elements live in blocks and never move once
// appended, so the store can keep their addresses while it converts them.
// m_size always equals the number of elements.
class annItemList {
    STO_PERSISTENT(annItemList)
public:
    virtual ~annItemList() = default;
    int size() const { return m_size; }
    annNamedItem* operator[](int i) const { return m_array[i].get(); }
    coPrf<annNamedItem> const& at(int i) const { return m_array[i]; }
    coPrf<annNamedItem>& at(int i) { return m_array[i]; }
    void append(coPrf<annNamedItem> const& item);
    // Empties the list, then makes n null entries.
    void reset(int n);

    int m_size = 0;
    coVariableArr<coPrf<annNamedItem>> m_array;
};
STO_DECLARE_CLASS(annItemList)

// Presents an annItemList to the store as its m_size and m_array.
class annItemListMapper : public stoContainerMapper {
    STO_PERSISTENT(annItemListMapper)
public:
    annItemListMapper(stoSchema* schema, utString const& name) : stoContainerMapper(schema, name) {}

    int container_size(void const* container) const override;
    void const* count_field(void const* container) const override;
    void const* storage_field(void const* container) const override;
    void* element_address(void* container, int i) const override;
    void reset(void* container, int n) const override;

protected:
    annItemListMapper() = default;
};
STO_DECLARE_CLASS(annItemListMapper)

// Made in the annotation schema, named "annItemListMapper", on first use.
annItemListMapper const* sto_mapper_annItemListMapper();

// ------------------------------------------------------ sheets and views

class annViewport {
    STO_PERSISTENT(annViewport)
public:
    virtual ~annViewport() = default;
    double m_bounds[4] = {};  // x min, y min, x max, y max on the sheet
    double m_scale = 1;
    utString m_label;
};
STO_DECLARE_CLASS(annViewport)

// A view of the model on a sheet. The views of a sheet form a short chain,
// each owning the next.
class annView : private sampleCounted {
    STO_PERSISTENT(annView)
public:
    annView() = default;
    annView(annView const&) = delete;
    annView& operator=(annView const&) = delete;
    virtual ~annView() { delete m_viewport; }

    utString m_name;
    double m_matrix[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};  // projection
    annTransform m_transform;               // model to view
    stoTypeHandle m_filter;                 // the kind of item shown; null: all
    annViewport* m_viewport = nullptr;      // owned; may be null
    coPrg<annView> m_next_view;
    annItemList m_shown;                    // items also listed by the sheet
    annSheet* m_sheet = nullptr;            // not owned
};
STO_DECLARE_CLASS(annView)

class annRevision {
    STO_PERSISTENT(annRevision)
public:
    virtual ~annRevision() = default;
    utString m_letter;
    utString m_description;
    long long m_date = 0;  // seconds since 1970
};
STO_DECLARE_CLASS(annRevision)

class annTitleBlock {
    STO_PERSISTENT(annTitleBlock)
public:
    annTitleBlock() = default;
    annTitleBlock(annTitleBlock const&) = delete;
    annTitleBlock& operator=(annTitleBlock const&) = delete;
    virtual ~annTitleBlock() { delete[] m_revisions; }
    void set_revisions(int n);

    utString m_title;
    utString m_drawn_by;
    utString m_checked_by;       // null until checked
    long long m_drawing_number = 0;
    stoByteArray m_logo;
    int m_n_revisions = 0;
    annRevision* m_revisions = nullptr;  // owned
};
STO_DECLARE_CLASS(annTitleBlock)

class annSheet : private sampleCounted {
    STO_PERSISTENT(annSheet)
public:
    annSheet() = default;
    annSheet(annSheet const&) = delete;
    annSheet& operator=(annSheet const&) = delete;
    virtual ~annSheet() = default;

    utString m_name;
    int m_number = 0;
    double m_bounds[4] = {};
    coPrg<annTitleBlock> m_title_block;
    coPrf<annTransform> m_placement;  // shared by the sheets of a document
    coPrg<annView> m_views;           // the first of a chain
    annItemList m_items;
    annDocument* m_document = nullptr;  // not owned
};
STO_DECLARE_CLASS(annSheet)

// The root of a file.
class annDocument {
    STO_PERSISTENT(annDocument)
public:
    annDocument() = default;
    annDocument(annDocument const&) = delete;
    annDocument& operator=(annDocument const&) = delete;
    virtual ~annDocument() { delete[] m_sheets; }
    void set_sheets(int n);

    utString m_name;
    utString m_author;  // null when unknown
    long long m_id = 0;
    int m_format[3] = {1, 0, 0};  // major, minor, patch of the writing program
    annUnits m_units;
    stoByteArray m_thumbnail;
    coPrf<annStyle> m_default_style;
    int m_n_sheets = 0;
    annSheet* m_sheets = nullptr;  // owned
    annItemList m_items;           // items that belong to no sheet
    annNamedItem* m_focus = nullptr;  // the item last selected, not owned
};
STO_DECLARE_CLASS(annDocument)
