#include "io/writer.h"

#include "platform/co_address_table.h"

#include "support/exceptions.h"
#include "support/memory_pool.h"
#include "types/basic.h"
#include "types/class.h"
#include "types/schema_id.h"
#include "values/mapper.h"
#include "values/value.h"
#include "values/visitors.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <locale>
#include <new>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>

namespace {

bool is_stub(stoValue const* v) { return v->is_stub(); }

// The meta class of a value's type: the class of the type object.
stoClass const* meta_class(stoValue const* v)
{
    stoTypeHandle const& t = v->type_ref();
    return t.is_null() ? nullptr : t->sto_dynamic_class();
}

stoSchemaObject const* as_schema_object(stoTypeHandle const& t)
{
    if (t.is_null())
        return nullptr;
    stoObjectPtr o = t->sto_object();
    return stoSchemaObject::sto_dynamic_cast(o.type(), o.ptr());
}

void put_int(stoWriteBuffer& out, long long v)
{
    char* p = out.room(24);
    out.commit(std::to_chars(p, p + 24, v).ptr);
}

// Seventeen significant digits in the shorter of fixed and exponent
// notation, as a stream with precision 17 prints them.
void put_double(stoWriteBuffer& out, double v)
{
    char* p = out.room(40);
    out.commit(std::to_chars(p, p + 40, v, std::chars_format::general, 17).ptr);
}

// A double as the stream prints it at its present precision (17 while
// writing), with whatever format the caller gave it.
void put_double_as_stream(stoWriteBuffer& out, std::ostream const& os, double v)
{
    std::ostringstream text;
    text.copyfmt(os);
    text.width(0);
    text << v;
    std::string const& s = text.str();
    out.put(s.data(), s.size());
}

// Values of these kinds have no children: they need no turn in the work list.
bool is_leaf(stoValue const* v)
{
    switch (v->kind()) {
    case stoValue::kIntKind:
    case stoValue::kDoubleKind:
    case stoValue::kStringKind:
    case stoValue::kByteArrayKind:
        return true;
    default:
        return false;
    }
}

constexpr std::uintptr_t kSectionBits = 3;

// Asks for the children of a value whose own memory was asked for some time
// before: the second step of reading ahead.
void prefetch_children(stoValue const* v)
{
    int n = v->number_of_children();
    for (int i = 0; i < n && i < 32; ++i)
        if (stoValue const* c = v->child(i))
            __builtin_prefetch(c);
}

}  // namespace

// Prints a value in the store file syntax; answers 1 when it printed it.
class stoWriteObjectWriter : public stoProcessValue {
public:
    // `section` is the one whose body the value is printed in.
    stoWriteObjectWriter(stoFileWriter* writer, int inline_flag, stoWriteSection* section)
        : m_writer(writer), m_out(writer->out()), m_inline(inline_flag), m_section(section)
    {
    }

    int process_stoValue(stoValue const* v) override
    {
        if (m_inline)
            return 0;
        m_out.put('{');
        m_writer->write_fields(v, m_section);
        m_out.put('}');
        return 1;
    }
    int process_stoIntValue(stoIntValue const* v) override
    {
        colon();
        put_int(m_out, v->value64());
        return 1;
    }
    int process_stoDoubleValue(stoDoubleValue const* v) override
    {
        colon();
        if (v->value() == -std::numeric_limits<double>::max())
            m_out.put('@');
        else if (m_writer->m_stream_formats_doubles)
            put_double_as_stream(m_out, *m_writer->m_os, v->value());
        else
            put_double(m_out, v->value());
        return 1;
    }
    int process_stoStringValue(stoStringValue const* v) override
    {
        colon();
        sto_write_ascii_utString(m_out, v->value_ref());
        return 1;
    }
    int process_stoByteArrayValue(stoByteArrayValue const* v) override
    {
        colon();
        m_out.put("!{\n", 3);
        sto_write_ascii_stoByteArray(m_out, v->value());
        m_out.put("}!", 2);
        return 1;
    }
    int process_stoPtrValue(stoPtrValue const* v) override
    {
        colon();
        m_out.put('&');
        m_writer->write_child(v->pointee(), m_section);
        return 1;
    }
    int process_stoArrayValue(stoArrayValue const* v) override
    {
        // An array with a record of its own is marked with ":", so that the
        // reader does not take it for a stub.
        colon();
        m_out.put('(');
        m_writer->write_fields(v, m_section);
        m_out.put(')');
        return 1;
    }
    int process_stoStub(stoStub const* v) override
    {
        m_out.put('(');
        m_writer->write_child(v->id(), m_section);
        m_out.put(",&", 2);
        m_writer->write_child(v->parent(), m_section);
        m_out.put(')');
        return 1;
    }
    int process_stoMappedValue(stoMappedValue const* v) override
    {
        m_out.put('<');
        m_writer->write_fields(v, m_section);
        m_out.put('>');
        return 1;
    }

private:
    void colon()
    {
        if (!m_inline)
            m_out.put(':');
    }

