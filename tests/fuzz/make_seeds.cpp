// Writes the generated part of the reader's seed corpus into a folder: small
// sample documents from several seeds and the schema files of the sample's
// schemas, all as the writer prints them. The hand-written seeds live in
// tests/fuzz/seeds/.
//
//   sto_fuzz_seeds OUT_DIR
#include "sample.h"

#include <sto.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

bool save(std::string const& path, std::string const& text)
{
    std::ofstream out(path, std::ios::binary);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUT_DIR\n", argv[0]);
        return 2;
    }
    std::string const dir = argv[1];
    sample_force_load();
    int written = 0;

    // Documents of 0 to 50 items; each seed gives a different mix of kinds.
    int const items[] = {0, 5, 8, 12, 20, 30, 50};
    for (int i = 0; i < static_cast<int>(sizeof items / sizeof items[0]); ++i) {
        annDocument* document = sample_make_document(items[i], 1000u + static_cast<unsigned>(i));
        std::ostringstream os;
        stoFileWriter writer;
        if (writer.write(os, document, sto_type_annDocument()) &&
            save(dir + "/document_" + std::to_string(items[i]) + ".sto", os.str()))
            ++written;
        delete document;
    }

    // Schema files: classes, members, bases and bindings as records.
    for (char const* name : {"annotation", "gdandtol", "vornetinput", "store"}) {
        stoSchema const* schema = sto_system()->find_in_memory_schema(stoSchemaID(name, 0));
        if (!schema)
            continue;
        schema->finish();
        std::ostringstream os;
        stoFileWriter writer;
        if (writer.write(os, schema, sto_type_stoSchema()) && save(dir + "/schema_" + name + ".sto", os.str()))
            ++written;
    }

    std::printf("sto_fuzz_seeds: %d files in %s\n", written, dir.c_str());
    return written > 0 ? 0 : 1;
}
