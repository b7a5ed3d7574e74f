// A value handle bound to its store file: the host calls, loading and the save.
//
// Save rules (docs/storefile.md):
//   - One save is one transaction: the segments holding an element that was added, changed or
//     removed since the last save, the records created, written or removed since, and the head
//     (counts and sums of the whole saved state), written last.
//   - The element space's hand-over is acknowledged, and the record file's held changes become
//     its committed state, only after the commit succeeded; a failed save leaves both as they
//     were, so the next save writes everything again.
//   - The first save into a new file writes every segment, whatever the space handed over
//     before (the space may come from another file). It is made under a temporary name without
//     a journal and gets its name only once complete (StoreDb::publish). So is the first save
//     after HNew gave a bound object another space.
//   - A save answers what the file holds: a call after the commit point (the journal's trim)
//     can fail although the file holds the new save, so after any failure the file's head is
//     read back. When it cannot be read, the binding is unsettled and the next save reads it
//     first; if the failed save had reached the file, that save starts from it.
#include "platform/storefile/binding.h"

#include <algorithm>
#include <map>
#include <new>

#include "platform/storefile/ahead.h"
#include "platform/storefile/database.h"
#include "platform/storefile/recfile.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/classes.h"
#include "platform/zelkor/dispatch.h"
#include "platform/zelkor/log.h"

