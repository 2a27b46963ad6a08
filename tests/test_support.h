// Helpers shared by the tests: readable descriptions of types and classes.
#pragma once

#include <sto.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <sstream>
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

// The store exception of kind E that f throws, now the caller's; null when f
// throws nothing or another kind (which is deleted).
template <class E, class F>
std::unique_ptr<E> caught(F&& f)
{
    try {
        f();
    } catch (stoException* e) {
        if (E* x = E::ut_dynamic_cast(e))
            return std::unique_ptr<E>(x);
        delete e;
    }
    return nullptr;
}

// The store file a writer makes of an object; a failed write is a test
// failure unless `ok` is given to receive the writer's answer.
inline std::string written(void const* object, stoTypeHandle const& type, int* ok = nullptr)
{
    std::ostringstream os;
    int result = stoFileWriter().write(os, object, type);
    if (ok)
        *ok = result;
    else
        EXPECT_EQ(result, 1);
    return os.str();
}

// Base64 as the writer lays it out: lines of 60 characters, each followed
// by `line_end`, then an empty line.
inline std::string base64_block(const std::vector<unsigned char>& bytes, const std::string& line_end = "\n")
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string data;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::size_t n = bytes.size() - i < 3 ? bytes.size() - i : 3;  // bytes in this group
        unsigned int group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (k < n ? bytes[i + k] : 0u);
        for (std::size_t k = 0; k < 4; ++k)  // n bytes make n + 1 characters
            data += k <= n ? alphabet[(group >> (18 - 6 * k)) & 63] : '=';
    }
    std::string block;
    for (std::size_t i = 0; i < data.size(); i += 60)
        block += data.substr(i, 60) + line_end;
    return block + line_end;
}

// Members of a class's own, by name, and of object values.
inline stoMemberHandle slot(stoClass const* c, char const* name) { return c->find_member(c->name(), name); }
inline auto member_type(stoClass const* c, char const* name) { return c->member(slot(c, name))->type(); }
inline void set_member(stoObject* o, char const* name, stoValue* v)
{
    o->set_member(slot(o->type(), name), v);
}
inline stoValue const* member_value(stoValue const* object, char const* name)
{
    stoObject const* o = sto_as_object(object);
    stoMemberHandle h = slot(o->type(), name);
    return h.invalid() ? nullptr : o->member(h);
}
inline stoPtrValue const* pointer_value(stoValue const* object, char const* name)
{
    return sto_as_ptr(member_value(object, name));
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
    if (stoPtrType const* p = stoPtrType::sto_dynamic_cast(o.type(), o.ptr()))
        return (kind == "stoPtrType" ? "ptr(" : kind == "stoPrgType" ? "prg(" : "prf(") +
               describe(p->pointee_type()) + ")";
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
    for (stoClassBaseIT it(c); ++it;)
        out.push_back(it()->base_class()->name().str() + "@" + std::to_string(it()->offset()));
    return out;
}

// "name:type" for each direct member, in order.
inline std::vector<std::string> members_of(stoClass const* c)
{
    std::vector<std::string> out;
    for (stoClassMemberIT it(c); ++it;)
        out.push_back(it()->name().str() + ":" + describe(it()->type()));
    return out;
}

// "Declaring::name@offset" for each entry of the flattened table.
inline std::vector<std::string> table_of(stoClass const* c)
{
    std::vector<std::string> out;
    for (stoInheritedMemberIT it(c); ++it;)
        out.push_back(it()->declaring_class()->name().str() + "::" + it()->name().str() + "@" +
                      std::to_string(it.offset()));
    return out;
}

}  // namespace sto_test
