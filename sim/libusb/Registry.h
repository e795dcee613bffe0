// The objects that a program may use: those it was given and has not freed. Freed objects are kept for a
// while, so that a late use is recognised and does not read freed memory.
#pragma once

#include <cstddef>
#include <deque>
#include <unordered_map>

namespace sim {

/// Not locked. An object is identified by the address that the program sees.
template <class Object>
class Registry {
 public:
    void add(const void* address, Object* object) { entries_[address] = {object, true}; }

    /// Returns the object in use at that address, or null.
    Object* find(const void* address) const {
        const auto found = entries_.find(address);
        return found != entries_.end() && found->second.inUse ? found->second.object : nullptr;
    }

    bool wasGivenBack(const void* address) const {
        const auto found = entries_.find(address);
        return found != entries_.end() && !found->second.inUse;
    }

    void retire(const void* address) {
        entries_.at(address).inUse = false;
        retired_.push_back(address);
        if (retired_.size() > kKept) {
            const auto oldest = entries_.find(retired_.front());
            retired_.pop_front();
            delete oldest->second.object;
            entries_.erase(oldest);
        }
    }

    template <class Visit>
    void forEachInUse(Visit visit) const {
        for (const auto& [address, entry] : entries_) {
            if (entry.inUse) {
                visit(*entry.object);
            }
        }
    }

 private:
    static constexpr std::size_t kKept = 2000;
    struct Entry {
        Object* object;
        bool inUse;
    };
    std::unordered_map<const void*, Entry> entries_;
    std::deque<const void*> retired_;
};

}  // namespace sim
