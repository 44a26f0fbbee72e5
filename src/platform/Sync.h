// Mutexes and condition variables known by id.
#pragma once

#include <cstdint>

namespace kivmp4::platform {

/// Stands for "not created"; every operation on it fails.
constexpr int32_t kNoId = -1;

/// Creation answers an id above 0, or a negative number; the other operations answer 0 or a negative number.
/// Names and attributes are accepted for the target's sake; hosts have no use for them.
int32_t MutexCreate(const char* name, uint32_t attribute);
int32_t MutexLock(int32_t mutex);
int32_t MutexUnlock(int32_t mutex);
int32_t MutexDelete(int32_t mutex);

/// @param mutex  the one that is held around every wait on this condition
int32_t ConditionCreate(const char* name, uint32_t attribute, int32_t mutex);
/// Releases the condition's mutex while it waits and holds it again on return. Wakes up without cause at times.
int32_t ConditionWait(int32_t condition);
/// Wakes one waiter; a signal that nobody waits for is lost.
int32_t ConditionSignal(int32_t condition);
int32_t ConditionDelete(int32_t condition);

}  // namespace kivmp4::platform
