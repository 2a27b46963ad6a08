#include "io/reader.h"

#include "evolution/type_synthesiser.h"
#include "support/encoders.h"
#include "support/exceptions.h"
#include "support/memory_pool.h"
#include "types/array.h"
#include "types/basic.h"
#include "types/class.h"
#include "types/system.h"
#include "values/mapper.h"
#include "values/pointer_types.h"
#include "values/synthesiser.h"

#include <cstdarg>
#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <limits>
#include <ostream>
#include <vector>

namespace {

// Deeper nesting, or longer chains of records read on demand, are reported
// rather than followed: the reader's stack stays bounded on any input.
constexpr int kMaxDepth = 1000;

template <class T>
T const* as_meta(stoTypeHandle const& type)
{
    if (type.is_null())
        return nullptr;
    stoObjectPtr o = type->sto_object();
    return T::sto_dynamic_cast(o.type(), o.ptr());
}

char const* meta_name(stoTypeHandle const& type)
{
    return type.is_null() ? "<none>" : type->sto_dynamic_class()->name_ref().c_str();
}

std::unique_ptr<char[]> read_stream(omIFStream& stream, int& length, bool count_delivered)
{
    stream.seekg(0, std::ios::end);
    int size = streamsize_to_stoMemorySize(static_cast<long long>(stream.tellg()));
    stream.seekg(0, std::ios::beg);
    if (size < 0)
        size = 0;
    std::unique_ptr<char[]> data(new char[static_cast<std::size_t>(size) + 1]());
    stream.read(data.get(), size);
    length = count_delivered ? streamsize_to_stoMemorySize(static_cast<long long>(stream.gcount())) : size;
    return data;
}

}  // namespace

// ------------------------------------------------------------------ file maps

stoReadFileNameMap::stoReadFileNameMap(utString const& file_name)
{
    omIFStream stream(file_name.c_str(), 33);
    if (!stream.good())
        throw new stoFileNotReadableException(file_name);
    m_data = read_stream(stream, m_length, false);
}

stoReadFileStreamMap::stoReadFileStreamMap(omIFStream* stream)
{
    if (stream && stream->good())
        m_data = read_stream(*stream, m_length, true);
    else
        m_data.reset(new char[1]());
}

// ------------------------------------------------------------------- sections

int stoReadSection::find_section()
{
    stoFileReader* r = m_reader;
    while (!r->at_end() && r->peekc() != '-')
        r->skip_line();
    if (r->at_end()) {
        r->error("Can't find beginning of section\n");
        return 0;
    }
    r->skip_line();
    return 1;
}

void stoReadSection::scan()
{
    stoFileReader* r = m_reader;
    if (!find_section())
        return;
    while (!r->at_end() && r->peekc() != '-') {
        char const* start = r->cursor();
        int line = r->line_number();
        int count = 0;
        while (!r->at_end() && r->peekc() != '=') {
            r->absorb();
            ++count;
        }
        r->add_key(stoReadKey(start, count, line));
        skip_object();
    }
}

void stoReadSection::skip_object()
{
    stoFileReader* r = m_reader;
    bool bytes = false;
    while (!r->at_end()) {
        if (!bytes) {
            // Outside strings and byte arrays only quotes, byte-array marks and
            // the line end matter; the run before the next of them holds no
            // line feed, so it is passed over at once.
            char const* p = r->cursor();
            char const* end = r->input_end();
            while (p < end && *p != '"' && *p != '!' && *p != '\n')
                ++p;
            r->set_cursor(p);
            if (r->at_end())
                break;
        }
        int c = r->peekc();
        if (c == '"' && !bytes) {
            r->read_string();
            r->e();
        } else if (c == '!' && !bytes) {
            r->absorb();
            if (r->peekc() == '{') {
                r->absorb();
                bytes = true;
            }
        } else if (c == '}' && bytes && r->cursor() + 1 < r->input_end() && r->cursor()[1] == '!') {
            r->absorb();
            r->absorb();
            bytes = false;
        } else {
            int got = r->absorb();
            if (got == '\n' && !bytes)
                return;
        }
    }
}

void stoReadSection::read()
{
    stoFileReader* r = m_reader;
    if (!find_section())
        return;
    while (!r->at_end() && r->peekc() != '-')
        read_object();
}

