// zove demo [FILE]: a tour of the store for a newcomer, and the file the other subcommands can be
// tried on. Every step is a selector sent to the store or to a module's controller, as the
// application's modules send them; the text says what each step did and why it matters.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include "platform/fundra/dialogs.h"
#include "platform/fundra/memory.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/codes.h"
#include "platform/zelkor/zelkor.h"
#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"
#include "zove/db.h"
#include "zove/procon.h"
#include "zove/providers.h"
#include "zove/store.h"

namespace zove::cli {

namespace {

using zelkor::fc;
using zelkor::i32;

constexpr int32_t kVersion = 1;
constexpr const char* kDefaultFile = "/tmp/zove-demo.zove";

// The store the demo drives, with the few helpers that keep the tour readable. A failed step
// ends the demo with the log lines that explain it.
class Tour {
 public:
  explicit Tour(std::string path) : path_(std::move(path)) {}
  ~Tour() { close(); }

  bool failed() const { return failed_; }
  Word store() const { return store_; }

  // Sends a selector and checks the answer; `ok` tells which answers mean success.
  template <class... A>
  int32_t send(const char* what, bool (*ok)(int32_t), zelkor::FourCC sel, A... args) {
    if (failed_) return 0;
    int32_t r = i32(zelkor::send(store_, sel, args...));
    if (!ok(r)) {
      std::fprintf(stderr, "zove demo: %s: %s answered %s; the log said:\n", what,
                   zelkor::fcString(sel).c_str(), zelkor::codeText(r).c_str());
      printLog(stderr, log_.take());
      failed_ = true;
    }
    return r;
  }
  static bool zero(int32_t r) { return r == 0; }
  static bool positive(int32_t r) { return r > 0; }
  static bool any(int32_t) { return true; }

  bool create() {
    store_ = newStore();
    send("making the store", zero, kHNew, 0, kVersion);
    if (failed_) return false;
    if (int32_t rc = storefile::vhdCreateFile(store_, path_)) return refuse("creating", rc);
    // The store's notices go to its own channel, which its controllers join (as in the
    // application).
    return send("installing", zero, kTSIn, store_, kVersion) == 0 && !failed_;
  }

  bool reopen() {
    close();
    store_ = newStore();
    if (int32_t rc = storefile::vhdOpenFile(store_, path_, storefile::VhdOpenMode::kReadOnly))
      return refuse("reopening", rc);
    return send("installing again", zero, kTSIn, store_, kVersion) == 0 && !failed_;
  }

  void close() {
    if (store_ && zelkor::isLiveObject(store_)) zelkor::send(store_, kDspo);
    store_ = 0;
  }

  fundra::ElementSpace* space() {
    fundra::ElementSpace* s = nullptr;
    zelkor::send(store_, storefile::kHGtH, &s);
    return s;
  }
  int32_t elements() { return space() ? space()->LmLiveCount() : 0; }

  // A new DL of the type; kept until something links it.
  int32_t newDL(const char* type, int32_t owner) {
    return send("making a DL", positive, kTSDN, zelkor::u32(code(type)), 0, owner);
  }
  void setString(int32_t dl, const char* key, const char* text) {
    fundra::TString s(text);
    send("writing a string", any, kTSSs, dl, code(key), &s);
  }
  std::string getString(int32_t dl, const char* key) {
    fundra::TString s;
    send("reading a string", zero, kTSSg, dl, code(key), &s);
    return std::string(s.View());
  }

 private:
  static zelkor::FourCC code(const char* s) {
    return zelkor::FourCC(uint8_t(s[0])) << 24 | zelkor::FourCC(uint8_t(s[1])) << 16 |
           zelkor::FourCC(uint8_t(s[2])) << 8 | zelkor::FourCC(uint8_t(s[3]));
  }
  Word newStore() {
    Word s = zelkor::send(zelkor::ZelkorLookup(kZoveSig), zelkor::kNew_);
    zelkor::send(s, kSetu);
    return s;
  }
  bool refuse(const char* what, int32_t rc) {
    std::fprintf(stderr, "zove demo: %s %s: %s\n", what, path_.c_str(),
                 zelkor::codeText(rc).c_str());
    printLog(stderr, log_.take());
    failed_ = true;
    return false;
  }

