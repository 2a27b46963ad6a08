// The exception tree: its own kind test against the real class hierarchy,
// checked down-casts, the one-line explanations, the accessors, and the
// throw-a-heap-pointer convention with ownership through stoExceptioncoPrf.
#include "support/exceptions.h"
#include "types/class.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

// One class of the tree, seen through its static kind-test members and,
// independently, through the language's own RTTI.
struct KindEntry {
    std::string name;
    const utTypeID* id;
    void* (*ut_cast)(const stoException*);
    bool (*rtti_is)(const stoException*);
};

#define KIND(X)                                                                             \
    KindEntry{#X, &X::ut_static_type(),                                                     \
              [](const stoException* e) -> void* { return X::ut_dynamic_cast(e); },        \
              [](const stoException* e) { return dynamic_cast<const X*>(e) != nullptr; }}

std::vector<KindEntry> const kAllClasses = {
    KIND(stoException), KIND(stoCPPToFileException), KIND(stoFileWriteFailureException),
    KIND(stoFileToCPPException), KIND(stoFileReadFailureException), KIND(stoFileNotReadableException),
    KIND(stoFileTooLargeException), KIND(stoMissingClassException), KIND(stoMissingSchemaException),
    KIND(stoNoCurrentEquivalentException), KIND(stoNoCurrentSchemaException),
    KIND(stoSchemaNotInMemoryException), KIND(stoSynthesiserException), KIND(stoIntTooBigException),
    KIND(stoMigrationFailureException), KIND(stoNonFiniteNumberException),
};

// An application's own failures, derived from the abstract classes. The store
// has no concrete migration failure, so the application's one is the only
// way to reach that branch; the read failure reports its destruction so that
// deletion through a base pointer shows.
struct AppReadFailure : stoFileReadFailureException {
    explicit AppReadFailure(int* destroyed) : m_destroyed(destroyed) {}
    ~AppReadFailure() override { ++*m_destroyed; }
    utString explanation() const override { return "application read failure"; }
    int* m_destroyed;
};

struct AppMigrationFailure : stoMigrationFailureException {
    utString explanation() const override { return "application migration failure"; }
};

int g_app_destroyed;
stoSchemaID const kSchema(utString("geometry"), 3);

// A way to make a concrete class, the identity it reports and every class it
// must count as besides stoException and itself ("read failure" stands for
// the two classes above a read failure). Application classes have no identity
// of their own: they answer with their base's and are found by its kind test.
struct ConcreteCase {
    std::function<stoException*()> make;
    std::string identity;
    std::set<std::string> kinds;
};
#define MAKE(X, ...) [] { return static_cast<stoException*>(new X(__VA_ARGS__)); }, #X

std::vector<ConcreteCase> const kConcrete = {
    {MAKE(stoFileNotReadableException, "a.sto"), {"read failure"}},
    {MAKE(stoFileTooLargeException), {"read failure"}},
    {MAKE(stoMissingClassException, kSchema, "Point"), {"read failure"}},
    {MAKE(stoMissingSchemaException, kSchema), {"read failure"}},
    {MAKE(stoNoCurrentEquivalentException, nullptr), {"read failure"}},
    {MAKE(stoNoCurrentSchemaException, kSchema), {"read failure"}},
    {MAKE(stoSchemaNotInMemoryException, kSchema), {"read failure"}},
    {MAKE(stoIntTooBigException), {"stoFileToCPPException", "stoSynthesiserException"}},
    {MAKE(stoNonFiniteNumberException), {"stoCPPToFileException", "stoFileWriteFailureException"}},
    {[] { return static_cast<stoException*>(new AppMigrationFailure); }, "stoMigrationFailureException",
     {"stoFileToCPPException"}},
    {[] { return static_cast<stoException*>(new AppReadFailure(&g_app_destroyed)); },
     "stoFileReadFailureException", {"read failure"}},
};

