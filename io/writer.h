// stoFileWriter: writes one live object as a store file.
//
// The object is analysed into a value graph; every value, and every type and
// schema the values need, gets a place in one of four sections (TYPE STUBS,
// TYPES, OBJECTS, OBJECT STUBS), numbered in the order values are first met,
// breadth-first from the root. Stubs are named after their identity. Values
// referred to once that are not class instances are written inline.
//
//   std::ofstream out("drawing.sto");
//   stoFileWriter writer;
//   if (!writer.write(out, drawing, sto_type_shpDrawing())) { /* see below */ }
//
// `write` answers 0 when a write failure (stoFileWriteFailureException, for
// instance a non-finite double, which has no literal) stops it before
// anything is printed; other exceptions pass to the caller.
#pragma once

#include "platform/co_containers.h"
#include "platform/ut_string.h"
#include "types/basic.h"
#include "types/type_handle.h"
#include "values/analyser.h"

#include <cstddef>
#include <cstdlib>
#include <cstdint>
#include <cstring>
#include <deque>
#include <iosfwd>
#include <memory>
#include <vector>

class stoFileWriter;
class stoValue;
class stoStub;

class stoWriteSection;

// Characters gathered in a buffer and handed to the stream in large pieces:
// a file is tens of millions of small tokens, and the stream's per-call
// overhead would be most of the printing.
class stoWriteBuffer {
public:
    stoWriteBuffer(char* data, std::size_t size) : m_data(data), m_size(size) {}
    stoWriteBuffer(stoWriteBuffer const&) = delete;
    stoWriteBuffer& operator=(stoWriteBuffer const&) = delete;

    void set_stream(std::ostream* os) { m_os = os; }
    void put(char c)
    {
        if (m_used == m_size)
            flush();
        m_data[m_used++] = c;
    }
    void put(char const* p, std::size_t n)
    {
        if (n > m_size - m_used) {
            flush();
            if (n > m_size) {
                write_through(p, n);
                return;
            }
        }
        std::memcpy(m_data + m_used, p, n);
        m_used += n;
    }
    void put(utString const& s) { put(s.data(), static_cast<std::size_t>(s.length())); }
    // At least n (no more than the buffer's size) free characters at the
    // returned place; commit says how many were used.
    char* room(std::size_t n)
    {
        if (n > m_size - m_used)
            flush();
        return m_data + m_used;
    }
    void commit(char const* end) { m_used = static_cast<std::size_t>(end - m_data); }
    void flush();

private:
    void write_through(char const* p, std::size_t n);

    std::ostream* m_os = nullptr;
    char* m_data;
    std::size_t m_size;
    std::size_t m_used = 0;
};

// A record of its own, for a value that is written as a line of its own or
// that can be met more than once (objects and stubs), and so must be counted
// and found again. A value that can only be met once and is written in place
// (an integer, a string, an inline pointer or array of a member) has none:
// it uses up its number and is printed from the value itself.
class stoWriteObject {
public:
    // Written in place: referred to once and not a class instance or the
    // stub of a class-typed object.
    int inlined() const { return m_count == 1 && m_inlinable; }
    // 1, or 2 for "more than once".
    int count() const { return m_count; }

private:
    friend class stoFileWriter;

    int m_number = 0;
    unsigned char m_section = 0;      // index among the writer's sections
    unsigned char m_count = 0;        // 0 while the slot is free
    unsigned char m_inlinable = 0;    // written in place while referred to once
    unsigned char m_named = 0;        // the name is in the writer's name table
};

// The records by value. Open addressing with linear probing over one array
// of (value, record) slots, so that finding a value reads one cache line,
// and the loops over children can ask for it ahead (prefetch): the table is
// far larger than the caches and is read in no useful order. A record's
// place holds until the next insert.
class stoWriteTable {
public:
    stoWriteTable() = default;
    stoWriteTable(stoWriteTable const&) = delete;
    stoWriteTable& operator=(stoWriteTable const&) = delete;

