// The document generator.
//
// Shape of a document of n items (n >= 16 gives at least one of every item
// class, since the first sixteen items take the sixteen kinds in turn):
// - 1 + min(7, n / 150) sheets in the document's sheet array; each has a
//   title block, a chain of 1 to 3 views and the item list that owns most
//   items. Every sheet shares one placement transform.
// - datum systems and Voronoi inputs go to the document's own item list.
// - about one item in eight is also shown by a view of its sheet: the two
//   lists share it through counted pointers.
// - 6 + min(58, n / 250) styles; seven items in ten use one of the first four,
//   so a few styles are shared by very many items.
// - plain pointers run to items created earlier and later (m_related, leader
//   targets, datum references, ...), and back to owners (item to sheet,
//   sheet to document, view to sheet), so the graph has cycles; the leaders
//   of a note form a ring.
// Owning chains stay short (views, polylines, a composite frame's lower
// segment), so a walk that follows ownership depth-first never goes deep.
//
// Every number comes from one splitmix64 stream, and every double is a
// multiple of 1/64 or 1/1024 made by integer arithmetic, so a seed gives the
// same document on any platform. No two random draws sit in the arguments
// of one call (or the operands of one operator) where the order of
// evaluation would be the compiler's choice.
#include "generator.h"

namespace sample_generate {

namespace {

// Percentages of the kinds after the first sixteen items.
int const kWeights[kKinds] = {21, 7, 8, 5, 13, 4, 2, 8, 2, 6, 12, 2, 3, 4, 2, 1};

char const* const kPeople[] = {"A. Ferreira", "B. Okafor", "C. Lindqvist", "D. Nakamura", "E. Moreau"};

}  // namespace

annDocument* Generator::run()
{
    m_doc = new annDocument();
    make_document();
    make_styles();
    make_sheets();
    for (int i = 0; i < m_n; ++i)
        make_item(i < kKinds ? static_cast<ItemKind>(i) : pick_kind());
    link();
    return m_doc;
}

annPoint Generator::point(int range)
{
    double x = m_r.coordinate(range);
    double y = m_r.coordinate(range);
    double z = m_r.percent(80) ? 0.0 : m_r.coordinate(range);
    return annPoint(x, y, z);
}

annVector Generator::vector()
{
    double dx = m_r.coordinate(1);
    double dy = m_r.coordinate(1);
    return annVector(dx, dy, 0.0);
}

utString Generator::text(int null_percent, int empty_percent, std::string const& value)
{
    int p = m_r.below(100);
    if (p < null_percent)
        return utString();
    if (p < null_percent + empty_percent)
        return utString("");
    return utString(value);
}

stoByteArray Generator::bytes(int n)
{
    std::vector<unsigned char> data(static_cast<std::size_t>(n));
    for (unsigned char& b : data)
        b = static_cast<unsigned char>(m_r.next() >> 56);
    return stoByteArray(data.data(), n);
}

void Generator::transform(annTransform& t)
{
    if (m_r.percent(30))
        return;  // stays the identity
    for (int i = 0; i < annTransform::kSize; ++i)
        t.set_coefficient(i, m_r.coordinate(i % 4 == 3 ? 500 : 1));
}

annStyle* Generator::style(int number)
{
    annStyle* s = new annStyle();
    s->m_name = utString(numbered("style ", number));
    s->m_colour = static_cast<int>(m_r.next() & 0xFFFFFF);
    s->m_line_width = m_r.positive(2);
    s->m_bold = m_r.percent(25);
    s->m_font = text(40, 15, m_r.percent(50) ? "ISOCPEUR" : "Arial Narrow");
    return s;
}

void Generator::make_document()
{
    m_doc->m_id = static_cast<long long>(m_r.next() >> 2);
    m_doc->m_name = utString(numbered("Drawing ", m_doc->m_id % 100000));
    m_doc->m_author = text(30, 20, kPeople[m_r.below(5)]);
    m_doc->m_format[0] = 2;
    m_doc->m_format[1] = 7;
    m_doc->m_format[2] = m_r.below(10);
    m_doc->m_units.m_length_unit = m_r.below(3);
    m_doc->m_units.m_angle_unit = m_r.below(2);
    m_doc->m_units.m_scale = m_r.positive(4);
    m_doc->m_units.m_symbol = text(20, 20, "mm");
    m_doc->m_thumbnail = bytes(m_r.between(64, 128));
    // Ids above 2^40: they do not fit in 32 bits.
    m_next_id = (1LL << 40) + static_cast<long long>(m_r.below(1 << 20)) * 4096;
}

void Generator::make_styles()
{
    int n = 6 + (m_n / 250 < 58 ? m_n / 250 : 58);
    for (int i = 0; i < n; ++i)
        m_styles.push_back(coPrf<annStyle>(style(i)));
    m_doc->m_default_style = m_styles[0];
}

coPrf<annStyle> Generator::pick_style()
{
    int p = m_r.below(100);
    if (p < 70)
        return m_styles[static_cast<std::size_t>(m_r.below(4))];
    if (p < 90)
        return m_styles[static_cast<std::size_t>(4 + m_r.below(static_cast<int>(m_styles.size()) - 4))];
    if (p < 95)
        return coPrf<annStyle>(style(1000 + p));  // an item's own style, unshared
    return coPrf<annStyle>();
}

void Generator::make_sheets()
{
    int n = 1 + (m_n / 150 < 7 ? m_n / 150 : 7);
    m_doc->set_sheets(n);
    coPrf<annTransform> placement(new annTransform());
    transform(*placement);
    m_views.resize(static_cast<std::size_t>(n));
    m_baselines.assign(static_cast<std::size_t>(n), nullptr);
    for (int s = 0; s < n; ++s) {
        annSheet& sheet = m_doc->m_sheets[s];
        sheet.m_name = utString(numbered("Sheet ", s + 1));
        sheet.m_number = s + 1;
        sheet.m_bounds[2] = 420;
        sheet.m_bounds[3] = 297;
        sheet.m_placement = placement;
        make_title_block(sheet, s);
        int n_views = m_r.between(1, 3);
        coPrg<annView>* place = &sheet.m_views;
        for (int v = 0; v < n_views; ++v) {
            *place = new annView();
            make_view(**place, sheet, v);
            m_views[static_cast<std::size_t>(s)].push_back(place->get());
            place = &(*place)->m_next_view;
        }
    }
}

void Generator::make_title_block(annSheet& sheet, int s)
{
    annTitleBlock* t = new annTitleBlock();
    t->m_title = utString(sheet.m_name.str() + " of " + m_doc->m_name.str());
    t->m_drawn_by = utString(kPeople[m_r.below(5)]);
    t->m_checked_by = text(70, 0, kPeople[m_r.below(5)]);
    t->m_drawing_number = m_doc->m_id + s;
    if (s == 0)
        t->m_logo = bytes(48);
    t->set_revisions(m_r.below(4));
    for (int i = 0; i < t->m_n_revisions; ++i) {
        annRevision& rev = t->m_revisions[i];
        rev.m_letter = utString(std::string(1, static_cast<char>('A' + i)));
        rev.m_description = text(10, 30, "changed tolerances");
        rev.m_date = 1600000000LL + static_cast<long long>(m_r.below(100000000));
    }
    sheet.m_title_block = t;
}

void Generator::make_view(annView& view, annSheet& sheet, int v)
{
    std::string name = "View ";
    name += static_cast<char>('A' + v);
    view.m_name = text(10, 10, name);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            view.m_matrix[i][j] = m_r.coordinate(1);
    transform(view.m_transform);
    switch (m_r.below(5)) {
    case 1: view.m_filter = sto_type_annDimension(); break;
    case 2: view.m_filter = sto_type_annNote(); break;
    case 3: view.m_filter = sto_type_gdtFeatureControlFrame(); break;
    case 4: view.m_filter = sto_type_annNamedItem(); break;
    default: break;  // shows everything
    }
    if (m_r.percent(70)) {
        annViewport* vp = new annViewport();
        for (double& b : vp->m_bounds)
            b = m_r.coordinate(400);
        vp->m_scale = m_r.positive(10);
        vp->m_label = text(30, 30, numbered("DETAIL ", v + 1));
        view.m_viewport = vp;
    }
    view.m_sheet = &sheet;
}

ItemKind Generator::pick_kind()
{
    int p = m_r.below(100);
    for (int k = 0; k < kKinds; ++k) {
        if (p < kWeights[k])
            return static_cast<ItemKind>(k);
        p -= kWeights[k];
    }
    return kLinear;
}

void Generator::make_item(ItemKind kind)
{
    annNamedItem* item = nullptr;
    int s = m_r.below(m_doc->m_n_sheets);
    switch (kind) {
    case kLinear: {
        annLinearDimension* d = new annLinearDimension();
        dimension(*d);
        d->m_start = point();
        d->m_end = point();
        d->m_direction = vector();
        item = d;
        break;
    }
    case kAngular: {
        annAngularDimension* d = new annAngularDimension();
        dimension(*d);
        d->m_vertex = point();
        d->m_legs[0] = vector();
        d->m_legs[1] = vector();
        d->m_reflex = m_r.percent(10);
        item = d;
        break;
    }
    case kRadial: {
        annRadialDimension* d = new annRadialDimension();
        dimension(*d);
        d->m_centre = point();
        d->m_radius = m_r.positive(200);
        d->m_diameter = m_r.percent(50);
        item = d;
        break;
    }
    case kOrdinate: {
        annOrdinateDimension* d = new annOrdinateDimension();
        dimension(*d);
        d->m_origin = point();
        d->m_axis = m_r.below(2);
        // The first ordinate of a sheet holds the origin, pointing at itself.
        annOrdinateDimension*& first = m_baselines[static_cast<std::size_t>(s)];
        if (!first)
            first = d;
        d->m_baseline = first;
        item = d;
        break;
    }
    case kNote: item = note(new annNote()); break;
    case kBalloon: {
        annBalloon* b = new annBalloon();
        note(b);
        b->m_shape = m_r.below(3);
        b->m_item_number = m_r.between(1, 99);
        b->m_radius = m_r.positive(10);
        item = b;
        break;
    }
    case kTable: item = table(); break;
    case kCentreMark: {
        annCentreMark* c = new annCentreMark();
        c->m_centre = point();
        c->m_size = m_r.positive(5);
        c->m_extended = m_r.percent(40);
        item = c;
        break;
    }
    case kImage: {
        annImage* im = new annImage();
        im->m_width = m_r.between(2, 8);
        im->m_height = m_r.between(2, 8);
        im->m_pixels = bytes(im->m_width * im->m_height);
        im->m_format = text(30, 0, "gray8");
        item = im;
        break;
    }
    case kDatum: {
        gdtDatum* d = new gdtDatum();
        d->m_label = utString(std::string(1, static_cast<char>('A' + m_datums.size() % 26)));
        d->m_location = point();
        d->m_feature_kind = m_r.below(3);
        m_datums.push_back(d);
        item = d;
        break;
    }
    case kFrame: item = frame(new gdtFeatureControlFrame()); break;
    case kComposite: {
        gdtCompositeFrame* c = new gdtCompositeFrame();
        frame(c);
        gdtFeatureControlFrame* lower = frame(new gdtFeatureControlFrame());
        named(*lower, "FCF");
        lower->m_sheet = &m_doc->m_sheets[s];
        c->m_lower_segment = lower;
        item = c;
        break;
    }
    case kProfile: {
        gdtProfileTolerance* p = new gdtProfileTolerance();
        frame(p);
        p->m_characteristic = m_r.percent(50) ? gdtProfileOfLine : gdtProfileOfSurface;
        p->m_all_around = m_r.percent(30);
        p->m_unequal_offset = m_r.percent(70) ? 0.0 : m_r.positive(1);
        int k = m_r.below(3);
        if (k == 1)
            p->m_profile_of = sto_type_annLinearDimension();
        else if (k == 2)
            p->m_profile_of = sto_type_annRadialDimension();
        item = p;
        break;
    }
    case kDatumTarget: {
        gdtDatumTarget* t = new gdtDatumTarget();
        t->m_index = m_r.between(1, 4);
        t->m_area = m_r.percent(50) ? 0.0 : m_r.positive(20);
        t->m_point = point();
        m_targets.push_back(t);
        item = t;
        break;
    }
    case kDatumSystem: {
        gdtDatumSystem* d = new gdtDatumSystem();
        d->set_references(m_r.between(1, 3));
        if (m_r.percent(60)) {
            d->m_frame = new annTransform();
            transform(*d->m_frame);
        }
        m_systems.push_back(d);
        item = d;
        break;
    }
    case kVoronoi: item = voronoi(); break;
    case kKinds: break;
    }
    named(*item, prefix(kind));
    coPrf<annNamedItem> shared(item);
    if (kind == kDatumSystem || kind == kVoronoi) {
        // Not drawn on a sheet: the document keeps them.
        m_doc->m_items.append(shared);
    } else {
        annSheet& sheet = m_doc->m_sheets[s];
        item->m_sheet = &sheet;
        sheet.m_items.append(shared);
        if (m_r.percent(12)) {
            std::vector<annView*> const& views = m_views[static_cast<std::size_t>(s)];
            views[static_cast<std::size_t>(m_r.below(static_cast<int>(views.size())))]->m_shown.append(shared);
        }
    }
    m_items.push_back(item);
}

char const* Generator::prefix(ItemKind kind)
{
    static char const* const names[kKinds] = {"LIN", "ANG", "RAD", "ORD", "NOTE", "BAL", "TAB", "CM",
                                              "IMG", "DAT", "FCF", "CFCF", "PROF", "TGT", "DRF", "VNI"};
    return names[kind];
}

void Generator::named(annNamedItem& item, char const* prefix)
{
    item.m_id = m_next_id++;
    item.m_name = utString(prefix + std::to_string(item.m_id & 0xFFFFF));
    item.m_comment = text(60, 20, numbered("checked against model rev ", m_r.below(9)));
    item.m_style = pick_style();
    item.m_layer = m_r.below(8);
    item.m_visible = m_r.percent(90);
}

annNamedItem* Generator::any_item()
{
    return m_items[static_cast<std::size_t>(m_r.below(static_cast<int>(m_items.size())))];
}

gdtDatum* Generator::any_datum()
{
    if (m_datums.empty())
        return nullptr;
    return m_datums[static_cast<std::size_t>(m_r.below(static_cast<int>(m_datums.size())))];
}

void Generator::link()
{
    if (m_items.empty())
        return;
    for (annNamedItem* item : m_items)
        if (m_r.percent(30))
            item->m_related = any_item();
    for (annLeader* l : m_leaders)
        if (m_r.percent(70))
            l->m_target = any_item();
    for (gdtFeatureControlFrame* f : m_frames) {
        int n = m_r.below(4);
        for (int i = 0; i < n; ++i) {
            f->m_references[i].m_datum = any_datum();
            f->m_references[i].m_modifier = static_cast<gdtMaterialCondition>(m_r.below(3));
            f->m_references[i].m_precedence = i + 1;
        }
        if (m_r.percent(80))
            f->m_feature = any_item();
    }
    for (gdtDatumTarget* t : m_targets)
        t->m_datum = any_datum();
    for (gdtDatumSystem* d : m_systems)
        for (int i = 0; i < d->m_n_references; ++i) {
            d->m_references[i].m_datum = any_datum();
            d->m_references[i].m_precedence = i + 1;
        }
    m_doc->m_focus = any_item();
}

}  // namespace sample_generate

annDocument* sample_make_document(int n_items, unsigned seed) { return sample_generate::Generator(n_items, seed).run(); }
