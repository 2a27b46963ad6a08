// Schemas written as schema files and rebuilt from them into loaded schemas.
#include "sample.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

stoSchema* sto_schema_sample7() { return sto_test::saved_schema("sample", 7); }

// A schema rebuilt from a file is made by the protected constructor, as the data templates make theirs.
struct RebuiltFromFile : stoSchema {
    RebuiltFromFile() = default;
};

// Reads the text and synthesises its root into a new loaded schema; null when the file does not read
// cleanly.
RebuiltFromFile* rebuild(std::string const& text, std::string& diagnostics_out)
{
    std::ostringstream diagnostics;
    stoReadMemoryMap map(text.data(), static_cast<int>(text.size()));
    stoTypeSynthesiser* synthesiser = new stoTypeSynthesiser;
    stoFileReader reader(&map, &diagnostics, synthesiser, nullptr);
    diagnostics_out = diagnostics.str();
    stoValue const* root = reader.look_up_value("root");
    if (reader.error_count() != 0 || !root)
        return nullptr;
    RebuiltFromFile* rebuilt = new RebuiltFromFile;
    synthesiser->synthesise(root, static_cast<stoSchema*>(rebuilt));
    rebuilt->finish();
    return rebuilt;
}

// Everything the schema says about each named type, as text.
std::vector<std::string> describe_schema(stoSchema const* schema)
{
    std::vector<std::string> out;
    for (stoSchemaIT it(schema); ++it;) {
        stoObjectPtr whole = it()->sto_object();
        std::string type = whole.type()->name().str() + " " + it()->name().str();
        if (stoClass const* c = stoClass::sto_dynamic_cast(whole.type(), whole.ptr())) {
            type += " size " + std::to_string(c->size());
            for (std::vector<std::string> const& part :
                 {sto_test::bases_of(c), sto_test::members_of(c), sto_test::table_of(c)})
                for (std::string const& line : part)
                    type += "; " + line;
        } else if (stoBasic const* b = dynamic_cast<stoBasic const*>(it())) {
            type += " size " + std::to_string(b->size());
        }
        out.push_back(type);
    }
    return out;
}

}  // namespace

class smpShape {
    STO_PERSISTENT(smpShape)
public:
    virtual ~smpShape() = default;
    int m_colour = 0;
};
STO_DECLARE_CLASS(smpShape)

class smpGroup : public smpShape {
    STO_PERSISTENT(smpGroup)
public:
    smpShape* m_first = nullptr;
};
STO_DECLARE_CLASS(smpGroup)

STO_CLASS(smpShape, sto_schema_sample7())
{
    STO_MEMBER(m_colour);
}

STO_CLASS(smpGroup, sto_schema_sample7())
{
    STO_BASE(smpShape);
    STO_MEMBER(m_first);
}

TEST(SchemaFile, OpensWithTheRecordsOfTheWorkedExample)
{
    sto_class_smpGroup()->finish();
    std::string text = sto_test::written(sto_schema_sample7(), sto_type_stoSchema());
    // The records of the opening, in this order, each run of lines unbroken; the records of the two classes
    // and their types come between and after them.
    char const* const runs[] = {
        "STO1\n-TYPE STUBS\nstoSchema=stoClass(\"stoSchema\",&store_1)\n",
        "\nstoStubbable=stoClass(\"stoStubbable\",&store_1)\n",
        "\nstore_1=stoSchema(%$8,&%$7)\n",
        "\nstoSchemaID=stoClass(\"stoSchemaID\",&store_1)\n",
        "\n%$7=stoSystem(1,&@)\n",
        "\n%$8=stoSchemaID{\"store\",1}\n",
        "\n-TYPES\n",
        "\n-OBJECTS\nroot=stoSchema{&#$1,#3,&#9,&#10,&#11}\n#3=stoSchemaID{\"sample\",7}\n",
        "\n-OBJECT STUBS\n#$1=stoSystem(1,&@)\n",
    };
    EXPECT_EQ(text.find(runs[0]), 0u);
    for (std::size_t at = 0; std::string_view run : runs) {
        at = text.find(run, at);
        ASSERT_NE(at, std::string::npos) << "missing from here on: " << run << "\n" << text;
        at += run.size() - 1;  // the next run starts at this one's last line feed
    }
}

TEST(SchemaFile, EverySchemaInMemoryRebuildsToTheSameSchemaAndTheSameText)
{
    sample_force_load();
    sto_force_load();
    sto_class_smpGroup()->finish();
    for (auto [name, version] : {std::pair<char const*, int>{"store", 1}, {"annotation", 16}, {"gdandtol", 6},
                                 {"vornetinput", 9}, {"sample", 7}}) {
        SCOPED_TRACE(name);
        stoSchemaID const id(name, version);
        stoSchema const* original = sto_system()->find_loaded_schema(id);
        ASSERT_NE(original, nullptr);
        original->finish();
        std::string text = sto_test::written(original, sto_type_stoSchema()), diagnostics;
        RebuiltFromFile* rebuilt = rebuild(text, diagnostics);
        ASSERT_NE(rebuilt, nullptr) << diagnostics;

        EXPECT_EQ(rebuilt->in_memory(), 0);
        EXPECT_EQ(rebuilt->system(), sto_system());
        // The newest schema of that identity is the rebuilt one, so it has the original's name and version.
        EXPECT_EQ(sto_system()->find_loaded_schema(id), rebuilt);
        EXPECT_EQ(describe_schema(rebuilt), describe_schema(original));

        // Every named type is the schema's own and found by its name; every class is a kind of its rebuilt
        // bases.
        for (stoSchemaIT it(rebuilt); ++it;) {
            EXPECT_EQ(rebuilt->look_up_object(it()->name()), it());
            stoObjectPtr whole = it()->sto_object();
            if (stoClass const* cls = stoClass::sto_dynamic_cast(whole.type(), whole.ptr())) {
                EXPECT_EQ(it()->schema(), rebuilt);
                for (stoBase const* b = cls->first_base(); b; b = b->next())
                    EXPECT_TRUE(cls->is_compatible_with(b->base_class()->handle())) << cls->name().str();
            }
        }

        EXPECT_EQ(sto_test::written(rebuilt, sto_type_stoSchema()), text);
        delete rebuilt;
        EXPECT_EQ(sto_system()->find_loaded_schema(id), original);
    }
}
