#include "io/writer.h"

#include "support/exceptions.h"
#include "support/memory_pool.h"
#include "types/basic.h"
#include "types/class.h"
#include "types/schema_id.h"
#include "values/mapper.h"
#include "values/value.h"
#include "values/visitors.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <ostream>

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

void put_int(std::ostream& os, long long v)
{
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    os.write(buf, r.ptr - buf);
}

// Seventeen significant digits in the shorter of fixed and exponent
// notation, as a stream with precision 17 prints them.
void put_double(std::ostream& os, double v)
{
    char buf[40];
    auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, 17);
    os.write(buf, r.ptr - buf);
}

// Prints a value in the store file syntax; answers 1 when it printed it.
}  // namespace

class stoWriteObjectWriter : public stoProcessValue {
public:
    stoWriteObjectWriter(stoFileWriter* writer, int inline_flag) : m_writer(writer), m_inline(inline_flag) {}
    // Visits the value of `record`, whose child records are known: no look-up
    // per child.
    stoWriteObjectWriter(stoFileWriter* writer, int inline_flag, stoWriteObject const* record)
        : m_writer(writer), m_inline(inline_flag), m_record(record)
    {
    }

    int process_stoValue(stoValue const* v) override
    {
        if (m_inline)
            return 0;
        os() << '{';
        fields(v);
        os() << '}';
        return 1;
    }
    int process_stoIntValue(stoIntValue const* v) override
    {
        colon();
        put_int(os(), v->value64());
        return 1;
    }
    int process_stoDoubleValue(stoDoubleValue const* v) override
    {
        colon();
        if (v->value() == -std::numeric_limits<double>::max())
            os() << '@';
        else
            put_double(os(), v->value());
        return 1;
    }
    int process_stoStringValue(stoStringValue const* v) override
    {
        colon();
        sto_write_ascii_utString(os(), v->value_ref());
        return 1;
    }
    int process_stoByteArrayValue(stoByteArrayValue const* v) override
    {
        colon();
        os() << "!{\n";
        sto_write_ascii_stoByteArray(os(), v->value());
        os() << "}!";
        return 1;
    }
    int process_stoPtrValue(stoPtrValue const* v) override
    {
        colon();
        os() << '&';
        child(v->pointee(), 0);
        return 1;
    }
    int process_stoArrayValue(stoArrayValue const* v) override
    {
        // An array with a record of its own is marked with ":", so that the
        // reader does not take it for a stub.
        colon();
        os() << '(';
        fields(v);
        os() << ')';
        return 1;
    }
    int process_stoStub(stoStub const* v) override
    {
        os() << '(';
        child(v->id(), 1);
        os() << ",&";
        child(v->parent(), 0);
        os() << ')';
        return 1;
    }
    int process_stoMappedValue(stoMappedValue const* v) override
    {
        os() << '<';
        fields(v);
        os() << '>';
        return 1;
    }

private:
    std::ostream& os() const { return m_writer->os(); }
    void colon() const
    {
        if (!m_inline)
            os() << ':';
    }
    // Child i of the visited value, which is `value`.
    void child(stoValue const* value, int i) const
    {
        if (m_record)
            m_writer->write_record_child(m_record->children()[i]);
        else
            m_writer->write_child(value);
    }
    void fields(stoValue const* v) const
    {
        if (m_record)
            m_writer->write_record_fields(m_record);
        else
            m_writer->write_fields(v);
    }

    stoFileWriter* m_writer;
    int m_inline;
    stoWriteObject const* m_record = nullptr;
};

// ---------------------------------------------------------- stoWriteObject

void stoWriteObject::become(stoFileWriter* writer, stoWriteSection* section, stoValue* value)
{
    m_section = section;
    m_writer = writer;
    m_value = value;
    m_number = section->next_number();
    m_count = 1;
    m_owns = writer->is_type_section(section) ? 1 : 0;
    m_inlinable = writer->inlinable(value) ? 1 : 0;
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
            if (writer->m_names.contains(name))
                name = name + file_id();
            else
                writer->m_names.add(name);
            m_name = name;
        }
    }
}

void stoWriteObject::add_children()
{
    int n = m_value->number_of_children();
    std::vector<stoWriteObject*>& records = m_writer->m_child_records;
    m_first_child = static_cast<int>(records.size());
    records.resize(records.size() + static_cast<std::size_t>(n), nullptr);
    // Pointers and a stub's parent are the links by which a value can be
    // met again.
    int links = m_value->is_pointer() || m_value->is_stub();
    for (int i = 0; i < n; ++i) {
        if (stoValue const* child = m_value->child(i)) {
            if (links && (i == 0 || !m_value->is_stub()) && !child->is_object() && !child->is_stub())
                m_writer->m_pointer_to_unshared = 1;
            records[static_cast<std::size_t>(m_first_child + i)] =
                m_writer->add_value(const_cast<stoValue*>(child), m_section);
        }
    }
}

stoWriteObject* const* stoWriteObject::children() const
{
    return m_writer->m_child_records.data() + m_first_child;
}

