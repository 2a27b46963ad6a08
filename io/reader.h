// stoFileReader: reads one store file into values held in slots, one per
// record, and resolves the pointers between them.
//
// Reading never throws for malformed text: every problem is reported on the
// diagnostic stream as "Error on line N: message", counted, and reading goes
// on with the next record. Callers check error_count() and take the root:
//
//   std::ostringstream diagnostics;
//   stoReadMemoryMap map(text.data(), int(text.size()));
//   stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
//   if (reader.error_count() == 0)
//       stoTypeSynthesiser().synthesise(reader.look_up_value("root"), &document);
#pragma once

#include "io/lexer.h"
#include "platform/co_containers.h"
#include "platform/co_pointers.h"
#include "platform/om_stream.h"
#include "platform/ut_string.h"
#include "types/type.h"
#include "values/value.h"

#include <iosfwd>
#include <memory>
#include <utility>
#include <vector>

class stoFileReader;
class stoSynthesiser;
class stoEncoder;
class stoReadNode;

// What an opening "(" means: an array, or (at the top of a record without
// ":") a stub.
enum stoReadParen { stoReadParenArray = 1, stoReadParenStub = 2 };

// ------------------------------------------------------------------ file maps

class stoReadFileMap {
public:
    virtual char const* start() const = 0;
    virtual int length() const = 0;
    virtual ~stoReadFileMap() = default;
};

// The caller's bytes, not owned.
class stoReadMemoryMap : public stoReadFileMap {
public:
    stoReadMemoryMap(char const* data, int length) : m_data(data), m_length(length > 0 ? length : 0) {}
    char const* start() const override { return m_data; }
    int length() const override { return m_length; }

private:
    char const* m_data;
    int m_length;
};

// The whole named file, read at construction; throws stoFileNotReadableException
// or stoFileTooLargeException.
class stoReadFileNameMap : public stoReadFileMap {
public:
    explicit stoReadFileNameMap(utString const& file_name);
    char const* start() const override { return m_data.get(); }
    int length() const override { return m_length; }

private:
    std::unique_ptr<char[]> m_data;
    int m_length = 0;
};

// What an open stream delivers, read at construction.
class stoReadFileStreamMap : public stoReadFileMap {
public:
    explicit stoReadFileStreamMap(omIFStream* stream);
    char const* start() const override { return m_data.get(); }
    int length() const override { return m_length; }

private:
    std::unique_ptr<char[]> m_data;
    int m_length = 0;
};

// ------------------------------------------------------------------- sections

class stoReadSection {
public:
    explicit stoReadSection(stoFileReader* reader) : m_reader(reader) {}
    virtual ~stoReadSection() = default;
    virtual stoTypeHandle translate_type(stoReadKey const& key) = 0;

    void scan();
    void read();
    void read_object();
    void dump(std::ostream&) {}
    stoFileReader* reader() const { return m_reader; }

protected:
    friend class stoReadObject;
    friend class stoReadNode;
    void skip_object();
    stoReadNode* read_value(stoReadParen paren);
    // Finds the header line; answers 0 (after a report) when there is none.
    int find_section();

    stoFileReader* m_reader;
};

class stoReadTypeSection : public stoReadSection {
public:
    using stoReadSection::stoReadSection;
    stoTypeHandle translate_type(stoReadKey const& key) override;
};

class stoReadObjectSection : public stoReadSection {
public:
    explicit stoReadObjectSection(stoFileReader* reader);
    stoTypeHandle translate_type(stoReadKey const& key) override;

private:
    stoTypeOwner m_handle_type;
};

// ---------------------------------------------------------------------- nodes

// Memory for the read nodes of the records being read, taken in order and
// given back all at once when the reading of a record ends (readings on
// demand nest, so their nodes lie above those of the reading they serve).
// Nodes made here are deleted as usual, their destructors run, but give no
// memory back on their own.
class stoReadNodeArena {
public:
    struct Mark {
        std::size_t block;
        std::size_t used;
    };
    void* allocate(std::size_t size);
    Mark mark() const { return Mark{m_block, m_used}; }
    void release(Mark mark)
    {
        m_block = mark.block;
        m_used = mark.used;
    }

private:
    static constexpr std::size_t kBlockSize = 64 * 1024;
    struct Block {
        std::unique_ptr<unsigned char[]> bytes;
        std::size_t size;
    };
    std::vector<Block> m_blocks;
    std::size_t m_block = 0;  // the block being filled
    std::size_t m_used = 0;   // bytes taken from it
};

class stoReadNode {
public:
    // Nodes are made in the reader's node arena only.
    static void* operator new(std::size_t size, stoReadNodeArena& arena) { return arena.allocate(size); }
    static void operator delete(void*, stoReadNodeArena&) noexcept {}
    static void operator delete(void*) noexcept {}

