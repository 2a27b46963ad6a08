// Mappers convert the live objects of a class to values and back. Every
// class holds one; ordinary classes share the standard mapper of the "store"
// schema, which converts an object member by member from its description.
#pragma once

#include "types/persistent.h"
#include "types/system.h"
#include "types/type.h"
#include "values/raw_ptr.h"

class stoAnalyser;
class stoSynthesiser;
class stoValue;

class stoMapper : public stoSchemaObject {
    STO_PERSISTENT(stoMapper)
public:
    // Enters the mapper into the schema, which owns it from then on.
    stoMapper(stoSchema* schema, utString const& name);
    virtual ~stoMapper() = default;

    virtual stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const = 0;
    virtual void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const = 0;

protected:
    stoMapper() = default;
};
STO_DECLARE_CLASS(stoMapper)

class stoStandardMapper : public stoMapper {
    STO_PERSISTENT(stoStandardMapper)
public:
    stoStandardMapper(stoSchema* schema, utString const& name) : stoMapper(schema, name) {}

    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;

protected:
    stoStandardMapper() = default;
};
STO_DECLARE_CLASS(stoStandardMapper)

// The one standard mapper of the "store" schema.
stoStandardMapper const* sto_mapper_stoStandardMapper();

// A mapper for an opaque class, whose live layout is not described: an
// object is converted through a model object of a described class. A
// generated subclass (STO_CLASS_MAPPER in types/describe.h) supplies the copies
// between the two. When synthesising, the opaque object is filled only at
// the synthesiser's clean-up, once every pointer in the model is final.
class stoClassMapper : public stoMapper {
    STO_PERSISTENT(stoClassMapper)
public:
    stoClassMapper(stoSchema* schema, utString const& name) : stoMapper(schema, name) {}

    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;

    // The described class that stands in for the opaque class.
    virtual stoClass const* model_class(stoClass const* opaque) const = 0;
    // Fills the model object from the opaque object.
    virtual void opaque_to_model(stoObjectPtr const& opaque, stoObjectPtr const& model) const = 0;
    // Fills the opaque object from the model object.
    virtual void model_to_opaque(stoObjectPtr const& model, stoObjectPtr const& opaque) const = 0;

protected:
    stoClassMapper() = default;
};
STO_DECLARE_CLASS(stoClassMapper)

// A mapper for a container class: the container is presented as an object
// of its registered class with the members "m_size" (the element count) and
// "m_array" (a variable array of the elements). A subclass says how to reach
// the container's count field, its storage field and its elements, and how to
// empty it and grow it; elements need not be contiguous.
class stoContainerMapper : public stoMapper {
public:
    stoContainerMapper(stoSchema* schema, utString const& name) : stoMapper(schema, name) {}

    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;

    virtual int container_size(void const* container) const = 0;
    // The container's own int count field.
    virtual void const* count_field(void const* container) const = 0;
    // The field through which the container holds its storage.
    virtual void const* storage_field(void const* container) const = 0;
    virtual void* element_address(void* container, int i) const = 0;
    // Empties the container, then grows it to n default elements.
    virtual void reset(void* container, int n) const = 0;

protected:
    stoContainerMapper() = default;
};

// A member whose conversion is wholly a mapper's; its values are
// stoMappedValue. Mapped types create no instances of their own.
class stoMappedType : public stoType {
    STO_PERSISTENT(stoMappedType)
public:
    static stoTypeHandle make(stoMapper const* mapper, int size);
    stoMapper const* mapper() const { return m_mapper; }

    int process(stoProcessType* p) const override;
    int size() const override { return m_size; }
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override { return nullptr; }
    void destroy(void*) const override {}
    void* create_array(int) const override { return nullptr; }
    void destroy_array(void*, int) const override {}
    // Same kind and equal mappers (as schema objects); sizes are not compared.
    int operator==(stoType const& other) const override;
    unsigned int hash() const override;

protected:
    stoMappedType(stoMapper const* mapper, int size) : m_mapper(mapper), m_size(size) {}
    stoMappedType() : m_mapper(nullptr), m_size(0) {}

    stoMapper const* m_mapper;
    int m_size;
};
STO_DECLARE_CLASS(stoMappedType)