utString stoWriteObject::file_id() const
{
    if (!m_name.is_null())
        return m_name;
    return m_section->prefix_ref() + m_number;
}

void stoWriteObject::write_file_id(std::ostream& os) const
{
    if (!m_name.is_null()) {
        os << m_name;
        return;
    }
    os << m_section->prefix_ref();
    put_int(os, m_number);
}

int stoWriteObject::inlined() const { return m_count == 1 && m_inlinable; }

void stoWriteObject::write() const
{
    if (inlined())
        return;
    std::ostream& os = m_section->os();
    write_file_id(os);
    os << '=';
    write_in_full();
    os << '\n';
}

void stoWriteObject::write_in_full() const
{
    std::ostream& os = m_section->os();
    if (m_writer->is_type_section(m_section)) {
        if (stoSchemaObject const* named = as_schema_object(m_value->type_ref()))
            os << named->name_ref();
        else if (stoClass const* meta = meta_class(m_value))
            os << meta->name_ref();
    } else if (stoWriteObject const* type = m_writer->type_record(m_value)) {
        type->write_file_id(os);
    } else {
        os << '?';
    }
    stoWriteObjectWriter visitor(m_writer, 0, this);
    m_value->process(&visitor);
}

void stoWriteObject::write_inline() const
{
    if (!inlined()) {
        write_file_id(m_section->os());
        return;
    }
    stoWriteObjectWriter visitor(m_writer, 1, this);
    if (!m_value->process(&visitor))
        write_in_full();
}

// --------------------------------------------------------- stoWriteSection

stoWriteObject* stoWriteSection::make_object(stoValue* value)
{
    m_objects.emplace_back();
    stoWriteObject* wo = &m_objects.back();
    wo->become(m_writer, this, value);
    return wo;
}

void stoWriteSection::write()
{
    os() << '-' << m_name << '\n';
    for (stoWriteObject const& wo : m_objects)
        wo.write();
}

std::ostream& stoWriteSection::os() const { return m_writer->os(); }

// ----------------------------------------------------------- stoFileWriter

stoFileWriter::stoFileWriter()
    : m_os(nullptr),
      m_type_stubs(this, "TYPE STUBS", "%$"),
      m_types(this, "TYPES", "%"),
      m_objects(this, "OBJECTS", "#"),
      m_object_stubs(this, "OBJECT STUBS", "#$"),
      m_table(4, 50),
      m_names(4, 50)
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
    std::streamsize precision = os.precision(17);
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
                writer->m_object_analyser.destroy_stubs();
                writer->m_type_analyser.destroy_stubs();
                delete root;
                writer->release_type_values();
            }
        } cleanup{this, root, precision};
        try {
            root = m_object_analyser.raw_to_value(type, object);
            m_object_analyser.stub_dangling_pointers();
            if (root)
                add_graph(root);
            os << "STO1\n";
            m_type_stubs.write();
            m_types.write();
            m_objects.write();
            m_object_stubs.write();
        } catch (stoFileWriteFailureException* e) {
            delete e;
            ok = 0;
        }
    }
    return ok;
}

void stoFileWriter::add_graph(stoValue* root)
{
    add_value(root, &m_objects)->set_name("root");
    for (int i = 0; i < m_work.size(); ++i)
        m_work[i]->add_children();
    if (m_pointer_to_unshared && !m_table_holds_all) {
        // A pointer leads to a value that is neither an object nor a stub, so
        // that value may have been met before without the table: start again
        // with every value in the table.
        for (stoWriteSection* section : {&m_type_stubs, &m_types, &m_objects, &m_object_stubs})
            section->reset();
        m_table.clear();
        m_names.clear();
        m_work.clear();
        m_child_records.clear();
        m_types_added.clear();
        m_type_records.clear();
        m_table_holds_all = 1;
        add_graph(root);
        return;
    }
    // The list is complete: its spare capacity would only add to the peak
    // while the text is printed.
    m_child_records.shrink_to_fit();
}

stoWriteObject* stoFileWriter::add_value(stoValue* value, stoWriteSection* section)
{
    if (is_stub(value)) {
        if (section == &m_types)
            section = &m_type_stubs;
        else if (section == &m_objects)
            section = &m_object_stubs;
    }
    if (value->kind() == stoValue::kDoubleKind && !std::isfinite(static_cast<stoDoubleValue const*>(value)->value()))
        throw new stoNonFiniteNumberException();
    // Values that cannot be met twice skip the table: most values are
    // members, met once, through their object.
    if (!m_table_holds_all && !value->is_object() && !value->is_stub()) {
        stoWriteObject* wo = section->make_object(value);
        if (!is_type_section(section) && !wo->inlined())
            add_type(value->type_ref());
        m_work.append(wo);
        return wo;
    }
    // One probe of the table for known and new values alike; the entry is
    // not held across add_type, which adds entries of its own.
    stoWriteObject*& entry = m_table[value];
    if (stoWriteObject* wo = entry) {
        wo->inc();
        // A value that was inline when first met needs its type described
        // now that it gets a record of its own.
        if (wo->count() == 2 && !is_type_section(wo->section()) && !type_record(value))
            add_type(value->type_ref());
        return wo;
    }
    stoWriteObject* wo = section->make_object(value);
    entry = wo;
    if (!is_type_section(section) && !wo->inlined())
        add_type(value->type_ref());
    m_work.append(wo);
    return wo;
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
    add_value(v, &m_types);
    if (stoClass const* cls = dynamic_cast<stoClass const*>(type.type())) {
        stoClassBaseIT it(cls);
        while (++it)
            add_type(it()->base_class()->handle());
    }
    return v;
}

