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
#include <type_traits>
#include <vector>

namespace {

// ------------------------------------------------------------ the class table

// One class of the tree, seen through its static kind-test members and,
// independently, through the language's own RTTI.
struct KindEntry {
    std::string name;
    const utTypeID* id;
    std::function<void*(const stoException*)> ut_cast;
    std::function<bool(const stoException*)> rtti_is;
};

template <class X>
KindEntry entry(char const* name)
{
    return {name, &X::ut_static_type(),
            [](const stoException* e) -> void* { return X::ut_dynamic_cast(e); },
            [](const stoException* e) { return dynamic_cast<const X*>(e) != nullptr; }};
}

std::vector<KindEntry> const& all_classes()
{
    static std::vector<KindEntry> const table = {
        entry<stoException>("stoException"),
        entry<stoCPPToFileException>("stoCPPToFileException"),
        entry<stoFileWriteFailureException>("stoFileWriteFailureException"),
        entry<stoFileToCPPException>("stoFileToCPPException"),
        entry<stoFileReadFailureException>("stoFileReadFailureException"),
        entry<stoFileNotReadableException>("stoFileNotReadableException"),
        entry<stoFileTooLargeException>("stoFileTooLargeException"),
        entry<stoMissingClassException>("stoMissingClassException"),
        entry<stoMissingSchemaException>("stoMissingSchemaException"),
        entry<stoNoCurrentEquivalentException>("stoNoCurrentEquivalentException"),
        entry<stoNoCurrentSchemaException>("stoNoCurrentSchemaException"),
        entry<stoSchemaNotInMemoryException>("stoSchemaNotInMemoryException"),
        entry<stoSynthesiserException>("stoSynthesiserException"),
        entry<stoIntTooBigException>("stoIntTooBigException"),
        entry<stoMigrationFailureException>("stoMigrationFailureException"),
        entry<stoNonFiniteNumberException>("stoNonFiniteNumberException"),
    };
    return table;
}

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

// A concrete class, a way to make one, the identity it reports and every
// class it must count as.
struct ConcreteCase {
    std::string name;
    std::string identity;
    std::function<stoException*()> make;
    std::set<std::string> kinds;
};

std::vector<ConcreteCase> const& concrete_classes()
{
    static std::set<std::string> const read_failure = {"stoException", "stoFileToCPPException",
                                                       "stoFileReadFailureException"};
    auto with = [](std::set<std::string> s, char const* own) {
        s.insert(own);
        return s;
    };
    static stoSchemaID const schema(utString("geometry"), 3);
    static std::vector<ConcreteCase> const table = {
        {"stoFileNotReadableException", "stoFileNotReadableException",
         [] { return new stoFileNotReadableException("a.sto"); },
         with(read_failure, "stoFileNotReadableException")},
        {"stoFileTooLargeException", "stoFileTooLargeException",
         [] { return new stoFileTooLargeException(); },
         with(read_failure, "stoFileTooLargeException")},
        {"stoMissingClassException", "stoMissingClassException",
         [] { return new stoMissingClassException(schema, "Point"); },
         with(read_failure, "stoMissingClassException")},
        {"stoMissingSchemaException", "stoMissingSchemaException",
         [] { return new stoMissingSchemaException(schema); },
         with(read_failure, "stoMissingSchemaException")},
        {"stoNoCurrentEquivalentException", "stoNoCurrentEquivalentException",
         [] { return new stoNoCurrentEquivalentException(nullptr); },
         with(read_failure, "stoNoCurrentEquivalentException")},
        {"stoNoCurrentSchemaException", "stoNoCurrentSchemaException",
         [] { return new stoNoCurrentSchemaException(schema); },
         with(read_failure, "stoNoCurrentSchemaException")},
        {"stoSchemaNotInMemoryException", "stoSchemaNotInMemoryException",
         [] { return new stoSchemaNotInMemoryException(schema); },
         with(read_failure, "stoSchemaNotInMemoryException")},
        {"stoIntTooBigException", "stoIntTooBigException",
         [] { return new stoIntTooBigException(); },
         {"stoException", "stoFileToCPPException", "stoSynthesiserException", "stoIntTooBigException"}},
        {"stoNonFiniteNumberException", "stoNonFiniteNumberException",
         [] { return new stoNonFiniteNumberException(); },
         {"stoException", "stoCPPToFileException", "stoFileWriteFailureException", "stoNonFiniteNumberException"}},
        // Application classes have no identity of their own: they answer
        // with their base's and are found by its kind test.
        {"AppMigrationFailure", "stoMigrationFailureException",
         [] { return new AppMigrationFailure(); },
         {"stoException", "stoFileToCPPException", "stoMigrationFailureException"}},
        {"AppReadFailure", "stoFileReadFailureException",
         [] {
             static int destroyed;
             return new AppReadFailure(&destroyed);
         },
         read_failure},
    };
    return table;
}

const utTypeID& id_named(std::string const& name)
{
    for (KindEntry const& k : all_classes())
        if (k.name == name)
            return *k.id;
    ADD_FAILURE() << "no class " << name << " in the table";
    return stoException::ut_static_type();
}

// Only classes that name a failure can be made; the others exist to group
// failures for catch clauses and for the kind test.
static_assert(std::is_abstract_v<stoException>);
static_assert(std::is_abstract_v<stoCPPToFileException>);
static_assert(std::is_abstract_v<stoFileWriteFailureException>);
static_assert(std::is_abstract_v<stoFileToCPPException>);
static_assert(std::is_abstract_v<stoFileReadFailureException>);
static_assert(std::is_abstract_v<stoSynthesiserException>);
static_assert(std::is_abstract_v<stoMigrationFailureException>);
static_assert(!std::is_abstract_v<stoFileTooLargeException>);
static_assert(!std::is_abstract_v<stoIntTooBigException>);
static_assert(!std::is_abstract_v<stoNonFiniteNumberException>);
static_assert(std::has_virtual_destructor_v<stoException>);
static_assert(std::is_same_v<stoExceptioncoPrf, coPrf<stoException>>);

// ------------------------------------------------------------ kind tests

// Every concrete class (and the application's own failures) against
// every class of the tree. The kind test walks a chain of bases written out
// by hand, while catch clauses go by the language's inheritance: the kind
// test, the checked cast and dynamic_cast must all agree, and a successful
// cast must not move the pointer.
TEST(ExceptionKind, EveryConcreteClassAgainstEveryClass)
{
    for (ConcreteCase const& c : concrete_classes()) {
        std::unique_ptr<stoException> e(c.make());
        EXPECT_EQ(&e->ut_dynamic_type(), &id_named(c.identity)) << c.name;
        for (KindEntry const& k : all_classes()) {
            SCOPED_TRACE(c.name + " as " + k.name);
            bool const expected = c.kinds.count(k.name) != 0;
            EXPECT_EQ(e->ut_is_kind_of(*k.id), expected ? 1 : 0);
            EXPECT_EQ(k.rtti_is(e.get()), expected);
            void* cast = k.ut_cast(e.get());
            if (expected) {
                EXPECT_EQ(cast, static_cast<void*>(e.get()));
            } else {
                EXPECT_EQ(cast, nullptr);
            }
        }
    }
}

// Each class's identity carries its name; the matrix above shows that no two
// share one. Down-casts of null stay null.
TEST(ExceptionKind, IdentitiesAreNamedAndNullCastsToNull)
{
    for (KindEntry const& k : all_classes()) {
        EXPECT_STREQ(k.id->name(), k.name.c_str());
        EXPECT_EQ(k.ut_cast(nullptr), nullptr) << k.name;
    }
}

// ------------------------------------------------------------ explanations

// Through the base pointer, as a catch site sees them.
TEST(ExceptionExplanation, Texts)
{
    stoSchemaID const id(utString("s"), 1);
    stoClass const* cls = sto_class_stoSchemaID();
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
        {new stoNoCurrentEquivalentException(cls),
         "Class and bases do not exist in current schema for class stoSchemaID"},
    };
    for (auto& [e, text] : cases) {
        stoExceptioncoPrf owner(e);
        EXPECT_EQ(e->explanation(), text) << e->ut_dynamic_type().name();
    }
}