  std::string path_;
  Word store_ = 0;
  bool failed_ = false;
  zelkor::LogCapture log_;
};

constexpr zelkor::FourCC k(const char (&s)[5]) { return fc(s); }

// The garden project: a module DL, a project (a shared DL: a stored object of its own) with a
// name, a due date, a budget, a person it refers to, a plan it owns (a part link) whose steps
// are a list, and a record holding the plan's long description.
struct Garden {
  int32_t module = 0, project = 0, person = 0, plan = 0;
  int32_t steps[3] = {};
};

bool buildGarden(Tour& t, Garden* g) {
  g->module = t.send("adding the module", Tour::positive, k("TSNM"), k("DEMO"), 4);
  g->person = t.newDL("Pers", g->module);
  t.send("sharing", Tour::any, k("TSSS"), g->person);
  t.setString(g->person, "Name", "Ada");
  t.send("listing people", Tour::any, k("TSLN"), g->module, k("Peop"));
  t.send("listing people", Tour::any, k("TSLA"), g->module, k("Peop"), g->person);

  g->project = t.newDL("Proj", g->module);
  t.send("sharing", Tour::any, k("TSSS"), g->project);
  t.setString(g->project, "Name", "Garden shed");
  fundra::TDate due(2027, 5, 1, 9, 0, 0, 0);
  t.send("writing a date", Tour::any, k("TDtS"), g->project, k("Due "), &due);
  t.send("writing a value", Tour::any, k("TSVS"), g->project, k("Budg"), 1200);
  t.send("writing a handle", Tour::any, k("TSHS"), g->project, k("Lead"), g->person);
  t.send("listing projects", Tour::any, k("TSLN"), g->module, k("Prjs"));
  t.send("listing projects", Tour::any, k("TSLA"), g->module, k("Prjs"), g->project);

  g->plan = t.newDL("Plan", 0);
  t.send("writing a part link", Tour::any, k("TSAS"), g->project, k("Plan"), g->plan);
  t.send("making the steps", Tour::any, k("TSLN"), g->plan, k("Step"));
  const char* names[3] = {"Lay the base", "Raise the walls", "Put on the roof"};
  const int32_t hours[3] = {6, 10, 4};
  for (int i = 0; i < 3; ++i) {
    g->steps[i] = t.newDL("Step", 0);
    t.setString(g->steps[i], "Name", names[i]);
    t.send("writing a value", Tour::any, k("TSVS"), g->steps[i], k("Hour"), hours[i]);
    t.send("appending a step", Tour::any, k("TSLA"), g->plan, k("Step"), g->steps[i]);
    if (i > 0)
      t.send("writing a handle", Tour::any, k("TSHS"), g->steps[i - 1], k("Next"), g->steps[i]);
  }
  fundra::TMemory text;
  const std::string words =
      "Clear the corner by the hedge, level it, and keep the tools dry until the roof is on.";
  text.SetSize(int32_t(words.size()));
  std::memcpy(text.MemPtr(), words.data(), words.size());
  t.send("writing a record", Tour::zero, k("TSRW"), g->project, k("Desc"), &text, 1);
  return !t.failed();
}

// The demo's module controller: a database class for the module DEMO, registered the way a
// module registers its classes (a boot procedure under `@DB `). The host registers it after the
// boot, as a module loaded late, so it boots at once.
constexpr zelkor::FourCC kGardenSig = fc("@Gdn");
zelkor::ClassRec* gGardenClass = nullptr;

Word gardenSetup(zelkor::Object* self, const zelkor::Msg& m) {
  return zelkor::ClassData::pass(gGardenClass, self, kSetu, m.w[0], fc("DEMO"), 4);
}

// As the controller of DEMO's stored objects, it says what they are in the provider tree: a
// folder is a group (0x2); anything else is a plain item.
Word gardenAbilities(zelkor::Object* self, const zelkor::Msg& m) {
  Word store = zelkor::send(self, kPGTy);
  return zelkor::send(store, kTSDT, m.w[0]) == fc("Fold") ? 0x2 : 0x100;
}

// Names them from their Name strings.
Word gardenName(zelkor::Object* self, const zelkor::Msg& m) {
  zelkor::send(zelkor::send(self, kPGTy), kTSSg, m.w[0], fc("Name"), m.w[1]);
  return 0;
}

void GardenBootProc(Word bootWord, Word superclass) {
  Word cls = zelkor::send(superclass, zelkor::kSubC, kGardenSig, 1, 0);
  if (!cls) return;
  gGardenClass = zelkor::classOf(zelkor::asObject(cls));
  zelkor::TThread::TaskCall(0, zelkor::TransThread, zelkor::kboot, zelkor::kclsc, cls, kGardenSig);
  zelkor::Defn(gGardenClass, kSetu, gardenSetup);
  zelkor::Defn(gGardenClass, kPGAb, gardenAbilities);
  zelkor::Defn(gGardenClass, kPGNm, gardenName);
  zelkor::TThread::TaskSched(0, bootWord, kDspo);
}

bool showController(Tour& t, const Garden& g) {
  static const int registered = zelkor::MakeBoot(kDbSig, GardenBootProc, "GardenBootProc");
  (void)registered;
  Word store = t.store();
  Word db = zelkor::send(zelkor::ZelkorLookup(kGardenSig), kSdNw, store);
  int32_t module = i32(zelkor::send(db, kSdRR));
  bool registeredCtl = zelkor::send(store, kTSGM, fc("DEMO")) == db;
  Word first = 0, second = 0;
  int32_t opened = i32(zelkor::send(db, kPInO, g.project, &first));
  zelkor::send(db, kPInO, g.project, &second);
  int32_t busy = i32(zelkor::send(store, kTSTB, g.project));
  zelkor::send(db, kPInC, g.project);
  bool stillOpen = zelkor::send(db, kPInG, g.project) == first;
  zelkor::send(db, kPInC, g.project);
  bool gone = zelkor::send(db, kPInG, g.project) == 0 && !zelkor::isLiveObject(first);
  int32_t free = i32(zelkor::send(store, kTSTB, g.project));
  Word pty = zelkor::send(zelkor::ZelkorLookup(kPtySig), kNew_);
  zelkor::send(pty, kSetu, store);
  fundra::TString object, controller;
  zelkor::send(pty, kPGNm, g.project, &object);
  zelkor::send(pty, kPGNm, module, &controller);
  zelkor::send(pty, kDspo);
  if (module != g.module || !registeredCtl || opened != 0 || !first || second != first ||
      busy != kRefused || !stillOpen || !gone || free != 0) {
    std::fprintf(stderr, "zove demo: the module controller did not behave as described\n");
    return false;
  }
  std::printf(
      "   A controller of the class @Gdn (a database object for the module DEMO) joined the\n"
      "   store with SdNw: the store told it its module DL %d (XTSL), and it registered as\n"
      "   DEMO's controller (TSGM now answers it).\n",
      module);
  std::printf(
      "   PInO opened the project DL %d into a live instance of @Ins; a second PInO gave the\n"
      "   same instance, open twice now. Meanwhile the store counts the DL as in use (TSTB %d).\n"
      "   The first PInC kept the instance; the second disposed of it, and TSTB answers %d.\n",
      g.project, busy, free);
  std::printf("   A property type (@PTY) names DLs for display: \"%s\", \"%s\".\n\n",
              std::string(object.View()).c_str(), std::string(controller.View()).c_str());
  return true;
}

// The events of the provider tree, printed as they are broadcast: the class of a listener that
// joins the manager's channel.
constexpr zelkor::FourCC kEventPrinterSig = fc("@dEv");
zelkor::ClassRec* gPrinterClass = nullptr;

Word printEvent(zelkor::Object*, const zelkor::Msg& m) {
  std::string line = "     " + zelkor::fcString(m.sel);
  int first = m.sel == kPoXS ? 0 : 1;
  int last = m.sel == kPoXT ? 3 : first + 1;
  for (int i = first; i <= last; ++i) line += " " + std::to_string(m.w[i]);
  std::printf("%s\n", line.c_str());
  return 0;
}

// The user at the keyboard, played by the demo: each query is answered with the next line typed
// (an empty line keeps the proposal, as at a terminal), and every dialog is printed as it went.
class DemoUser : public fundra::DialogHost {
 public:
  explicit DemoUser(std::deque<std::string> typed) : typed_(std::move(typed)) {}
  int32_t Query(const fundra::QueryRequest& q, fundra::TString* answer) override {
    if (typed_.empty()) return fundra::kDialogCancelled;
    std::string line = typed_.front();
    typed_.pop_front();
    std::printf("     | %s [%s]: %s\n", q.text.CStr(), q.proposal.CStr(),
                line.empty() ? "(Enter: the proposal kept)" : line.c_str());
    if (!line.empty()) answer->Set(line);
    return fundra::kDialogConfirmed;
  }
  int32_t Alert(uint32_t, const fundra::TString& text) override {
    std::printf("     | ! %s\n", text.CStr());
    return fundra::kDialogConfirmed;
  }

