// The exception family as callers meet it: the kind test across the
// branches of the tree, checked down-casts, the exact one-line texts, and
// heap objects thrown by the store's own operations, caught through a base
// and released through the virtual destructor.
#include "test_support.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

stoSchema* sto_schema_exf()
{
    static stoSchema* s_schema = nullptr;
    if (!s_schema)
        s_schema = sto_system()->save(new stoSchema("exception_family_test", 1));
    return s_schema;
}

int g_destroyed = 0;

// An application's failure: its destructor runs only through the virtual one.
struct exfAppFailure : stoSynthesiserException {
    ~exfAppFailure() override { ++g_destroyed; }
    utString explanation() const override { return "application failure"; }
    std::vector<int> m_payload = std::vector<int>(16, 1);
};

stoSchemaID const& some_schema()
{
    static stoSchemaID const id(utString("geometry"), 3);
    return id;
}

}  // namespace

class exfThing {
    STO_PERSISTENT(exfThing)
public:
    virtual ~exfThing() = default;
    int m_size = 0;
};
STO_DECLARE_CLASS(exfThing)

STO_CLASS(exfThing, sto_schema_exf())
{
    STO_MEMBER(m_size);
}

TEST(ExceptionFamily, KindTestsFollowTheBranchesOfTheTree)
{
    stoMissingSchemaException missing(some_schema());
    EXPECT_NE(missing.ut_is_kind_of(stoFileReadFailureException::ut_static_type()), 0);
    EXPECT_NE(missing.ut_is_kind_of(stoFileToCPPException::ut_static_type()), 0);
    EXPECT_NE(missing.ut_is_kind_of(stoException::ut_static_type()), 0);
    EXPECT_EQ(missing.ut_is_kind_of(stoCPPToFileException::ut_static_type()), 0);
    EXPECT_EQ(missing.ut_is_kind_of(stoMissingClassException::ut_static_type()), 0);  // a sibling

    stoIntTooBigException too_big;
    EXPECT_EQ(too_big.ut_is_kind_of(stoFileReadFailureException::ut_static_type()), 0);
    EXPECT_NE(too_big.ut_is_kind_of(stoSynthesiserException::ut_static_type()), 0);
    EXPECT_EQ(too_big.ut_is_kind_of(stoMigrationFailureException::ut_static_type()), 0);

    stoNonFiniteNumberException non_finite;
    EXPECT_NE(non_finite.ut_is_kind_of(stoFileWriteFailureException::ut_static_type()), 0);
    EXPECT_NE(non_finite.ut_is_kind_of(stoCPPToFileException::ut_static_type()), 0);
    EXPECT_EQ(non_finite.ut_is_kind_of(stoFileToCPPException::ut_static_type()), 0);

    // Checked casts: null stays null, a wrong branch gives null, a right one
    // the same object.
    EXPECT_EQ(stoFileReadFailureException::ut_dynamic_cast(nullptr), nullptr);
    EXPECT_EQ(stoIntTooBigException::ut_dynamic_cast(nullptr), nullptr);
    EXPECT_EQ(stoCPPToFileException::ut_dynamic_cast(nullptr), nullptr);
    EXPECT_EQ(stoFileReadFailureException::ut_dynamic_cast(&too_big), nullptr);
    EXPECT_EQ(stoFileToCPPException::ut_dynamic_cast(&non_finite), nullptr);
    EXPECT_EQ(stoFileWriteFailureException::ut_dynamic_cast(&missing), nullptr);
    EXPECT_EQ(stoFileToCPPException::ut_dynamic_cast(&too_big), &too_big);
    EXPECT_EQ(stoNonFiniteNumberException::ut_dynamic_cast(&non_finite), &non_finite);

    exfAppFailure app;
    EXPECT_EQ(stoSynthesiserException::ut_dynamic_cast(&app), &app);
    EXPECT_EQ(stoIntTooBigException::ut_dynamic_cast(&app), nullptr);
}

TEST(ExceptionFamily, IdentitiesAreDistinctAndStable)
{
    std::vector<utTypeID const*> ids = {
        &stoException::ut_static_type(),           &stoCPPToFileException::ut_static_type(),
        &stoFileWriteFailureException::ut_static_type(), &stoFileToCPPException::ut_static_type(),
        &stoFileReadFailureException::ut_static_type(),  &stoSynthesiserException::ut_static_type(),
        &stoMigrationFailureException::ut_static_type(), &stoFileNotReadableException::ut_static_type(),
        &stoFileTooLargeException::ut_static_type(),  &stoMissingClassException::ut_static_type(),
        &stoMissingSchemaException::ut_static_type(), &stoNoCurrentEquivalentException::ut_static_type(),
        &stoNoCurrentSchemaException::ut_static_type(), &stoSchemaNotInMemoryException::ut_static_type(),
        &stoIntTooBigException::ut_static_type(),    &stoNonFiniteNumberException::ut_static_type()};
    for (std::size_t i = 0; i < ids.size(); ++i) {
        EXPECT_TRUE(*ids[i] == *ids[i]) << ids[i]->name();
        for (std::size_t j = i + 1; j < ids.size(); ++j)
            EXPECT_TRUE(*ids[i] != *ids[j]) << ids[i]->name() << " vs " << ids[j]->name();
    }
    std::unique_ptr<stoException> e(new stoSchemaNotInMemoryException(some_schema()));
    EXPECT_TRUE(e->ut_dynamic_type() == stoSchemaNotInMemoryException::ut_static_type());
    EXPECT_TRUE(e->ut_dynamic_type() != stoFileReadFailureException::ut_static_type());
    EXPECT_STREQ(e->ut_dynamic_type().name(), "stoSchemaNotInMemoryException");
}

