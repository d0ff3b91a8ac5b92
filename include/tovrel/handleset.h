/*
 * The registry of live handles that the libraries' objects share (bitmap
 * records, DIB sections and other graphics objects, device contexts, open
 * files). Each object carries its own link and a fixed table of buckets
 * chains them, so registering never allocates and never fails: no memory
 * shortage can leave a made object unregistered or throw out of a C call.
 * A handle from outside is only compared with the registered addresses,
 * never followed, until it is found here.
 */
#ifndef TOVREL_HANDLESET_H
#define TOVREL_HANDLESET_H

#ifdef __cplusplus

#include <cstddef>
#include <cstdint>
#include <mutex>

/* The link an object embeds; owner is the object's handle. */
struct PlatHandleLink {
    const void* owner = nullptr;
    PlatHandleLink* next = nullptr;
};

class PlatHandleSet {
public:
    constexpr PlatHandleSet() = default;
    PlatHandleSet(const PlatHandleSet&) = delete;
    PlatHandleSet& operator=(const PlatHandleSet&) = delete;

    void Insert(const void* owner, PlatHandleLink* link) {
        std::lock_guard<std::mutex> lock(mutex_);
        PlatHandleLink*& head = buckets_[Bucket(owner)];
        link->owner = owner;
        link->next = head;
        head = link;
    }

    /* false when owner was not registered. */
    bool Erase(const void* owner) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (PlatHandleLink** at = &buckets_[Bucket(owner)]; *at; at = &(*at)->next) {
            if ((*at)->owner == owner) {
                *at = (*at)->next;
                return true;
            }
        }
        return false;
    }

    bool Contains(const void* owner) const {
        return ContainsWhere(owner, [] { return true; });
    }

    /* Registered, and check() (run under the set's lock, so the object
     * cannot be erased and freed meanwhile) is true. */
    template <class Check>
    bool ContainsWhere(const void* owner, Check check) const {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const PlatHandleLink* l = buckets_[Bucket(owner)]; l; l = l->next)
            if (l->owner == owner) return check();
        return false;
    }

private:
    static constexpr size_t kBuckets = 1024;
    static size_t Bucket(const void* owner) {
        uint64_t v = uint64_t(uintptr_t(owner)) * 0x9E3779B97F4A7C15ull;
        return size_t(v >> 54) & (kBuckets - 1);
    }

    mutable std::mutex mutex_;
    PlatHandleLink* buckets_[kBuckets] = {};
};

#endif /* __cplusplus */

#endif
