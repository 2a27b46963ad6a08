// coAddressChains: items waiting on addresses, in the order they were added.
//
// The conversions keep, for objects not made yet, the pointers that wait for
// them: hundreds of thousands in a document with many forward references,
// each added once and taken once. A table of small lists costs an allocation
// or two per waiting pointer and a table probe with a rehash that touches
// every entry at random; here every item sits in one array, chained per
// address, and the address table holds only the first and last index.
// Keys are non-null addresses, as in coAddressTable.
//
//   coAddressChains<Waiting> waiting;
//   waiting.add(target, Waiting{...});
//   waiting.take(target, [](Waiting const& w) { ... });  // the first added first
#pragma once

#include "platform/co_address_table.h"

#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <vector>

template <class Item>
class coAddressChains {
public:
    void add(void const* key, Item const& item)
    {
        int index = static_cast<int>(m_nodes.size());
        m_nodes.push_back(Node{key, item, -1, 0});
        ++m_size;
        Chain& chain = m_chains[key];
        if (chain.last >= 0)
            node(chain.last).next = index;
        else
            chain.first = index;
        chain.last = index;
    }

    // Removes the items of key that `wanted` accepts and then calls f with
    // each of them, the first added first. f may add items.
    template <class Pred, class F>
    void take_if(void const* key, Pred&& wanted, F&& f)
    {
        Chain* chain = m_chains.find(key);
        if (!chain || chain->first < 0)
            return;
        absl::InlinedVector<Item, 4> taken;
        Chain kept;
        for (int i = chain->first; i >= 0;) {
            Node& n = node(i);
            int next = n.next;
            if (wanted(static_cast<Item const&>(n.item))) {
                taken.push_back(n.item);
                n.taken = 1;
                --m_size;
            } else {
                n.next = -1;
                if (kept.last >= 0)
                    node(kept.last).next = i;
                else
                    kept.first = i;
                kept.last = i;
            }
            i = next;
        }
        *chain = kept;
        // Taken items stay in the array until they outnumber those still
        // waiting; an analyser kept for many roots would otherwise keep all
        // it ever chained.
        std::size_t dead = m_nodes.size() - static_cast<std::size_t>(m_size);
        if (m_size == 0)
            m_nodes.clear();
        else if (dead >= kCompactAt && dead > m_nodes.size() / 2)
            compact();
        for (Item const& item : taken)
            f(item);
    }
    template <class F>
    void take(void const* key, F&& f)
    {
        take_if(key, [](Item const&) { return true; }, f);
    }

    // Whether an item of key that `wanted` accepts waits.
    template <class Pred>
    int any(void const* key, Pred&& wanted) const
    {
        Chain const* chain = m_chains.find(key);
        for (int i = chain ? chain->first : -1; i >= 0; i = node(i).next)
            if (wanted(node(i).item))
                return 1;
        return 0;
    }

    // f(key, item) for every item still waiting, the first added first; the
    // chains must not change meanwhile.
    template <class F>
    void for_each(F&& f) const
    {
        for (Node const& n : m_nodes)
            if (!n.taken)
                f(n.key, n.item);
    }

    // The number of items waiting.
    int size() const { return m_size; }

private:
    struct Node {
        void const* key;
        Item item;
        int next;  // the next item of the same key, or -1
        int taken;
    };
    struct Chain {
        int first = -1;
        int last = -1;
    };
    static constexpr std::size_t kCompactAt = 1024;

    // Chains again what still waits, each address's items in their order.
    void compact()
    {
        std::vector<Node> nodes;
        nodes.swap(m_nodes);
        m_nodes.reserve(static_cast<std::size_t>(m_size));
        m_chains.clear();
        m_size = 0;
        for (Node const& n : nodes)
            if (!n.taken)
                add(n.key, n.item);
    }

    Node& node(int i) { return m_nodes[static_cast<std::size_t>(i)]; }
    Node const& node(int i) const { return m_nodes[static_cast<std::size_t>(i)]; }

    coAddressTable<void const*, Chain> m_chains;
    std::vector<Node> m_nodes;
    int m_size = 0;
};
