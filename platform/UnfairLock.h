// A scoped hold on an os_unfair_lock.
#pragma once

#include <os/lock.h>

// Takes the lock for as long as it lives; the thread that takes it gives it back. Not recursive: a thread that holds
// the lock already is stopped. Usable from any thread, and held briefly.
class UnfairLock {
 public:
  explicit UnfairLock(os_unfair_lock& lock) : lock_(lock) { os_unfair_lock_lock(&lock_); }
  ~UnfairLock() { os_unfair_lock_unlock(&lock_); }
  UnfairLock(const UnfairLock&) = delete;
  UnfairLock& operator=(const UnfairLock&) = delete;

 private:
  os_unfair_lock& lock_;
};
