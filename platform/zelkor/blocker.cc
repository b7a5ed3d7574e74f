#include "platform/zelkor/blocker.h"

namespace zelkor {

// Ordering: a holder that leaves stores the free owner and then reads `waiting_`; a thread going
// to sleep raises `waiting_` and then tries to take the owner, with `mu_` held until it sleeps.
// Both pairs are sequentially consistent, so either the sleeper takes the state or the leaver
// sees it and wakes it (taking `mu_`, which the sleeper holds until it waits).

int TBlockState::Usage() const {
  return depth_.load(std::memory_order_relaxed) + waiting_.load(std::memory_order_relaxed);
}

bool TBlockState::Entered() const {
  return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

int TBlocker::Enter() {
  int r = TryEnter();
  if (r != kBlockerBusy) return r;
  TBlockState& s = *state_;
  const std::thread::id me = std::this_thread::get_id();
  std::unique_lock<std::mutex> lock(s.mu_);
  s.waiting_.fetch_add(1);
  s.freed_.wait(lock, [&] {
    std::thread::id none{};
    return s.owner_.compare_exchange_strong(none, me);
  });
  s.waiting_.fetch_sub(1);
  s.depth_.store(1, std::memory_order_relaxed);
  return 0;
}

void TBlocker::wakeOne() {
  std::lock_guard<std::mutex> lock(state_->mu_);
  state_->freed_.notify_one();
}

}  // namespace zelkor