void stoReadSection::read_object()
{
    stoFileReader* r = m_reader;
    stoReadKey key = r->read_identifier();
    r->absorb('=');
    if (r->e()) {
        r->skip_line();
        return;
    }
    int found = r->find_record(key);
    if (found >= 0 && r->m_records[static_cast<std::size_t>(found)].key.slot()) {
        skip_object();
        return;
    }
    // A record read on demand inside this one gets a frame of its own.
    r->m_frames.push_back(
        stoFileReader::Frame{found, 0, r->m_frame_slots.size(), r->m_held_slots.size(), r->m_nodes.mark()});
    struct Pop {
        stoFileReader* reader;
        bool finished = false;
        stoValueHandle const* root = nullptr;
        ~Pop() { reader->end_frame(finished, root); }
    } pop{r};
    stoReadObject object(this, key, r->line_number());
    object.read();
    if (r->e()) {
        r->skip_line();
        return;
    }
    object.process();
    if (r->e()) {
        r->skip_line();
        return;
    }
    if (stoReadNode* node = object.node(); node && node->slot()) {
        // A record that is a reference to another holds that one's value.
        if (node->record() >= 0)
            r->took(node->record());
        r->set_slot(key, node->slot());
        pop.root = node->slot();
    }
    pop.finished = true;
    r->absorb_new_line();
    if (r->e())
        r->skip_line();
}

stoReadNode* stoReadSection::read_value(stoReadParen paren) { return m_reader->read_value(this, paren); }

stoTypeHandle stoReadTypeSection::translate_type(stoReadKey const& key)
{
    utString name = key.string();
    stoSchemaObject const* object = sto_schema_sto_schema()->look_up_object(name);
    if (!object) {
        m_reader->error("Can't find meta type called '%s'\n", name.c_str());
        return stoTypeHandle();
    }
    stoObjectPtr o = object->sto_object();
    stoClass const* cls = stoClass::sto_dynamic_cast(o.type(), o.ptr());
    if (!cls) {
        m_reader->error("Non class meta type '%s'\n", name.c_str());
        return stoTypeHandle();
    }
    return cls->handle();
}

stoReadObjectSection::stoReadObjectSection(stoFileReader* reader)
    : stoReadSection(reader), m_handle_type(stoTypeHandleType::make())
{
}

stoTypeHandle stoReadObjectSection::translate_type(stoReadKey const& key)
{
    utString name = key.string();
    if (stoTypeHandle const* known = m_reader->m_resolved_types.find(name); known && !known->is_null())
        return *known;
    // No reference into the table is held from here on: reading the type's
    // record on demand resolves further types, which may grow the table.
    stoValueHandle* slot = m_reader->slot_for_key(key, this);
    stoTypeHandleValue* handle = new stoTypeHandleValue(m_handle_type, slot ? slot->value() : nullptr);
    m_reader->m_kept.append(stoValuecoPrf(handle));
    stoTypeHandle const& type = handle->type_ref();
    stoTypeHandle resolved;
    m_reader->m_synthesiser->value_to_raw(handle, stoRWRawPtr(type, &resolved, type->size()));
    m_reader->m_resolved_types[name] = resolved;
    return resolved;
}

// ---------------------------------------------------------------------- nodes

void* stoReadNodeArena::allocate(std::size_t size)
{
    size = (size + 15) & ~static_cast<std::size_t>(15);
    for (;;) {
        if (m_block < m_blocks.size()) {
            Block& block = m_blocks[m_block];
            if (m_used + size <= block.size) {
                void* p = block.bytes.get() + m_used;
                m_used += size;
                return p;
            }
            if (m_block + 1 < m_blocks.size()) {
                ++m_block;
                m_used = 0;
                continue;
            }
        }
        std::size_t bytes = std::max(size, kBlockSize);
        m_blocks.push_back(Block{std::make_unique<unsigned char[]>(bytes), bytes});
        m_block = m_blocks.size() - 1;
        m_used = 0;
    }
}

stoReadNode::stoReadNode(stoReadSection* section) : m_section(section), m_reader(section->reader()) {}

void stoReadNode::take_children(std::vector<std::unique_ptr<stoReadNode>>& children, std::size_t first)
{
    m_children.reserve(m_children.size() + (children.size() - first));
    for (std::size_t i = first; i < children.size(); ++i)
        m_children.push_back(std::move(children[i]));
    children.resize(first);
}

void stoReadNode::register_value(stoValue* value)
{
    m_slot = m_reader->new_slot();
    m_slot->become(utPtrClaim, value);
}

stoValue* stoReadNode::release()
{
    stoValue* value = m_slot ? m_slot->release() : nullptr;
    if (value && m_record >= 0)
        m_reader->took(m_record);
    return value;
}
stoValue* stoReadNode::share() { return m_slot ? m_slot->share() : nullptr; }
stoValue* stoReadNode::value() const { return m_slot ? m_slot->value() : nullptr; }

void stoReadNode::error(char const* format, ...)
{
    va_list args;
    va_start(args, format);
    m_reader->verror(format, args);
    va_end(args);
}

