// A mutex and who holds it. std::mutex would need the C++ run-time library.
#ifndef LANYARD_BASE_LOCK_H
#define LANYARD_BASE_LOCK_H

#include <pthread.h>

namespace lanyard {

// For a global: there before the program begins and after it ends.
class Mutex {
  public:
    constexpr Mutex() = default;
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;

  private:
    friend class Lock;

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a mutex as long as it lives.
class [[nodiscard]] Lock {
  public:
    explicit Lock(Mutex &mutex) : mutex_(mutex.mutex_) { pthread_mutex_lock(&mutex_); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
    ~Lock() { pthread_mutex_unlock(&mutex_); }

  private:
    pthread_mutex_t &mutex_;
};

}  // namespace lanyard

#endif
