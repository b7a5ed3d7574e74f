#include "platform/zelkor/blocker.h"

namespace zelkor {

int TBlockState::Usage() const {
  std::lock_guard<std::mutex> lock(mu_);
  return depth_ + waiting_;
}

bool TBlockState::Entered() const {
  std::lock_guard<std::mutex> lock(mu_);
  return depth_ > 0 && owner_ == std::this_thread::get_id();
}

int TBlocker::Enter() {
  if (!state_) return kBlockerNoState;
  TBlockState& s = *state_;
  std::unique_lock<std::mutex> lock(s.mu_);
  const auto me = std::this_thread::get_id();
  if (s.depth_ == 0 || s.owner_ != me) {
    s.waiting_++;
    s.freed_.wait(lock, [&] { return s.depth_ == 0; });
    s.waiting_--;
    s.owner_ = me;
  }
  s.depth_++;
  return 0;
}

int TBlocker::Exit() {
  if (!state_) return kBlockerNoState;
  TBlockState& s = *state_;
  std::lock_guard<std::mutex> lock(s.mu_);
  if (s.depth_ == 0 || s.owner_ != std::this_thread::get_id()) return kBlockerNotHeld;
  if (--s.depth_ == 0) {
    s.owner_ = {};
    s.freed_.notify_one();
  }
  return 0;
}

}  // namespace zelkor
