// What the companion tests share, on top of the provider fixture (a manager with a tree watch and
// an event recorder, test controllers): the application's texts and a test table of type texts;
// scripted dialogs the tests queue answers for; the container and link objects the manager made;
// and a keyed container class `tKCo` (module KEYD) made on the store with SdNw.
//
// Every test ends with the fixture's verdicts (the watch's, no stray assertions) and with no
// answer left queued for a dialog that never came.
#pragma once

#include <string>
#include <vector>

#include "platform/fundra/dialogs.h"
#include "platform/fundra/kstrings.h"
#include "tests/providers/pro_fixture.h"
#include "zove/procon.h"

namespace zt {

constexpr FourCC kBox = fc("Box ");          // a container type (and link type) of table kBoxTable
constexpr FourCC kShelf = fc("Shlf");        // a container type whose containers are link folders
constexpr uint16_t kBoxTable = 18190;        // the tests' own type texts: a "box"
constexpr uint16_t kShelfTable = 18191;      // a "shelf"
constexpr FourCC kKeyedModule = fc("KEYD");  // the module of the test's keyed container class

class CompanionTest : public ProTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // PcCT through the manager (with the tests' table unless another is given).
  int32_t define(FourCC type, uint32_t abilities = kAbGroup, int32_t table = kBoxTable);
  // A container of the type named as given (PcNC with a name).
  int32_t container(const std::string& name, FourCC type = kBox);
  // The manager's name of p (PGNm, or PGSN with a sort mode).
  std::string nameOf(int32_t p, int32_t kind = 0);
  std::string sortNameOf(int32_t p, int32_t mode);
  // p's `Name` string as stored ("<none>" without one).
  std::string stored(int32_t p);
  // The type record of a container type, and its `PCo#`.
  int32_t typeRecord(FourCC type);
  std::vector<int32_t> containersOf(FourCC type);
  int32_t findNamed(const std::string& name, FourCC type = kBox);
  // The queries since the last call, each "prompt [proposal]", and the alerts.
  V queries();
  V alerts();
  // The data area of a DL, as bytes.
  std::vector<uint8_t> dataOf(int32_t dl);
  // A DL as a person reads it: uType, owner module, shared flag, then its data area: the persist
  // header and each further word ("PCtn owner 0 shared: PCt. 256 256 | 18190 0x2 0x0 0x0").
  std::string describe(int32_t dl);

  fundra::ScriptedDialogs dialogs;
  Object* containers = nullptr;  // the manager's @PCL
  Object* links = nullptr;       // the manager's @PLK
  Object* keyed = nullptr;       // a tKCo on the store

 private:
  fundra::DialogHost* previousHost_ = nullptr;
};

}  // namespace zt
