#include "utils/thread_slot.h"

#include <pthread.h>

namespace ORVEL::UTILS {

static_assert(sizeof(pthread_key_t) <= sizeof(unsigned long), "a key must fit");

ThreadSlot::ThreadSlot(Destroy destroy) noexcept {
  pthread_key_t key{};
  made_ = pthread_key_create(&key, destroy) == 0;
  key_ = key;
}

void* ThreadSlot::get() const noexcept {
  return made_ ? pthread_getspecific(static_cast<pthread_key_t>(key_)) : nullptr;
}

bool ThreadSlot::set(void* value) const noexcept {
  return made_ && pthread_setspecific(static_cast<pthread_key_t>(key_), value) == 0;
}

}  // namespace ORVEL::UTILS
