// The input of a Voronoi-net computation attached to a drawing: sites,
// segments between sites, polylines through sites and the boundary that
// clips the net. Segments and polylines point at sites held in the input's
// site array; they own none of them.
#pragma once

#include "annotation.h"

// Created once and saved in the system as this program's current version.
stoSchema* sto_schema_vornetinput();

class vniSite : private sampleCounted {
    STO_PERSISTENT(vniSite)
public:
    virtual ~vniSite() = default;
    long long m_id = 0;
    annPoint m_position;
    double m_weight = 1;
    int m_flags = 0;  // 1 fixed, 2 on boundary
    utString m_tag;   // mostly null
};
STO_DECLARE_CLASS(vniSite)

class vniSegment {
    STO_PERSISTENT(vniSegment)
public:
    virtual ~vniSegment() = default;
    vniSite* m_from = nullptr;  // not owned
    vniSite* m_to = nullptr;    // not owned
    int m_kind = 0;             // 0 straight, 1 arc
    utBool m_constrained = 0;
};
STO_DECLARE_CLASS(vniSegment)

// A polyline through sites; the polylines of an input form a short chain,
// each owning the next.
class vniPolyline {
    STO_PERSISTENT(vniPolyline)
public:
    vniPolyline() = default;
    vniPolyline(vniPolyline const&) = delete;
    vniPolyline& operator=(vniPolyline const&) = delete;
    virtual ~vniPolyline() { delete[] m_vertices; }
    void set_vertices(int n);  // n null vertices

    int m_n_vertices = 0;
    vniSite** m_vertices = nullptr;  // owned array of pointers to sites it does not own
    utBool m_closed = 0;
    coPrg<vniPolyline> m_next;
};
STO_DECLARE_CLASS(vniPolyline)

class vniBoundary : public vniPolyline {
    STO_PERSISTENT(vniBoundary)
public:
    utBool m_outer = 1;
    double m_offset = 0;
};
STO_DECLARE_CLASS(vniBoundary)

class vniParameters {
    STO_PERSISTENT(vniParameters)
public:
    virtual ~vniParameters() = default;
    double m_tolerance = 1e-6;
    int m_max_iterations = 100;
    utBool m_clip = 1;
    stoTypeHandle m_output_kind;  // the class the net is produced as; null: the default
};
STO_DECLARE_CLASS(vniParameters)

// Site weights by scheme; shared by the inputs of a document.
class vniWeighting {
    STO_PERSISTENT(vniWeighting)
public:
    vniWeighting() = default;
    vniWeighting(vniWeighting const&) = delete;
    vniWeighting& operator=(vniWeighting const&) = delete;
    virtual ~vniWeighting() { delete[] m_weights; }
    void set_weights(int n);

    utString m_scheme;
    int m_n_weights = 0;
    double* m_weights = nullptr;  // owned
};
STO_DECLARE_CLASS(vniWeighting)

// Where the input came from, kept verbatim.
class vniSource {
    STO_PERSISTENT(vniSource)
public:
    virtual ~vniSource() = default;
    utString m_path;
    stoByteArray m_raw;
    long long m_checksum = 0;
};
STO_DECLARE_CLASS(vniSource)

class vniInput : public annNamedItem {
    STO_PERSISTENT(vniInput)
public:
    vniInput() = default;
    vniInput(vniInput const&) = delete;
    vniInput& operator=(vniInput const&) = delete;
    ~vniInput() override;
    char const* kind_name() const override { return "Voronoi input"; }
    void set_sites(int n);
    void set_segments(int n);

    vniParameters m_parameters;
    int m_n_sites = 0;
    vniSite* m_sites = nullptr;        // owned
    int m_n_segments = 0;
    vniSegment* m_segments = nullptr;  // owned
    vniPolyline* m_polylines = nullptr;  // owned, the first of a chain
    coPrg<vniBoundary> m_boundary;
    coPrf<vniWeighting> m_weighting;
    coPrg<vniSource> m_source;
    double m_bbox[4] = {};
};
STO_DECLARE_CLASS(vniInput)
