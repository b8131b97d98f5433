// What a library may still call or answer when its program has forgotten it: kept for good, one entry for each key. Any
// thread, without a lock: entries are whole before they can be seen, and stay.
#ifndef BRIDGE_REGISTRY_H
#define BRIDGE_REGISTRY_H

#include "runtime.h"

// An Entry is made from a key, knows whether it is that of a key, and has a pointer to the next one.
template <typename Entry>
class Registry {
public:
    template <typename... Key>
    Entry& of(Key... key) {
        Entry* first = __atomic_load_n(&first_, __ATOMIC_ACQUIRE);
        for (Entry* entry = first; entry != nullptr; entry = entry->next) {
            if (entry->isOf(key...))
                return *entry;
        }
        auto* made = new Entry(key...);
        made->next = first;
        if (__atomic_compare_exchange_n(&first_, &first, made, false, __ATOMIC_RELEASE, __ATOMIC_RELAXED))
            return *made;
        delete made; // another thread was quicker, maybe with the same key
        return of(key...);
    }

private:
    Entry* first_ = nullptr;
};

#endif
