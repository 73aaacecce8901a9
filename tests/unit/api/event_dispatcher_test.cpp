#include "api/event_dispatcher.h"

#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "api/event_record.h"

namespace qvio {
namespace {

constexpr auto kWanted = [] { return true; };

using Calls = std::vector<std::pair<uint32_t, const QV_IO_Event*>>;

void Record(void* calls, uint32_t type, const QV_IO_Event* event) {
  static_cast<Calls*>(calls)->emplace_back(type, event);
}

TEST(EventDispatcher, CallsTheCallbackThatIsSetUnderTheMutex) {
  std::mutex mutex;
  EventDispatcher events(mutex);
  const QV_IO_Event event{.type = QV_IO_EVENT_DEVICE_LOST};
  events.dispatch(event, kWanted);  // dropped: no callback
  Calls calls;
  events.set(Record, &calls);
  events.dispatch(event, kWanted);
  events.dispatch(event, [] { return false; });
  EXPECT_EQ(calls, (Calls{{QV_IO_EVENT_DEVICE_LOST, &event}}));

  events.set([](void* held, uint32_t /*type*/,
                const QV_IO_Event* /*event*/) { EXPECT_FALSE(static_cast<std::mutex*>(held)->try_lock()); },
             &mutex);
  std::thread([&] { events.dispatch(event, kWanted); }).join();

  events.set([](void*, uint32_t, const QV_IO_Event*) { throw 1; },
             nullptr);  // NOLINT(hicpp-exception-baseclass)
  EXPECT_ANY_THROW(events.dispatch(event, kWanted));
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
}

}  // namespace
}  // namespace qvio
