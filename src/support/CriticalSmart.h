// Owner records: an owner count beside an object that may be shared.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "platform/LightMutex.h"
#include "support/ModuleHeap.h"

namespace kivmp4 {

/// Kept beside the object's pointer by each owner. The lock is created and deleted with the record and never taken.
struct CriticalSmart {
    platform::LightMutex lock;
    std::atomic<int32_t> owners{1};

    /// @return null when the heap is full: the object is then held without a record
    static CriticalSmart* Create() {
        CriticalSmart* record = ModuleNew<CriticalSmart>();
        if (record)
            record->lock.Create("CriticalSmart");
        return record;
    }
};

/// Gives up ownership and clears both pointers. The last owner destroys the object; so does an owner without a record,
/// since nobody else can know of the object then.
template <typename T>
void ReleaseOwner(T*& object, CriticalSmart*& record) {
    const bool last = !record || record->owners.fetch_sub(1, std::memory_order_acq_rel) <= 1;
    if (last) {
        if (record) {
            record->lock.Delete();
            ModuleFree(record);
        }
        if constexpr (std::is_polymorphic_v<T>)
            delete object;
        else
            ModuleDelete(object);
    }
    object = nullptr;
    record = nullptr;
}

}  // namespace kivmp4