void stoReadNode::do_indent(std::ostream& os, int indent)
{
    for (int i = 0; i < indent; ++i)
        os << "  ";
}

void stoReadNode::dump_members(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "(unknown type)";
}

void stoReadNode::dump(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "Node " << static_cast<void const*>(this) << "\n";
    dump_members(os, indent + 1);
    for (auto const& c : m_children) {
        if (c) {
            c->dump(os, indent + 1);
        } else {
            // A missing child stands where its "Node" line would: two
            // spaces in from this node's own lines.
            do_indent(os, indent);
            os << "  " << static_cast<void const*>(nullptr) << "\n";
        }
    }
    if (stoValue const* v = value()) {
        do_indent(os, indent);
        os << "  value (" << static_cast<void const*>(v) << ") of type : ";
        if (v->type_ref().is_null()) {
            os << "<none>";
        } else {
            os << meta_name(v->type_ref());
            if (stoClass const* cls = as_meta<stoClass>(v->type_ref()))
                os << "(" << cls->name_ref() << ")";
        }
        os << "\n";
    }
}

void stoReadBasicNode::process(stoTypeHandle const& type)
{
    if (m_slot)
        return;
    if (!type.is_null() && !m_value) {
        if (type == sto_type_utString())
            m_value.reset(new stoStringValue(utString()));
        else if (type == sto_type_double())
            m_value.reset(new stoDoubleValue(-std::numeric_limits<double>::max()));
    }
    if (m_value && !type.is_null()) {
        if (m_value->kind() == stoValue::kIntKind && type == sto_type_double())
            m_value.reset(new stoDoubleValue(static_cast<double>(static_cast<stoIntValue*>(m_value.get())->value64())));
        if (m_value->type_ref() != type)
            error("Basic type mismatch\nLooking for a %s, I found a %s\n", meta_name(type), meta_name(m_value->type_ref()));
    }
    if (m_value)
        register_value(m_value.release());
}

void stoReadBasicNode::dump_members(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "(basic)";
}

void stoReadClassNode::process(stoTypeHandle const& type)
{
    if (m_slot)
        return;
    stoClass const* cls = as_meta<stoClass>(type);
    if (!cls) {
        error("Type given to class node wasn't a class\n");
        return;
    }
    stoObject* object = new stoObject(cls);
    register_value(object);
    if (number_of_children() != cls->number_of_inherited_members()) {
        error("Number of fields does not match for class %s\n", cls->name_ref().c_str());
        return;
    }
    stoInheritedMemberIT it(cls);
    int i = 0;
    while (++it) {
        if (stoReadNode* c = child(i++)) {
            c->process(it()->type());
            object->set_member(it.handle(), c->release());
        }
    }
}

void stoReadClassNode::dump_members(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "(class instance)";
}

void stoReadArrayNode::process(stoTypeHandle const& type)
{
    if (m_slot)
        return;
    stoArrayValue* array = new stoArrayValue(type, number_of_children());
    register_value(array);
    stoArrayType const* array_type = as_meta<stoArrayType>(type);
    if (!array_type) {
        error("Type given to array node wasn't an array\n");
        return;
    }
    for (int i = 0; i < number_of_children(); ++i) {
        if (stoReadNode* c = child(i)) {
            c->process(array_type->element_type());
            array->set_element(i, c->release());
        }
    }
}

void stoReadArrayNode::dump_members(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "(array)";
}

void stoReadMappedNode::process(stoTypeHandle const& type)
{
    if (m_slot)
        return;
    stoMappedType const* mapped = as_meta<stoMappedType>(type);
    if (!mapped) {
        error("Type given to mapped node wasn't a mapped type\n");
        return;
    }
    stoMappedValue* value = new stoMappedValue(type, mapped->mapper(), number_of_children());
    register_value(value);
    for (int i = 0; i < number_of_children(); ++i) {
        if (stoReadNode* c = child(i)) {
            c->process(stoTypeHandle());
            value->set_element(i, c->release());
        }
    }
}

void stoReadMappedNode::dump_members(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "(mapped)";
}

