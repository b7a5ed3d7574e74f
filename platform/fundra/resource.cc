#include "platform/fundra/resource.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "platform/fundra/form_bytes.h"
#include "platform/fundra/utf8.h"

namespace fundra {

namespace {

std::mutex folder_mu;
std::string& folder() {
  static std::string f = "app/resources";
  return f;
}
// Resources handed over by the host, by id; guarded by folder_mu.
std::map<int32_t, std::string>& handed() {
  static std::map<int32_t, std::string> m;
  return m;
}

// Copies a handed-over resource (its first limit bytes) into memory. Answers false when id was
// not handed over.
bool readHanded(TMemory* memory, int32_t id, int32_t limit, int32_t* result) {
  std::lock_guard lock(folder_mu);
  auto it = handed().find(id);
  if (it == handed().end()) return false;
  int32_t size = int32_t(it->second.size());
  int32_t want = limit < 0 ? size : std::min(limit, size);
  *result = memory->SetSize(want);
  if (*result == 0 && want > 0) std::memcpy(memory->MemPtr(), it->second.data(), size_t(want));
  return true;
}

}  // namespace

std::string SetResourceFolder(const std::string& f) {
  std::lock_guard lock(folder_mu);
  return std::exchange(folder(), f);
}

std::string GetResourceFolder() {
  std::lock_guard lock(folder_mu);
  return folder();
}

void DefineRawResource(int32_t id, std::string_view bytes) {
  std::lock_guard lock(folder_mu);
  handed()[id] = std::string(bytes);
}

void ForgetRawResources() {
  std::lock_guard lock(folder_mu);
  handed().clear();
}

int32_t RMGetRawResource(TMemory* memory, int32_t id, int32_t limit) {
  if (memory == nullptr || id < 0 || limit < -1) return kResBadArgument;
  memory->SetSize(0);
  int32_t handedResult = 0;
  if (readHanded(memory, id, limit, &handedResult)) {
    if (handedResult != 0) memory->SetSize(0);
    return handedResult;
  }
  std::string path = GetResourceFolder() + "/" + std::to_string(id) + ".res";
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return kResNotFound;
  int32_t result = kResReadFailed;
  if (std::fseek(f, 0, SEEK_END) == 0) {
    long size = std::ftell(f);
    if (size >= 0 && size <= INT32_MAX && std::fseek(f, 0, SEEK_SET) == 0) {
      int32_t want = limit < 0 ? int32_t(size) : std::min(limit, int32_t(size));
      result = memory->SetSize(want);
      if (result == 0 && want > 0 &&
          std::fread(memory->MemPtr(), 1, size_t(want), f) != size_t(want))
        result = kResReadFailed;
    }
  }
  std::fclose(f);
  if (result != 0) memory->SetSize(0);
  return result;
}

int32_t TLocHandle::GetPath(TString* out, int32_t form) const {
  if (out == nullptr) return kResBadArgument;
  out->Clear();
  if (IsEmpty()) return kResNoPath;
  std::string_view p = path_.View();
  if (form == 0) {
    while (p.size() > 1 && p.back() == '/') p.remove_suffix(1);
    size_t slash = p.rfind('/');
    if (slash != std::string_view::npos && p.size() > 1) p.remove_prefix(slash + 1);
  }
  out->Set(p);
  return 0;
}

namespace {
constexpr char kMagic[2] = {'L', 'H'};
}

int32_t TLocHandle::Export(void* data, int64_t size, int32_t option) const {
  if (int32_t bad = form::CheckExport(data, size, option, StoreSize())) return bad;
  form::Writer w(data);
  w.Head(kMagic);
  w.I32(path_.ByteLength());
  w.Bytes(path_.View().data(), path_.View().size());
  return StoreSize();
}

int32_t TLocHandle::Import(const void* data, int64_t size) {
  Reset();
  form::Reader r(data, size);
  if (int32_t bad = r.Head(kMagic)) return bad;
  if (!r.Has(4)) return kFormTruncated;
  int32_t n = r.I32();
  if (n < 0 || n > INT32_MAX - 8) return kFormDamaged;
  if (!r.Has(n)) return kFormTruncated;
  std::string_view bytes(reinterpret_cast<const char*>(r.Bytes(n)), size_t(n));
  if (!utf8::IsValid(bytes)) return kFormDamaged;
  path_.Set(bytes);
  return 0;
}

}  // namespace fundra