    stoFileWriter* m_writer;
    stoWriteBuffer& m_out;
    int m_inline;
    stoWriteSection* m_section;
};

// ---------------------------------------------------------- stoWriteBuffer

void stoWriteBuffer::flush()
{
    if (m_used)
        m_os->write(m_data, static_cast<std::streamsize>(m_used));
    m_used = 0;
}

void stoWriteBuffer::write_through(char const* p, std::size_t n)
{
    m_os->write(p, static_cast<std::streamsize>(n));
}

// ----------------------------------------------------------- stoWriteTable

stoWriteObject* stoWriteTable::insert(stoValue const* v, bool& made)
{
    // At most seven tenths full: probes stay short.
    if ((m_size + 1) * 10 > (m_mask + 1) * 7)
        grow();
    for (std::size_t i = index(v);; i = (i + 1) & m_mask) {
        Slot& slot = m_slots[i];
        if (slot.key == v) {
            made = false;
            return &slot.record;
        }
        if (!slot.key) {
            slot.key = v;
            ++m_size;
            made = true;
            return &slot.record;
        }
    }
}

void stoWriteTable::grow()
{
    std::size_t old_count = m_slots ? m_mask + 1 : 0;
    std::size_t count = old_count ? 2 * old_count : 1024;
    std::unique_ptr<Slot[], Free> old = std::move(m_slots);
    m_slots.reset(co_zeroed_slots<Slot>(count));
    m_mask = count - 1;
    m_shift = 64 - std::countr_zero(count);
    for (std::size_t k = 0; k < old_count; ++k) {
        if (!old[k].key)
            continue;
        std::size_t i = index(old[k].key);
        while (m_slots[i].key)
            i = (i + 1) & m_mask;
        m_slots[i] = old[k];
    }
}

// --------------------------------------------------------- stoWriteSection

void stoWriteSection::write()
{
    stoWriteBuffer& out = m_writer->out();
    out.put('-');
    out.put(m_name);
    out.put('\n');
    stoWriteTable const& table = m_writer->m_table;
    // The records are asked for a few ahead: each is a miss in the table and
    // another in the value.
    constexpr std::size_t ahead = 12;
    constexpr std::size_t near = 4;
    for (std::size_t i = 0; i < m_size && i < ahead; ++i)
        table.prefetch((*this)[i]);
    for (std::size_t i = 0; i < m_size; ++i) {
        if (i + ahead < m_size) {
            stoValue const* next = (*this)[i + ahead];
            table.prefetch(next);
            __builtin_prefetch(next);
        }
        if (i + near < m_size)
            prefetch_children((*this)[i + near]);
        stoValue const* value = (*this)[i];
        stoWriteObject const* wo = table.find(value);
        if (wo->inlined())
            continue;
        m_writer->write_file_id(value, wo);
        out.put('=');
        m_writer->write_in_full(value, this);
        out.put('\n');
    }
}

// ----------------------------------------------------------- stoFileWriter

stoFileWriter::stoFileWriter()
    : m_os(nullptr),
      m_type_stubs(this, 0, "TYPE STUBS", "%$"),
      m_types(this, 1, "TYPES", "%"),
      m_objects(this, 2, "OBJECTS", "#"),
      m_object_stubs(this, 3, "OBJECT STUBS", "#$"),
      m_sections{&m_type_stubs, &m_types, &m_objects, &m_object_stubs},
      m_names(4, 50),
      m_out_data(new char[std::size_t(1) << 16]),
      m_out(m_out_data.get(), std::size_t(1) << 16)
{
}

stoFileWriter::stoFileWriter(std::ostream& os, void const* object, stoTypeHandle const& type) : stoFileWriter()
{
    write(os, object, type);
}

stoFileWriter::~stoFileWriter() = default;

