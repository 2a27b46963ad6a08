// stoFileWriter: writes one live object as a store file.
//
// The object is analysed into a value graph; every value, and every type and
// schema the values need, gets a record in one of four sections (TYPE STUBS,
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

#include <deque>
#include <iosfwd>
#include <vector>

class stoFileWriter;
class stoValue;
class stoStub;

class stoWriteSection;

class stoWriteObject {
public:
    stoWriteObject() = default;
    stoWriteObject(stoWriteObject const&) = delete;
    stoWriteObject& operator=(stoWriteObject const&) = delete;

    void become(stoFileWriter* writer, stoWriteSection* section, stoValue* value);
    // Adds every non-null child of the value to the writer, in the same
    // group of sections (types or objects).
    void add_children();
    // The name if set, otherwise the section's prefix and the number.
    utString file_id() const;
    void inc() { ++m_count; }
    int count() const { return m_count; }
    // Written in place: referred to once and not a class instance or the
    // stub of a class-typed object.
    int inlined() const;
    void set_name(utString const& name) { m_name = name; }
    stoValue const* value() const { return m_value; }
    stoWriteSection* section() const { return m_section; }
    int invalid() const { return m_writer == nullptr; }
    void write() const;
    void write_in_full() const;
    void write_inline() const;
    // Prints file_id() without making a string of it.
    void write_file_id(std::ostream& os) const;
    // The records of the value's children, in child order, null for a null
    // child; set by add_children.
    stoWriteObject* const* children() const;

private:
    stoWriteSection* m_section = nullptr;
    stoFileWriter* m_writer = nullptr;
    stoValue* m_value = nullptr;
    utString m_name;
    int m_number = 0;
    int m_count = 1;
    int m_first_child = -1;           // in the writer's list of child records
    unsigned char m_owns = 0;
    unsigned char m_inlinable = 0;    // written in place while referred to once
};

class stoWriteSection {
public:
    stoWriteSection(stoFileWriter* writer, utString const& name, utString const& prefix)
        : m_writer(writer), m_name(name), m_prefix(prefix), m_counter(0) {}
    stoWriteSection(stoWriteSection const&) = delete;
    stoWriteSection& operator=(stoWriteSection const&) = delete;

    stoWriteObject* make_object(stoValue* value);
    utString name() const { return m_name; }
    utString prefix() const { return m_prefix; }
    utString const& prefix_ref() const { return m_prefix; }
    int next_number() { return ++m_counter; }
    // Forgets every record made, for a fresh start.
    void reset()
    {
        m_objects.clear();
        m_counter = 0;
    }
    void write();
    std::ostream& os() const;
    std::deque<stoWriteObject> const& objects() const { return m_objects; }

private:
    stoFileWriter* m_writer;
    utString m_name;
    utString m_prefix;
    int m_counter;
    std::deque<stoWriteObject> m_objects;  // never moved once made
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
    friend class stoWriteObject;
    friend class stoWriteSection;
    friend class stoWriteObjectWriter;

    stoWriteObject* add_value(stoValue* value, stoWriteSection* section);
    stoValue* add_type(stoTypeHandle const& type);
    stoWriteObject* look_up_object(stoValue const* value) const;
    void write_child(stoValue const* value);
    void write_fields(stoValue const* value);
    std::ostream& os() const { return *m_os; }
    int is_type_section(stoWriteSection const* section) const { return section == &m_type_stubs || section == &m_types; }
    // The record that describes a value's type, or null.
    stoWriteObject const* type_record(stoValue const* value) const;
    // Deletes the type values that no other type value owns.
    void release_type_values();
    // Whether values of the type are written in place when referred to once.
    int inlinable(stoValue const* value);
    // Gives every value of the graph its record, breadth-first from the root.
    void add_graph(stoValue* root);
    // The same for records: each record's children come from the list that
    // add_children fills, not from the table.
    void write_record_child(stoWriteObject const* wo);
    void write_record_fields(stoWriteObject const* wo);

    std::ostream* m_os;
    stoWriteSection m_type_stubs;
    stoWriteSection m_types;
    stoWriteSection m_objects;
    stoWriteSection m_object_stubs;
    coTable<stoValue const*, stoWriteObject*> m_table;
    stoWriteTypeAnalyser m_type_analyser;
    stoAnalyser m_object_analyser;
    coSet<utString> m_names;
    coPageArr<stoWriteObject*> m_work;

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
    mutable coTable<stoType const*, stoWriteObject const*> m_type_records;
    // The child records of every record, record after record.
    std::vector<stoWriteObject*> m_child_records;
    // The table holds the values that can be met more than once: objects and
    // stubs, which alone the analysers share, or every value once a pointer
    // to something else has been seen.
    int m_table_holds_all = 0;
    int m_pointer_to_unshared = 0;
};

// The string literal of a store file: quoted, with '"' and '\' escaped and
// every byte outside printable ASCII as \xHH; "@" for the null string.
void sto_write_ascii_utString(std::ostream& os, utString const& s);
// The Base64 lines of a byte-array literal, each of at most 60 characters,
// followed by the empty line that ends the data.
void sto_write_ascii_stoByteArray(std::ostream& os, stoByteArray const& bytes);
