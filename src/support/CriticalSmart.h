// Owner records: an owner count beside an object that may be shared.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "platform/LightMutex.h"
#include "support/ModuleHeap.h"

namespace kivmp4 {

/// Kept beside the object's pointer by its owner. The lock is created and deleted with the record and never taken.
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

/// An object on the module heap with its owner record. Null when there was no memory for the object.
template <typename T>
class Owned {
public:
    Owned() = default;
    explicit Owned(T* first) { Take(first); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { Release(); }

    /// Gives up what it had. @param next  owned from here on
    void Take(T* next) {
        Release();
        object = next;
        record = CriticalSmart::Create();
    }

    /// Gives up ownership. The last owner destroys the object; so does an owner without a record, since nobody else can
    /// know of the object then.
    void Release() {
        const bool last = !record || record->owners.fetch_sub(1, std::memory_order_acq_rel) <= 1;
        if (last && record) {
            record->lock.Delete();
            ModuleFree(record);
        }
        if (last)
            Destroy();
        object = nullptr;
        record = nullptr;
    }

    explicit operator bool() const { return object != nullptr; }
    T& operator*() const { return *object; }
    T* operator->() const { return object; }

    /// Asks the object. @return `otherwise` without one
    template <typename Result, typename Method, typename... Arguments>
    Result Ask(Result otherwise, Method method, Arguments... arguments) const {
        return object ? static_cast<Result>((object->*method)(arguments...)) : otherwise;
    }

private:
    void Destroy() {
        if constexpr (std::is_polymorphic_v<T>)
            delete object;
        else
            ModuleDelete(object);
    }

    T* object = nullptr;
    CriticalSmart* record = nullptr;
};

}  // namespace kivmp4