    stoWriteObject* find(stoValue const* v) const
    {
        if (!m_slots)
            return nullptr;
        for (std::size_t i = index(v);; i = (i + 1) & m_mask) {
            Slot& slot = m_slots[i];
            if (slot.key == v)
                return &slot.record;
            if (!slot.key)
                return nullptr;
        }
    }
    // The record of v; `made` tells whether it is new (and zero).
    stoWriteObject* insert(stoValue const* v, bool& made);
    void prefetch(stoValue const* v) const
    {
        if (m_slots)
            __builtin_prefetch(&m_slots[index(v)]);
    }
    void clear()
    {
        m_slots.reset();
        m_mask = 0;
        m_size = 0;
    }

private:
    struct Slot {
        stoValue const* key;
        stoWriteObject record;
    };
    std::size_t index(stoValue const* v) const
    {
        return static_cast<std::size_t>((reinterpret_cast<std::uintptr_t>(v) * 0x9E3779B97F4A7C15ull) >> m_shift);
    }
    void grow();

    struct Free {
        void operator()(Slot* p) const { std::free(p); }
    };
    std::unique_ptr<Slot[], Free> m_slots;
    std::size_t m_mask = 0;
    std::size_t m_size = 0;
    int m_shift = 64;
};

class stoWriteSection {
public:
    stoWriteSection(stoFileWriter* writer, int index, utString const& name, utString const& prefix)
        : m_writer(writer), m_name(name), m_prefix(prefix), m_index(index)
    {
    }
    stoWriteSection(stoWriteSection const&) = delete;
    stoWriteSection& operator=(stoWriteSection const&) = delete;

    utString name() const { return m_name; }
    utString prefix() const { return m_prefix; }
    utString const& prefix_ref() const { return m_prefix; }
    int index() const { return m_index; }
    int next_number() { return ++m_counter; }
    // Lists the value of a new record; answers its number.
    int add_record(stoValue* value)
    {
        if ((m_size & kMask) == 0)
            m_chunks.emplace_back(new stoValue*[kMask + 1]);
        m_chunks[m_size >> kShift][m_size & kMask] = value;
        ++m_size;
        return next_number();
    }
    // The values of the records, in the order they were made.
    std::size_t size() const { return m_size; }
    stoValue* operator[](std::size_t i) const { return m_chunks[i >> kShift][i & kMask]; }
    // Forgets every record made, for a fresh start.
    void reset()
    {
        m_chunks.clear();
        m_size = 0;
        m_counter = 0;
    }
    void write();

private:
    // In chunks of 4096: no copies while growing, a few frees at the end.
    static constexpr int kShift = 12;
    static constexpr std::size_t kMask = (std::size_t(1) << kShift) - 1;

    stoFileWriter* m_writer;
    utString m_name;
    utString m_prefix;
    int m_index;
    int m_counter = 0;
    std::size_t m_size = 0;
    std::vector<std::unique_ptr<stoValue*[]>> m_chunks;
};

// The type analyser: stubs every stubbable type at once and never lets a
// pointer wait.
class stoWriteTypeAnalyser : public stoAnalyser {
public:
    stoWriteTypeAnalyser() { set_stub_mode(1); }
    int should_dangle(stoRawPtr const&) const override { return 0; }
    stoValue* find(stoRawPtr const& p) const { return look_up_raw(p); }
};

class stoFileWriter {
public:
    stoFileWriter();
    // Constructs and writes at once.
    stoFileWriter(std::ostream& os, void const* object, stoTypeHandle const& type);
    ~stoFileWriter();
    stoFileWriter(stoFileWriter const&) = delete;
    stoFileWriter& operator=(stoFileWriter const&) = delete;

    // Writes the file; 1, or 0 after a write failure. A writer writes once.
    int write(std::ostream& os, void const* object, stoTypeHandle const& type);

protected:
    friend class stoWriteSection;
    friend class stoWriteObjectWriter;