int stoFileWriter::write(std::ostream& os, void const* object, stoTypeHandle const& type)
{
    m_os = &os;
    m_out.set_stream(&os);
    std::streamsize precision = os.precision(17);
    // Doubles go through the stream's format. Its default one, with the
    // classic locale, prints them as %.17g does, which put_double does
    // without the stream's machinery; only another format needs the stream.
    std::ios_base::fmtflags const shaping =
        std::ios_base::floatfield | std::ios_base::showpos | std::ios_base::showpoint | std::ios_base::uppercase;
    m_stream_formats_doubles = (os.flags() & shaping) != 0 || os.getloc() != std::locale::classic();
    sto_finish_values();
    int ok = 1;
    {
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        stoValue* root = nullptr;
        // Every value goes before the pool does, whatever ends the write.
        struct Cleanup {
            stoFileWriter* writer;
            stoValue*& root;
            std::streamsize precision;
            ~Cleanup()
            {
                writer->m_os->precision(precision);
                writer->m_os = nullptr;
                writer->m_out.set_stream(nullptr);
                writer->m_object_analyser.destroy_stubs();
                writer->m_type_analyser.destroy_stubs();
                delete root;
                writer->release_type_values();
            }
        } cleanup{this, root, precision};
        try {
            root = m_object_analyser.raw_to_value(type, object);
            m_object_analyser.stub_dangling_pointers();
            m_object_analyser.forget_live_objects();
            if (root)
                add_graph(root);
            // The work list and the table of types added are spent: their
            // memory goes before the text is printed.
            std::deque<std::uintptr_t>().swap(m_work);
            m_out.put("STO1\n", 5);
            m_type_stubs.write();
            m_types.write();
            m_objects.write();
            m_object_stubs.write();
            m_out.flush();
        } catch (stoFileWriteFailureException* e) {
            delete e;
            ok = 0;
        }
    }
    return ok;
}

void stoFileWriter::add_graph(stoValue* root)
{
    // The root always has a record: it carries the name.
    add_value(root, &m_objects, 1);
    set_name(root, "root");
    constexpr std::size_t ahead = 24;
    constexpr std::size_t near = 8;
    while (!m_work.empty()) {
        if (m_work.size() > ahead)
            __builtin_prefetch(reinterpret_cast<void const*>(m_work[ahead] & ~kSectionBits));
        if (m_work.size() > near)
            prefetch_children(reinterpret_cast<stoValue const*>(m_work[near] & ~kSectionBits));
        std::uintptr_t entry = m_work.front();
        m_work.pop_front();
        add_children(reinterpret_cast<stoValue const*>(entry & ~kSectionBits), m_sections[entry & kSectionBits]);
    }
    if (m_pointer_to_unshared && !m_table_holds_all) {
        // A pointer leads to a value that is neither an object nor a stub, so
        // that value may have been met before without the table: start again
        // with every value in the table.
        for (stoWriteSection* section : m_sections)
            section->reset();
        m_table.clear();
        m_names.clear();
        m_record_names.clear();
        m_types_added.clear();
        m_type_records.clear();
        for (TypeRecordEntry& e : m_type_records_recent)
            e = TypeRecordEntry();
        m_table_holds_all = 1;
        add_graph(root);
    }
}

// In batches: every child of the batch is asked for first, then the table's
// slot of every child that has a record (and, with `targets`, of the target
// of every pointer child), so that the misses overlap; then `use` (child,
// index) runs for each child in order, null children included.
template <class Use>
void stoFileWriter::for_children_in_batches(stoValue const* value, bool targets, Use&& use)
{
    int n = value->number_of_children();
    constexpr int batch = 32;
    stoValue const* children[batch];
    for (int base = 0; base < n; base += batch) {
        int m = n - base < batch ? n - base : batch;
        for (int j = 0; j < m; ++j) {
            children[j] = value->child(base + j);
            if (children[j])
                __builtin_prefetch(children[j]);
        }
        for (int j = 0; j < m; ++j) {
            stoValue const* child = children[j];
            if (!child)
                continue;
            if (m_table_holds_all || child->is_object() || child->is_stub())
                m_table.prefetch(child);
            else if (targets && child->is_pointer())
                if (stoValue const* target = static_cast<stoPtrValue const*>(child)->pointee())
                    m_table.prefetch(target);
        }
        for (int j = 0; j < m; ++j)
            use(children[j], base + j);
    }
}

