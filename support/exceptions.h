// The exception family of the store.
//
// Conversion failures are thrown as pointers to heap objects of this tree,
// `throw new stoMissingSchemaException(id)`; whoever catches one owns it and
// deletes it through the virtual destructor (the store's own catch sites
// hold them in a stoExceptioncoPrf). The tree sorts failures by direction:
// live objects to file (stoCPPToFileException) and file to live objects
// (stoFileToCPPException). It carries its own kind test built on utTypeID, so
// callers can tell a caught exception's kind without the language's RTTI.
//
//   try { ... } catch (stoException* e) {
//       stoExceptioncoPrf owner(e);
//       if (stoFileReadFailureException::ut_dynamic_cast(e)) ...
//       std::cerr << e->explanation() << "\n";
//   }
#pragma once

#include "platform/co_pointers.h"
#include "platform/ut_string.h"
#include "platform/ut_typeid.h"
#include "types/schema_id.h"

class stoClass;

// The kind-test members every class of the tree declares.
#define STO_EXCEPTION_KIND(X)                                                   \
public:                                                                         \
    static const utTypeID s_ut_type_id;                                         \
    static const utTypeID& ut_static_type() { return s_ut_type_id; }            \
    const utTypeID& ut_dynamic_type() const override { return s_ut_type_id; }   \
    int ut_is_kind_of(const utTypeID& id) const override;                       \
    static X* ut_dynamic_cast(const stoException* e);

// An abstract class of the tree: the kind-test members, with explanation()
// restated as pure. These classes only group failures for catch sites; the
// text belongs to the classes that name what actually went wrong.
#define STO_EXCEPTION_ABSTRACT(X)                                               \
    STO_EXCEPTION_KIND(X)                                                       \
    utString explanation() const override = 0;

class stoException {
public:
    static const utTypeID s_ut_type_id;
    static const utTypeID& ut_static_type() { return s_ut_type_id; }
    static stoException* ut_dynamic_cast(const stoException* e) { return const_cast<stoException*>(e); }

    virtual utString explanation() const = 0;
    virtual ~stoException() = default;
    virtual const utTypeID& ut_dynamic_type() const { return s_ut_type_id; }
    virtual int ut_is_kind_of(const utTypeID& id) const { return id == s_ut_type_id; }

    stoException() = default;

protected:
    stoException(stoException const&) = default;
    stoException& operator=(stoException const&) = default;
};

using stoExceptioncoPrf = coPrf<stoException>;

// ------------------------------------------------------ the abstract classes

class stoCPPToFileException : public stoException {
    STO_EXCEPTION_ABSTRACT(stoCPPToFileException)
};

class stoFileWriteFailureException : public stoCPPToFileException {
    STO_EXCEPTION_ABSTRACT(stoFileWriteFailureException)
};

class stoFileToCPPException : public stoException {
    STO_EXCEPTION_ABSTRACT(stoFileToCPPException)
};

class stoFileReadFailureException : public stoFileToCPPException {
    STO_EXCEPTION_ABSTRACT(stoFileReadFailureException)
};

class stoSynthesiserException : public stoFileToCPPException {
    STO_EXCEPTION_ABSTRACT(stoSynthesiserException)
};

class stoMigrationFailureException : public stoFileToCPPException {
    STO_EXCEPTION_ABSTRACT(stoMigrationFailureException)
};

// ------------------------------------------------------ the concrete classes

class stoFileNotReadableException : public stoFileReadFailureException {
    STO_EXCEPTION_KIND(stoFileNotReadableException)
public:
    explicit stoFileNotReadableException(const utString& file_name) : m_file_name(file_name) {}
    utString explanation() const override;
    utString file_name() const { return m_file_name; }

private:
    utString m_file_name;
};

class stoFileTooLargeException : public stoFileReadFailureException {
    STO_EXCEPTION_KIND(stoFileTooLargeException)
public:
    utString explanation() const override;
};

class stoMissingClassException : public stoFileReadFailureException {
    STO_EXCEPTION_KIND(stoMissingClassException)
public:
    stoMissingClassException(const stoSchemaID& schema, const utString& class_id)
        : m_schema(schema), m_class_id(class_id) {}
    utString explanation() const override;
    utString schema_name() const { return m_schema.name(); }
    int schema_version() const { return m_schema.version(); }
    const utString& class_id() const { return m_class_id; }

private:
    stoSchemaID m_schema;
    utString m_class_id;
};

class stoMissingSchemaException : public stoFileReadFailureException {
    STO_EXCEPTION_KIND(stoMissingSchemaException)
public:
    explicit stoMissingSchemaException(const stoSchemaID& schema) : m_schema(schema) {}
    utString explanation() const override;
    utString schema_name() const { return m_schema.name(); }
    int version() const { return m_schema.version(); }

private:
    stoSchemaID m_schema;
};

// Carries a class that must still exist when the explanation is asked for.
class stoNoCurrentEquivalentException : public stoFileReadFailureException {
    STO_EXCEPTION_KIND(stoNoCurrentEquivalentException)
public:
    explicit stoNoCurrentEquivalentException(const stoClass* missing) : m_missing(missing) {}
    utString explanation() const override;
    const stoClass* missing_class() const { return m_missing; }

private:
    const stoClass* m_missing;
};

class stoNoCurrentSchemaException : public stoFileReadFailureException {
    STO_EXCEPTION_KIND(stoNoCurrentSchemaException)
public:
    explicit stoNoCurrentSchemaException(const stoSchemaID& schema) : m_schema(schema) {}
    utString explanation() const override;
    utString schema_name() const { return m_schema.name(); }
    int version() const { return m_schema.version(); }

private:
    stoSchemaID m_schema;
};

class stoSchemaNotInMemoryException : public stoFileReadFailureException {
    STO_EXCEPTION_KIND(stoSchemaNotInMemoryException)
public:
    explicit stoSchemaNotInMemoryException(const stoSchemaID& schema) : m_schema(schema) {}
    utString explanation() const override;
    utString schema_name() const { return m_schema.name(); }
    int version() const { return m_schema.version(); }

private:
    stoSchemaID m_schema;
};

class stoIntTooBigException : public stoSynthesiserException {
    STO_EXCEPTION_KIND(stoIntTooBigException)
public:
    utString explanation() const override;
};

// A file has no literal for infinities and NaNs, so writing one fails before
// anything is printed.
class stoNonFiniteNumberException : public stoFileWriteFailureException {
    STO_EXCEPTION_KIND(stoNonFiniteNumberException)
public:
    utString explanation() const override;
};
