// Geometric dimensioning and tolerancing: datums, the references to them,
// tolerance zones and the feature control frames that combine them. Frames
// and datums are items of the annotation model, listed by sheets like any
// other; a datum reference points at its datum without owning it.
#pragma once

#include "annotation.h"

// Created once and saved in the system as this program's current version.
stoSchema* sto_schema_gdandtol();

enum gdtCharacteristic {
    gdtStraightness, gdtFlatness, gdtCircularity, gdtCylindricity, gdtProfileOfLine, gdtProfileOfSurface,
    gdtAngularity, gdtPerpendicularity, gdtParallelism, gdtPosition, gdtConcentricity, gdtSymmetry,
    gdtCircularRunout, gdtTotalRunout
};

enum gdtMaterialCondition { gdtRegardless, gdtMaximum, gdtLeast };

// The glyph of a characteristic; one per characteristic, shared by the
// frames that show it.
class gdtSymbol {
    STO_PERSISTENT(gdtSymbol)
public:
    virtual ~gdtSymbol() = default;
    utString m_name;
    utString m_text;  // a text fallback; empty when the glyph must be drawn
    stoByteArray m_glyph;
    gdtCharacteristic m_characteristic = gdtPosition;
};
STO_DECLARE_CLASS(gdtSymbol)

class gdtDatum : public annNamedItem {
    STO_PERSISTENT(gdtDatum)
public:
    char const* kind_name() const override { return "datum"; }
    utString m_label;  // "A", "B", ...
    annPoint m_location;
    int m_feature_kind = 0;  // 0 plane, 1 axis, 2 point
};
STO_DECLARE_CLASS(gdtDatum)

// One compartment of a frame's datum section.
class gdtDatumReference {
    STO_PERSISTENT(gdtDatumReference)
public:
    virtual ~gdtDatumReference() = default;
    gdtDatum* m_datum = nullptr;  // not owned; null for an unused compartment
    gdtMaterialCondition m_modifier = gdtRegardless;
    int m_precedence = 0;         // 1 primary, 2 secondary, 3 tertiary
};
STO_DECLARE_CLASS(gdtDatumReference)

class gdtToleranceZone {
    STO_PERSISTENT(gdtToleranceZone)
public:
    virtual ~gdtToleranceZone() = default;
    double m_width = 0;
    int m_shape = 0;  // 0 between planes, 1 cylindrical, 2 spherical
    utBool m_projected = 0;
    double m_projection_length = 0;
};
STO_DECLARE_CLASS(gdtToleranceZone)

// Attached to the feature it controls, hence the second base.
class gdtFeatureControlFrame : public annNamedItem, public annAttachable {
    STO_PERSISTENT(gdtFeatureControlFrame)
public:
    char const* kind_name() const override { return "feature control frame"; }
    gdtCharacteristic m_characteristic = gdtPosition;
    gdtToleranceZone m_zone;
    gdtDatumReference m_references[3];
    annNamedItem* m_feature = nullptr;  // the dimension it controls, not owned
    coPrf<gdtSymbol> m_symbol;
    utString m_note;
};
STO_DECLARE_CLASS(gdtFeatureControlFrame)

// Two frames stacked; the upper one owns the lower segment.
class gdtCompositeFrame : public gdtFeatureControlFrame {
    STO_PERSISTENT(gdtCompositeFrame)
public:
    char const* kind_name() const override { return "composite frame"; }
    coPrg<gdtFeatureControlFrame> m_lower_segment;
};
STO_DECLARE_CLASS(gdtCompositeFrame)

class gdtProfileTolerance : public gdtFeatureControlFrame {
    STO_PERSISTENT(gdtProfileTolerance)
public:
    char const* kind_name() const override { return "profile tolerance"; }
    utBool m_all_around = 0;
    double m_unequal_offset = 0;
    stoTypeHandle m_profile_of;  // the kind of item whose profile it controls; null: any
};
STO_DECLARE_CLASS(gdtProfileTolerance)

class gdtDatumTarget : public annNamedItem {
    STO_PERSISTENT(gdtDatumTarget)
public:
    char const* kind_name() const override { return "datum target"; }
    gdtDatum* m_datum = nullptr;  // not owned
    int m_index = 0;              // A1, A2, ...
    double m_area = 0;            // 0 for a point target
    annPoint m_point;
};
STO_DECLARE_CLASS(gdtDatumTarget)

// A datum reference frame: an ordered set of references and the placement
// they establish.
class gdtDatumSystem : public annNamedItem {
    STO_PERSISTENT(gdtDatumSystem)
public:
    gdtDatumSystem() = default;
    gdtDatumSystem(gdtDatumSystem const&) = delete;
    gdtDatumSystem& operator=(gdtDatumSystem const&) = delete;
    ~gdtDatumSystem() override { delete[] m_references; }
    char const* kind_name() const override { return "datum system"; }
    void set_references(int n);

    int m_n_references = 0;
    gdtDatumReference* m_references = nullptr;  // owned
    coPrg<annTransform> m_frame;                // null until computed
};
STO_DECLARE_CLASS(gdtDatumSystem)