void stoFileWriter::add_children(stoValue const* value, stoWriteSection* section)
{
    // Pointers and a stub's parent are the links by which a value can be
    // met again.
    int links = value->is_pointer() || value->is_stub();
    for_children_in_batches(value, false, [&](stoValue const* child, int i) {
        if (!child)
            return;
        if (links && (i == 0 || !value->is_stub()) && !child->is_object() && !child->is_stub())
            m_pointer_to_unshared = 1;
        add_value(const_cast<stoValue*>(child), section);
    });
}

stoWriteObject* stoFileWriter::make_object(stoValue* value, stoWriteSection* section)
{
    bool made = false;
    stoWriteObject* wo = m_table.insert(value, made);
    wo->m_number = section->add_record(value);
    wo->m_section = static_cast<unsigned char>(section->index());
    wo->m_count = 1;
    wo->m_inlinable = inlinable(value) ? 1 : 0;
    if (value->is_stub()) {
        stoStub const* stub = static_cast<stoStub const*>(value);
        utString name;
        stoValue const* id = stub->id();
        if (stoStringValue const* s = dynamic_cast<stoStringValue const*>(id)) {
            name = s->value();
        } else if (stoObject const* o = sto_as_object(id)) {
            if (o->type() && o->type()->is_compatible_with(sto_type_stoSchemaID())) {
                utString schema_name;
                int version = 0;
                stoValueUtils(id).find_schema_name_version(schema_name, version);
                name = schema_name + "_" + version;
            }
        }
        if (!name.is_null()) {
            if (m_names.contains(name))
                name = name + section->prefix_ref() + wo->m_number;
            else
                m_names.add(name);
            set_name(value, name);
        }
    }
    return wo;
}

void stoFileWriter::add_value(stoValue* value, stoWriteSection* section, int record)
{
    if (is_stub(value)) {
        if (section == &m_types)
            section = &m_type_stubs;
        else if (section == &m_objects)
            section = &m_object_stubs;
    }
    if (value->kind() == stoValue::kDoubleKind && !std::isfinite(static_cast<stoDoubleValue const*>(value)->value()))
        throw new stoNonFiniteNumberException();
    std::uintptr_t work = reinterpret_cast<std::uintptr_t>(value) | static_cast<std::uintptr_t>(section->index());
    // Values that cannot be met twice skip the table: most values are
    // members, met once, through their object. Those written in place need
    // no record either, only their number.
    if (!m_table_holds_all && !value->is_object() && !value->is_stub()) {
        if (!record && inlinable(value)) {
            section->next_number();
            if (!is_leaf(value))
                m_work.push_back(work);
            return;
        }
        if (m_table.find(value))
            return;
        // The record moves with the next insert: what is needed of it is
        // read first.
        int inlined = make_object(value, section)->inlined();
        if (!is_type_section(section) && !inlined)
            add_type(value->type_ref());
        m_work.push_back(work);
        return;
    }
    if (stoWriteObject* wo = m_table.find(value)) {
        if (wo->m_count == 1) {
            wo->m_count = 2;
            // A value that was inline when first met needs its type
            // described now that it gets a record of its own.
            if (!is_type_section(m_sections[wo->m_section]) && !type_record(value))
                add_type(value->type_ref());
        }
        return;
    }
    int inlined = make_object(value, section)->inlined();
    if (!is_type_section(section) && !inlined)
        add_type(value->type_ref());
    m_work.push_back(work);
}

stoValue* stoFileWriter::add_type(stoTypeHandle const& type)
{
    if (type.is_null())
        return nullptr;
    // The type analyser answers the same value for the same type every
    // time, and a record's count only matters while it is below 2: once a
    // type has been added twice, adding it again changes nothing.
    TypeAdded& added = m_types_added[type.type()];
    if (added.calls >= 2)
        return added.value;
    ++added.calls;
    stoValue* v = m_type_analyser.raw_to_value(stoRawPtr(type->sto_object()));
    m_types_added[type.type()].value = v;
    if (!v)
        return nullptr;
    // A record whatever the value: release_type_values finds the type
    // values through the records of TYPES.
    add_value(v, &m_types, 1);
    if (stoClass const* cls = dynamic_cast<stoClass const*>(type.type())) {
        stoClassBaseIT it(cls);
        while (++it)
            add_type(it()->base_class()->handle());
    }
    return v;
}

void stoFileWriter::set_name(stoValue const* value, utString const& name)
{
    m_record_names[value] = name;
    m_table.find(value)->m_named = 1;
}

