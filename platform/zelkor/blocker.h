// The per-DL blocker: an exclusive entry usable from several threads.
//
// A TBlockState is free or held by one thread; the holding thread may enter again (entries
// nest). TBlocker is the handle a thread enters through: Set names the state, Enter waits until
// the state is free or already this thread's, Exit leaves one level. Enter and Exit answer 0, or
// kBlockerNoState when no state is set and kBlockerNotHeld for an Exit without an Enter.
//
// Entering a free state and leaving one nobody waits for cost one atomic instruction each (a
// database object enters a DL's state on every opening and closing); a thread that finds the
// state held sleeps on a condition variable until the holder leaves it.
//
// A thread leaving a state reads it once more after giving it up (whether anyone sleeps there),
// so another thread may enter it in between: free a state only when no thread can still be
// leaving it (a database object keeps its DLs' states until it is disposed of, docs/db.md).
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace zelkor {

constexpr int kBlockerNoState = -1001;
constexpr int kBlockerNotHeld = -1002;
constexpr int kBlockerBusy = -1006;

class TBlockState {
 public:
  // Holders' nested entries plus threads waiting: 0 when the state is free and nobody waits.
  int Usage() const;
  // True when the calling thread holds the state.
  bool Entered() const;

 private:
  friend class TBlocker;
  std::atomic<std::thread::id> owner_{};  // the holder; the default id while free
  std::atomic<int> depth_{0};             // the holder's nested entries; only it writes them
  std::atomic<int> waiting_{0};           // threads asleep in Enter (or about to be)
  std::mutex mu_;                         // for sleeping and waking only
  std::condition_variable freed_;
};

class TBlocker {
 public:
  TBlocker() = default;
  explicit TBlocker(TBlockState* state) : state_(state) {}
  void Set(TBlockState* state) { state_ = state; }
  int Enter();
  // Enters only if that needs no waiting: 0 when entered, kBlockerBusy when another thread holds
  // the state (nothing changes then), kBlockerNoState without a state.
  int TryEnter();
  int Exit();

 private:
  void wakeOne();
  TBlockState* state_ = nullptr;
};

// The paths that wait for nobody are here, inline: they are what every opening and closing of a
// DL costs.

inline int TBlocker::TryEnter() {
  if (!state_) return kBlockerNoState;
  TBlockState& s = *state_;
  const std::thread::id me = std::this_thread::get_id();
  std::thread::id owner{};
  if (s.owner_.compare_exchange_strong(owner, me, std::memory_order_acquire)) {
    s.depth_.store(1, std::memory_order_relaxed);
    return 0;
  }
  // Only this thread ever stores its own id, so finding it means this thread holds the state.
  if (owner != me) return kBlockerBusy;
  s.depth_.store(s.depth_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  return 0;
}

inline int TBlocker::Exit() {
  if (!state_) return kBlockerNoState;
  TBlockState& s = *state_;
  if (s.owner_.load(std::memory_order_relaxed) != std::this_thread::get_id())
    return kBlockerNotHeld;
  int depth = s.depth_.load(std::memory_order_relaxed);
  s.depth_.store(depth - 1, std::memory_order_relaxed);
  if (depth > 1) return 0;
  s.owner_.store(std::thread::id{});
  if (s.waiting_.load() > 0) wakeOne();
  return 0;
}

}  // namespace zelkor
