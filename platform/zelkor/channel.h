// Channels and blocking broadcasts.
//
// A channel is a word: an object or a FourCC. Objects join with poAd; TransBlock sends the
// message to every member in join order and returns when all have handled it.
//
// Invariants of a channel:
//   1. an object is a member at most once;
//   2. members keep their join order;
//   3. a disposed object is a member of no channel (Dspo leaves them all).
// During a broadcast, members may send, join, leave and be disposed: a member that leaves (or
// is disposed) before its turn is skipped, a member that joins during the broadcast is not
// reached by it, and no member still joined is skipped. Broadcasts may nest.
#pragma once

#include <vector>

#include "platform/zelkor/dispatch.h"

namespace zelkor {

Word poAd(Object* listener, Word channel);
Word poRm(Object* listener, Word channel);
void leaveAllChannels(Object* listener);
// The members of a channel in join order.
std::vector<Object*> channelMembers(Word channel);

Word broadcast(Word channel, const Msg& m);

template <class... A>
Word TransBlock(Word channel, FourCC sel, A... args) {
  return broadcast(channel, makeMsg(sel, args...));
}

}  // namespace zelkor
