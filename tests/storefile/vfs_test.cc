// The store file's file layer gathers a database's page writes and a journal's appends: whatever
// reads the file afterwards, the same connection mid-transaction or another connection after an
// unlock, sees exactly what SQLite wrote.
#include "platform/storefile/vfs.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

#include "tests/storefile/support.h"

namespace {

using storefile::storeVfsName;

int exec(sqlite3* db, const std::string& sql) {
  return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
}

// The one number a query answers, or -1.
int64_t number(sqlite3* db, const char* sql) {
  sqlite3_stmt* st = nullptr;
  int64_t out = -1;
  if (sqlite3_prepare_v2(db, sql, -1, &st, nullptr) == SQLITE_OK && sqlite3_step(st) == SQLITE_ROW)
    out = sqlite3_column_int64(st, 0);
  sqlite3_finalize(st);
  return out;
}

// 3000 rows of 300 bytes, each filled with its id's low byte: about 900 KiB, far more than the
// two-page cache the connections below keep, so pages are written out and read back mid-way.
constexpr const char* kFill =
    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 3000)"
    " INSERT INTO t SELECT i, zeroblob(300) FROM n;"
    "UPDATE t SET b = CAST(replace(hex(zeroblob(300)), '00', printf('%02X', id % 256)) AS BLOB);";
constexpr const char* kBad =
    "SELECT count(*) FROM t WHERE length(b) != 600 OR b != CAST(replace(hex(zeroblob(300)), '00',"
    " printf('%02X', id % 256)) AS BLOB)";

sqlite3* openThroughLayer(const std::string& path, const char* journal) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, storeVfsName());
  exec(db, std::string("PRAGMA page_size=4096; PRAGMA cache_size=2; PRAGMA journal_mode=") +
               journal + "; PRAGMA synchronous=OFF;");
  return db;
}

TEST(FileLayer, PagesWrittenOutMidTransactionReadBackAsWritten) {
  storetest::ScratchDir dir;
  for (const char* journal : {"OFF", "DELETE"}) {
    std::string path = dir.file(std::string("t-") + journal + ".db");
    sqlite3* db = openThroughLayer(path, journal);
    ASSERT_EQ(exec(db, "CREATE TABLE t (id INTEGER PRIMARY KEY, b BLOB); BEGIN;"), SQLITE_OK);
    ASSERT_EQ(exec(db, kFill), SQLITE_OK) << sqlite3_errmsg(db);
    EXPECT_EQ(number(db, kBad), 0) << journal;
    EXPECT_EQ(number(db, "SELECT count(*) FROM t"), 3000) << journal;
    ASSERT_EQ(exec(db, "COMMIT;"), SQLITE_OK);
    // A rolled back change leaves the committed rows, though its pages reached the file.
    if (std::string(journal) == "DELETE") {
      ASSERT_EQ(exec(db, "BEGIN; UPDATE t SET b = zeroblob(600); ROLLBACK;"), SQLITE_OK);
      EXPECT_EQ(number(db, kBad), 0);
    }
    sqlite3_close(db);
  }
}

TEST(FileLayer, AnotherConnectionSeesACommitWithoutASync) {
  storetest::ScratchDir dir;
  std::string path = dir.file("t.db");
  sqlite3* writer = openThroughLayer(path, "DELETE");
  ASSERT_EQ(exec(writer, "CREATE TABLE t (id INTEGER PRIMARY KEY, b BLOB);"), SQLITE_OK);
  ASSERT_EQ(exec(writer, std::string("BEGIN;") + kFill + "COMMIT;"), SQLITE_OK);
  // The writer never synced (synchronous=OFF): only its unlock passes its last pages on.
  sqlite3* reader = nullptr;
  ASSERT_EQ(sqlite3_open_v2(path.c_str(), &reader, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  EXPECT_EQ(number(reader, "SELECT count(*) FROM t"), 3000);
  EXPECT_EQ(number(reader, kBad), 0);
  sqlite3_close(reader);
  sqlite3_close(writer);
}

}  // namespace
