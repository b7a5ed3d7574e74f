// SegmentRows: rows read ahead on a thread are the rows the statement steps, in order, then its
// last answer, whatever the loader does meanwhile.
#include "platform/storefile/rows.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

using storefile::SegmentRows;

namespace {

struct Row {
  int64_t id;
  bool null;
  std::vector<uint8_t> bytes;
  bool operator==(const Row&) const = default;
};

// A database of 1000 rows: bodies of 0 to 40000 bytes (some null, some empty), more rows than
// the ring holds, and bodies far bigger than a segment.
class Rows : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(sqlite3_open(":memory:", &db_), SQLITE_OK);
    sqlite3_exec(db_, "CREATE TABLE seg (id INTEGER PRIMARY KEY, body BLOB)", nullptr, nullptr,
                 nullptr);
    sqlite3_stmt* put = nullptr;
    sqlite3_prepare_v2(db_, "INSERT INTO seg VALUES (?, ?)", -1, &put, nullptr);
    for (int64_t id = 1; id <= 1000; ++id) {
      sqlite3_bind_int64(put, 1, id * 3);
      std::vector<uint8_t> body(size_t(id % 7 == 0 ? 40000 : id * 13 % 5000), uint8_t(id));
      if (id % 11 == 0)
        sqlite3_bind_null(put, 2);
      else
        sqlite3_bind_blob(put, 2, body.data(), int(body.size()), SQLITE_TRANSIENT);
      ASSERT_EQ(sqlite3_step(put), SQLITE_DONE);
      sqlite3_reset(put);
    }
    sqlite3_finalize(put);
  }
  void TearDown() override { sqlite3_close(db_); }

  // Every row of sql, read with or without a thread; *rc gets the last step's answer, or -1 when
  // it stopped after `most` rows.
  std::vector<Row> read(const char* sql, bool ahead, int* rc, size_t most = SIZE_MAX) {
    sqlite3_stmt* st = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db_, sql, -1, &st, nullptr), SQLITE_OK);
    std::vector<Row> rows;
    {
      SegmentRows source(st, ahead);
      int64_t id;
      const uint8_t* body;
      size_t size;
      bool more = true;
      while (rows.size() < most && (more = source.Next(&id, &body, &size)))
        rows.push_back(Row{id, body == nullptr, std::vector<uint8_t>(body, body + size)});
      *rc = more ? -1 : source.rc();  // the last answer is there only once the rows ran out
    }
    sqlite3_finalize(st);
    return rows;
  }

  sqlite3* db_ = nullptr;
};

TEST_F(Rows, ReadAheadGivesEveryRowInOrderThenTheEnd) {
  int direct = 0, ahead = 0;
  std::vector<Row> expected = read("SELECT id, body FROM seg", false, &direct);
  ASSERT_EQ(expected.size(), 1000u);
  EXPECT_EQ(direct, SQLITE_DONE);
  EXPECT_EQ(read("SELECT id, body FROM seg", true, &ahead), expected);
  EXPECT_EQ(ahead, SQLITE_DONE);
}

TEST_F(Rows, AStepThatFailsEndsTheRowsWithItsAnswerAfterTheRowsBefore) {
  // abs() of the smallest integer fails at the row of id 1500 with an overflow.
  const char* sql =
      "SELECT id, CASE WHEN id = 1500 THEN abs(-9223372036854775807 - 1) ELSE body END FROM seg";
  int direct = 0, ahead = 0;
  std::vector<Row> expected = read(sql, false, &direct);
  ASSERT_EQ(expected.size(), 499u);
  EXPECT_EQ(direct, SQLITE_ERROR);
  EXPECT_EQ(read(sql, true, &ahead), expected);
  EXPECT_EQ(ahead, SQLITE_ERROR);
}

TEST_F(Rows, ALoaderThatStopsEarlyStopsTheReader) {
  int rc = 0;
  for (size_t most : {size_t(0), size_t(1), size_t(3), size_t(200)}) {
    std::vector<Row> rows = read("SELECT id, body FROM seg", true, &rc, most);
    ASSERT_EQ(rows.size(), most);
    if (most > 0) {
      EXPECT_EQ(rows.back().id, int64_t(most) * 3);
    }
  }
  // The statements were finalized while nothing stepped them: the database is still usable.
  std::vector<Row> all = read("SELECT id, body FROM seg", true, &rc);
  EXPECT_EQ(all.size(), 1000u);
}

}  // namespace