void stoReadPtrNode::process(stoTypeHandle const& type)
{
    if (m_slot)
        return;
    stoPtrType const* pointer_type = as_meta<stoPtrType>(type);
    if (!pointer_type) {
        error("Type given to pointer node wasn't a pointer\n");
        return;
    }
    stoPtrValue* pointer = pointer_type->create_null();
    register_value(pointer);
    if (number_of_children() != 1) {
        error("Wrong number of children for pointer\n");
        return;
    }
    stoReadNode* c = child(0);
    if (!c)
        return;
    stoReadKey key;
    if (c->need_to_defer(key)) {
        m_reader->defer(pointer, key);
        return;
    }
    c->process(pointer_type->pointee_type());
    if (c->slot()) {
        if (c->record() >= 0 && (pointer->kind() == stoValue::kPrgKind || pointer->kind() == stoValue::kPrfKind))
            m_reader->took(c->record());
        else if (c->record() < 0 && pointer->kind() == stoValue::kPrfKind)
            m_reader->m_held_slots.push_back(c->slot());
        c->slot()->set_pointee(pointer);
    }
}

void stoReadPtrNode::dump_members(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "(ptr)";
}

stoReadRefNode::stoReadRefNode(stoReadSection* section, stoReadKey const& key)
    : stoReadNode(section), m_key(key), m_index(section->reader()->find_record(key))
{
}

void stoReadRefNode::process(stoTypeHandle const&)
{
    if (!m_slot) {
        m_slot = m_reader->slot_for_record(m_index, m_section);
        if (m_slot)
            m_record = m_index;
    }
}

int stoReadRefNode::need_to_defer(stoReadKey& key) const
{
    if (m_slot)
        return 0;
    int found = m_index;
    if (found >= 0 && m_reader->m_records[static_cast<std::size_t>(found)].key.slot())
        return 0;
    key = m_key;
    return 1;
}

void stoReadRefNode::dump_members(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "(ref to FO " << m_key << ")";
}

void stoReadStubNode::process(stoTypeHandle const& type)
{
    if (m_slot)
        return;
    if (number_of_children() != 2 || !child(0) || !child(1)) {
        error("Wrong number of children for stub\n");
        return;
    }
    child(0)->process(stoTypeHandle());
    // Held here until the stub takes it: reading the parent on demand can
    // throw (a schema the file names that is not in memory).
    std::unique_ptr<stoValue> id(child(0)->release());
    child(1)->process(stoTypeHandle());
    stoValue* parent = child(1)->value();
    register_value(new stoStub(type, parent, id.release()));
}

void stoReadStubNode::dump_members(std::ostream& os, int indent) const
{
    do_indent(os, indent);
    os << "(stub: id, parent)";
}

// -------------------------------------------------------------------- records

stoReadObject::stoReadObject(stoReadSection* section, stoReadKey const& key, int line)
    : m_reader(section->reader()), m_section(section), m_key(key), m_line(line)
{
}

void stoReadObject::read()
{
    m_type_key = m_reader->read_identifier();
    stoReadParen paren = stoReadParenStub;
    if (m_reader->peekc() == ':') {
        m_reader->absorb();
        paren = stoReadParenArray;
    }
    m_node.reset(m_section->read_value(paren));
}

void stoReadObject::process()
{
    if (!m_node || m_node->slot())
        return;
    int line = m_reader->line_number();
    m_reader->set_line_number(m_line);
    m_type = m_section->translate_type(m_type_key);
    m_node->process(m_type);
    m_reader->set_line_number(line);
}

void stoReadObject::dump(std::ostream& os) const
{
    os << "FO " << m_key << " " << m_type_key << "\n";
    if (m_node)
        m_node->dump(os, 0);
    else
        os << "(no node)\n";
}

// --------------------------------------------------------------------- reader

stoFileReader::stoFileReader(omIFStream* stream, std::ostream* diagnostics, stoSynthesiser* synthesiser,
                             stoEncoder const* encoder)
    : stoReadLexer(diagnostics, encoder), m_type_stubs(this), m_types(this), m_objects(this), m_object_stubs(this)
{
    m_own_map = std::make_unique<stoReadFileStreamMap>(stream);
    m_map = m_own_map.get();
    start(synthesiser, encoder);
}

stoFileReader::stoFileReader(stoReadFileMap const* map, std::ostream* diagnostics, stoSynthesiser* synthesiser,
                             stoEncoder const* encoder)
    : stoReadLexer(diagnostics, encoder), m_type_stubs(this), m_types(this), m_objects(this), m_object_stubs(this)
{
    m_map = map;
    start(synthesiser, encoder);
}

stoFileReader::~stoFileReader() = default;

void stoFileReader::start(stoSynthesiser* synthesiser, stoEncoder const* encoder)
{
    if (!encoder)
        choose_encoder();
    m_synthesiser.reset(synthesiser ? synthesiser : new stoReadTypeSynthesiser());
    scan();
    read();
    fix_pointers();
}

void stoFileReader::choose_encoder()
{
    if (encoder())
        return;
    m_own_encoder = std::make_unique<stoEncodeEitherToLocal>(nullptr);
    set_encoder(m_own_encoder.get());
}