namespace storefile {

using namespace zelkor;

struct VhdBinding {
  explicit VhdBinding(bool readOnly) : records(&db, readOnly) {}
  storefile::StoreDb db;
  storefile::RecordFile records;
  Word fileObject = 0;
  bool fullSave = false;            // the next save writes every segment
  bool unsettled = false;           // a failed save may or may not have reached the file
  std::vector<uint64_t> segChecks;  // by segment id: the check of its saved row, 0 for none
};

int32_t bindingLoad(VhdBinding* b, fundra::ElementSpace** space) {
  *space = nullptr;
  auto* s = new (std::nothrow) fundra::ElementSpace(1024, 0);
  if (!s) return fundra::kLmNoMemory;
  std::map<int64_t, RecordInfo> index;
  b->segChecks.clear();
  int32_t r = b->db.load(s, &b->segChecks, [&index](int64_t key, int32_t size, uint64_t sum) {
    index[key] = {size, sum};
  });
  if (r) {
    delete s;
    DebugLogf(kVhdLogLevel, "vhdLoad: %s: refused, %E", b->db.path().c_str(), r);
    return r;
  }
  b->records.loaded(std::move(index), b->db.head().nextId);
  *space = s;
  return 0;
}

namespace {

bool sameHead(const Head& a, const Head& b) { return encodeHead(a) == encodeHead(b); }

// Before a save when the last one failed without learning whether it reached the file: reads
// the file's head; if it is not the one last saved, the file holds the failed save, and this
// save starts from what it holds. Answers 0 or the code of the read.
int32_t settle(VhdBinding* b) {
  Head disk;
  if (int32_t r = b->db.headOnDisk(&disk)) return r;
  if (!sameHead(disk, b->db.head())) {
    std::map<int64_t, RecordInfo> index;
    if (int32_t r = b->db.recordIndex([&index](int64_t key, int32_t size, uint64_t sum) {
          index[key] = {size, sum};
        }))
      return r;
    DebugLogf(kVhdLogLevel, "vhdSave: %s: the save that failed had reached the file",
              b->db.path().c_str());
    b->db.adoptHead(disk);
    b->records.rebase(std::move(index), disk.nextId);
    b->fullSave = true;
  }
  b->unsettled = false;
  return 0;
}

}  // namespace

int32_t bindingSave(VhdBinding* b, fundra::ElementSpace* space) {
  if (b->db.readOnly()) {
    DebugLogf(kVhdLogLevel, "vhdSave: %s: open read-only", b->db.path().c_str());
    return kVhdReadOnly;
  }
  if (b->unsettled) {
    if (int32_t r = settle(b)) {
      DebugLogf(kVhdLogLevel, "vhdSave: %s: save failed, %E", b->db.path().c_str(), r);
      return r;
    }
  }
  fundra::LmDelta delta = space->LmChanges();
  std::vector<int32_t> segs;
  int32_t r = 0;
  if (b->fullSave) {
    for (int32_t s = 0; s <= segmentOf(space->LmCount()); ++s) segs.push_back(s);
    r = b->db.segmentIds(&segs);
  } else {
    for (const auto* list : {&delta.added, &delta.changed, &delta.removed})
      for (int32_t n : *list)
        if (segs.empty() || segs.back() != segmentOf(n)) segs.push_back(segmentOf(n));
  }
  std::sort(segs.begin(), segs.end());
  segs.erase(std::unique(segs.begin(), segs.end()), segs.end());
  if (!r && segs.empty() && !b->records.hasChanges()) return 0;  // nothing to write

  storefile::Head head = b->db.head();
  head.saves++;
  head.liveCount = space->LmLiveCount();
  // A full save rewrites or deletes every row there is, so its digest starts afresh.
  if (b->fullSave) {
    head.segmentDigest = 0;
    head.segmentCount = 0;
  }
  // The new checks are kept apart until the commit: a failed save must leave segChecks as the
  // file has them.
  std::vector<std::pair<int32_t, uint64_t>> checks;
  if (!r) r = b->db.begin();
  if (!r) {
    // A big save encodes its segments on a second thread while it writes the ones before; the
    // space is only read until the loop ends. A body takes about 4 KiB. The same thread asks for
    // the write-out of a new file's pages, which may wait for the disk.
    struct Encoded {
      int32_t s = 0;
      uint64_t check = 0;
      std::vector<uint8_t> body;
    };
    size_t next = 0;
    bool noRoom = false;  // set by the encoding side, read once the items ran out
    storefile::Ahead<Encoded> encoded(
        [&](Encoded* e) {
          b->db.writeBehind();
          if (next == segs.size()) return false;
          e->s = segs[next++];
          try {
            e->check = storefile::encodeSegment(*space, e->s, &e->body);
          } catch (const std::bad_alloc&) {
            noRoom = true;
            return false;
          }
          return true;
        },
        segs.size() * 4096 >= storefile::StoreDb::parallelFrom());
    const Encoded* e;
    while ((e = encoded.Next()) != nullptr) {
      uint64_t old = size_t(e->s) < b->segChecks.size() ? b->segChecks[size_t(e->s)] : 0;
      if (old && !b->fullSave) {
        head.segmentDigest -= storefile::segmentDigest(e->s, old);
        head.segmentCount--;
      }
      if (e->check) {
        head.segmentDigest += storefile::segmentDigest(e->s, e->check);
        head.segmentCount++;
      }
      checks.push_back({e->s, e->check});
      if ((r = b->db.putSegment(e->s, e->body)) != 0) break;
    }
    if (!e && noRoom) r = fundra::kLmNoMemory;
  }
  if (!r) r = b->records.writeChanges(&head);
  if (!r) r = b->db.commit(head);
  if (r) {
    Head disk;
    int32_t seen = b->db.headOnDisk(&disk);
    if (seen == 0 && sameHead(disk, head)) {
      DebugLogf(kVhdLogLevel, "vhdSave: %s: %E after the commit; the file holds this save",
                b->db.path().c_str(), r);
      b->db.adoptHead(head);
      r = 0;
    } else {
      // Anything but the last save's head (or no head at all) leaves the outcome open.
      b->unsettled = seen != 0 || !sameHead(disk, b->db.head());
      DebugLogf(kVhdLogLevel, "vhdSave: %s: save failed, %E", b->db.path().c_str(), r);
      return r;
    }
  }
  space->LmHandedOver();
  b->records.saved();
  if (b->fullSave) b->segChecks.clear();
  for (const auto& [s, check] : checks) {
    if (size_t(s) >= b->segChecks.size()) b->segChecks.resize(size_t(s) + 1, 0);
    b->segChecks[size_t(s)] = check;
  }
  b->fullSave = false;
  return 0;
}

void bindingSpaceReplaced(VhdBinding* b) { b->fullSave = true; }

int32_t bindingCheck(VhdBinding* b) {
  std::vector<std::string> found = b->records.check(b->db.head());
  std::string why;
  if (b->db.quickCheck(&why)) found.push_back("database: " + why);
  // The file's head and record rows against the ones this binding loaded or saved last.
  Head disk;
  std::map<int64_t, RecordInfo> rows;
  int32_t r = b->db.headOnDisk(&disk);
  if (!r)
    r = b->db.recordIndex([&rows](int64_t key, int32_t size, uint64_t sum) {
      rows[key] = {size, sum};
    });
  bool stale = false;
  if (r) {
    found.push_back("the file's head and records cannot be read");
  } else if (!sameHead(disk, b->db.head())) {
    stale = b->db.readOnly();
    found.push_back(stale ? "the file was saved by a writer since this reader loaded it (" +
                                std::to_string(b->db.head().saves) + " saves then, " +
                                std::to_string(disk.saves) + " now)"
                          : "the file's head is not the one last saved");
  } else {
    const std::map<int64_t, RecordInfo>& saved = b->records.committed();
    for (const auto& [key, info] : rows) {
      auto s = saved.find(key);
      if (s == saved.end())
        found.push_back("record " + recordName(key) + " is in the file but was not saved");
      else if (s->second.size != info.size || s->second.sum != info.sum)
        found.push_back("record " + recordName(key) + " differs from the one saved");
    }
    for (const auto& [key, info] : saved)
      if (!rows.count(key)) found.push_back("record " + recordName(key) + " is missing");
  }
  for (const std::string& f : found)
    DebugLogf(kVhdLogLevel, "vhdTest: %s: %s", b->db.path().c_str(), f.c_str());
  if (found.empty()) return 0;
  return stale && found.size() == 1 ? kVhdStale : kVhdDamaged;
}

Word bindingFileObject(VhdBinding* b) { return b->fileObject; }

void bindingClose(VhdBinding* b) {
  send(b->fileObject, kDspo);
  delete b;
}

int32_t vhdCreateFile(Word store, const std::string& path) {
  fundra::ElementSpace* space = nullptr;
  int32_t version = 0;
  VhdBinding** slot = vhdBindingSlot(store, &space, &version);
  if (!slot) return kVhdNotVhd;
  if (*slot) return kVhdBound;
  if (!space) return kVhdNoValue;
  auto* b = new (std::nothrow) VhdBinding(false);
  if (!b) return fundra::kLmNoMemory;
  int32_t r = b->db.create(path, version);
  if (r) {
    delete b;
    return r;
  }
  b->fileObject = newRecordFileObject(&b->records);
  b->fullSave = true;
  r = bindingSave(b, space);
  if (!r) r = b->db.publish();
  if (r) {
    bindingClose(b);
    return r;
  }
  *slot = b;
  vhdSetChangedFlag(store, 0);
  return 0;
}

int32_t vhdOpenFile(Word store, const std::string& path, VhdOpenMode mode) {
  fundra::ElementSpace* space = nullptr;
  VhdBinding** slot = vhdBindingSlot(store, &space, nullptr);
  if (!slot) return kVhdNotVhd;
  if (*slot || space) return kVhdBound;
  bool readOnly = mode == VhdOpenMode::kReadOnly;
  auto* b = new (std::nothrow) VhdBinding(readOnly);
  if (!b) return fundra::kLmNoMemory;
  if (int32_t r = b->db.open(path, readOnly)) {
    delete b;
    return r;
  }
  b->fileObject = newRecordFileObject(&b->records);
  *slot = b;
  return 0;
}

int32_t vhdCloseFile(Word store) {
  VhdBinding** slot = vhdBindingSlot(store, nullptr, nullptr);
  if (!slot) return kVhdNotVhd;
  if (*slot) bindingClose(*slot);
  *slot = nullptr;
  return 0;
}

std::string vhdDescribe(Word store) {
  VhdBinding** slot = vhdBindingSlot(store, nullptr, nullptr);
  if (!slot) return "not a value handle";
  if (!*slot) return "not bound to a file";
  const VhdBinding& b = **slot;
  const storefile::Head& h = b.db.head();
  return b.db.path() + (b.db.readOnly() ? " (read-only)" : " (read-write)") + ": format " +
         std::to_string(h.format) + ", version " + std::to_string(h.version) + ", " +
         std::to_string(h.saves) + " saves, " + std::to_string(h.liveCount) + " elements in " +
         std::to_string(h.segmentCount) + " segments, " + std::to_string(h.recordCount) +
         " records; held for the next save: " + std::to_string(b.records.heldWrites()) +
         " records written, " + std::to_string(b.records.heldRemovals()) + " removed";
}

std::string vhdFilePath(Word store) {
  VhdBinding** slot = vhdBindingSlot(store, nullptr, nullptr);
  return slot && *slot ? (*slot)->db.path() : std::string();
}

}  // namespace storefile
