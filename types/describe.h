// Describing a persistent class in a source file.
//
// One registration line names the class and its schema; one line per base
// or member follows, in declaration order. Offsets are taken from the
// prototype object, so they are right for any layout the compiler chooses;
// member types are deduced from the C++ declarations.
//
//   STO_CLASS(annNote, sto_schema_annotation()) {
//       STO_BASE(annNamedItem);
//       STO_MEMBER(m_text);               // utString
//       STO_MEMBER(m_style);              // coPrf<annStyle>: counted pointer
//       STO_MEMBER(m_next);               // annNote*: plain pointer
//       STO_OWNING_PTR(m_leader);         // annLeader*, owned
//       STO_MEMBER(m_corners);            // double[4]: fixed array
//       STO_SIZED_ARRAY(m_points, m_n_points);
//       STO_METHOD_ARRAY(m_rows, row_count);
//   }
//
// Deduced member kinds: 4- and 8-byte integers and enumerations (int),
// double, utString, stoByteArray, stoTypeHandle, persistent classes
// (embedded), T* and coPtr<T> (plain pointers), coPrg<T> (owning), coPrf<T>
// (counted), and fixed arrays T[N] of any of these. Booleans are declared as
// utBool. STO_ABSTRACT_CLASS registers no creation hooks; STO_CLASS_MAPPED
// names a mapper of the class's own. The expansions are ordinary definitions
// of the hooks declared by STO_PERSISTENT, which may also be written by hand.
#pragma once

#include "platform/co_pointers.h"
#include "platform/ut_string.h"
#include "types/array.h"
#include "types/basic.h"
#include "types/builder.h"
#include "types/class.h"
#include "types/persistent.h"
#include "values/mapper.h"
#include "values/pointer_types.h"

#include <cstddef>
#include <memory>
#include <type_traits>

namespace sto_detail {

enum Phase { kBases = 1, kMembers = 2 };

template <class T>
concept Persistent = requires { T::sto_class(); };

template <class T>
inline constexpr bool always_false = false;

template <class T, class = void>
struct member_type {
    static stoTypeHandle make(stoBuilder&)
    {
        static_assert(always_false<T>, "this member type has no persistent form: declare booleans as utBool, "
                                       "or name the type with STO_MEMBER_AS");
        return stoTypeHandle();
    }
};

template <class T>
struct member_type<T, std::enable_if_t<(std::is_integral_v<T> || std::is_enum_v<T>) && !std::is_same_v<T, bool> &&
                                       (sizeof(T) == 4 || sizeof(T) == 8)>> {
    static stoTypeHandle make(stoBuilder&) { return sizeof(T) == 8 ? stoIntType::make_wide() : sto_type_int(); }
};

template <>
struct member_type<double> {
    static stoTypeHandle make(stoBuilder&) { return sto_type_double(); }
};

template <>
struct member_type<utString> {
    static stoTypeHandle make(stoBuilder&) { return sto_type_utString(); }
};

template <>
struct member_type<stoByteArray> {
    static stoTypeHandle make(stoBuilder&) { return sto_type_stoByteArray(); }
};

template <>
struct member_type<stoTypeHandle> {
    static stoTypeHandle make(stoBuilder& b) { return b.build_unnamed_type(stoTypeHandleType::make()); }
};

template <class T>
struct member_type<T, std::enable_if_t<Persistent<T>>> {
    static stoTypeHandle make(stoBuilder&) { return T::sto_class()->handle(); }
};

template <class T>
stoTypeHandle class_handle()
{
    using C = std::remove_cv_t<T>;
    static_assert(Persistent<C>, "owning and counted pointers must point at persistent classes");
    return C::sto_class()->handle();
}

// What a plain pointer may point at: an object of a persistent class, or an
// instance of any other type the store converts (an int* into an object's
// int member). Owning and counted pointers own objects of classes only.
template <class T>
stoTypeHandle pointee_handle(stoBuilder& b)
{
    using C = std::remove_cv_t<T>;
    if constexpr (Persistent<C>)
        return C::sto_class()->handle();
    else
        return member_type<C>::make(b);
}

template <class T>
struct member_type<T*> {
    static stoTypeHandle make(stoBuilder& b) { return b.build_unnamed_type(stoPtrType::make(pointee_handle<T>(b))); }
};

template <class T>
struct member_type<coPtr<T>> {
    static stoTypeHandle make(stoBuilder& b) { return b.build_unnamed_type(stoPtrType::make(pointee_handle<T>(b))); }
};

template <class T>
struct member_type<coPrg<T>> {
    static stoTypeHandle make(stoBuilder& b) { return b.build_unnamed_type(stoPrgType::make(class_handle<T>())); }
};

template <class T>
struct member_type<coPrf<T>> {
    static stoTypeHandle make(stoBuilder& b) { return b.build_unnamed_type(stoPrfType::make(class_handle<T>())); }
};

template <class T, std::size_t N>
struct member_type<T[N]> {
    static stoTypeHandle make(stoBuilder& b)
    {
        stoTypeHandle element = member_type<std::remove_cv_t<T>>::make(b);
        return b.build_unnamed_type(stoFixedArrayType::make(element, static_cast<int>(N)));
    }
};

template <class M>
stoTypeHandle type_of(stoBuilder& b)
{
    return member_type<std::remove_cv_t<M>>::make(b);
}

template <class Self, class Base>
STO_NO_SANITIZE_VPTR inline int base_offset(Self const* self)
{
    return static_cast<int>(reinterpret_cast<char const*>(static_cast<Base const*>(self)) -
                            reinterpret_cast<char const*>(self));
}

template <class Self, class M>
STO_NO_SANITIZE_VPTR inline int member_offset(Self const* self, M const& member)
{
    return static_cast<int>(reinterpret_cast<char const*>(std::addressof(member)) -
                            reinterpret_cast<char const*>(self));
}

}  // namespace sto_detail