void stoFileReader::scan()
{
    set_input(m_map ? m_map->start() : "", m_map ? m_map->length() : 0);
    m_type_stubs.scan();
    m_types.scan();
    m_objects.scan();
    m_object_stubs.scan();
    index_keys();
}

namespace {

// The table (0 to 3 for "#", "#$", "%", "%$") and the number of a key the
// way the writer numbers records: the prefix, then decimal digits without a
// leading zero, few enough for an int. -1 for every other key.
int numbered_key(char const* text, int length, int& number)
{
    if (length < 2 || (text[0] != '#' && text[0] != '%'))
        return -1;
    int table = text[0] == '#' ? 0 : 2;
    int i = 1;
    if (text[1] == '$') {
        ++table;
        ++i;
    }
    int digits = length - i;
    if (digits < 1 || digits > 9 || (digits > 1 && text[i] == '0'))
        return -1;
    int n = 0;
    for (; i < length; ++i) {
        unsigned int d = static_cast<unsigned int>(static_cast<unsigned char>(text[i])) - '0';
        if (d > 9)
            return -1;
        n = n * 10 + static_cast<int>(d);
    }
    number = n;
    return table;
}

}  // namespace

void stoFileReader::add_key(stoReadKey const& key) { m_records.push_back(Record{key}); }

void stoFileReader::index_keys()
{
    // A number table is as long as the largest number in it. Files number
    // their values, not only their records, so numbers run some times
    // beyond the count of records; numbers further out than this are found
    // by their bytes instead, and no input makes a table large.
    m_records.shrink_to_fit();
    long long limit = 16LL * static_cast<long long>(m_records.size()) + 1024;
    std::size_t lengths[4] = {0, 0, 0, 0};
    for (Record const& r : m_records) {
        int n = 0;
        int t = numbered_key(r.key.text(), r.key.length(), n);
        if (t >= 0 && n < limit)
            lengths[t] = std::max(lengths[t], static_cast<std::size_t>(n) + 1);
    }
    for (int t = 0; t < 4; ++t)
        m_numbered[t].assign(lengths[t], 0);
    for (std::size_t i = 0; i < m_records.size(); ++i) {
        stoReadKey const& key = m_records[i].key;
        if (key.invalid())
            continue;  // never found, as no look-up finds an invalid key
        int n = 0;
        int t = numbered_key(key.text(), key.length(), n);
        if (t >= 0 && n < limit) {
            int& entry = m_numbered[t][static_cast<std::size_t>(n)];
            if (!entry)
                entry = static_cast<int>(i) + 1;
        } else if (!m_named.contains(key)) {
            m_named[key] = static_cast<int>(i);
        }
    }
}

int stoFileReader::find_record(stoReadKey const& key) const
{
    if (key.invalid())
        return -1;
    int n = 0;
    int t = numbered_key(key.text(), key.length(), n);
    if (t >= 0 && static_cast<std::size_t>(n) < m_numbered[t].size())
        return m_numbered[t][static_cast<std::size_t>(n)] - 1;
    int const* i = m_named.find(key);
    return i ? *i : -1;
}

void stoFileReader::read()
{
    set_input(m_map ? m_map->start() : "", m_map ? m_map->length() : 0);
    m_type_stubs.read();
    m_types.read();
    m_objects.read();
    m_object_stubs.read();
}