    // Numbers the value and gives it a record where it needs one (`record`:
    // whatever the value).
    void add_value(stoValue* value, stoWriteSection* section, int record = 0);
    stoValue* add_type(stoTypeHandle const& type);
    stoWriteObject* look_up_object(stoValue const* value) const { return m_table.find(value); }
    // Makes the record of a value not in the table yet.
    stoWriteObject* make_object(stoValue* value, stoWriteSection* section);
    // Prints a child value inside a body of `section`: "@", a reference or
    // the value in place.
    void write_child(stoValue const* value, stoWriteSection* section);
    // The same for a value that has a record.
    void write_record_child(stoValue const* value);
    void write_fields(stoValue const* value, stoWriteSection* section);
    template <class Use>
    void for_children_in_batches(stoValue const* value, bool targets, Use&& use);
    // The type reference and the body.
    void write_in_full(stoValue const* value, stoWriteSection* section);
    void write_inline(stoValue const* value, stoWriteObject const* wo);
    void write_file_id(stoValue const* value, stoWriteObject const* wo);
    void set_name(stoValue const* value, utString const& name);
    stoWriteBuffer& out() { return m_out; }
    int is_type_section(stoWriteSection const* section) const { return section == &m_type_stubs || section == &m_types; }
    // Whether the value was given a record when it was added.
    int has_record(stoValue const* value);
    // The type value, with a record, that describes a value's type, or null.
    stoValue const* type_record(stoValue const* value);
    // Deletes the type values that no other type value owns.
    void release_type_values();
    // Whether values of the type are written in place when referred to once.
    int inlinable(stoValue const* value);
    // Gives every value of the graph its number, and a record where it needs
    // one, breadth-first from the root.
    void add_graph(stoValue* root);
    void add_children(stoValue const* value, stoWriteSection* section);

    std::ostream* m_os;
    stoWriteSection m_type_stubs;
    stoWriteSection m_types;
    stoWriteSection m_objects;
    stoWriteSection m_object_stubs;
    stoWriteSection* m_sections[4];
    stoWriteTable m_table;
    stoWriteTypeAnalyser m_type_analyser;
    stoAnalyser m_object_analyser;
    coSet<utString> m_names;
    // The names of named records (stubs and the root) by value.
    coTable<stoValue const*, utString> m_record_names;
    // Values whose children are still to be added, with the index of their
    // section in the low bits (values are 8-aligned).
    std::deque<std::uintptr_t> m_work;
    std::unique_ptr<char[]> m_out_data;
    stoWriteBuffer m_out;

    // Caches by type object: values of a type number in the millions, types
    // in the tens.
    struct TypeAdded {
        stoValue* value = nullptr;
        int calls = 0;
    };
    coTable<stoType const*, TypeAdded> m_types_added;
    coTable<stoType const*, int> m_inlinable_types;
    struct InlinableEntry {
        stoType const* type = nullptr;
        int inlinable = 0;
    };
    InlinableEntry m_inlinable_recent[64];  // in front of the table, by address
    coTable<stoType const*, stoValue const*> m_type_records;
    struct TypeRecordEntry {
        stoType const* type = nullptr;
        stoValue const* record = nullptr;
    };
    TypeRecordEntry m_type_records_recent[64];
    // The table holds the values that can be met more than once: objects and
    // stubs, which alone the analysers share, or every value once a pointer
    // to something else has been seen.
    int m_table_holds_all = 0;
    int m_pointer_to_unshared = 0;
    // Set while writing to a stream whose format (fixed, scientific, a sign,
    // a locale) shapes how a double prints.
    int m_stream_formats_doubles = 0;
};

// The string literal of a store file: quoted, with '"' and '\' escaped and
// every byte outside printable ASCII as \xHH; "@" for the null string.
void sto_write_ascii_utString(std::ostream& os, utString const& s);
void sto_write_ascii_utString(stoWriteBuffer& out, utString const& s);
// The Base64 lines of a byte-array literal, each of at most 60 characters,
// followed by the empty line that ends the data.
void sto_write_ascii_stoByteArray(std::ostream& os, stoByteArray const& bytes);
void sto_write_ascii_stoByteArray(stoWriteBuffer& out, stoByteArray const& bytes);
