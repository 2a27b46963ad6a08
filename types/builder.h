// stoBuilder: through it a class's build function declares the class's
// bases and members. One build runs at a time; while it runs, the builder is
// `stoBuilder::active()`.
#pragma once

#include "types/type_handle.h"

class stoClass;
class stoMember;

class stoBuilder {
public:
    // Becomes the active builder.
    explicit stoBuilder(stoClass* cls);
    // Empties the active slot.
    ~stoBuilder();
    stoBuilder(stoBuilder const&) = delete;
    stoBuilder& operator=(stoBuilder const&) = delete;

    static stoBuilder* active();
    stoClass* built_class() const { return m_class; }

    // Appends a base record at the end of the class's bases.
    void build_base(stoTypeHandle const& base, int offset);
    // Appends a member at the end of the class's members.
    void build_member(stoTypeHandle const& type, char const* name, int offset, int size);
    // A variable array whose element count is the int member size_name,
    // declared first.
    void build_sized_array(stoTypeHandle const& element, char const* name, int offset, int size,
                           char const* size_name, int size_offset, int size_size);
    // A variable array whose element count a function computes from the object.
    void build_method_array(stoTypeHandle const& element, char const* name, int offset, int size,
                            int (*count)(void const*), char const* count_name);
    // Hands an anonymous type to the class's schema, which owns it from then on.
    stoTypeHandle build_unnamed_type(stoTypeHandle const& type);

protected:
    stoMember* build_member_body(stoTypeHandle const& type, char const* name, int offset, int size);

private:
    stoClass* m_class;
};