namespace {

// Whether `value` is among the values `from` owns or shares, at any depth:
// the members and elements of objects, arrays and mapped values, the id of a
// stub, the pointee of an owning or counted pointer. Each value is visited
// once; -1 when the budget of visits runs out first.
int holds(stoValue const* from, stoValue const* value, long long& budget, std::vector<stoValue const*>& stack,
          coSet<stoValue const*>& seen)
{
    stack.clear();
    stack.push_back(from);
    seen.clear();
    while (!stack.empty()) {
        stoValue const* v = stack.back();
        stack.pop_back();
        if (!v)
            continue;
        if (v == value)
            return 1;
        if (seen.contains(v))
            continue;
        seen.add(v);
        if (--budget < 0)
            return -1;
        switch (v->kind()) {
        case stoValue::kObjectKind:
        case stoValue::kArrayKind:
        case stoValue::kMappedKind:
        case stoValue::kPrgKind:
        case stoValue::kPrfKind:
            for (int i = 0; i < v->number_of_children(); ++i)
                stack.push_back(v->child(i));
            break;
        case stoValue::kStubKind:
            stack.push_back(v->child(1));  // the id; the parent is not owned
            break;
        default:
            break;
        }
    }
    return 0;
}

// For each of n records, the smallest index of a record it reaches over the
// edges (itself included), in time linear in records and edges: the
// strongly connected parts, found by Tarjan's method without recursion,
// come out with every part they reach before them.
std::vector<int> least_reachable(int n, std::vector<std::pair<int, int>> const& edges)
{
    std::size_t count = static_cast<std::size_t>(n);
    std::vector<int> first(count + 1, 0);
    for (auto const& e : edges)
        ++first[static_cast<std::size_t>(e.first) + 1];
    for (std::size_t i = 0; i < count; ++i)
        first[i + 1] += first[i];
    std::vector<int> to(edges.size());
    {
        std::vector<int> fill(first.begin(), first.end() - 1);
        for (auto const& e : edges)
            to[static_cast<std::size_t>(fill[static_cast<std::size_t>(e.first)]++)] = e.second;
    }
    std::vector<int> least(count);
    for (std::size_t i = 0; i < count; ++i)
        least[i] = static_cast<int>(i);
    std::vector<int> order(count, -1);
    std::vector<int> link(count, 0);
    std::vector<char> on_stack(count, 0);
    std::vector<int> stack;
    struct Visit {
        int node;
        int next;  // the next edge to follow
    };
    std::vector<Visit> visits;
    int counter = 0;
    auto enter = [&](int v) {
        std::size_t u = static_cast<std::size_t>(v);
        order[u] = link[u] = counter++;
        stack.push_back(v);
        on_stack[u] = 1;
        visits.push_back(Visit{v, first[u]});
    };
    for (int s = 0; s < n; ++s) {
        std::size_t u = static_cast<std::size_t>(s);
        if (order[u] >= 0 || first[u] == first[u + 1])
            continue;
        enter(s);
        while (!visits.empty()) {
            std::size_t v = static_cast<std::size_t>(visits.back().node);
            if (visits.back().next < first[v + 1]) {
                std::size_t w = static_cast<std::size_t>(to[static_cast<std::size_t>(visits.back().next++)]);
                if (order[w] < 0) {
                    enter(static_cast<int>(w));
                } else if (on_stack[w]) {
                    link[v] = std::min(link[v], order[w]);
                    least[v] = std::min(least[v], least[w]);
                } else {
                    least[v] = std::min(least[v], least[w]);  // a finished part
                }
                continue;
            }
            visits.pop_back();
            if (link[v] == order[v]) {
                std::size_t k = stack.size();
                int smallest = INT_MAX;
                do {
                    --k;
                    smallest = std::min(smallest, least[static_cast<std::size_t>(stack[k])]);
                } while (static_cast<std::size_t>(stack[k]) != v);
                for (std::size_t j = k; j < stack.size(); ++j) {
                    least[static_cast<std::size_t>(stack[j])] = smallest;
                    on_stack[static_cast<std::size_t>(stack[j])] = 0;
                }
                stack.resize(k);
            }
            if (!visits.empty()) {
                std::size_t u = static_cast<std::size_t>(visits.back().node);
                link[u] = std::min(link[u], link[v]);
                least[u] = std::min(least[u], least[v]);
            }
        }
    }
    return least;
}

}  // namespace

void stoFileReader::fix_pointers()
{
    // Pointers to records that come later are the only way a file can make
    // a value own itself: a record owning, through such a pointer, a record
    // that holds the pointer. Those are refused, as the values would own
    // each other and never be freed. Files that hold nothing of the kind
    // cost about one visit per value; the budget keeps hostile ones from
    // costing one per value and pointer.
    //
    // Most such pointers need no visit at all. The values of a record hold
    // the pointer, which waits here, only if they hold some owning or
    // counted pointer that waits here (the record is pending), and they
    // grow while the pointers are fixed only through such pointers: a
    // record that is not pending cannot be in a cycle. A pending one holds
    // the pointer only if it reaches the record that made the pointer over
    // the records taken by pending records and the waiting pointers; when
    // every record it reaches comes later in the file than that one, it
    // does not.
    long long budget = 64LL * m_registered + 100000;
    std::vector<stoValue const*> stack;
    coSet<stoValue const*> seen;
    std::vector<int> least;
    for (Deferred const& deferred : m_to_fix) {
        stoPtrValue* pointer = deferred.pointer;
        int found = deferred.record;
        // The record's key has the bytes of the reference.
        stoReadKey const& key = m_records[static_cast<std::size_t>(found)].key;
        stoValueHandle* slot = key.slot();
        if (!slot)
            continue;
        stoValue::Kind kind = pointer->kind();
        if (((kind == stoValue::kPrgKind && slot->owns()) || kind == stoValue::kPrfKind) && slot->value() &&
            m_records[static_cast<std::size_t>(found)].pending && deferred.home >= 0) {
            if (least.empty())
                least = least_reachable(static_cast<int>(m_records.size()), waiting_edges());
            if (least[static_cast<std::size_t>(found)] <= deferred.home) {
                int cycle = holds(slot->value(), pointer, budget, stack, seen);
                if (cycle) {
                    set_line_number(deferred.line);
                    if (cycle > 0)
                        error("Record %.*s would own itself through a pointer\n", key.length(), key.text());
                    else
                        error("records refer to each other too deeply\n");
                    continue;
                }
            }
        }
        slot->set_pointee(pointer);
    }
}