// The hooks every persistent class has, whatever its creation hooks and mapper.
#define STO_DETAIL_COMMON_HOOKS(X)                                                               \
    stoClass const* X::sto_class() { return sto_class_##X(); }                                   \
    stoTypeHandle sto_type_##X() { return sto_class_##X()->handle(); }                           \
    STO_NO_SANITIZE_VPTR void X::sto_build_class(stoBuilder& builder, void const* prototype)     \
    {                                                                                            \
        X const* object = static_cast<X const*>(prototype);                                      \
        object->sto_build_bases(builder);                                                        \
        object->sto_build_members(builder);                                                      \
    }                                                                                            \
    STO_NO_SANITIZE_VPTR void X::sto_build_bases(stoBuilder& builder) const                      \
    {                                                                                            \
        sto_describe(builder, sto_detail::kBases);                                               \
    }                                                                                            \
    STO_NO_SANITIZE_VPTR void X::sto_build_members(stoBuilder& builder) const                    \
    {                                                                                            \
        sto_describe(builder, sto_detail::kMembers);                                             \
    }                                                                                            \
    X* X::sto_dynamic_cast(stoClass const* cls, void* p)                                         \
    {                                                                                            \
        return static_cast<X*>(sto_class_##X()->dynamic_cast_from(cls, p));                     \
    }                                                                                            \
    X const* X::sto_dynamic_cast(stoClass const* cls, void const* p)                             \
    {                                                                                            \
        return static_cast<X const*>(sto_class_##X()->dynamic_cast_from(cls, p));               \
    }                                                                                            \
    stoObjectPtr X::sto_true_class(void const* p) { return static_cast<X const*>(p)->sto_object(); } \
    stoObjectPtr X::sto_object() const { return stoObjectPtr(sto_class_##X(), this); }           \
    stoTypeHandle X::sto_type() const { return sto_dynamic_class()->handle(); }

#define STO_DETAIL_CREATION_HOOKS(X)                                                             \
    void* X::sto_make_new() { return new X(); }                                                  \
    void* X::sto_make_new_array(int n) { return new X[static_cast<std::size_t>(n)](); }          \
    void X::sto_delete(void* p) { delete static_cast<X*>(p); }                                   \
    void X::sto_delete_array(void* p, int) { delete[] static_cast<X*>(p); }

// The registration function: the class is made in its schema on the first
// call. A constructor that throws leaves the guard clear for the next call.
#define STO_DETAIL_REGISTRATION(X, SCHEMA, MAKE, DEL, MAKE_ARRAY, DEL_ARRAY, MAPPER)                   \
    stoClass const* sto_class_##X()                                                                    \
    {                                                                                                  \
        static stoClass const* s_class = nullptr;                                                      \
        if (!s_class)                                                                                  \
            s_class = new stoClass((SCHEMA), #X, static_cast<int>(sizeof(X)), &X::sto_build_class, MAKE, \
                                   DEL, MAKE_ARRAY, DEL_ARRAY, &X::sto_true_class, (MAPPER));           \
        return s_class;                                                                                \
    }

#define STO_DETAIL_DESCRIBE(X) \
    STO_NO_SANITIZE_VPTR void X::sto_describe([[maybe_unused]] stoBuilder& sto_builder, [[maybe_unused]] int sto_phase) const

// A concrete class converted by the given mapper.
#define STO_CLASS_MAPPED(X, SCHEMA, MAPPER)                                                           \
    STO_DETAIL_COMMON_HOOKS(X)                                                                        \
    STO_DETAIL_CREATION_HOOKS(X)                                                                      \
    STO_DETAIL_REGISTRATION(X, SCHEMA, &X::sto_make_new, &X::sto_delete, &X::sto_make_new_array,      \
                            &X::sto_delete_array, MAPPER)                                             \
    STO_DETAIL_DESCRIBE(X)

// A concrete class converted member by member.
#define STO_CLASS(X, SCHEMA) STO_CLASS_MAPPED(X, SCHEMA, sto_mapper_stoStandardMapper())

// An abstract class: no creation hooks.
#define STO_ABSTRACT_CLASS_MAPPED(X, SCHEMA, MAPPER)                                                  \
    STO_DETAIL_COMMON_HOOKS(X)                                                                        \
    STO_DETAIL_REGISTRATION(X, SCHEMA, nullptr, nullptr, nullptr, nullptr, MAPPER)                    \
    STO_DETAIL_DESCRIBE(X)

#define STO_ABSTRACT_CLASS(X, SCHEMA) STO_ABSTRACT_CLASS_MAPPED(X, SCHEMA, sto_mapper_stoStandardMapper())

// Declarations inside a description body.
#define STO_DETAIL_OFFSET(m) sto_detail::member_offset(this, this->m)

#define STO_BASE(B)                                                                                   \
    do {                                                                                              \
        if (sto_phase == sto_detail::kBases)                                                          \
            sto_builder.build_base(B::sto_class()->handle(), sto_detail::base_offset<sto_self, B>(this)); \
    } while (0)

// A member whose type is deduced from its declaration.
#define STO_MEMBER(m)                                                                                 \
    do {                                                                                              \
        if (sto_phase == sto_detail::kMembers)                                                        \
            sto_builder.build_member(sto_detail::type_of<decltype(sto_self::m)>(sto_builder), #m,     \
                                     STO_DETAIL_OFFSET(m), static_cast<int>(sizeof(sto_self::m)));    \
    } while (0)

// A member of an explicitly named type (an anonymous type goes through
// sto_builder.build_unnamed_type).
#define STO_MEMBER_AS(m, TYPE)                                                                        \
    do {                                                                                              \
        if (sto_phase == sto_detail::kMembers)                                                        \
            sto_builder.build_member((TYPE), #m, STO_DETAIL_OFFSET(m), static_cast<int>(sizeof(sto_self::m))); \
    } while (0)

// A raw pointer member that owns its pointee.
#define STO_OWNING_PTR(m)                                                                             \
    STO_MEMBER_AS(m, sto_builder.build_unnamed_type(stoPrgType::make(                                 \
                         sto_detail::class_handle<std::remove_pointer_t<decltype(sto_self::m)>>())))

// A pointer to a block of elements whose count is the int member `count_member`.
#define STO_SIZED_ARRAY(m, count_member)                                                              \
    STO_SIZED_ARRAY_AS(m, count_member,                                                               \
                       sto_detail::type_of<std::remove_pointer_t<decltype(sto_self::m)>>(sto_builder))

#define STO_SIZED_ARRAY_AS(m, count_member, ELEMENT)                                                  \
    do {                                                                                              \
        if (sto_phase == sto_detail::kMembers)                                                        \
            sto_builder.build_sized_array((ELEMENT), #m, STO_DETAIL_OFFSET(m),                        \
                                          static_cast<int>(sizeof(sto_self::m)), #count_member,       \
                                          STO_DETAIL_OFFSET(count_member),                            \
                                          static_cast<int>(sizeof(sto_self::count_member)));          \
    } while (0)

// A pointer to a block of elements counted by the static function
// `int count_fn(void const* object)` of the class.
#define STO_METHOD_ARRAY(m, count_fn)                                                                 \
    STO_METHOD_ARRAY_AS(m, count_fn,                                                                  \
                        sto_detail::type_of<std::remove_pointer_t<decltype(sto_self::m)>>(sto_builder))

#define STO_METHOD_ARRAY_AS(m, count_fn, ELEMENT)                                                     \
    do {                                                                                              \
        if (sto_phase == sto_detail::kMembers)                                                        \
            sto_builder.build_method_array((ELEMENT), #m, STO_DETAIL_OFFSET(m),                       \
                                           static_cast<int>(sizeof(sto_self::m)), &sto_self::count_fn, \
                                           #count_fn);                                                \
    } while (0)

// Inside the description of an opaque class: declares the members of its
// model class M, so that the opaque object's value has a slot for each of
// them (its record in a file names them). Offsets are the model's.
#define STO_MEMBERS_OF_MODEL(M)                                                                       \
    do {                                                                                              \
        if (sto_phase == sto_detail::kMembers) {                                                      \
            stoClass const* sto_model = sto_class_##M();                                              \
            stoInheritedMemberIT sto_it(sto_model);                                                   \
            while (++sto_it)                                                                          \
                sto_builder.build_member(sto_it()->type(), sto_it()->name().c_str(), sto_it.offset(),  \
                                         sto_it()->size());                                           \
        }                                                                                             \
    } while (0)

// A class mapper for an opaque class O converted through a described model
// class M. The header line declares the generated mapper class
// stoMapperOM, its registration and sto_mapper_stoMapperOM(); the source
// line defines them. The application supplies the two copies:
//
//   void sto_opaque_to_model(O const& opaque, M& model);
//   void sto_model_to_opaque(M const& model, O& opaque);
//
// and registers O with STO_CLASS_MAPPED(O, schema, sto_mapper_stoMapperOM()).
#define STO_DECLARE_CLASS_MAPPER(O, M)                                                          \
    class stoMapper##O##M : public stoClassMapper {                                             \
        STO_PERSISTENT(stoMapper##O##M)                                                         \
    public:                                                                                     \
        stoMapper##O##M(stoSchema* schema, utString const& name) : stoClassMapper(schema, name) {} \
        stoClass const* model_class(stoClass const* opaque) const override;                     \
        void opaque_to_model(stoObjectPtr const& opaque, stoObjectPtr const& model) const override; \
        void model_to_opaque(stoObjectPtr const& model, stoObjectPtr const& opaque) const override; \
                                                                                                \
    protected:                                                                                  \
        stoMapper##O##M() = default;                                                            \
        /* Set on first use: the opaque class is being registered when its mapper is made. */  \
        mutable stoClass const* m_opaque_class = nullptr;                                       \
        mutable stoClass const* m_model_class = nullptr;                                        \
    };                                                                                          \
    STO_DECLARE_CLASS(stoMapper##O##M)                                                          \
    stoMapper##O##M const* sto_mapper_stoMapper##O##M();

#define STO_CLASS_MAPPER(O, M, SCHEMA)                                                          \
    stoMapper##O##M const* sto_mapper_stoMapper##O##M()                                         \
    {                                                                                           \
        static stoMapper##O##M const* s_mapper = nullptr;                                       \
        if (!s_mapper)                                                                          \
            s_mapper = new stoMapper##O##M((SCHEMA), "stoMapper" #O #M);                        \
        return s_mapper;                                                                        \
    }                                                                                           \
    stoClass const* stoMapper##O##M::model_class(stoClass const* opaque) const                  \
    {                                                                                           \
        m_opaque_class = opaque;                                                                \
        if (!m_model_class)                                                                     \
            m_model_class = sto_class_##M();                                                    \
        return m_model_class;                                                                   \
    }                                                                                           \
    void stoMapper##O##M::opaque_to_model(stoObjectPtr const& opaque, stoObjectPtr const& model) const \
    {                                                                                           \
        sto_opaque_to_model(*static_cast<O const*>(opaque.ptr()), *static_cast<M*>(const_cast<void*>(model.ptr()))); \
    }                                                                                           \
    void stoMapper##O##M::model_to_opaque(stoObjectPtr const& model, stoObjectPtr const& opaque) const \
    {                                                                                           \
        sto_model_to_opaque(*static_cast<M const*>(model.ptr()), *static_cast<O*>(const_cast<void*>(opaque.ptr()))); \
    }                                                                                           \
    STO_CLASS(stoMapper##O##M, SCHEMA)                                                          \
    {                                                                                           \
        STO_BASE(stoClassMapper);                                                               \
        STO_MEMBER(m_opaque_class);                                                             \
        STO_MEMBER(m_model_class);                                                              \
    }
