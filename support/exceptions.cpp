#include "support/exceptions.h"

#include "types/class.h"

const utTypeID stoException::s_ut_type_id(utTypeMakerDefault, "stoException");

// Identity, kind test (own identity, else the base's answer) and checked
// down-cast of one class of the tree.
#define STO_EXCEPTION_KIND_DEFINE(X, BASE)                                       \
    const utTypeID X::s_ut_type_id(utTypeMakerDefault, #X);                      \
    int X::ut_is_kind_of(const utTypeID& id) const                               \
    {                                                                            \
        return id == s_ut_type_id ? 1 : BASE::ut_is_kind_of(id);                 \
    }                                                                            \
    X* X::ut_dynamic_cast(const stoException* e)                                 \
    {                                                                            \
        return e && e->ut_is_kind_of(s_ut_type_id) ? static_cast<X*>(const_cast<stoException*>(e)) : nullptr; \
    }

STO_EXCEPTION_KIND_DEFINE(stoCPPToFileException, stoException)
STO_EXCEPTION_KIND_DEFINE(stoFileWriteFailureException, stoCPPToFileException)
STO_EXCEPTION_KIND_DEFINE(stoFileToCPPException, stoException)
STO_EXCEPTION_KIND_DEFINE(stoFileReadFailureException, stoFileToCPPException)
STO_EXCEPTION_KIND_DEFINE(stoSynthesiserException, stoFileToCPPException)
STO_EXCEPTION_KIND_DEFINE(stoMigrationFailureException, stoFileToCPPException)
STO_EXCEPTION_KIND_DEFINE(stoFileNotReadableException, stoFileReadFailureException)
STO_EXCEPTION_KIND_DEFINE(stoFileTooLargeException, stoFileReadFailureException)
STO_EXCEPTION_KIND_DEFINE(stoMissingClassException, stoFileReadFailureException)
STO_EXCEPTION_KIND_DEFINE(stoMissingSchemaException, stoFileReadFailureException)
STO_EXCEPTION_KIND_DEFINE(stoNoCurrentEquivalentException, stoFileReadFailureException)
STO_EXCEPTION_KIND_DEFINE(stoNoCurrentSchemaException, stoFileReadFailureException)
STO_EXCEPTION_KIND_DEFINE(stoSchemaNotInMemoryException, stoFileReadFailureException)
STO_EXCEPTION_KIND_DEFINE(stoIntTooBigException, stoSynthesiserException)
STO_EXCEPTION_KIND_DEFINE(stoNonFiniteNumberException, stoFileWriteFailureException)

utString stoFileNotReadableException::explanation() const { return utString("File '") + m_file_name + "' missing or not readable"; }
utString stoFileTooLargeException::explanation() const { return "File too large"; }
utString stoMissingClassException::explanation() const { return "Class missing from schema"; }
utString stoMissingSchemaException::explanation() const { return "Missing schema file"; }
utString stoNoCurrentSchemaException::explanation() const { return "No current schema file"; }
utString stoSchemaNotInMemoryException::explanation() const { return "File written using schema not in memory"; }
utString stoIntTooBigException::explanation() const { return "File contains an integer out of the expected range"; }
utString stoNonFiniteNumberException::explanation() const
{
    return "Cannot write a non-finite number (infinity or NaN)";
}

utString stoNoCurrentEquivalentException::explanation() const
{
    return utString("Class and bases do not exist in current schema for class ") +
           (m_missing ? m_missing->name() : utString(""));
}