std::vector<std::pair<int, int>> stoFileReader::waiting_edges()
{
    std::vector<std::pair<int, int>> edges;
    edges.swap(m_takes);
    for (Deferred const& deferred : m_to_fix) {
        stoValue::Kind kind = deferred.pointer->kind();
        if (deferred.home < 0 || (kind != stoValue::kPrgKind && kind != stoValue::kPrfKind))
            continue;
        edges.emplace_back(deferred.home, deferred.record);
    }
    return edges;
}

stoValueHandle* stoFileReader::new_slot()
{
    ++m_registered;
    stoValueHandle* slot = nullptr;
    if (m_free_slots.empty()) {
        slot = &m_slots.emplace();
    } else {
        slot = m_free_slots.back();
        m_free_slots.pop_back();
    }
    m_frame_slots.push_back(slot);
    return slot;
}

void stoFileReader::end_frame(bool finished, stoValueHandle const* root)
{
    Frame const& frame = m_frames.back();
    if (finished) {
        // A slot that still owns its value keeps it alive (a value a stub
        // names as parent, what a plain pointer points at, what a failed
        // record made); every other slot of the reading is done with.
        auto held_begin = m_held_slots.begin() + static_cast<std::ptrdiff_t>(frame.held);
        std::sort(held_begin, m_held_slots.end(), std::less<stoValueHandle*>());
        for (std::size_t i = frame.slots; i < m_frame_slots.size(); ++i) {
            stoValueHandle* slot = m_frame_slots[i];
            if (slot == root || slot->owns() ||
                std::binary_search(held_begin, m_held_slots.end(), slot, std::less<stoValueHandle*>()))
                continue;
            m_free_slots.push_back(slot);
        }
    }
    m_frame_slots.resize(frame.slots);
    m_held_slots.resize(frame.held);
    // The record's nodes have been deleted with its stoReadObject.
    m_nodes.release(frame.nodes);
    m_frames.pop_back();
}

stoReadNode* stoFileReader::read_value(stoReadSection* section, stoReadParen paren)
{
    if (m_depth >= kMaxDepth) {
        error("nesting too deep\n");
        skip_line();
        return nullptr;
    }
    struct Depth {
        int& depth;
        explicit Depth(int& d) : depth(d) { ++depth; }
        ~Depth() { --depth; }
    } depth(m_depth);

    int c = peekc();
    auto list = [&](stoReadNode* node, char closing) {
        std::unique_ptr<stoReadNode> owner(node);
        std::size_t first = m_list_children.size();
        struct Collect {
            std::vector<std::unique_ptr<stoReadNode>>& children;
            std::size_t first;
            stoReadNode* node;
            ~Collect() { node->take_children(children, first); }
        } collect{m_list_children, first, node};
        absorb();
        if (peekc() != closing) {
            do {
                if (at_end())
                    break;
                m_list_children.emplace_back(read_value(section, stoReadParenArray));
                if (peekc() == ',') {
                    absorb();
                } else if (peekc() != closing) {
                    error("unterminated paren list\n");
                    break;
                }
            } while (peekc() != closing);
        }
        absorb(closing);
        return owner.release();
    };
    if (c == '(' && paren == stoReadParenArray)
        return list(new (m_nodes) stoReadArrayNode(section), ')');
    if (c == '{')
        return list(new (m_nodes) stoReadClassNode(section), '}');
    if (c == '<')
        return list(new (m_nodes) stoReadMappedNode(section), '>');
    if (c == '(') {
        absorb();
        std::unique_ptr<stoReadNode> id(read_value(section, stoReadParenArray));
        absorb(',');
        absorb('&');
        std::unique_ptr<stoReadNode> parent(read_value(section, stoReadParenArray));
        absorb(')');
        return new (m_nodes) stoReadStubNode(section, id.release(), parent.release());
    }
    if (c == '&') {
        absorb();
        return new (m_nodes) stoReadPtrNode(section, read_value(section, stoReadParenArray));
    }
    if (c == '@') {
        absorb();
        return new (m_nodes) stoReadBasicNode(section, nullptr);
    }
    if (c == '!') {
        absorb();
        absorb('{');
        absorb_new_line();
        stoByteArray bytes = read_byte_array();
        absorb('}');
        absorb('!');
        return new (m_nodes) stoReadBasicNode(section, new stoByteArrayValue(bytes));
    }
    if ((c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.') {
        long long integer = 0;
        double real = 0;
        if (read_number(integer, real))
            return new (m_nodes) stoReadBasicNode(section, new stoIntValue(stoIntValue64Tag, integer));
        return new (m_nodes) stoReadBasicNode(section, new stoDoubleValue(real));
    }
    if (c == '"')
        return new (m_nodes) stoReadBasicNode(section, new stoStringValue(read_string()));
    if (c == '%' || c == '#' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))
        return new (m_nodes) stoReadRefNode(section, read_identifier());
    if (at_end())
        error("unexpected end of file\n");
    else
        error("unexpected character '%c' 0x%02x\n", c, static_cast<unsigned int>(c));
    return nullptr;
}

