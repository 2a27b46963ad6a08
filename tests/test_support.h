// Helpers shared by the tests: readable descriptions of types and classes.
#pragma once

#include <sto.h>

#include <map>
#include <string>
#include <vector>

namespace sto_test {

// A schema saved in the system on first use and kept for the whole run, for
// the classes a test file describes with the macros.
inline stoSchema* saved_schema(char const* name, int version)
{
    static std::map<std::string, stoSchema*> saved;
    stoSchema*& schema = saved[name];
    if (!schema)
        schema = sto_system()->save(new stoSchema(name, version));
    return schema;
}

// "int", "utString", "stoClass", "ptr(stoClass)", "prg(stoBase)",
// "prf(annStyle)", "handle", "fixed(double,3)", "var(int)", "mapped(M)".
inline std::string describe(stoTypeHandle const& t)
{
    if (t.is_null())
        return "null";
    stoObjectPtr o = t->sto_object();
    std::string kind = o.type()->name().str();
    if (stoClass const* c = stoClass::sto_dynamic_cast(o.type(), o.ptr()))
        return c->name().str();
    if (stoBasic const* b = stoBasic::sto_dynamic_cast(o.type(), o.ptr()))
        return b->name().str();
    if (kind == "stoByteArrayType")
        return "stoByteArray";
    if (kind == "stoTypeHandleType")
        return "handle";
    if (stoPtrType const* p = stoPtrType::sto_dynamic_cast(o.type(), o.ptr())) {
        std::string inner = describe(p->pointee_type());
        if (kind == "stoPtrType")
            return "ptr(" + inner + ")";
        if (kind == "stoPrgType")
            return "prg(" + inner + ")";
        return "prf(" + inner + ")";
    }
    if (stoFixedArrayType const* f = stoFixedArrayType::sto_dynamic_cast(o.type(), o.ptr()))
        return "fixed(" + describe(f->element_type()) + "," + std::to_string(f->number_of_elements()) + ")";
    if (stoVariableArrayType const* v = stoVariableArrayType::sto_dynamic_cast(o.type(), o.ptr()))
        return "var(" + describe(v->element_type()) + ")";
    if (stoMappedType const* m = stoMappedType::sto_dynamic_cast(o.type(), o.ptr()))
        return "mapped(" + m->mapper()->name().str() + ")";
    return "?" + kind;
}

// "Base@offset" for each declared base, in order.
inline std::vector<std::string> bases_of(stoClass const* c)
{
    std::vector<std::string> out;
    stoClassBaseIT it(c);
    while (++it)
        out.push_back(it()->base_class()->name().str() + "@" + std::to_string(it()->offset()));
    return out;
}

// "name:type" for each direct member, in order.
inline std::vector<std::string> members_of(stoClass const* c)
{
    std::vector<std::string> out;
    stoClassMemberIT it(c);
    while (++it)
        out.push_back(it()->name().str() + ":" + describe(it()->type()));
    return out;
}

// "Declaring::name@offset" for each entry of the flattened table.
inline std::vector<std::string> table_of(stoClass const* c)
{
    std::vector<std::string> out;
    stoInheritedMemberIT it(c);
    while (++it)
        out.push_back(it()->declaring_class()->name().str() + "::" + it()->name().str() + "@" +
                      std::to_string(it.offset()));
    return out;
}

}  // namespace sto_test
