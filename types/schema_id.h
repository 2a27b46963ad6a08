// stoSchemaID: a schema's identity, its name and version.
#pragma once

#include "platform/ut_string.h"
#include "types/persistent.h"

class stoValue;

class stoSchemaID final {
    STO_PERSISTENT(stoSchemaID)
public:
    stoSchemaID(utString const& name, int version) : m_name(name), m_version(version) {}
    stoSchemaID(stoSchemaID const& other) = default;
    stoSchemaID& operator=(stoSchemaID const& other) = default;
    // Deliberately not virtual: identities are held by value.
    ~stoSchemaID() = default;

    int operator==(stoSchemaID const& other) const { return m_version == other.m_version && m_name == other.m_name; }
    int operator!=(stoSchemaID const& other) const { return !(*this == other); }
    utString name() const { return m_name; }
    int version() const { return m_version; }

protected:
    friend class stoSchema;
    stoSchemaID() : m_name(""), m_version(0) {}
    // The identity as a value: an object value of stoSchemaID made by a fresh
    // analyser. The caller owns it.
    stoValue* create_stub() const;

    utString m_name;
    int m_version;
};
STO_DECLARE_CLASS(stoSchemaID)

// Rotates h right by (i * 19) mod 32 bits: the store's hash mixer.
unsigned int sto_scramble(unsigned int h, int i);
unsigned int co_hash(stoSchemaID const& id);