// ------------------------------------------------------------ accessors

// The schema identity is copied in: the exception outlives the identity it
// was made from, as it does when thrown out of the scope that made it.
TEST(ExceptionAccessors, SchemaIdentityIsCopied)
{
    std::unique_ptr<stoMissingClassException> missing_class;
    std::unique_ptr<stoMissingSchemaException> missing_schema;
    std::unique_ptr<stoNoCurrentSchemaException> no_current;
    std::unique_ptr<stoSchemaNotInMemoryException> not_in_memory;
    {
        stoSchemaID id(utString("annotation"), 7);
        utString class_id("annNote");
        missing_class.reset(new stoMissingClassException(id, class_id));
        missing_schema.reset(new stoMissingSchemaException(id));
        no_current.reset(new stoNoCurrentSchemaException(stoSchemaID(utString("gdt"), 0)));
        not_in_memory.reset(new stoSchemaNotInMemoryException(stoSchemaID(utString("voronoi"), -2)));
        class_id += "_changed";
    }
    EXPECT_EQ(missing_class->schema_name(), "annotation");
    EXPECT_EQ(missing_class->schema_version(), 7);
    EXPECT_EQ(missing_class->class_id(), "annNote");
    EXPECT_EQ(missing_schema->schema_name(), "annotation");
    EXPECT_EQ(missing_schema->version(), 7);
    EXPECT_EQ(no_current->schema_name(), "gdt");
    EXPECT_EQ(no_current->version(), 0);
    EXPECT_EQ(not_in_memory->schema_name(), "voronoi");
    EXPECT_EQ(not_in_memory->version(), -2);
}

