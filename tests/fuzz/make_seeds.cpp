// Writes the generated part of the reader's seed corpus into a folder: small sample documents from several
// seeds and the schema files of the sample's schemas, as the writer prints them. The hand-written seeds live
// in tests/fuzz/seeds/.
//
//   sto_fuzz_seeds OUT_DIR
#include "sample.h"

#include <sto.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUT_DIR\n", argv[0]);
        return 2;
    }
    std::string const dir = argv[1];
    sample_force_load();
    int written = 0;
    auto save = [&](std::string const& name, void const* object, stoTypeHandle const& type) {
        std::ostringstream os;
        if (!stoFileWriter().write(os, object, type))
            return;
        std::ofstream out(dir + "/" + name, std::ios::binary);
        std::string const text = os.str();
        written += static_cast<bool>(out.write(text.data(), static_cast<std::streamsize>(text.size())));
    };

    // Documents of 0 to 50 items; each seed gives a different mix of kinds.
    unsigned seed = 1000u;
    for (int items : {0, 5, 8, 12, 20, 30, 50}) {
        annDocument* document = sample_make_document(items, seed++);
        save("document_" + std::to_string(items) + ".sto", document, sto_type_annDocument());
        delete document;
    }
    // Schema files: classes, members, bases and bindings as records.
    for (char const* name : {"annotation", "gdandtol", "vornetinput", "store"})
        if (stoSchema const* schema = sto_system()->find_in_memory_schema(stoSchemaID(name, 0))) {
            schema->finish();
            save(std::string("schema_") + name + ".sto", schema, sto_type_stoSchema());
        }

    std::printf("sto_fuzz_seeds: %d files in %s\n", written, dir.c_str());
    return written > 0 ? 0 : 1;
}