stoValueHandle* stoFileReader::slot_for_key(stoReadKey const& key, stoReadSection* section)
{
    return slot_for_record(find_record(key), section);
}

stoValueHandle* stoFileReader::slot_for_record(int index, stoReadSection* section)
{
    if (index < 0)
        return nullptr;
    // The records are all known after the scan: this entry stays in place.
    Record& found = m_records[static_cast<std::size_t>(index)];
    if (!found.key.slot()) {
        // A record whose reading failed is read again, and reports again,
        // each time something refers to it; but records referring to it
        // several times each would make that work grow exponentially with
        // the length of a chain of them, so only so many such re-reads are
        // done in one file. It is still read in its turn.
        if (found.failed && ++m_failed_rereads > kMaxFailedRereads)
            return nullptr;
        if (m_demand_depth >= kMaxDepth) {
            error("records refer to each other too deeply\n");
            return nullptr;
        }
        char const* cursor_before = cursor();
        int line_before = line_number();
        set_cursor(found.key.text());
        set_line_number(found.key.line_number());
        ++m_demand_depth;
        section->read_object();
        --m_demand_depth;
        set_cursor(cursor_before);
        set_line_number(line_before);
        if (!found.key.slot())
            found.failed = true;
    }
    return found.key.slot();
}

void stoFileReader::set_slot(stoReadKey const& key, stoValueHandle* slot)
{
    // The key's place and line only matter for reading its record on
    // demand, which a key with a slot never is again: the key given, equal
    // to the one in the set, takes its place.
    int found = find_record(key);
    if (found < 0) {
        error("Unknown object key.\n");
        return;
    }
    Record& record = m_records[static_cast<std::size_t>(found)];
    record.key = stoReadKey(key.text(), key.length(), key.line_number(), slot);
    if (!m_frames.empty())
        record.pending = m_frames.back().pending;
}

void stoFileReader::took(int record)
{
    if (m_frames.empty() || record < 0)
        return;
    Frame& frame = m_frames.back();
    if (!m_records[static_cast<std::size_t>(record)].pending)
        return;
    // Only records that may hold a waiting pointer matter to the fix-up.
    frame.pending = 1;
    if (frame.record >= 0)
        m_takes.push_back({frame.record, record});
}

void stoFileReader::defer(stoPtrValue* pointer, stoReadKey const& key)
{
    int record = find_record(key);
    if (record < 0)
        return;
    int home = m_frames.empty() ? -1 : m_frames.back().record;
    m_to_fix.push_back(Deferred{pointer, record, key.line_number(), home});
    // Only owning and counted pointers make a value hold its pointee.
    stoValue::Kind kind = pointer->kind();
    if (!m_frames.empty() && (kind == stoValue::kPrgKind || kind == stoValue::kPrfKind))
        m_frames.back().pending = 1;
}

stoValueHandle* stoFileReader::look_up_slot(utString const& name) const
{
    int found = find_record(stoReadKey(name.c_str(), name.length(), 1));
    return found < 0 ? nullptr : m_records[static_cast<std::size_t>(found)].key.slot();
}

stoValue const* stoFileReader::look_up_value(utString const& name) const
{
    stoValueHandle* slot = look_up_slot(name);
    return slot ? slot->value() : nullptr;
}

void stoFileReader::dump(std::ostream& os)
{
    os << "Dump ts\n";
    m_type_stubs.dump(os);
    os << "Dump t\n";
    m_types.dump(os);
    os << "Dump o\n";
    m_objects.dump(os);
    os << "Dump os\n";
    m_object_stubs.dump(os);
}
