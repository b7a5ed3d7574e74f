// The record file: held changes over the committed records, and the `@vrf` class.
#include "platform/storefile/recfile.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/storefile/vhd.h"
#include "platform/zelkor/boot.h"
#include "platform/zelkor/classes.h"
#include "platform/zelkor/dispatch.h"

namespace storefile {

using namespace zelkor;

void RecordFile::loaded(std::map<int64_t, RecordInfo> committed, int32_t nextId) {
  committed_ = std::move(committed);
  written_.clear();
  removed_.clear();
  nextId_ = nextId;
  idsValid_ = false;
}

bool RecordFile::exists(int64_t key) const {
  return written_.count(key) || (committed_.count(key) && !removed_.count(key));
}

int32_t RecordFile::uniqueId(FourCC, int32_t lowest) {
  int32_t id = std::max(nextId_, lowest);
  nextId_ = id + 1;
  return id;
}

int32_t RecordFile::create(fundra::TMemory* handle, FourCC type, int32_t id) {
  if (readOnly_) return kVhdReadOnly;
  if (!handle || id <= 0) return kVhdBadArgument;
  int64_t key = recordKey(type, id);
  if (exists(key)) return kVhdExists;
  written_[key];
  attached_[handle] = key;
  nextId_ = std::max(nextId_, id + 1);
  idsValid_ = false;
  return 0;
}

int32_t RecordFile::write(fundra::TMemory* handle) {
  if (readOnly_) return kVhdReadOnly;
  auto a = attached_.find(handle);
  if (!handle || a == attached_.end()) return kVhdNotAttached;
  const uint8_t* bytes = handle->MemPtr();
  std::vector<uint8_t>& to = written_[a->second];
  to.assign(bytes, bytes + handle->GetSize());
  removed_.erase(a->second);
  return 0;
}

int32_t RecordFile::read(FourCC type, int32_t id, fundra::TMemory** out) {
  if (!out) return kVhdBadArgument;
  *out = nullptr;
  int64_t key = recordKey(type, id);
  if (!exists(key)) return kVhdNoRecord;
  auto* handle = new (std::nothrow) fundra::TMemory;
  if (!handle) return fundra::kMemNoMemory;
  int32_t r = 0;
  auto w = written_.find(key);
  if (w != written_.end()) {
    r = handle->SetSize(int32_t(w->second.size()));
    if (!r && !w->second.empty()) std::memcpy(handle->MemPtr(), w->second.data(), w->second.size());
  } else {
    const RecordInfo& saved = committed_.at(key);
    r = db_->readRecord(key, saved.size, saved.sum, handle);
  }
  if (r) {
    delete handle;
    return r;
  }
  attached_[handle] = key;
  *out = handle;
  return 0;
}

int32_t RecordFile::detach(fundra::TMemory* handle) {
  return attached_.erase(handle) ? 0 : kVhdNotAttached;
}

int32_t RecordFile::remove(FourCC type, int32_t id) {
  if (readOnly_) return kVhdReadOnly;
  int64_t key = recordKey(type, id);
  if (!exists(key)) return kVhdNoRecord;
  written_.erase(key);
  if (committed_.count(key)) removed_.insert(key);
  for (auto a = attached_.begin(); a != attached_.end();)
    a = a->second == key ? attached_.erase(a) : std::next(a);
  idsValid_ = false;
  return 0;
}

int32_t RecordFile::size(FourCC type, int32_t id) const {
  int64_t key = recordKey(type, id);
  auto w = written_.find(key);
  if (w != written_.end()) return int32_t(w->second.size());
  auto c = committed_.find(key);
  return c != committed_.end() && !removed_.count(key) ? c->second.size : kVhdNoRecord;
}

const std::vector<int32_t>& RecordFile::ids(FourCC type) {
  if (idsValid_ && idsType_ == type) return ids_;
  ids_.clear();
  int64_t from = recordKey(type, 0), to = recordKey(type, -1);
  for (auto c = committed_.lower_bound(from); c != committed_.end() && c->first <= to; ++c)
    if (!removed_.count(c->first)) ids_.push_back(keyId(c->first));
  for (auto w = written_.lower_bound(from); w != written_.end() && w->first <= to; ++w)
    if (!committed_.count(w->first)) ids_.push_back(keyId(w->first));
  std::sort(ids_.begin(), ids_.end(),
            [](int32_t a, int32_t b) { return uint32_t(a) < uint32_t(b); });
  idsType_ = type;
  idsValid_ = true;
  return ids_;
}

int32_t RecordFile::count(FourCC type) { return int32_t(ids(type).size()); }

int32_t RecordFile::idAt(FourCC type, int32_t i) {
  const std::vector<int32_t>& v = ids(type);
  return i >= 1 && size_t(i) <= v.size() ? v[size_t(i) - 1] : 0;
}

int32_t RecordFile::writeChanges(Head* head) const {
  for (int64_t key : removed_) {
    if (int32_t r = db_->deleteRecord(key)) return r;
    const RecordInfo& old = committed_.at(key);
    head->recordDigest -= recordDigest(key, old.size, old.sum);
    head->recordCount--;
  }
  for (const auto& [key, bytes] : written_) {
    uint64_t sum = checksum(bytes.data(), bytes.size());
    if (int32_t r = db_->putRecord(key, bytes.data(), int32_t(bytes.size()), sum)) return r;
    auto old = committed_.find(key);
    if (old != committed_.end()) {
      head->recordDigest -= recordDigest(key, old->second.size, old->second.sum);
      head->recordCount--;
    }
    head->recordDigest += recordDigest(key, int64_t(bytes.size()), sum);
    head->recordCount++;
  }
  head->nextId = nextId_;
  return 0;
}

void RecordFile::saved() {
  for (int64_t key : removed_) committed_.erase(key);
  for (const auto& [key, bytes] : written_)
    committed_[key] = {int32_t(bytes.size()), checksum(bytes.data(), bytes.size())};
  written_.clear();
  removed_.clear();
}

void RecordFile::rebase(std::map<int64_t, RecordInfo> committed, int32_t nextId) {
  std::set<int64_t> removed;
  for (const auto& c : committed)
    if (!exists(c.first)) removed.insert(c.first);
  committed_ = std::move(committed);
  removed_ = std::move(removed);
  nextId_ = std::max(nextId_, nextId);
  idsValid_ = false;
}

std::vector<std::string> RecordFile::check(const Head& head) const {
  std::vector<std::string> out;
  auto name = recordName;
  for (int64_t key : removed_) {
    if (written_.count(key)) out.push_back("1: record " + name(key) + " written and removed");
    if (!committed_.count(key)) out.push_back("2: record " + name(key) + " removed, never saved");
  }
  for (const auto& [handle, key] : attached_)
    if (!exists(key)) out.push_back("3: a handle is attached to missing record " + name(key));
  auto tooHigh = [&](int64_t key) { return keyId(key) >= nextId_; };
  for (const auto& [key, info] : committed_) {
    if (tooHigh(key)) out.push_back("4: record " + name(key) + " at or above the next id");
    if (info.size < 0) out.push_back("5: record " + name(key) + " has a negative size");
  }
  for (const auto& [key, bytes] : written_)
    if (tooHigh(key)) out.push_back("4: record " + name(key) + " at or above the next id");
  uint64_t digest = 0;
  for (const auto& [key, info] : committed_) digest += recordDigest(key, info.size, info.sum);
  if (int32_t(committed_.size()) != head.recordCount || digest != head.recordDigest)
    out.push_back("5: the file's head does not count the saved records");
  return out;
}

namespace {

// Instance data of `@vrf`: the record file it answers for (the binding owns it).
struct RecordFileData {
  RecordFile* records;
};

ClassRec* recordFileClass() { return findClass(kRecordFileSig); }

RecordFile* recordsOf(Object* self) {
  return instanceData<RecordFileData>(self, recordFileClass())->records;
}

fundra::TMemory* handleArg(Word w) { return asPtr<fundra::TMemory>(w); }

Word rfUniqueId(Object* self, const Msg& m) {
  return recordsOf(self)->uniqueId(u32(m.w[0]), i32(m.w[1]));
}
Word rfCreate(Object* self, const Msg& m) {
  return recordsOf(self)->create(handleArg(m.w[0]), u32(m.w[1]), i32(m.w[2]));
}
Word rfWrite(Object* self, const Msg& m) { return recordsOf(self)->write(handleArg(m.w[0])); }
Word rfRead(Object* self, const Msg& m) {
  return recordsOf(self)->read(u32(m.w[0]), i32(m.w[1]), asPtr<fundra::TMemory*>(m.w[2]));
}
Word rfDetach(Object* self, const Msg& m) { return recordsOf(self)->detach(handleArg(m.w[0])); }
Word rfRemove(Object* self, const Msg& m) {
  return recordsOf(self)->remove(u32(m.w[0]), i32(m.w[1]));
}
Word rfSize(Object* self, const Msg& m) { return recordsOf(self)->size(u32(m.w[0]), i32(m.w[1])); }
Word rfCount(Object* self, const Msg& m) { return recordsOf(self)->count(u32(m.w[0])); }
Word rfIdAt(Object* self, const Msg& m) { return recordsOf(self)->idAt(u32(m.w[0]), i32(m.w[1])); }

void recordFileBuild(ClassRec* c) {
  Defn(c, kHUId, rfUniqueId);
  Defn(c, kHCrt, rfCreate);
  Defn(c, kHWrt, rfWrite);
  Defn(c, kHCmp, rfWrite);
  Defn(c, kHRed, rfRead);
  Defn(c, kHDet, rfDetach);
  Defn(c, kHRmv, rfRemove);
  Defn(c, kHSiz, rfSize);
  Defn(c, kHCId, rfCount);
  Defn(c, kHEId, rfIdAt);
}

int gRecordFileClass =
    MakeFrameworkClass(kRecordFileSig, kRootSig, sizeof(RecordFileData), recordFileBuild);

}  // namespace

Word newRecordFileObject(RecordFile* records) {
  ClassRec* c = recordFileClass();
  Object* o = c ? newObject(c) : nullptr;
  if (!o) return 0;
  instanceData<RecordFileData>(o, c)->records = records;
  return objWord(o);
}

}  // namespace storefile
