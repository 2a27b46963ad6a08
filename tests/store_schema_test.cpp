// The store's own classes as the "store" schema describes them. Files name
// these bases and members in this order, so any drift here breaks every
// schema file ever written.
#include "test_support.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

using sto_test::members_of;

namespace {

struct Expected {
    stoClass const* (*cls)();
    char const* name;
    bool abstract;
    std::vector<std::string> bases;
    std::vector<std::string> members;
};

std::vector<std::string> base_names(stoClass const* c)
{
    std::vector<std::string> out;
    stoClassBaseIT it(c);
    while (++it)
        out.push_back(it()->base_class()->name().str());
    return out;
}

std::vector<Expected> const& expected_classes()
{
    static std::vector<Expected> const table = {
        {sto_class_stoStubbable, "stoStubbable", true, {}, {}},
        {sto_class_stoSystem, "stoSystem", false, {"stoStubbable"},
         {"m_version:int", "m_schema_chain:prg(stoSchemaLink)"}},
        {sto_class_stoSchema, "stoSchema", false, {"stoStubbable"},
         {"m_system:ptr(stoSystem)", "m_schema_id:stoSchemaID", "m_last_binding:ptr(stoSchemaTypeBinding)",
          "m_binding_chain:prg(stoSchemaTypeBinding)", "m_unnamed_type_chain:prg(stoUnnamedType)"}},
        {sto_class_stoSchemaID, "stoSchemaID", false, {}, {"m_name:utString", "m_version:int"}},
        {sto_class_stoSchemaObject, "stoSchemaObject", true, {"stoStubbable"},
         {"m_schema:ptr(stoSchema)", "m_name:utString"}},
        {sto_class_stoSchemaLink, "stoSchemaLink", false, {},
         {"m_next:prg(stoSchemaLink)", "m_schema:prg(stoSchema)"}},
        {sto_class_stoType, "stoType", true, {}, {"m_handle:handle"}},
        {sto_class_stoTypeOwner, "stoTypeOwner", false, {}, {"m_type:prg(stoType)"}},
        {sto_class_stoUnnamedType, "stoUnnamedType", false, {},
         {"m_type:stoTypeOwner", "m_next_type:prg(stoUnnamedType)"}},
        {sto_class_stoBasic, "stoBasic", true, {"stoType", "stoSchemaObject"}, {"m_size:int"}},
        {sto_class_stoIntType, "stoIntType", false, {"stoBasic"}, {}},
        {sto_class_stoDoubleType, "stoDoubleType", false, {"stoBasic"}, {}},
        {sto_class_stoStringType, "stoStringType", false, {"stoBasic"}, {}},
        {sto_class_stoByteArrayType, "stoByteArrayType", false, {"stoType"}, {}},
        {sto_class_stoClass, "stoClass", false, {"stoType", "stoSchemaObject"},
         {"m_size:int", "m_base_chain:prg(stoBase)", "m_n_members:int", "m_member_chain:prg(stoMember)",
          "m_n_indirect_members:int", "m_inherited_members:var(stoMemberInstance)"}},
        {sto_class_stoBase, "stoBase", false, {},
         {"m_base_class:ptr(stoClass)", "m_base_offset:int", "m_next_base:prg(stoBase)"}},
        {sto_class_stoMember, "stoMember", false, {"stoStubbable"},
         {"m_class:ptr(stoClass)", "m_type:handle", "m_name:utString", "m_offset:int",
          "m_next_member:prg(stoMember)"}},
        {sto_class_stoMemberInstance, "stoMemberInstance", false, {},
         {"m_member:ptr(stoMember)", "m_offset:int"}},
        {sto_class_stoArraySize, "stoArraySize", true, {}, {}},
        {sto_class_stoOffsetArraySize, "stoOffsetArraySize", false, {"stoArraySize"},
         {"m_size_member:ptr(stoMember)"}},
        {sto_class_stoMethodArraySize, "stoMethodArraySize", false, {"stoArraySize"},
         {"m_method_name:utString"}},
        {sto_class_stoArrayType, "stoArrayType", true, {"stoType"}, {"m_type:handle"}},
        {sto_class_stoFixedArrayType, "stoFixedArrayType", false, {"stoArrayType"}, {"m_n_elements:int"}},
        {sto_class_stoVariableArrayType, "stoVariableArrayType", false, {"stoArrayType"},
         {"m_member:ptr(stoMember)", "m_array_size:prg(stoArraySize)"}},
        {sto_class_stoSchemaBinding, "stoSchemaBinding", true, {},
         {"m_schema:ptr(stoSchema)", "m_object:ptr(stoSchemaObject)", "m_prev_binding:ptr(stoSchemaBinding)",
          "m_next_binding:prg(stoSchemaBinding)"}},
        {sto_class_stoSchemaTypeBinding, "stoSchemaTypeBinding", false, {"stoSchemaBinding"},
         {"m_type:stoTypeOwner"}},
        {sto_class_stoSchemaMapperBinding, "stoSchemaMapperBinding", false, {"stoSchemaBinding"},
         {"m_mapper:prg(stoMapper)"}},
        {sto_class_stoPtrType, "stoPtrType", false, {"stoType"}, {"m_type:handle"}},
        {sto_class_stoPrgType, "stoPrgType", false, {"stoPtrType"}, {}},
        {sto_class_stoPrfType, "stoPrfType", false, {"stoPtrType"}, {}},
        {sto_class_stoTypeHandleType, "stoTypeHandleType", false, {"stoPtrType"}, {}},
        {sto_class_stoMapper, "stoMapper", true, {"stoSchemaObject"}, {}},
        {sto_class_stoStandardMapper, "stoStandardMapper", false, {"stoMapper"}, {}},
        {sto_class_stoMappedType, "stoMappedType", false, {"stoType"},
         {"m_mapper:ptr(stoMapper)", "m_size:int"}},
    };
    return table;
}

}  // namespace

