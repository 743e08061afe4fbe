#include "keelstone/mutex.h"

#include <gtest/gtest.h>

#include <boost/thread/thread.hpp>

namespace keelstone {
namespace {

struct Gate {
  Mutex mutex;
  Condition changed;
  bool waiting KS_GUARDED_BY(mutex) = false;
  bool open KS_GUARDED_BY(mutex) = false;
  int passed KS_GUARDED_BY(mutex) = 0;

  void Pass() {
    const MutexLock lock(mutex);
    waiting = true;
    changed.NotifyAll();
    while (!open) changed.Wait(mutex);
    ++passed;
  }
};

TEST(ConditionTest, InterruptedHostThreadFinishesItsWait) {
  Gate gate;
  boost::thread thread([&gate] { gate.Pass(); });
  {
    const MutexLock lock(gate.mutex);
    while (!gate.waiting) gate.changed.Wait(gate.mutex);
  }
  thread.interrupt();
  {
    const MutexLock lock(gate.mutex);
    gate.open = true;
    gate.changed.NotifyAll();
  }
  thread.join();
  const MutexLock lock(gate.mutex);
  EXPECT_EQ(gate.passed, 1);
}

}  // namespace
}  // namespace keelstone
