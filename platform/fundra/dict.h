// TDict: a map from word to word; TDictIter walks it.
//
// Entries are kept in insertion order in a dense array with a hash index beside it, so
// iteration is deterministic: oldest entry first. A value of 0 is stored like any other, but
// Lookup cannot tell it from absence; Has can.
//
// Iterating while changing: removing any entry is allowed (removed entries are skipped); entries
// added during a walk are visited by it. The dense array is compacted only while no iterator is
// alive.
//
// Invariants (Check lists every violation):
//   1. Every live entry is found through the index at its key, and the index holds no other
//      position than live entries' positions.
//   2. count equals the number of live entries.
//   3. head is at or before the first live entry.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/zelkor/word.h"

namespace fundra {

using zelkor::Word;

class TDict {
 public:
  // The two arguments are size hints: expected entries, and 0 (reserved). Both may be 0.
  TDict(int32_t expected = 0, int32_t reserved = 0);

  // The value stored under key, or 0 when there is none.
  Word Lookup(Word key) const;
  bool Has(Word key) const;
  // Stores value under key (replacing any earlier value); answers the earlier value or 0.
  Word Set(Word key, Word value);
  // Removes key; answers 1 when it was there, 0 when not.
  int32_t Remove(Word key);
  // The oldest entry: true and its key/value, or false when empty.
  bool First(Word* key, Word* value) const;
  int32_t Count() const { return count_; }
  void Clear();

  std::vector<std::string> Check() const;

 private:
  friend class TDictIter;
  struct Entry {
    Word key;
    Word value;
    bool live;
  };
  int32_t Find(Word key) const;  // position in entries_, or -1
  void Reindex(size_t buckets);
  void Compact();

  std::vector<Entry> entries_;
  std::vector<int32_t> index_;  // open addressing; -1 empty, -2 deleted, else entry position
  int32_t count_ = 0;
  int32_t tombs_ = 0;        // deleted marks in index_
  mutable size_t head_ = 0;  // no live entry before it
  mutable int32_t iterators_ = 0;
};

class TDictIter {
 public:
  explicit TDictIter(const TDict& dict);
  ~TDictIter();
  TDictIter(const TDictIter&) = delete;
  TDictIter& operator=(const TDictIter&) = delete;

  // The next entry: true and its key/value, or false past the end.
  bool Next(Word* key, Word* value);
  void Reset() { pos_ = 0; }

 private:
  const TDict& dict_;
  size_t pos_ = 0;
};

}  // namespace fundra
