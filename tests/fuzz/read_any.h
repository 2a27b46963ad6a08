// The whole read path for arbitrary bytes, shared by the reader fuzz target and the replay of the inputs that
// once broke it: read the bytes as a store file and, when they read cleanly into a document or a schema,
// synthesise it, analyse the result back into values and destroy both. Anything but a clean return (a crash,
// hang, leak, sanitizer report or foreign exception) is a fault.
#pragma once

#include "sample.h"

#include <sto.h>

#include <climits>
#include <cstddef>
#include <ostream>
#include <streambuf>

namespace sto_fuzz {

// Swallows everything, but through the stream's normal write path, so that formatting the reports is
// exercised as well.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return c == traits_type::eof() ? traits_type::not_eof(c) : c; }
    std::streamsize xsputn(char const*, std::streamsize n) override { return n; }
};

// Answers 1 when the bytes read without errors and had a root object, which was synthesised. Reports go to
// `report` when it is given, and are discarded otherwise.
inline int read_any(char const* data, std::size_t size, std::ostream* report = nullptr)
{
    if (size > static_cast<std::size_t>(INT_MAX))
        return 0;
    sto_force_load();
    sample_force_load();
    NullBuffer buffer;
    std::ostream discard(&buffer);
    int clean = 0;
    try {
        stoReadMemoryMap map(data, static_cast<int>(size));
        stoFileReader reader(&map, report ? report : &discard, nullptr, nullptr);
        stoValue const* root = reader.look_up_value("root");
        // As callers do, the root is synthesised into an object of the class they expect.
        stoTypeHandle type = root && root->is_object() ? root->type() : stoTypeHandle();
        if (reader.error_count() == 0 && (type == sto_type_annDocument() || type == sto_type_stoSchema())) {
            if (void* object = type->create()) {
                try {
                    stoTypeSynthesiser().synthesise(root, stoRWRawPtr(type, object, type->size()));
                    // Walking the new object again finds any field that a hostile file made view an
                    // object as a class it is not of.
                    stoAnalyser analyser;
                    delete analyser.raw_to_value(stoRawPtr(type, object, type->size()));
                    analyser.destroy_stubs();
                    clean = 1;
                } catch (stoException* e) {
                    delete e;
                }
                type->destroy(object);
            }
        }
    } catch (stoException* e) {
        delete e;  // schemas or classes a file names that are not in memory
    }
    return clean;
}

}  // namespace sto_fuzz
