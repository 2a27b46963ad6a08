// The analyser's table of live objects and the synthesiser's tables of addresses, against an ordered map
// as oracle: random additions and removals over few addresses, so that probe runs are long, wrap around
// the end of the slots and are cut by removals in every position, and over many, so that the tables
// grow many times; objects that share an address differ by type; the null address is kept aside.
#include "types/basic.h"
#include "platform/co_address_table.h"
#include "values/analyser.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <utility>

namespace {

using Key = std::pair<std::uintptr_t, stoType const*>;

stoValue* fake_value(unsigned n) { return reinterpret_cast<stoValue*>(std::uintptr_t(n + 1) * 16); }
stoLiveObject object_of(Key const& k) { return {k.second->handle(), reinterpret_cast<void const*>(k.first)}; }

void expect_same(stoLiveObjectTable const& table, std::map<Key, stoValue*> const& oracle)
{
    ASSERT_EQ(table.size(), static_cast<int>(oracle.size()));
    std::map<Key, stoValue*> seen;
    table.for_each([&](stoLiveObject const& k, stoAnalysedEntry const& entry) {
        EXPECT_TRUE(
            seen.emplace(Key(reinterpret_cast<std::uintptr_t>(k.ptr), k.type.type()), entry.value()).second);
    });
    EXPECT_EQ(seen, oracle);
}

}  // namespace

TEST(LiveObjectTable, AgreesWithAnOracleThroughAdditionsAndRemovals)
{
    stoType const* types[] = {sto_type_int().type(), sto_type_double().type(), sto_type_utString().type()};
    std::mt19937 random(20240611);
    for (int addresses : {3, 40, 3000}) {
        stoLiveObjectTable table;
        std::map<Key, stoValue*> oracle;
        for (int step = 0; step < 20000; ++step) {
            // Address 0 is the null address; the others are never read.
            Key key(static_cast<std::uintptr_t>(random() % addresses) * 8, types[random() % 3]);
            if (random() % 3 == 0) {
                table.remove(object_of(key));
                oracle.erase(key);
            } else {
                table[object_of(key)].set_value(oracle[key] = fake_value(static_cast<unsigned>(step)));
            }
            stoAnalysedEntry* entry = table.find(object_of(key));
            ASSERT_EQ(entry ? entry->value() : nullptr, oracle.count(key) ? oracle[key] : nullptr)
                << addresses << " step " << step;
        }
        expect_same(table, oracle);
        // Removing every key still there empties the table.
        for (auto const& [key, value] : oracle) {
            table.remove(object_of(key));
            EXPECT_EQ(table.find(object_of(key)), nullptr);
        }
        EXPECT_EQ(table.size(), 0);
    }
}

TEST(AddressTable, AgreesWithAnOracleAcrossGrowth)
{
    std::mt19937 random(20261123);
    for (int addresses : {5, 300, 200000}) {
        coAddressTable<void const*, std::uintptr_t> table;
        std::map<std::uintptr_t, std::uintptr_t> oracle;
        for (int step = 0; step < 60000; ++step) {
            std::uintptr_t address = (static_cast<std::uintptr_t>(random() % addresses) + 1) * 8;
            void const* key = reinterpret_cast<void const*>(address);
            if (random() % 2)
                table[key] = oracle[address] = static_cast<std::uintptr_t>(step);
            std::uintptr_t const* found = table.find(key);
            ASSERT_EQ(found ? *found + 1 : 0, oracle.count(address) ? oracle[address] + 1 : 0)
                << addresses << " step " << step;
        }
        ASSERT_EQ(table.size(), static_cast<int>(oracle.size()));
        std::map<std::uintptr_t, std::uintptr_t> seen;
        table.for_each([&](void const* k, std::uintptr_t v) { seen[std::uintptr_t(k)] = v; });
        EXPECT_EQ(seen, oracle);
    }
    // The null address has no entry, however often it is asked for.
    coAddressTable<void const*, int> table;
    table[nullptr] = 7;
    EXPECT_EQ(table.find(nullptr), nullptr);
    EXPECT_EQ(table.size(), 0);
}
