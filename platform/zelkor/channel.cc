#include "platform/zelkor/channel.h"

#include <algorithm>
#include <memory>
#include <unordered_map>

namespace zelkor {

namespace {

struct Channel {
  std::vector<Object*> members;  // null where a member left during a broadcast
  int broadcasting = 0;
  bool holes = false;
};

struct Channels {
  std::unordered_map<Word, std::unique_ptr<Channel>> byWord;
  std::unordered_map<Object*, std::vector<Word>> joined;
  // The channel broadcast to last: a sender tends to broadcast on one channel many times in a
  // row (a manager's events, a store's notices), and the map's lookup is most of a broadcast's
  // own cost. Cleared when that channel goes.
  Word lastWord = 0;
  Channel* last = nullptr;
};

Channels& all() {
  static Channels* c = new Channels;
  return *c;
}

void compact(Channel& ch) {
  if (ch.broadcasting || !ch.holes) return;
  ch.members.erase(std::remove(ch.members.begin(), ch.members.end(), nullptr), ch.members.end());
  ch.holes = false;
}

void erase(std::unordered_map<Word, std::unique_ptr<Channel>>::iterator it) {
  if (all().last == it->second.get()) all().last = nullptr;
  all().byWord.erase(it);
}

Channel* find(Word channel) {
  Channels& c = all();
  if (c.last && c.lastWord == channel) return c.last;
  auto it = c.byWord.find(channel);
  if (it == c.byWord.end()) return nullptr;
  c.lastWord = channel;
  return c.last = it->second.get();
}

void removeMember(Word channel, Object* listener) {
  auto it = all().byWord.find(channel);
  if (it == all().byWord.end()) return;
  Channel& ch = *it->second;
  auto m = std::find(ch.members.begin(), ch.members.end(), listener);
  if (m == ch.members.end()) return;
  *m = nullptr;
  ch.holes = true;
  compact(ch);
  if (ch.members.empty() && !ch.broadcasting) erase(it);
}

}  // namespace

Word poAd(Object* listener, Word channel) {
  if (!listener) return 0;
  auto& slot = all().byWord[channel];
  if (!slot) slot = std::make_unique<Channel>();
  if (std::find(slot->members.begin(), slot->members.end(), listener) != slot->members.end())
    return 0;
  slot->members.push_back(listener);
  all().joined[listener].push_back(channel);
  return 0;
}

Word poRm(Object* listener, Word channel) {
  auto j = all().joined.find(listener);
  if (j == all().joined.end()) return 0;
  auto& list = j->second;
  auto w = std::find(list.begin(), list.end(), channel);
  if (w == list.end()) return 0;
  list.erase(w);
  if (list.empty()) all().joined.erase(j);
  removeMember(channel, listener);
  return 0;
}

void leaveAllChannels(Object* listener) {
  auto j = all().joined.find(listener);
  if (j == all().joined.end()) return;
  std::vector<Word> channels = std::move(j->second);
  all().joined.erase(j);
  for (Word c : channels) removeMember(c, listener);
}

std::vector<Object*> channelMembers(Word channel) {
  std::vector<Object*> out;
  auto it = all().byWord.find(channel);
  if (it == all().byWord.end()) return out;
  for (Object* o : it->second->members)
    if (o) out.push_back(o);
  return out;
}

Word broadcast(Word channel, const Msg& m) {
  // The channel object stays put while broadcasting > 0 (removeMember never erases it then).
  Channel* ch = find(channel);
  if (!ch) return 0;
  ch->broadcasting++;
  const size_t reach = ch->members.size();
  const uint32_t index = findSelector(m.sel);
  for (size_t i = 0; i < reach; ++i) {
    Object* o = ch->members[i];
    if (!o) continue;
    const ClassRec* c = o->h.cls;
    if (Handler h = handlerOf(c, index)) {
      h(o, m);
    } else if (c->fallback != notUnderstood) {
      c->fallback(o, m);
    }
  }
  ch->broadcasting--;
  compact(*ch);
  if (ch->members.empty() && !ch->broadcasting) erase(all().byWord.find(channel));
  return 0;
}

}  // namespace zelkor
