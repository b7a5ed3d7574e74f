// Raw resources from the resource folder, and location handles.
#include "platform/fundra/resource.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace fundra {
namespace {

namespace fs = std::filesystem;

TEST(ResourceTest, RawResourcesAreReadWholeOrToTheLimit) {
  fs::path dir = fs::temp_directory_path() / ("zove_res_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  {
    std::ofstream(dir / "2001.res", std::ios::binary) << std::string("\x01\x02\x03\x04\x05", 5);
    std::ofstream(dir / "2002.res", std::ios::binary);
  }
  std::string previous = SetResourceFolder(dir.string());
  TMemory m;
  EXPECT_EQ(RMGetRawResource(&m, 2001, -1), 0);
  ASSERT_EQ(m.GetSize(), 5);
  EXPECT_EQ(m.MemPtr()[4], 5);
  EXPECT_EQ(RMGetRawResource(&m, 2001, 2), 0);
  EXPECT_EQ(m.GetSize(), 2);
  EXPECT_EQ(RMGetRawResource(&m, 2002, -1), 0);
  EXPECT_EQ(m.GetSize(), 0);
  m.SetSize(3);
  EXPECT_EQ(RMGetRawResource(&m, 2003, -1), kResNotFound);
  EXPECT_EQ(m.GetSize(), 0);
  EXPECT_EQ(RMGetRawResource(nullptr, 2001, -1), kResBadArgument);
  EXPECT_EQ(RMGetRawResource(&m, -5, -1), kResBadArgument);

  // A resource handed over by its bytes comes before the folder's file of the same id, to the
  // limit like any other, until the handed ones are forgotten.
  DefineRawResource(2001, std::string("\x09\x08\x07", 3));
  DefineRawResource(2004, "");
  EXPECT_EQ(RMGetRawResource(&m, 2001, -1), 0);
  ASSERT_EQ(m.GetSize(), 3);
  EXPECT_EQ(m.MemPtr()[0], 9);
  EXPECT_EQ(RMGetRawResource(&m, 2001, 1), 0);
  EXPECT_EQ(m.GetSize(), 1);
  EXPECT_EQ(RMGetRawResource(&m, 2004, -1), 0);
  EXPECT_EQ(m.GetSize(), 0);
  ForgetRawResources();
  EXPECT_EQ(RMGetRawResource(&m, 2001, -1), 0);
  EXPECT_EQ(m.GetSize(), 5);
  EXPECT_EQ(RMGetRawResource(&m, 2004, -1), kResNotFound);
  SetResourceFolder(previous);
  fs::remove_all(dir);
}

TEST(ResourceTest, LocationHandlesRoundTripAndGivePaths) {
  TLocHandle h("/home/ana/Documents/plan.txt");
  TString path;
  EXPECT_EQ(h.GetPath(&path, 1), 0);
  EXPECT_EQ(path, "/home/ana/Documents/plan.txt");
  EXPECT_EQ(h.GetPath(&path, 0), 0);
  EXPECT_EQ(path, "plan.txt");
  EXPECT_EQ(TLocHandle("/srv/data/").GetPath(&path, 0), 0);
  EXPECT_EQ(path, "data");

  std::vector<uint8_t> bytes(size_t(h.StoreSize()));
  ASSERT_EQ(h.Export(bytes.data(), int64_t(bytes.size())), h.StoreSize());
  TLocHandle back;
  EXPECT_EQ(back.Import(bytes.data(), int64_t(bytes.size())), 0);
  EXPECT_EQ(back.GetPath(&path, 1), 0);
  EXPECT_EQ(path, "/home/ana/Documents/plan.txt");
  EXPECT_LT(back.Import(bytes.data(), int64_t(bytes.size()) - 1), 0);
  EXPECT_TRUE(back.IsEmpty());
  EXPECT_EQ(back.GetPath(&path, 1), kResNoPath);
  EXPECT_TRUE(path.IsEmpty());
  bytes[0] = 'T';
  EXPECT_EQ(back.Import(bytes.data(), int64_t(bytes.size())), kFormForeign);
}

}  // namespace
}  // namespace fundra
