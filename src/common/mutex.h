// A mutex whose use clang checks at compile time with -Wthread-safety.
#ifndef YUSB_COMMON_MUTEX_H_
#define YUSB_COMMON_MUTEX_H_

#include <mutex>

#if defined(__clang__)
#define YUSB_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define YUSB_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) YUSB_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY YUSB_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) YUSB_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) YUSB_THREAD_ANNOTATION(pt_guarded_by(x))
#define ACQUIRED_AFTER(...) YUSB_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define REQUIRES(...) YUSB_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) YUSB_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) YUSB_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS YUSB_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace yusb {

class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { _mutex.lock(); }
  void unlock() RELEASE() { _mutex.unlock(); }

 private:
  std::mutex _mutex;
};

class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex* mutex) ACQUIRE(mutex) : _mutex(mutex) { _mutex->lock(); }
  ~MutexLock() RELEASE() { _mutex->unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex* const _mutex;
};

}  // namespace yusb

#endif  // YUSB_COMMON_MUTEX_H_
