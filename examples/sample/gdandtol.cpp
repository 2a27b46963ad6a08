#include "gdandtol.h"
#include "sample_arrays.h"

stoSchema* sto_schema_gdandtol()
{
    static stoSchema* s_schema = nullptr;
    if (!s_schema)
        s_schema = sto_system()->save(new stoSchema("gdandtol", 6));
    return s_schema;
}

void gdtDatumSystem::set_references(int n)
{
    sample_resize(m_references, m_n_references, n);
}

STO_CLASS(gdtSymbol, sto_schema_gdandtol())
{
    STO_MEMBER(m_name);
    STO_MEMBER(m_text);
    STO_MEMBER(m_glyph);
    STO_MEMBER(m_characteristic);
}

STO_CLASS(gdtDatum, sto_schema_gdandtol())
{
    STO_BASE(annNamedItem);
    STO_MEMBER(m_label);
    STO_MEMBER(m_location);
    STO_MEMBER(m_feature_kind);
}

STO_CLASS(gdtDatumReference, sto_schema_gdandtol())
{
    STO_MEMBER(m_datum);
    STO_MEMBER(m_modifier);
    STO_MEMBER(m_precedence);
}

STO_CLASS(gdtToleranceZone, sto_schema_gdandtol())
{
    STO_MEMBER(m_width);
    STO_MEMBER(m_shape);
    STO_MEMBER(m_projected);
    STO_MEMBER(m_projection_length);
}

STO_CLASS(gdtFeatureControlFrame, sto_schema_gdandtol())
{
    STO_BASE(annNamedItem);
    STO_BASE(annAttachable);
    STO_MEMBER(m_characteristic);
    STO_MEMBER(m_zone);
    STO_MEMBER(m_references);
    STO_MEMBER(m_feature);
    STO_MEMBER(m_symbol);
    STO_MEMBER(m_note);
}

STO_CLASS(gdtCompositeFrame, sto_schema_gdandtol())
{
    STO_BASE(gdtFeatureControlFrame);
    STO_MEMBER(m_lower_segment);
}

STO_CLASS(gdtProfileTolerance, sto_schema_gdandtol())
{
    STO_BASE(gdtFeatureControlFrame);
    STO_MEMBER(m_all_around);
    STO_MEMBER(m_unequal_offset);
    STO_MEMBER(m_profile_of);
}

STO_CLASS(gdtDatumTarget, sto_schema_gdandtol())
{
    STO_BASE(annNamedItem);
    STO_MEMBER(m_datum);
    STO_MEMBER(m_index);
    STO_MEMBER(m_area);
    STO_MEMBER(m_point);
}

STO_CLASS(gdtDatumSystem, sto_schema_gdandtol())
{
    STO_BASE(annNamedItem);
    STO_SIZED_ARRAY(m_references, m_n_references);
    STO_MEMBER(m_frame);
}