    explicit stoReadNode(stoReadSection* section);
    virtual void process(stoTypeHandle const& type) = 0;
    virtual void dump_members(std::ostream& os, int indent) const;
    virtual int need_to_defer(stoReadKey&) const { return 0; }
    virtual ~stoReadNode() = default;

    void add_child(stoReadNode* child) { m_children.emplace_back(child); }
    // Takes the children from the end of `children`, from index `first` on.
    void take_children(std::vector<std::unique_ptr<stoReadNode>>& children, std::size_t first);
    void register_value(stoValue* value);
    stoValue* release();
    stoValue* share();
    stoValueHandle* slot() const { return m_slot; }
    stoValue* value() const;
    // The record whose slot a reference node shares once processed; -1 for
    // every other node.
    int record() const { return m_record; }
    void dump(std::ostream& os, int indent) const;

protected:
    static void do_indent(std::ostream& os, int indent);
    void error(char const* format, ...) __attribute__((format(printf, 2, 3)));
    int number_of_children() const { return static_cast<int>(m_children.size()); }
    stoReadNode* child(int i) const { return m_children[static_cast<std::size_t>(i)].get(); }

    stoReadSection* m_section;
    stoFileReader* m_reader;
    std::vector<std::unique_ptr<stoReadNode>> m_children;
    stoValueHandle* m_slot = nullptr;
    int m_record = -1;
};

class stoReadBasicNode : public stoReadNode {
public:
    stoReadBasicNode(stoReadSection* section, stoValue* value) : stoReadNode(section), m_value(value) {}
    void process(stoTypeHandle const& type) override;
    void dump_members(std::ostream& os, int indent) const override;

private:
    coPrg<stoValue> m_value;
};

class stoReadClassNode : public stoReadNode {
public:
    using stoReadNode::stoReadNode;
    void process(stoTypeHandle const& type) override;
    void dump_members(std::ostream& os, int indent) const override;
};

class stoReadArrayNode : public stoReadNode {
public:
    using stoReadNode::stoReadNode;
    void process(stoTypeHandle const& type) override;
    void dump_members(std::ostream& os, int indent) const override;
};

class stoReadMappedNode : public stoReadNode {
public:
    using stoReadNode::stoReadNode;
    void process(stoTypeHandle const& type) override;
    void dump_members(std::ostream& os, int indent) const override;
};

class stoReadPtrNode : public stoReadNode {
public:
    stoReadPtrNode(stoReadSection* section, stoReadNode* pointee) : stoReadNode(section) { add_child(pointee); }
    void process(stoTypeHandle const& type) override;
    void dump_members(std::ostream& os, int indent) const override;
};

class stoReadRefNode : public stoReadNode {
public:
    stoReadRefNode(stoReadSection* section, stoReadKey const& key);
    void process(stoTypeHandle const& type) override;
    void dump_members(std::ostream& os, int indent) const override;
    int need_to_defer(stoReadKey& key) const override;

private:
    stoReadKey m_key;
    int m_index;  // of the record with the key, or -1
};

class stoReadStubNode : public stoReadNode {
public:
    stoReadStubNode(stoReadSection* section, stoReadNode* id, stoReadNode* parent) : stoReadNode(section)
    {
        add_child(id);
        add_child(parent);
    }
    void process(stoTypeHandle const& type) override;
    void dump_members(std::ostream& os, int indent) const override;
};

// One record being read.
class stoReadObject {
public:
    stoReadObject(stoReadSection* section, stoReadKey const& key, int line);
    virtual ~stoReadObject() = default;
    void read();
    void process();
    stoReadNode* node() const { return m_node.get(); }
    void dump(std::ostream& os) const;

private:
    stoFileReader* m_reader;
    stoReadSection* m_section;
    stoReadKey m_key;
    stoReadKey m_type_key;
    stoTypeHandle m_type;
    std::unique_ptr<stoReadNode> m_node;
    int m_line;
};

// --------------------------------------------------------------------- reader

class stoFileReader : public stoReadLexer {
public:
    // Reads from an open stream; the reader owns the map it makes of it.
    stoFileReader(omIFStream* stream, std::ostream* diagnostics, stoSynthesiser* synthesiser,
                  stoEncoder const* encoder);
    // Reads from a map the caller keeps alive for the reader's life.
    stoFileReader(stoReadFileMap const* map, std::ostream* diagnostics, stoSynthesiser* synthesiser,
                  stoEncoder const* encoder);
    ~stoFileReader() override;

    // The value of the record with that key, or null.
    stoValue const* look_up_value(utString const& name) const;
    // The slot of the record with that key, or null; a caller takes a value
    // out of the reader through it.
    stoValueHandle* look_up_slot(utString const& name) const;
    void dump(std::ostream& os);

