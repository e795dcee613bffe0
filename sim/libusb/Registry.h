// Which objects a program may use: those that were handed out and not yet given back. What was given back is
// kept for a while, so that its late use is told from a valid one and does not read freed memory.
#pragma once

#include <cstddef>
#include <deque>
#include <unordered_map>

namespace sim {

// Not locked. An object is named by the address that the program sees.
template <class Object>
class Registry {
 public:
    void add(const void* address, Object* object) { entries_[address] = {object, true}; }

    // The object in use at that address, or null.
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
        if (retired_.size() > kept) {
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
    static constexpr std::size_t kept = 2000;
    struct Entry {
        Object* object;
        bool inUse;
    };
    std::unordered_map<const void*, Entry> entries_;
    std::deque<const void*> retired_;
};

}  // namespace sim
