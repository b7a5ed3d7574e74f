// Application resources and location handles.
//
// Raw resources are files in the host's resource folder, one per resource, named by the decimal
// id: <folder>/<id>.res (the application keeps them under app/resources/). Location handles name
// a file or folder of the machine by path and persist in a small export form.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/fundra/form_codes.h"
#include "platform/fundra/memory.h"
#include "platform/fundra/tstring.h"

namespace fundra {

constexpr int32_t kResNotFound = -1701;     // no resource with that id
constexpr int32_t kResReadFailed = -1702;   // the file exists but cannot be read whole
constexpr int32_t kResBadArgument = -1703;  // a null memory or string, an id below 0
constexpr int32_t kResNoPath = -1704;       // the location handle names no file

// Sets the folder resources are read from (the host does so at start); answers the previous one.
std::string SetResourceFolder(const std::string& folder);
std::string GetResourceFolder();

// Hands a resource to the foundation by its bytes, as a host that holds resources outside the
// folder does (the shell's scripts); it is found before the folder's file of the same id. Empty
// bytes are a resource of 0 bytes. ForgetRawResources drops every one handed over.
void DefineRawResource(int32_t id, std::string_view bytes);
void ForgetRawResources();

// Reads resource id into memory, sized to fit. limit is the most bytes to read, or -1 for the
// whole resource. Answers 0, or kResNotFound, kResReadFailed, kResBadArgument, or the memory's own
// error; on an error the memory is left empty.
int32_t RMGetRawResource(TMemory* memory, int32_t id, int32_t limit);

// A path to a file or folder.
class TLocHandle {
 public:
  TLocHandle() = default;
  explicit TLocHandle(std::string_view path) : path_(path) {}

  void Reset() { path_.Clear(); }
  void SetPath(std::string_view path) { path_.Set(path); }
  bool IsEmpty() const { return path_.IsEmpty(); }
  // Form 1: the whole path; form 0: its last part (the file or folder name). Answers 0, or -1
  // for an empty handle (the string is then empty).
  int32_t GetPath(TString* out, int32_t form) const;

  // Export form (codes and use: docs/formats.md), StoreSize 8 + n bytes:
  //   offset  width  field  meaning
  //   0       4      head   "LH", version 1, 0 (form_bytes.h)
  //   4       4      n      the byte length of the path, signed, little-endian
  //   8       n      path   UTF-8
  int32_t StoreSize() const { return 8 + path_.ByteLength(); }
  int32_t Export(void* data, int64_t size, int32_t option = 0) const;
  // Answers 0 on success (the size of the form is StoreSize), or a negative code and an empty
  // handle.
  int32_t Import(const void* data, int64_t size);

 private:
  TString path_;
};

}  // namespace fundra