    using stoReadLexer::error_count;

protected:
    friend class stoReadSection;
    friend class stoReadTypeSection;
    friend class stoReadObjectSection;
    friend class stoReadObject;
    friend class stoReadNode;
    friend class stoReadPtrNode;
    friend class stoReadRefNode;

    void start(stoSynthesiser* synthesiser, stoEncoder const* encoder);
    void choose_encoder();
    void scan();
    void read();
    void fix_pointers();
    // The edges over which a record may come to hold a waiting pointer: the
    // records taken by pending records, and the waiting owning and counted
    // pointers from the record that made each to the one it names.
    std::vector<std::pair<int, int>> waiting_edges();
    stoReadNode* read_value(stoReadSection* section, stoReadParen paren);
    // Registers the key of a record the scan met.
    void add_key(stoReadKey const& key);
    // Makes the keys the scan met findable; the first record of a key is the
    // one found.
    void index_keys();
    // The index in m_records of the first record with that key, or -1.
    int find_record(stoReadKey const& key) const;
    stoValueHandle* slot_for_key(stoReadKey const& key, stoReadSection* section);
    // slot_for_key for the record at that index (none for -1).
    stoValueHandle* slot_for_record(int index, stoReadSection* section);
    void set_slot(stoReadKey const& key, stoValueHandle* slot);
    stoValueHandle* new_slot();
    stoReadNodeArena m_nodes;
    // The children of the lists being read, innermost last, until each list
    // is complete and its node takes them at once.
    std::vector<std::unique_ptr<stoReadNode>> m_list_children;

    stoReadTypeSection m_type_stubs;
    stoReadTypeSection m_types;
    stoReadObjectSection m_objects;
    stoReadObjectSection m_object_stubs;
    std::unique_ptr<stoSynthesiser> m_synthesiser;
    coTable<utString, stoTypeHandle> m_resolved_types;
    coPageArr<stoValuecoPrf> m_kept;
    // The key of every record, in the order of the file, with its slot once
    // it has been read.
    struct Record {
        stoReadKey key;
        // Its reading on demand failed.
        bool failed = false;
        // Once read: a pointer among the values it holds may wait for the
        // fix-up.
        bool pending = false;
    };
    std::vector<Record> m_records;
    // Where the records are found: keys of the form the writer numbers
    // ("#12", "#$3", "%7", "%$8", the number in plain decimal) by their
    // number in a table per prefix, holding the index plus 1 (0: none);
    // every other key by its bytes.
    std::vector<int> m_numbered[4];
    coTable<stoReadKey, int> m_named;
    // How often a record whose reading failed has been read again.
    int m_failed_rereads = 0;
    static constexpr int kMaxFailedRereads = 10000;
    // For each reading of a record under way, innermost last: the record
    // (-1 for a key no record has), and whether a pointer among the values
    // it holds may wait for the fix-up (see Record), from a pointer it
    // deferred itself or from a record whose value it took.
    struct Frame {
        int record;
        char pending;
        // Where its slots begin in m_frame_slots and m_held_slots.
        std::size_t slots;
        std::size_t held;
        stoReadNodeArena::Mark nodes;
    };
    std::vector<Frame> m_frames;
    // The reading under way takes (owns or shares) the value of a record
    // that has been read.
    void took(int record);
    // Which record took the value of which, among records that may hold a
    // waiting pointer.
    std::vector<std::pair<int, int>> m_takes;
    // A pointer to a record not yet read: the record it names, the line of
    // the reference, and the record whose reading made it; fixed in the
    // order they were met. Pointers naming no record are never fixed and
    // not kept.
    struct Deferred {
        stoPtrValue* pointer;
        int record;
        int line;
        int home;
    };
    void defer(stoPtrValue* pointer, stoReadKey const& key);
    std::vector<Deferred> m_to_fix;
    coVariableArr<stoValueHandle> m_slots;
    // The values inside a record live in slots only until the record's
    // value takes them. The slots of the readings under way, innermost
    // last; those that a counted pointer shared (m_held_slots) keep the
    // count with the slot and are never used again. The slots of a
    // finished reading that hold nothing any more are used again.
    std::vector<stoValueHandle*> m_frame_slots;
    std::vector<stoValueHandle*> m_held_slots;
    std::vector<stoValueHandle*> m_free_slots;
    // The number of values registered, the free slots used again included.
    long long m_registered = 0;
    // Ends the innermost reading; `root` is the slot of its record.
    void end_frame(bool finished, stoValueHandle const* root);
    std::unique_ptr<stoReadFileMap> m_own_map;
    stoReadFileMap const* m_map = nullptr;
    std::unique_ptr<stoEncoder> m_own_encoder;
    // Bounds on nesting and on chains of on-demand reads: no input can
    // exhaust the stack.
    int m_depth = 0;
    int m_demand_depth = 0;
};