// Found by name in the store schema once force-loaded (all but three that
// load on use), before anything asks for the class itself.
TEST(StoreSchema, EveryStoreClassHasItsDeclaredBasesAndMembersInOrder)
{
    sto_force_load();
    stoSchema* store = sto_schema_sto_schema();
    std::set<std::string> const loaded_on_use = {"stoTypeOwner", "stoUnnamedType", "stoStandardMapper"};
    for (Expected const& e : expected_classes())
        EXPECT_TRUE(loaded_on_use.count(e.name) || store->look_up_object(e.name)) << e.name;
    for (Expected const& e : expected_classes()) {
        SCOPED_TRACE(e.name);
        stoClass const* c = e.cls();
        EXPECT_EQ(store->look_up_object(e.name), static_cast<stoSchemaObject const*>(c));
        EXPECT_EQ(c->name(), e.name);
        EXPECT_EQ(c->schema(), store);
        EXPECT_EQ(c->is_abstract(), e.abstract ? 1 : 0);
        EXPECT_EQ(base_names(c), e.bases);
        EXPECT_EQ(members_of(c), e.members);
        EXPECT_EQ(c->mapper(), static_cast<stoMapper const*>(sto_mapper_stoStandardMapper()));
    }
    // Basic types are named objects of the store schema too.
    for (char const* name : {"int", "double", "utString", "stoByteArray"})
        EXPECT_NE(store->look_up_object(name), nullptr) << name;
}

// The flattened table lists inherited members first, and a class's second
// base sits where the compiler put it.
TEST(StoreSchema, FlattenedTableAndBaseOffsetsOfStoClassMatchTheLayout)
{
    stoClass const* c = sto_class_stoClass();
    int second = static_cast<int>(reinterpret_cast<char const*>(static_cast<stoSchemaObject const*>(c)) -
                                  reinterpret_cast<char const*>(c));
    EXPECT_GT(second, 0);
    EXPECT_EQ(sto_test::bases_of(c),
              (std::vector<std::string>{"stoType@0", "stoSchemaObject@" + std::to_string(second)}));
    std::vector<std::string> names;
    stoInheritedMemberIT it(c);
    while (++it)
        names.push_back(it()->declaring_class()->name().str() + "::" + it()->name().str());
    std::vector<std::string> expected = {"stoType::m_handle",          "stoSchemaObject::m_schema",
                                         "stoSchemaObject::m_name",    "stoClass::m_size",
                                         "stoClass::m_base_chain",     "stoClass::m_n_members",
                                         "stoClass::m_member_chain",   "stoClass::m_n_indirect_members",
                                         "stoClass::m_inherited_members"};
    EXPECT_EQ(names, expected);
}
