// The generator's item builders: the dimension, note and table parts of
// annotation items, and the gdandtol and vornetinput items.
#include "generator.h"

namespace sample_generate {

namespace {

char const* const kNoteTexts[] = {"BREAK ALL SHARP EDGES", "SURFACE FINISH Ra 1.6", "DO NOT SCALE DRAWING",
                                  "MATERIAL: AL 6061-T6", "DEBURR AFTER MACHINING", ""};

}  // namespace

void Generator::dimension(annDimension& d)
{
    d.m_value = m_r.positive(500);
    d.m_upper_tolerance = m_r.percent(50) ? 0.0 : m_r.positive(1);
    d.m_lower_tolerance = m_r.percent(50) ? 0.0 : -m_r.positive(1);
    d.m_precision = m_r.below(4);
    d.m_reference = m_r.percent(10);
    d.m_text_position = point();
    int p = m_r.below(10);
    d.m_prefix = p < 8 ? utString() : utString(p == 8 ? "\xC3\x98" : "R");  // null, "Ø" or "R"
    d.m_suffix = text(20, 70, " TYP");
}

void Generator::attachable(annAttachable& a)
{
    a.m_anchor = point();
    a.m_attached = m_r.percent(60);
    a.m_attach_side = m_r.below(4);
}

annNote* Generator::note(annNote* n)
{
    attachable(*n);
    n->m_text = utString(kNoteTexts[m_r.below(6)]);
    n->m_text_height = m_r.percent(80) ? 3.5 : m_r.positive(10);
    n->set_leaders(m_r.between(1, 3));
    for (int i = 0; i < n->m_n_leaders; ++i) {
        annLeader& l = n->m_leaders[i];
        l.m_start = point();
        l.set_vertices(m_r.below(4));
        for (int v = 0; v < l.m_n_vertices; ++v)
            l.m_vertices[v] = point();
        l.m_arrow = m_r.below(4);
        m_leaders.push_back(&l);
    }
    return n;
}

annTable* Generator::table()
{
    annTable* t = new annTable();
    int rows = m_r.between(1, 4);
    int columns = m_r.between(1, 3);
    t->set_shape(rows, columns);
    for (int c = 0; c < columns; ++c)
        t->m_column_widths[c] = m_r.positive(60);
    for (int i = 0; i < rows * columns; ++i) {
        std::string cell = numbered("R", i / columns + 1);
        cell += numbered("C", i % columns + 1);
        t->m_cells[i] = text(20, 20, cell);
    }
    return t;
}

gdtFeatureControlFrame* Generator::frame(gdtFeatureControlFrame* f)
{
    attachable(*f);
    f->m_characteristic = static_cast<gdtCharacteristic>(m_r.below(14));
    f->m_zone.m_width = m_r.positive(1);
    f->m_zone.m_shape = m_r.below(3);
    f->m_zone.m_projected = m_r.percent(10);
    f->m_zone.m_projection_length = f->m_zone.m_projected ? m_r.positive(30) : 0.0;
    f->m_symbol = symbol(f->m_characteristic);
    f->m_note = text(60, 25, "ALL OVER");
    m_frames.push_back(f);
    return f;
}

coPrf<gdtSymbol> Generator::symbol(gdtCharacteristic c)
{
    if (m_symbols.empty())
        m_symbols.resize(14);
    coPrf<gdtSymbol>& s = m_symbols[static_cast<std::size_t>(c)];
    if (!s) {
        gdtSymbol* made = new gdtSymbol();
        made->m_name = utString(numbered("characteristic ", static_cast<int>(c)));
        made->m_text = text(0, 50, "\xE2\x8C\x96");  // "⌖" or empty
        made->m_glyph = bytes(16);
        made->m_characteristic = c;
        s = coPrf<gdtSymbol>(made);
    }
    return s;
}

vniInput* Generator::voronoi()
{
    vniInput* in = new vniInput();
    in->m_parameters.m_tolerance = static_cast<double>(m_r.between(1, 64)) / 1048576.0;
    in->m_parameters.m_max_iterations = m_r.between(10, 500);
    in->m_parameters.m_clip = m_r.percent(70);
    if (m_r.percent(50))
        in->m_parameters.m_output_kind = sto_type_vniSegment();
    int n_sites = m_r.between(4, 12);
    in->set_sites(n_sites);
    for (int i = 0; i < n_sites; ++i) {
        vniSite& site = in->m_sites[i];
        site.m_id = (static_cast<long long>(m_r.below(1 << 30)) << 20) + i;
        site.m_position = point(100);
        site.m_weight = m_r.percent(70) ? 1.0 : m_r.positive(4);
        site.m_flags = m_r.below(4);
        site.m_tag = text(70, 15, numbered("s", i));
    }
    int extra = m_r.below(3);
    in->set_segments(n_sites - 1 + extra);
    for (int i = 0; i < in->m_n_segments; ++i) {
        vniSegment& seg = in->m_segments[i];
        if (i < n_sites - 1) {
            seg.m_from = &in->m_sites[i];
            seg.m_to = &in->m_sites[i + 1];
        } else {
            seg.m_from = &in->m_sites[m_r.below(n_sites)];
            seg.m_to = &in->m_sites[m_r.below(n_sites)];
        }
        seg.m_kind = m_r.below(2);
        seg.m_constrained = m_r.percent(30);
    }
    // The input owns the first polyline through a raw pointer, each
    // polyline the next through a coPrg.
    int n_lines = m_r.between(1, 3);
    vniPolyline* tail = nullptr;
    for (int l = 0; l < n_lines; ++l) {
        vniPolyline* line = new vniPolyline();
        polyline(*line, *in, m_r.between(2, 5));
        if (tail)
            tail->m_next = line;
        else
            in->m_polylines = line;
        tail = line;
    }
    if (m_r.percent(70)) {
        vniBoundary* b = new vniBoundary();
        b->set_vertices(n_sites);
        for (int i = 0; i < n_sites; ++i)
            b->m_vertices[i] = &in->m_sites[i];
        b->m_closed = 1;
        b->m_outer = m_r.percent(80);
        b->m_offset = m_r.percent(50) ? 0.0 : m_r.positive(5);
        in->m_boundary = b;
    }
    if (!m_weighting) {
        vniWeighting* w = new vniWeighting();
        w->m_scheme = utString("inverse distance");
        w->set_weights(m_r.between(4, 8));
        for (int i = 0; i < w->m_n_weights; ++i)
            w->m_weights[i] = m_r.positive(2);
        m_weighting = coPrf<vniWeighting>(w);
    }
    in->m_weighting = m_weighting;
    if (m_r.percent(50)) {
        vniSource* src = new vniSource();
        std::string path = numbered("/data/nets/input", m_r.below(1000));
        path += ".vni";
        src->m_path = text(10, 10, path);
        src->m_raw = bytes(m_r.between(16, 64));
        src->m_checksum = static_cast<long long>(m_r.next() >> 1);
        in->m_source = src;
    }
    for (int i = 0; i < 4; ++i)
        in->m_bbox[i] = m_r.coordinate(100);
    return in;
}

void Generator::polyline(vniPolyline& line, vniInput& in, int n)
{
    line.set_vertices(n);
    for (int i = 0; i < n; ++i)
        line.m_vertices[i] = &in.m_sites[m_r.below(in.m_n_sites)];
    line.m_closed = m_r.percent(20);
}

}  // namespace sample_generate