// Every concrete class (and the application's own failures) against every
// class of the tree. The kind test walks a chain of bases written out by
// hand, while catch clauses go by the language's inheritance: the kind test,
// the checked cast and dynamic_cast must all agree, and a successful cast must
// not move the pointer. Each identity carries its class's name; down-casts of
// null stay null.
TEST(ExceptionKind, EveryConcreteClassAgainstEveryClass)
{
    for (ConcreteCase const& c : kConcrete) {
        std::unique_ptr<stoException> e(c.make());
        EXPECT_STREQ(e->ut_dynamic_type().name(), c.identity.c_str());
        std::set<std::string> kinds = c.kinds;
        kinds.insert({"stoException", c.identity});
        if (kinds.count("read failure"))
            kinds.insert({"stoFileToCPPException", "stoFileReadFailureException"});
        for (KindEntry const& k : kAllClasses) {
            SCOPED_TRACE(c.identity + " as " + k.name);
            bool const expected = kinds.count(k.name) != 0;
            EXPECT_EQ(e->ut_is_kind_of(*k.id), expected ? 1 : 0);
            EXPECT_EQ(k.rtti_is(e.get()), expected);
            EXPECT_EQ(k.ut_cast(e.get()), expected ? static_cast<void*>(e.get()) : nullptr);
        }
    }
    for (KindEntry const& k : kAllClasses) {
        EXPECT_STREQ(k.id->name(), k.name.c_str());
        EXPECT_EQ(k.ut_cast(nullptr), nullptr) << k.name;
    }
}

// Through the base pointer, as a catch site sees them.
TEST(ExceptionExplanation, Texts)
{
    stoSchemaID const id(utString("s"), 1);
    std::vector<std::pair<stoException*, char const*>> cases = {
        {new stoFileNotReadableException("data.sto"), "File 'data.sto' missing or not readable"},
        {new stoFileNotReadableException(""), "File '' missing or not readable"},
        {new stoFileTooLargeException(), "File too large"},
        {new stoIntTooBigException(), "File contains an integer out of the expected range"},
        {new stoMissingClassException(id, "K"), "Class missing from schema"},
        {new stoMissingSchemaException(id), "Missing schema file"},
        {new stoNoCurrentSchemaException(id), "No current schema file"},
        {new stoSchemaNotInMemoryException(id), "File written using schema not in memory"},
        {new stoNonFiniteNumberException(), "Cannot write a non-finite number (infinity or NaN)"},
        {new stoNoCurrentEquivalentException(sto_class_stoSchemaID()),
         "Class and bases do not exist in current schema for class stoSchemaID"},
    };
    for (auto& [e, text] : cases) {
        stoExceptioncoPrf owner(e);
        EXPECT_EQ(e->explanation(), text) << e->ut_dynamic_type().name();
    }
}

// The schema identity is copied in: the exception outlives the identity it
// was made from, as it does when thrown out of the scope that made it. A file
// name keeps null apart from empty.
TEST(ExceptionAccessors, SchemaIdentityIsCopiedAndNamesKeepNullApart)
{
    std::unique_ptr<stoMissingClassException> missing_class;
    std::unique_ptr<stoMissingSchemaException> missing_schema;
    std::unique_ptr<stoSchemaNotInMemoryException> not_in_memory;
    {
        stoSchemaID id(utString("annotation"), 7);
        utString class_id("annNote");
        missing_class.reset(new stoMissingClassException(id, class_id));
        missing_schema.reset(new stoMissingSchemaException(id));
        not_in_memory.reset(new stoSchemaNotInMemoryException(stoSchemaID(utString("voronoi"), -2)));
        class_id += "_changed";
    }
    auto identity = [](auto const& e) { return e.schema_name().str() + "," + std::to_string(e.version()); };
    EXPECT_EQ(missing_class->schema_name().str() + "," + std::to_string(missing_class->schema_version()) +
                  "," + missing_class->class_id().str(),
              "annotation,7,annNote");
    EXPECT_EQ(identity(*missing_schema) + " " + identity(*not_in_memory) + " " +
                  identity(stoNoCurrentSchemaException(stoSchemaID(utString("gdt"), 0))),
              "annotation,7 voronoi,-2 gdt,0");

    EXPECT_TRUE(!stoFileNotReadableException("").file_name().is_null() &&
                stoFileNotReadableException(utString()).file_name().is_null());
}

// Deleting through stoException* must run the most derived destructor, the
// application's own one here.
TEST(ExceptionThrow, CountedOwnerDeletesThroughTheVirtualDestructor)
{
    int destroyed = 0;
    try {
        throw new AppReadFailure(&destroyed);
    } catch (stoException* e) {
        stoExceptioncoPrf owner(e);
        {
            stoExceptioncoPrf shared = owner;
            EXPECT_EQ(owner.count(), 2);
        }
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

}  // namespace