void stoFileWriter::write_file_id(stoValue const* value, stoWriteObject const* wo)
{
    if (wo->m_named) {
        m_out.put(*m_record_names.find(value));
        return;
    }
    m_out.put(m_sections[wo->m_section]->prefix_ref());
    put_int(m_out, wo->m_number);
}

stoValue const* stoFileWriter::type_record(stoValue const* value)
{
    stoTypeHandle const& type = value->type_ref();
    if (type.is_null())
        return nullptr;
    TypeRecordEntry& recent = m_type_records_recent[(reinterpret_cast<std::uintptr_t>(type.type()) >> 4) %
                                                    std::size(m_type_records_recent)];
    if (recent.type == type.type())
        return recent.record;
    // Only found records are remembered: a type without one may get it later.
    stoValue const* found = nullptr;
    if (stoValue const* const* known = m_type_records.find(type.type())) {
        found = *known;
    } else {
        stoValue* type_value = m_type_analyser.find(stoRawPtr(type->sto_object()));
        if (!type_value || !m_table.find(type_value))
            return nullptr;
        found = type_value;
        m_type_records[type.type()] = found;
    }
    recent.type = type.type();
    recent.record = found;
    return found;
}

int stoFileWriter::inlinable(stoValue const* value)
{
    stoTypeHandle const& type = value->type_ref();
    if (type.is_null())
        return 1;
    InlinableEntry& recent =
        m_inlinable_recent[(reinterpret_cast<std::uintptr_t>(type.type()) >> 4) % std::size(m_inlinable_recent)];
    if (recent.type == type.type())
        return recent.inlinable;
    int result = 0;
    if (int const* known = m_inlinable_types.find(type.type())) {
        result = *known;
    } else {
        // By the meta class of the type: basic values are, instances of
        // other schema objects (classes, stubs of class-typed objects) are
        // not.
        stoClass const* meta = type->sto_dynamic_class();
        result = !meta || meta->is_compatible_with(sto_type_stoBasic()) ||
                 !meta->is_compatible_with(sto_type_stoSchemaObject());
        m_inlinable_types[type.type()] = result;
    }
    recent.type = type.type();
    recent.inlinable = result;
    return result;
}

void stoFileWriter::write_in_full(stoValue const* value, stoWriteSection* section)
{
    if (is_type_section(section)) {
        if (stoSchemaObject const* named = as_schema_object(value->type_ref()))
            m_out.put(named->name_ref());
        else if (stoClass const* meta = meta_class(value))
            m_out.put(meta->name_ref());
    } else if (stoValue const* type = type_record(value)) {
        write_file_id(type, m_table.find(type));
    } else {
        m_out.put('?');
    }
    stoWriteObjectWriter visitor(this, 0, section);
    value->process(&visitor);
}

void stoFileWriter::write_inline(stoValue const* value, stoWriteObject const* wo)
{
    if (!wo->inlined()) {
        write_file_id(value, wo);
        return;
    }
    stoWriteSection* section = m_sections[wo->m_section];
    stoWriteObjectWriter visitor(this, 1, section);
    if (!value->process(&visitor))
        write_in_full(value, section);
}

int stoFileWriter::has_record(stoValue const* value)
{
    return m_table_holds_all || value->is_object() || value->is_stub() || !inlinable(value);
}

void stoFileWriter::write_record_child(stoValue const* value)
{
    if (!value) {
        m_out.put('@');
        return;
    }
    if (stoWriteObject const* wo = m_table.find(value))
        write_inline(value, wo);
    else
        m_out.put('@');
}

void stoFileWriter::write_child(stoValue const* value, stoWriteSection* section)
{
    if (!value) {
        m_out.put('@');
        return;
    }
    if (has_record(value)) {
        write_record_child(value);
        return;
    }
    // Met once and written in place: printed from the value, in the section
    // of its parent, as its record would have been.
    stoWriteObjectWriter visitor(this, 1, section);
    if (!value->process(&visitor))
        write_in_full(value, section);
}

void stoFileWriter::write_fields(stoValue const* value, stoWriteSection* section)
{
    for_children_in_batches(value, true, [&](stoValue const* child, int i) {
        if (i)
            m_out.put(',');
        write_child(child, section);
    });
}