TEST(ExceptionAccessors, AFileNameKeepsNullApartFromEmpty)
{
    EXPECT_EQ(stoFileNotReadableException("").file_name().is_null(), 0);
    EXPECT_NE(stoFileNotReadableException(utString()).file_name().is_null(), 0);
    stoClass const* cls = sto_class_stoSchemaID();
    EXPECT_EQ(stoNoCurrentEquivalentException(cls).missing_class(), cls);
}

// ------------------------------------------------------------ throwing and ownership

// The store's catch sites rely on the clauses picking by branch: a
// synthesiser failure must pass a read-failure clause and land in the
// general file-to-objects one; a write failure must pass both.
TEST(ExceptionThrow, CatchClausesFollowTheBranches)
{
    auto which = [](auto throw_it) -> std::string {
        try {
            try {
                throw_it();
            } catch (stoFileReadFailureException* e) {
                delete e;
                return "read failure";
            } catch (stoFileToCPPException* e) {
                delete e;
                return "file to objects";
            }
        } catch (stoException* e) {
            delete e;
            return "passed on";
        }
        return "nothing thrown";
    };
    EXPECT_EQ(which([] { throw new stoNoCurrentSchemaException(stoSchemaID(utString("s"), 1)); }), "read failure");
    EXPECT_EQ(which([] { throw new stoIntTooBigException(); }), "file to objects");
    EXPECT_EQ(which([] { throw new AppMigrationFailure(); }), "file to objects");
    EXPECT_EQ(which([] { throw new stoNonFiniteNumberException(); }), "passed on");
}

// Deleting through stoException* must run the most derived destructor: the
// application's own one, and the one that lets go of a held string.
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
        EXPECT_EQ(owner->explanation(), "application read failure");
    }
    EXPECT_EQ(destroyed, 1);

    utString name("held.sto");
    {
        stoExceptioncoPrf owner(new stoFileNotReadableException(name));
        EXPECT_EQ(name.share_count(), 2);
    }
    EXPECT_EQ(name.share_count(), 1);
}

} // namespace
