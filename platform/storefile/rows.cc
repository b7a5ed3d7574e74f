#include "platform/storefile/rows.h"

#include <new>

namespace storefile {

using namespace zelkor;

SegmentRows::SegmentRows(sqlite3_stmt* st, bool ahead)
    : st_(st), rows_([this](Row* row) { return Read(row); }, ahead) {}

bool SegmentRows::Read(Row* row) {
  rc_ = sqlite3_step(st_);
  if (rc_ != SQLITE_ROW) return false;
  row->id = sqlite3_column_int64(st_, 0);
  const auto* body = static_cast<const uint8_t*>(sqlite3_column_blob(st_, 1));
  row->null = body == nullptr;
  if (body) {
    try {
      row->bytes.assign(body, body + sqlite3_column_bytes(st_, 1));
    } catch (const std::bad_alloc&) {
      rc_ = SQLITE_NOMEM;
      return false;
    }
  }
  return true;
}

bool SegmentRows::Next(int64_t* id, const uint8_t** body, size_t* size) {
  const Row* row = rows_.Next();
  if (!row) return false;
  *id = row->id;
  *body = row->null ? nullptr : row->bytes.data();
  *size = row->null ? 0 : row->bytes.size();
  return true;
}

}  // namespace storefile