stoWriteObject* stoFileWriter::look_up_object(stoValue const* value) const
{
    stoWriteObject* const* wo = m_table.find(value);
    return wo ? *wo : nullptr;
}

stoWriteObject const* stoFileWriter::type_record(stoValue const* value) const
{
    stoTypeHandle const& type = value->type_ref();
    if (type.is_null())
        return nullptr;
    // Only found records are remembered: a type without one may get it later.
    if (stoWriteObject const* const* known = m_type_records.find(type.type()))
        return *known;
    stoValue* type_value = m_type_analyser.find(stoRawPtr(type->sto_object()));
    stoWriteObject const* wo = type_value ? look_up_object(type_value) : nullptr;
    if (wo)
        m_type_records[type.type()] = wo;
    return wo;
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

void stoFileWriter::write_record_child(stoWriteObject const* wo)
{
    if (wo)
        wo->write_inline();
    else
        os() << '@';
}

void stoFileWriter::write_record_fields(stoWriteObject const* wo)
{
    int n = wo->value()->number_of_children();
    if (n == 0)
        return;
    stoWriteObject* const* children = wo->children();
    for (int i = 0; i < n; ++i) {
        if (i)
            os() << ',';
        write_record_child(children[i]);
    }
}

void stoFileWriter::write_child(stoValue const* value)
{
    if (!value) {
        os() << '@';
        return;
    }
    if (stoWriteObject const* wo = look_up_object(value))
        wo->write_inline();
    else
        os() << '@';
}

void stoFileWriter::write_fields(stoValue const* value)
{
    int n = value->number_of_children();
    for (int i = 0; i < n; ++i) {
        if (i)
            os() << ',';
        write_child(value->child(i));
    }
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
    std::deque<stoWriteObject> const& records = m_types.objects();
    stoValuePtrcoSet owned;
    for (stoWriteObject const& wo : records)
        collect_owned(wo.value(), owned);
    for (stoWriteObject const& wo : records)
        if (!owned.contains(wo.value()))
            delete wo.value();
}

// ----------------------------------------------------------------- literals

void sto_write_ascii_utString(std::ostream& os, utString const& s)
{
    if (s.is_null()) {
        os << '@';
        return;
    }
    static char const hex[] = "0123456789ABCDEF";
    // Built in a buffer on the stack, written in pieces of at most its size:
    // a file holds millions of strings, and this spares each an allocation.
    char out[256];
    std::size_t used = 0;
    auto flush_if_full = [&](std::size_t room) {
        if (used + room > sizeof out) {
            os.write(out, static_cast<std::streamsize>(used));
            used = 0;
        }
    };
    out[used++] = '"';
    for (int i = 0; i < s.length(); ++i) {
        flush_if_full(4);
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c == '"' || c == '\\') {
            out[used++] = '\\';
            out[used++] = static_cast<char>(c);
        } else if (c >= 0x20 && c <= 0x7E) {
            out[used++] = static_cast<char>(c);
        } else {
            out[used++] = '\\';
            out[used++] = 'x';
            out[used++] = hex[c >> 4];
            out[used++] = hex[c & 15];
        }
    }
    flush_if_full(1);
    out[used++] = '"';
    os.write(out, static_cast<std::streamsize>(used));
}

void sto_write_ascii_stoByteArray(std::ostream& os, stoByteArray const& bytes)
{
    static char const alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    int n = bytes.invalid() ? 0 : bytes.size();
    unsigned char const* p = bytes.array();
    std::string out;
    out.reserve(static_cast<std::size_t>(n) * 4 / 3 + static_cast<std::size_t>(n) / 45 + 8);
    int column = 0;
    for (int i = 0; i < n; i += 3) {
        int real = n - i < 3 ? n - i : 3;
        unsigned int group = static_cast<unsigned int>(p[i]) << 16;
        if (real > 1)
            group |= static_cast<unsigned int>(p[i + 1]) << 8;
        if (real > 2)
            group |= p[i + 2];
        for (int k = 0; k < 4; ++k) {
            out += k <= real ? alphabet[(group >> (18 - 6 * k)) & 63] : '=';
            if (++column == 60) {
                out += '\n';
                column = 0;
            }
        }
    }
    if (column)
        out += '\n';
    out += '\n';
    os.write(out.data(), static_cast<std::streamsize>(out.size()));
}
