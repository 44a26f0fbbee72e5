// Mutexes and condition variables by id, over the host's threads library.
#include "platform/Sync.h"

#include <pthread.h>

#include "platform/SlotTable.h"

namespace kivmp4::platform {
namespace {

struct Condition {
    pthread_cond_t handle;
    pthread_mutex_t* mutex;  // borrowed from the mutex table
};

// One file is open at a time and needs one of each; the rest is for handles that were never destroyed.
constexpr int32_t kSlots = 32;
SlotTable<pthread_mutex_t, kSlots> mutexes;
SlotTable<Condition, kSlots> conditions;

}  // namespace

int32_t MutexCreate(const char*, uint32_t) {
    const int32_t id = mutexes.Acquire();
    if (id < 0)
        return -1;
    if (pthread_mutex_init(mutexes.Find(id), nullptr)) {
        mutexes.Release(id);
        return -1;
    }
    return id;
}

int32_t MutexLock(int32_t mutex) {
    pthread_mutex_t* handle = mutexes.Find(mutex);
    if (!handle)
        return -1;
    pthread_mutex_lock(handle);
    return 0;
}

int32_t MutexUnlock(int32_t mutex) {
    pthread_mutex_t* handle = mutexes.Find(mutex);
    if (!handle)
        return -1;
    pthread_mutex_unlock(handle);
    return 0;
}

int32_t MutexDelete(int32_t mutex) {
    pthread_mutex_t* handle = mutexes.Find(mutex);
    if (!handle)
        return -1;
    pthread_mutex_destroy(handle);
    mutexes.Release(mutex);
    return 0;
}

int32_t ConditionCreate(const char*, uint32_t, int32_t mutex) {
    pthread_mutex_t* bound = mutexes.Find(mutex);
    const int32_t id = bound ? conditions.Acquire() : -1;
    if (id < 0)
        return -1;
    Condition* condition = conditions.Find(id);
    if (pthread_cond_init(&condition->handle, nullptr)) {
        conditions.Release(id);
        return -1;
    }
    condition->mutex = bound;
    return id;
}

int32_t ConditionWait(int32_t condition) {
    Condition* found = conditions.Find(condition);
    if (!found)
        return -1;
    pthread_cond_wait(&found->handle, found->mutex);
    return 0;
}

int32_t ConditionSignal(int32_t condition) {
    Condition* found = conditions.Find(condition);
    if (!found)
        return -1;
    pthread_cond_signal(&found->handle);
    return 0;
}

int32_t ConditionDelete(int32_t condition) {
    Condition* found = conditions.Find(condition);
    if (!found)
        return -1;
    pthread_cond_destroy(&found->handle);
    conditions.Release(condition);
    return 0;
}

}  // namespace kivmp4::platform
