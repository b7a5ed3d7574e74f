#include "platform/zelkor/codes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "zove/store.h"

namespace zt {
namespace {

TEST(AnswerCodes, EachNumberBelongsToOneLibraryAndPrintsItsNameAndSentence) {
  std::map<int32_t, std::string> owner;
  std::set<std::string> names;
  for (const zelkor::RegisteredCode& r : zelkor::registeredCodes()) {
    EXPECT_LT(r.info.code, 0) << r.info.name;
    EXPECT_TRUE(owner.emplace(r.info.code, r.library).second)
        << r.info.code << " is registered by " << owner[r.info.code] << " and " << r.library;
    EXPECT_TRUE(names.insert(r.info.name).second) << r.info.name << " names two codes";
  }
  // Every library the module's tests link registers its codes.
  for (const char* library : {"zelkor", "fundra", "storefile", "zove"})
    EXPECT_TRUE(std::any_of(owner.begin(), owner.end(), [&](const auto& o) {
      return o.second == library;
    })) << library;
  EXPECT_EQ(zelkor::codeName(zove::kNoItem), "-808 (kNoItem)");
  EXPECT_EQ(zelkor::codeText(zove::kNoItem),
            "-808 (kNoItem): no item with the key, no such list element, or no module DL");
  EXPECT_EQ(zelkor::codeName(zove::kNoMemory), "-625 (kLmNoMemory)");
  EXPECT_EQ(zelkor::codeName(-7), "-7");
  EXPECT_EQ(zelkor::codeText(12), "12");
}

}  // namespace
}  // namespace zt
