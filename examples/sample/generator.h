// The document generator's internals (generator.cpp, generator_items.cpp);
// not part of the sample's interface. What a generated document looks like
// is described in generator.cpp.
#pragma once

#include "sample.h"

#include <cstdint>
#include <string>
#include <vector>

namespace sample_generate {

// splitmix64: integer arithmetic only, so a seed gives the same stream on
// every platform.
class sampleRandom {
public:
    explicit sampleRandom(unsigned seed) : m_state(0x2545F4914F6CDD1Dull ^ static_cast<std::uint64_t>(seed)) {}

    std::uint64_t next()
    {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // 0 .. n-1 (0 when n <= 1).
    int below(int n) { return n <= 1 ? 0 : static_cast<int>(next() % static_cast<std::uint64_t>(n)); }
    int between(int lo, int hi) { return lo + below(hi - lo + 1); }
    bool percent(int p) { return below(100) < p; }
    // A multiple of 1/64 in [-range, range].
    double coordinate(int range = 1000) { return static_cast<double>(between(-range * 64, range * 64)) / 64.0; }
    // A multiple of 1/1024 in (0, range].
    double positive(int range) { return static_cast<double>(between(1, range * 1024)) / 1024.0; }

private:
    std::uint64_t m_state;
};

enum ItemKind {
    kLinear, kAngular, kRadial, kOrdinate, kNote, kBalloon, kTable, kCentreMark, kImage,
    kDatum, kFrame, kComposite, kProfile, kDatumTarget, kDatumSystem, kVoronoi, kKinds
};

// prefix followed by n in decimal. (Built by appending: GCC 12 warns
// falsely about "literal" + std::string at -O2.)
inline std::string numbered(char const* prefix, long long n)
{
    std::string s(prefix);
    s += std::to_string(n);
    return s;
}

class Generator {
public:
    Generator(int n_items, unsigned seed) : m_n(n_items < 0 ? 0 : n_items), m_r(seed) {}
    annDocument* run();

private:
    // Values drawn from the stream.
    annPoint point(int range = 1000);
    annVector vector();
    utString text(int null_percent, int empty_percent, std::string const& value);  // null, empty or value
    stoByteArray bytes(int n);
    void transform(annTransform& t);
    annStyle* style(int number);

    // The document, its styles, sheets and views.
    void make_document();
    void make_styles();
    coPrf<annStyle> pick_style();
    void make_sheets();
    void make_title_block(annSheet& sheet, int s);
    void make_view(annView& view, annSheet& sheet, int v);

    // Items (generator.cpp: the choice and the placement; generator_items.cpp:
    // the parts).
    ItemKind pick_kind();
    void make_item(ItemKind kind);
    static char const* prefix(ItemKind kind);
    void named(annNamedItem& item, char const* prefix);
    void dimension(annDimension& d);
    void attachable(annAttachable& a);
    annNote* note(annNote* n);
    annTable* table();
    gdtFeatureControlFrame* frame(gdtFeatureControlFrame* f);
    coPrf<gdtSymbol> symbol(gdtCharacteristic c);
    vniInput* voronoi();
    void polyline(vniPolyline& line, vniInput& in, int n);

    // Cross references, made once every item exists so that they run
    // forwards as well as backwards.
    annNamedItem* any_item();
    gdtDatum* any_datum();
    void link();

    int m_n;
    sampleRandom m_r;
    annDocument* m_doc = nullptr;
    long long m_next_id = 0;
    std::vector<coPrf<annStyle>> m_styles;
    std::vector<coPrf<gdtSymbol>> m_symbols;         // by characteristic, made on first use
    coPrf<vniWeighting> m_weighting;                 // shared by every Voronoi input
    std::vector<std::vector<annView*>> m_views;      // by sheet
    std::vector<annOrdinateDimension*> m_baselines;  // by sheet
    std::vector<annNamedItem*> m_items;              // in creation order
    std::vector<annLeader*> m_leaders;
    std::vector<gdtDatum*> m_datums;
    std::vector<gdtFeatureControlFrame*> m_frames;   // lower segments included
    std::vector<gdtDatumTarget*> m_targets;
    std::vector<gdtDatumSystem*> m_systems;
};

}  // namespace sample_generate