 private:
  std::deque<std::string> typed_;
};

std::string nameOf(Word manager, int32_t p) {
  fundra::TString s;
  zelkor::send(manager, kPGNm, p, &s, 0);
  return std::string(s.View());
}

// The user's own folders, made and named as a user does through the manager's companions: the
// folder type's texts are the application's (table 18150), the names come from the dialogs.
bool showFolders(Word manager, int32_t task) {
  constexpr zelkor::FourCC kFolder = fc("Fldr");
  DemoUser user({"Seeds", "Seeds", "Bulbs", ""});
  fundra::DialogHost* previous = fundra::SetDialogHost(&user);
  std::printf("   PcCT: the user's folder type 'Fldr' (its texts are table 18150's)\n");
  zelkor::send(manager, kPcCT, kFolder, 18150, 0x2);
  std::printf("   PcNC: a new folder; the dialog offers a free name, the user types one\n");
  int32_t seeds = i32(zelkor::send(manager, kPcNC, kFolder, 0));
  std::printf("   PcNC: another; a name that is taken brings an alert\n");
  int32_t bulbs = i32(zelkor::send(manager, kPcNC, kFolder, 0));
  std::printf("   PcNC: a third; the user keeps the proposal\n");
  int32_t spare = i32(zelkor::send(manager, kPcNC, kFolder, 0));
  std::printf("   PmSh: the three at the top (a new folder is placed by its maker)\n");
  for (int32_t f : {seeds, bulbs, spare}) zelkor::send(manager, kPmSh, 0, f);
  std::printf("   PLCT, PLnk: the folders' link type, and a link in Bulbs to the task DL %d\n",
              task);
  zelkor::send(manager, kPLCT, kFolder, 18150);
  int32_t link = i32(zelkor::send(manager, kPLnk, bulbs, task));
  DemoUser renamer({"Seedlings"});
  fundra::SetDialogHost(&renamer);
  std::printf("   PRen: Seeds renamed; the dialog offers its current name\n");
  int32_t renamed = i32(zelkor::send(manager, kPRen, seeds, 0));
  int32_t kept = i32(zelkor::send(manager, kPFog, bulbs, 0));
  std::printf("   PFog: Bulbs shows a link, so it stays (%s); the spare folder goes\n",
              zelkor::codeName(kept).c_str());
  int32_t forgot = i32(zelkor::send(manager, kPFog, spare, 0));
  fundra::SetDialogHost(previous);
  if (seeds <= 0 || bulbs <= 0 || spare <= 0 || link <= 0 || renamed != 0 ||
      kept != kContainerNotEmpty || forgot != 0) {
    std::fprintf(stderr, "zove demo: the folders did not behave as described\n");
    return false;
  }
  std::printf(
      "   The folders are DLs %d \"%s\" and %d \"%s\", owned by the container object's module\n"
      "   DL (PCL1), which answers for them; the link DL %d \"%s\" is the link object's (PLK1).\n",
      seeds, nameOf(manager, seeds).c_str(), bulbs, nameOf(manager, bulbs).c_str(), link,
      nameOf(manager, link).c_str());
  return true;
}

bool showTree(Tour& t, const Garden& g) {
  Word store = t.store();
  Word manager = zelkor::send(zelkor::ZelkorLookup(kProSig), kSdNw, store);
  if (!manager) {
    std::fprintf(stderr, "zove demo: the module has no provider manager '@PRO'\n");
    return false;
  }
  if (!gPrinterClass) {
    gPrinterClass = zelkor::makeSubclass(zelkor::rootClass(), kEventPrinterSig, 0);
    zelkor::DefnFallback(gPrinterClass, printEvent);
  }
  // DEMO's stored objects for the tree: a folder (a group) and three tasks, each a shared DL.
  int32_t folder = t.newDL("Fold", g.module);
  t.send("sharing", Tour::any, kTSSS, folder);
  t.setString(folder, "Name", "Garden");
  int32_t tasks[3];
  const char* names[3] = {"Buy timber", "Fetch the saw", "Ask Ada"};
  for (int i = 0; i < 3; ++i) {
    tasks[i] = t.newDL("Task", g.module);
    t.send("sharing", Tour::any, kTSSS, tasks[i]);
    t.setString(tasks[i], "Name", names[i]);
  }
  if (t.failed()) return false;
  zelkor::Object* printer = zelkor::newObject(gPrinterClass);
  zelkor::send(printer, zelkor::kpoAd, manager);
  Word watch = zelkor::send(zelkor::ZelkorLookup(kTreeWatchSig), kNew_);
  zelkor::send(watch, kSetu, manager);
  int32_t root = i32(zelkor::send(manager, kSdRR));
  std::printf(
      "   A provider manager (@PRO) joined the store: its module DL %d 'PRO1' is the root of\n"
      "   the tree the application shows. DEMO's controller answers for a folder DL %d and\n"
      "   tasks DL %d, %d, %d. Each change is an event broadcast on the manager (root = 0):\n",
      root, folder, tasks[0], tasks[1], tasks[2]);
  std::printf("   PmSh: the folder at the top of the tree\n");
  zelkor::send(manager, kPmSh, 0, folder);
  std::printf("   PmLS: the tasks below it, in one update bracket\n");
  fundra::RNList list;
  for (int32_t p : tasks) list.Add(p);
  zelkor::send(manager, kPmLS, folder, &list);
  std::printf("   PmHd: the folder hidden, with everything below it\n");
  zelkor::send(manager, kPmHd, folder);
  std::printf("   PmSh: the last task shown again; its hidden parent comes first\n");
  zelkor::send(manager, kPmSh, 0, tasks[2]);
  std::printf("   PMov: the last task moved to the top\n");
  zelkor::send(manager, kPMov, 0, tasks[2]);
  if (!showFolders(manager, tasks[2])) return false;
  fundra::TString mirror, differences;
  int32_t shownCount = i32(zelkor::send(watch, kPwDm, &mirror));
  int32_t reports = i32(zelkor::send(watch, kPwRp, nullptr));
  int32_t disagree = i32(zelkor::send(watch, kPwAg, &differences));
  zelkor::send(watch, kDspo);
  zelkor::send(printer, kDspo);
  if (reports != 0 || disagree != 0) {
    std::fprintf(stderr, "zove demo: the tree watch disagrees with the tree:\n%s",
                 std::string(differences.View()).c_str());
    return false;
  }
  std::printf(
      "   A tree watch (@PTW) heard the same events and built the tree from them alone: it\n"
      "   shows %d providers, every event applied, and agrees with the manager:\n",
      shownCount);
  // The mirror's lines, each a DL indented by its depth, with the name the manager gives it.
  std::string text(mirror.View());
  for (size_t at = 0; at < text.size();) {
    size_t end = text.find('\n', at);
    std::string line = text.substr(at, end - at);
    int32_t p = std::atoi(line.c_str() + line.find_first_not_of(' '));
    std::printf("     %s \"%s\"\n", line.c_str(), nameOf(manager, p).c_str());
    at = end + 1;
  }
  std::printf("\n");
  return true;
}

int runTour(const std::string& path) {
  Tour t(path);
  std::printf("zove demo: a tour of the store, the persistent heap of typed data lists (DLs)\n\n");

  std::printf("1. A new store file\n");
  if (!t.create()) return 1;
  std::printf("   Created %s with store version %d and installed the store.\n", path.c_str(),
              kVersion);
  std::printf("   A new store holds %d elements: the root DL 1 and its empty list of modules.\n\n",
              t.elements());

  std::printf("2. A small structure, built with selectors as the application's modules do\n");
  Garden g;
  if (!buildGarden(t, &g)) return 1;
  std::printf("   module DL %d 'DEMO': the module's own DL, listed in the root's 'mods'\n",
              g.module);
  std::printf(
      "   DL %d 'Proj' \"%s\": a shared DL (a stored object of its own) with a due\n"
      "     date, a budget value, a handle to the person DL %d \"%s\", a record\n"
      "     beside the heap for its long description, and a part link to its plan\n",
      g.project, t.getString(g.project, "Name").c_str(), g.person,
      t.getString(g.person, "Name").c_str());
  std::printf(
      "   DL %d 'Plan': a list of three steps (DLs %d, %d, %d), each step a handle to\n"
      "     the next\n",
      g.plan, g.steps[0], g.steps[1], g.steps[2]);
  std::printf("   The store now holds %d elements: DLs, and the blobs and lists they own.\n\n",
              t.elements());

  std::printf("3. Collection: nothing is freed by hand\n");
  int32_t note = t.newDL("Note", 0);
  t.setString(note, "Text", "buy screws");
  t.send("writing a handle", Tour::any, k("TSHS"), g.project, k("Scra"), note);
  t.send("removing the item", Tour::any, k("TSUk"), g.project, k("Scra"));
  int32_t before = t.elements();
  t.send("collecting", Tour::zero, k("TSGC"));
  if (t.failed()) return 1;
  std::printf(
      "   A note DL %d with a string was linked into the project and unlinked again:\n"
      "   nothing reaches it now. TSGC marked what DL 1 reaches and freed the rest:\n"
      "   %d elements before, %d after.\n\n",
      note, before, t.elements());

  std::printf("4. The integrity check\n");
  int32_t sound = t.send("checking", Tour::any, k("TSCk"));
  if (t.failed()) return 1;
  std::printf("   TSCk walked every DL from the root and checked its layout: %s.\n\n",
              sound == 1 ? "sound" : "NOT sound");
  if (sound != 1) return 1;

  std::printf("5. Export and import: moving a structure between stores\n");
  fundra::TMemory stream;
  t.send("exporting", Tour::zero, k("TSEx"), g.plan, &stream);
  int32_t copy = t.newDL("Copy", 0);
  t.send("writing a part link", Tour::any, k("TSAS"), g.project, k("Copy"), copy);
  t.send("importing", Tour::zero, k("TSIm"), copy, &stream);
  int32_t differs = t.send("comparing", Tour::any, k("TSDC"), g.plan, copy);
  if (t.failed()) return 1;
  std::printf(
      "   TSEx wrote the plan (DL %d, its steps and their strings) as a stream of %d\n"
      "   bytes; TSIm read it back into DL %d, which the project holds as 'Copy'.\n"
      "   TSDC compared the copy with the plan: %s.\n\n",
      g.plan, stream.GetSize(), copy,
      differs == 0 ? "equal" : ("they differ at DL " + std::to_string(differs)).c_str());

  std::printf("6. A module's controller opens stored objects\n");
  if (!showController(t, g)) return 1;

  std::printf("7. The provider tree\n");
  if (!showTree(t, g)) return 1;

  std::printf("8. Save, close and reopen\n");
  t.send("saving", Tour::zero, k("HChg"));
  if (t.failed()) return 1;
  int32_t saved = t.elements();
  std::printf("   HChg collected once more and saved %d elements in one transaction.\n", saved);
  if (!t.reopen()) return 1;
  zelkor::FourCC modsKey = k("DEMO");
  int32_t module = t.send("finding the module", Tour::positive, k("TSDM"), modsKey);
  int32_t project = t.send("finding the project", Tour::positive, k("TSLE"), module, k("Prjs"), 0);
  int32_t plan = 0;
  t.send("reading the part link", Tour::zero, k("TSAG"), project, k("Plan"), &plan);
  int32_t steps = t.send("counting steps", Tour::any, k("TSLC"), plan, k("Step"));
  int32_t first = t.send("reading a step", Tour::positive, k("TSLE"), plan, k("Step"), 0);
  if (t.failed()) return 1;
  std::printf(
      "   Reopened read-only and installed: %d elements; module 'DEMO' is DL %d, its\n"
      "   project \"%s\" has %d steps, the first \"%s\".\n\n",
      t.elements(), module, t.getString(project, "Name").c_str(), steps,
      t.getString(first, "Name").c_str());
  t.close();

  std::printf("The store file stays at %s. Look inside it with\n", path.c_str());
  std::printf("   zove stat %s        numbers\n", path.c_str());
  std::printf("   zove dump %s        every DL, readable\n", path.c_str());
  std::printf("   zove graph %s | dot -Tsvg > store.svg\n", path.c_str());
  std::printf("   zove tree %s        the provider tree, as saved\n", path.c_str());
  std::printf("   zove check %s       the integrity check\n", path.c_str());
  std::printf("   zove shell          the same selectors, by hand (docs/shell.md)\n");
  return 0;
}

}  // namespace

int cmdDemo(int argc, char** argv) {
  if (argc > 1) {
    std::fprintf(stderr, "usage: zove demo [FILE]\n");
    return 2;
  }
  std::string path = argc ? argv[0] : kDefaultFile;
  if (!argc) {
    // The default file is the demo's own: a run replaces what the last one left.
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) unlink((path + suffix).c_str());
  } else if (std::string problem = pathProblem(path, PathUse::kNew); !problem.empty()) {
    std::fprintf(stderr, "zove demo: %s: %s%s\n", path.c_str(), problem.c_str(),
                 problem == "exists already" ? "; give the name of a new file" : "");
    return 1;
  }
  return runTour(path);
}

}  // namespace zove::cli
