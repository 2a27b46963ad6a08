#include "vornetinput.h"
#include "sample_arrays.h"

stoSchema* sto_schema_vornetinput()
{
    static stoSchema* s_schema = nullptr;
    if (!s_schema)
        s_schema = sto_system()->save(new stoSchema("vornetinput", 9));
    return s_schema;
}

void vniPolyline::set_vertices(int n)
{
    sample_resize(m_vertices, m_n_vertices, n);
}

void vniWeighting::set_weights(int n)
{
    sample_resize(m_weights, m_n_weights, n);
}

vniInput::~vniInput()
{
    delete m_polylines;
    delete[] m_segments;
    delete[] m_sites;
}

void vniInput::set_sites(int n)
{
    sample_resize(m_sites, m_n_sites, n);
}

void vniInput::set_segments(int n)
{
    sample_resize(m_segments, m_n_segments, n);
}

STO_CLASS(vniSite, sto_schema_vornetinput())
{
    STO_MEMBER(m_id);
    STO_MEMBER(m_position);
    STO_MEMBER(m_weight);
    STO_MEMBER(m_flags);
    STO_MEMBER(m_tag);
}

STO_CLASS(vniSegment, sto_schema_vornetinput())
{
    STO_MEMBER(m_from);
    STO_MEMBER(m_to);
    STO_MEMBER(m_kind);
    STO_MEMBER(m_constrained);
}

STO_CLASS(vniPolyline, sto_schema_vornetinput())
{
    STO_SIZED_ARRAY(m_vertices, m_n_vertices);
    STO_MEMBER(m_closed);
    STO_MEMBER(m_next);
}

STO_CLASS(vniBoundary, sto_schema_vornetinput())
{
    STO_BASE(vniPolyline);
    STO_MEMBER(m_outer);
    STO_MEMBER(m_offset);
}

STO_CLASS(vniParameters, sto_schema_vornetinput())
{
    STO_MEMBER(m_tolerance);
    STO_MEMBER(m_max_iterations);
    STO_MEMBER(m_clip);
    STO_MEMBER(m_output_kind);
}

STO_CLASS(vniWeighting, sto_schema_vornetinput())
{
    STO_MEMBER(m_scheme);
    STO_SIZED_ARRAY(m_weights, m_n_weights);
}

STO_CLASS(vniSource, sto_schema_vornetinput())
{
    STO_MEMBER(m_path);
    STO_MEMBER(m_raw);
    STO_MEMBER(m_checksum);
}

STO_CLASS(vniInput, sto_schema_vornetinput())
{
    STO_BASE(annNamedItem);
    STO_MEMBER(m_parameters);
    STO_SIZED_ARRAY(m_sites, m_n_sites);
    STO_SIZED_ARRAY(m_segments, m_n_segments);
    STO_OWNING_PTR(m_polylines);
    STO_MEMBER(m_boundary);
    STO_MEMBER(m_weighting);
    STO_MEMBER(m_source);
    STO_MEMBER(m_bbox);
}