namespace {

// What a value owns: object, array and mapped children, owning and counted
// pointees, a stub's id; never the pointee of a plain or type-handle pointer.
void collect_owned(stoValue const* v, stoValuePtrcoSet& owned)
{
    if (stoPtrValue const* p = dynamic_cast<stoPtrValue const*>(v)) {
        bool owns = dynamic_cast<stoPrgValue const*>(v) || dynamic_cast<stoPrfValue const*>(v);
        if (owns && p->pointee() && owned.add(p->pointee()) == nullptr)
            collect_owned(p->pointee(), owned);
        return;
    }
    if (stoStub const* s = dynamic_cast<stoStub const*>(v)) {
        if (s->id() && owned.add(s->id()) == nullptr)
            collect_owned(s->id(), owned);
        return;
    }
    int n = v->number_of_children();
    for (int i = 0; i < n; ++i)
        if (stoValue const* c = v->child(i); c && owned.add(c) == nullptr)
            collect_owned(c, owned);
}

}  // namespace

void stoFileWriter::release_type_values()
{
    // The type analyser's full records (pointer, array and mapped types) and
    // what they hold belong to nobody in the graph: the ones no other record
    // owns are deleted here, and take what they own with them.
    stoValuePtrcoSet owned;
    for (std::size_t i = 0; i < m_types.size(); ++i)
        collect_owned(m_types[i], owned);
    for (std::size_t i = 0; i < m_types.size(); ++i)
        if (!owned.contains(m_types[i]))
            delete m_types[i];
}

// ----------------------------------------------------------------- literals

void sto_write_ascii_utString(stoWriteBuffer& out, utString const& s)
{
    if (s.is_null()) {
        out.put('@');
        return;
    }
    static char const hex[] = "0123456789ABCDEF";
    char const* text = s.data();
    std::size_t n = static_cast<std::size_t>(s.length());
    // In pieces of at most 64 bytes, each of which takes at most four
    // characters a byte.
    char* p = out.room(1);
    *p++ = '"';
    out.commit(p);
    for (std::size_t at = 0; at < n;) {
        std::size_t piece = n - at < 64 ? n - at : 64;
        p = out.room(4 * piece);
        for (std::size_t end = at + piece; at < end; ++at) {
            unsigned char c = static_cast<unsigned char>(text[at]);
            if (c == '"' || c == '\\') {
                *p++ = '\\';
                *p++ = static_cast<char>(c);
            } else if (c >= 0x20 && c <= 0x7E) {
                *p++ = static_cast<char>(c);
            } else {
                *p++ = '\\';
                *p++ = 'x';
                *p++ = hex[c >> 4];
                *p++ = hex[c & 15];
            }
        }
        out.commit(p);
    }
    out.put('"');
}

namespace {

// Prints through a buffer of its own straight to a stream, for the
// stream-taking forms of the literal printers.
template <class Print>
void print_to_stream(std::ostream& os, Print&& print)
{
    char data[4096];
    stoWriteBuffer out(data, sizeof data);
    out.set_stream(&os);
    print(out);
    out.flush();
}

}  // namespace

void sto_write_ascii_utString(std::ostream& os, utString const& s)
{
    print_to_stream(os, [&](stoWriteBuffer& out) { sto_write_ascii_utString(out, s); });
}

void sto_write_ascii_stoByteArray(stoWriteBuffer& out, stoByteArray const& bytes)
{
    static char const alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    int n = bytes.invalid() ? 0 : bytes.size();
    unsigned char const* bp = bytes.array();
    // A line of 60 characters and its line end at a time.
    char* p = out.room(61);
    int column = 0;
    for (int i = 0; i < n; i += 3) {
        int real = n - i < 3 ? n - i : 3;
        unsigned int group = static_cast<unsigned int>(bp[i]) << 16;
        if (real > 1)
            group |= static_cast<unsigned int>(bp[i + 1]) << 8;
        if (real > 2)
            group |= bp[i + 2];
        for (int k = 0; k < 4; ++k) {
            *p++ = k <= real ? alphabet[(group >> (18 - 6 * k)) & 63] : '=';
            if (++column == 60) {
                *p++ = '\n';
                column = 0;
                out.commit(p);
                p = out.room(61);
            }
        }
    }
    if (column)
        *p++ = '\n';
    out.commit(p);
    out.put('\n');
}

void sto_write_ascii_stoByteArray(std::ostream& os, stoByteArray const& bytes)
{
    print_to_stream(os, [&](stoWriteBuffer& out) { sto_write_ascii_stoByteArray(out, bytes); });
}