TEST(ExceptionFamily, ExplanationsAndAccessorsAreExact)
{
    EXPECT_EQ(stoFileNotReadableException("data.sto").explanation(), "File 'data.sto' missing or not readable");
    EXPECT_EQ(stoFileNotReadableException("").explanation(), "File '' missing or not readable");
    EXPECT_EQ(stoFileNotReadableException("data.sto").file_name(), "data.sto");
    EXPECT_EQ(stoFileTooLargeException().explanation(), "File too large");
    EXPECT_EQ(stoIntTooBigException().explanation(), "File contains an integer out of the expected range");
    EXPECT_EQ(stoNoCurrentSchemaException(some_schema()).explanation(), "No current schema file");
    EXPECT_EQ(stoSchemaNotInMemoryException(some_schema()).explanation(), "File written using schema not in memory");

    stoMissingClassException missing_class(some_schema(), "Point");
    EXPECT_EQ(missing_class.explanation(), "Class missing from schema");
    EXPECT_EQ(missing_class.schema_name(), "geometry");
    EXPECT_EQ(missing_class.schema_version(), 3);
    EXPECT_EQ(missing_class.class_id(), "Point");
    stoMissingSchemaException missing_schema(stoSchemaID(utString("gdt"), 0));
    EXPECT_EQ(missing_schema.explanation(), "Missing schema file");
    EXPECT_EQ(missing_schema.schema_name(), "gdt");
    EXPECT_EQ(missing_schema.version(), 0);

    stoNoCurrentEquivalentException no_equivalent(sto_class_exfThing());
    EXPECT_EQ(no_equivalent.missing_class(), sto_class_exfThing());
    EXPECT_EQ(no_equivalent.explanation(), "Class and bases do not exist in current schema for class exfThing");
}

TEST(ExceptionFamily, TheStoreThrowsHeapObjectsThatBaseCatchesOwn)
{
    // From a value too wide for 32 bits, caught by its branch.
    try {
        (void)stoIntValue(stoIntValue64Tag, 1LL << 40).value();
        ADD_FAILURE() << "expected a throw";
    } catch (stoSynthesiserException* e) {
        stoExceptioncoPrf owner(e);
        EXPECT_NE(stoIntTooBigException::ut_dynamic_cast(e), nullptr);
        EXPECT_EQ(e->explanation(), "File contains an integer out of the expected range");
    }
    // From a 4-byte cell: nothing written.
    int cell = 5;
    try {
        stoIntType::int_to_raw(-(1LL << 40), stoRWRawPtr(sto_type_int(), &cell, 4));
        ADD_FAILURE() << "expected a throw";
    } catch (stoFileToCPPException* e) {
        stoExceptioncoPrf owner(e);
        EXPECT_TRUE(e->ut_dynamic_type() == stoIntTooBigException::ut_static_type());
    }
    EXPECT_EQ(cell, 5);
    stoIntType::int_to_raw(-(1LL << 31), stoRWRawPtr(sto_type_int(), &cell, 4));
    EXPECT_EQ(cell, -2147483647 - 1);

    // From a stream size that does not fit a signed 32-bit size.
    EXPECT_EQ(streamsize_to_stoMemorySize(2147483647LL), 2147483647);
    try {
        (void)streamsize_to_stoMemorySize(1LL << 31);
        ADD_FAILURE() << "expected a throw";
    } catch (stoException* e) {
        stoExceptioncoPrf owner(e);
        EXPECT_NE(stoFileTooLargeException::ut_dynamic_cast(e), nullptr);
        EXPECT_NE(stoFileReadFailureException::ut_dynamic_cast(e), nullptr);
    }

    // An application's failure, caught as the root and shared before release.
    g_destroyed = 0;
    try {
        throw new exfAppFailure();
    } catch (stoException* e) {
        stoExceptioncoPrf owner(e);
        stoExceptioncoPrf second = owner;
        EXPECT_EQ(owner.count(), 2);
        EXPECT_EQ(second->explanation(), "application failure");
        EXPECT_EQ(stoFileReadFailureException::ut_dynamic_cast(e), nullptr);
    }
    EXPECT_EQ(g_destroyed, 1);
}
