// The per-DL blocker: an exclusive entry usable from several threads.
//
// A TBlockState is free or held by one thread; the holding thread may enter again (entries
// nest). TBlocker is the handle a thread enters through: Set names the state, Enter waits until
// the state is free or already this thread's, Exit leaves one level. Enter and Exit answer 0, or
// kBlockerNoState when no state is set and kBlockerNotHeld for an Exit without an Enter.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace zelkor {

constexpr int kBlockerNoState = -1001;
constexpr int kBlockerNotHeld = -1002;

class TBlockState {
 public:
  // Holders' nested entries plus threads waiting: 0 when the state is free and nobody waits.
  int Usage() const;
  // True when the calling thread holds the state.
  bool Entered() const;

 private:
  friend class TBlocker;
  mutable std::mutex mu_;
  std::condition_variable freed_;
  std::thread::id owner_;
  int depth_ = 0;
  int waiting_ = 0;
};

class TBlocker {
 public:
  TBlocker() = default;
  explicit TBlocker(TBlockState* state) : state_(state) {}
  void Set(TBlockState* state) { state_ = state; }
  int Enter();
  int Exit();

 private:
  TBlockState* state_ = nullptr;
};

}  // namespace zelkor
