// Helpers shared by the store file's tests: scratch folders, handles, space content and models.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "platform/fundra/memory.h"
#include "platform/fundra/space.h"
#include "platform/storefile/recfile.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/zelkor.h"

namespace storetest {

using zelkor::fc;
using zelkor::kDspo;
using zelkor::kNew_;
using zelkor::kSetu;
using zelkor::send;
using zelkor::Word;

constexpr zelkor::FourCC kTVhd = fc("TVhd");

// A fresh folder under the system's temporary folder, removed with the object.
class ScratchDir {
 public:
  ScratchDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "zstoreXXXXXX").string();
    path_ = mkdtemp(tmpl.data());
  }
  ~ScratchDir() { std::filesystem::remove_all(path_); }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline std::vector<uint8_t> readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), {});
}
inline void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// A value handle made the way a host makes a store (New, Setu).
inline Word newHandle() {
  zelkor::ZelkorBoot();
  Word h = send(zelkor::ZelkorLookup(zelkor::kVhdSig), kNew_);
  send(h, kSetu);
  return h;
}

inline fundra::ElementSpace* spaceOf(Word h) {
  fundra::ElementSpace* s = nullptr;
  return send(h, storefile::kHGtH, &s) == 0 ? s : nullptr;
}

// The content of a space as a plain map: number -> bytes.
using Model = std::map<int32_t, std::vector<uint8_t>>;

inline Model modelOf(const fundra::ElementSpace& s) {
  Model m;
  for (int32_t n = s.LmNext(0); n; n = s.LmNext(n)) {
    const uint8_t* at = s.LmGet(n);
    m[n] = std::vector<uint8_t>(at, at + s.LmSize(n));
  }
  return m;
}

// Writes an element of the space and of the model alike.
inline void put(fundra::ElementSpace* s, Model* m, int32_t n, std::vector<uint8_t> bytes) {
  s->LmSetAssert(n, int32_t(bytes.size()));
  if (!bytes.empty()) std::copy(bytes.begin(), bytes.end(), s->LmGet(n));
  (*m)[n] = std::move(bytes);
}

inline std::vector<uint8_t> randomBytes(std::mt19937& rng, int maxSize) {
  std::vector<uint8_t> b(rng() % uint32_t(maxSize + 1));
  for (uint8_t& x : b) x = uint8_t(rng());
  return b;
}

// Records of a handle's file as a map id -> bytes, read through the record file object. A read
// that fails leaves the record out and its code in *failure.
inline std::map<int32_t, std::vector<uint8_t>> recordsOf(Word h, int32_t* failure = nullptr) {
  std::map<int32_t, std::vector<uint8_t>> out;
  Word file = send(h, storefile::kHGtF);
  int32_t n = zelkor::i32(send(file, storefile::kHCId, kTVhd));
  for (int32_t i = 1; i <= n; ++i) {
    int32_t id = zelkor::i32(send(file, storefile::kHEId, kTVhd, i));
    fundra::TMemory* mem = nullptr;
    if (Word r = send(file, storefile::kHRed, kTVhd, id, &mem, 0)) {
      if (failure) *failure = zelkor::i32(r);
      continue;
    }
    send(file, storefile::kHDet, mem);
    out[id] = std::vector<uint8_t>(mem->MemPtr(), mem->MemPtr() + mem->GetSize());
    delete mem;
  }
  return out;
}

// Writes a record through the record file object the way the store does; answers the id.
inline int32_t writeRecord(Word file, const std::vector<uint8_t>& bytes) {
  int32_t id = zelkor::i32(send(file, storefile::kHUId, kTVhd, 1000));
  fundra::TMemory mem(int32_t(bytes.size()));
  if (!bytes.empty()) std::copy(bytes.begin(), bytes.end(), mem.MemPtr());
  if (send(file, storefile::kHCrt, &mem, kTVhd, id) != 0) return -1;
  Word r = send(file, storefile::kHWrt, &mem);
  send(file, storefile::kHDet, &mem);
  return r == 0 ? id : -1;
}

// Opens a file into a new handle and installs (loads) it; answers the handle or 0, and the code.
inline Word openStore(const std::string& path, storefile::VhdOpenMode mode, int32_t* code) {
  Word h = newHandle();
  *code = storefile::vhdOpenFile(h, path, mode);
  fundra::ElementSpace* s = nullptr;
  if (*code == 0) *code = int32_t(send(h, storefile::kHGtH, &s));
  if (*code != 0) {
    send(h, kDspo);
    return 0;
  }
  return h;
}

}  // namespace storetest
