#include "platform/zelkor/boot.h"

#include <deque>

#include "platform/zelkor/log.h"

namespace zelkor {

namespace {

struct Registration {
  FourCC superSig;
  BootProc proc;
  const char* name;
};

struct Task {
  Word target;
  FourCC sel;
};

struct FrameworkClass {
  FourCC sig;
  FourCC superSig;
  uint32_t bytes;
  void (*build)(ClassRec*);
};

struct BootState {
  std::vector<FrameworkClass> frameworkClasses;
  std::vector<Registration> registrations;
  std::vector<BootedClass> booted;
  std::vector<Task> scheduled;
  bool booted_ = false;
  int depth = 0;  // > 0 while a boot is running
};

BootState& state() {
  static BootState* s = new BootState;  // static initializers of modules reach it before main
  return *s;
}

void runScheduled() {
  BootState& s = state();
  while (!s.scheduled.empty()) {
    std::vector<Task> tasks = std::move(s.scheduled);
    s.scheduled.clear();
    for (const Task& t : tasks) send(t.target, t.sel);
  }
}

// Runs one procedure for an already booted superclass, then boots what it made.
int runProcedure(const Registration& r, ClassRec* super) {
  size_t before = allClasses().size();
  Object* bootWord = newObject(rootClass());
  r.proc(objWord(bootWord), objWord(super->classObject));
  int count = 0;
  std::vector<ClassRec*> made = allClasses();
  for (size_t i = before; i < made.size(); ++i) {
    state().booted.push_back({made[i], r.name});
    ++count;
  }
  // Boot each new class's own subclasses, depth first.
  for (size_t i = before; i < made.size(); ++i) {
    for (size_t k = 0; k < state().registrations.size(); ++k) {
      Registration sub = state().registrations[k];
      if (sub.superSig == made[i]->sig) count += runProcedure(sub, made[i]);
    }
  }
  return count;
}

}  // namespace

int MakeBoot(FourCC superSig, BootProc proc, const char* name) {
  BootState& s = state();
  Registration r{superSig, proc, name};
  s.registrations.push_back(r);
  if (s.booted_) {
    if (ClassRec* super = findClass(superSig)) {
      s.depth++;
      runProcedure(r, super);
      s.depth--;
      if (!s.depth) runScheduled();
    }
  }
  return 0;
}

int MakeFrameworkClass(FourCC sig, FourCC superSig, uint32_t bytes, void (*build)(ClassRec*)) {
  state().frameworkClasses.push_back({sig, superSig, bytes, build});
  return 0;
}

int ZelkorBoot() {
  BootState& s = state();
  if (s.booted_) return kAlreadyBooted;
  s.booted_ = true;
  s.depth++;
  ClassRec* root = rootClass();
  s.booted.push_back({root, "framework"});
  int count = 1;
  // The framework's own classes come before any module's: a module class may derive from them.
  for (const FrameworkClass& f : s.frameworkClasses) {
    if (ClassRec* c = makeSubclass(findClass(f.superSig), f.sig, f.bytes)) {
      if (f.build) f.build(c);
      s.booted.push_back({c, "framework"});
      ++count;
    }
  }
  if (!findClass(kVhdSig)) {
    makeSubclass(root, kVhdSig, 0);
    s.booted.push_back({findClass(kVhdSig), "framework"});
    ++count;
  }
  for (size_t k = 0; k < s.registrations.size(); ++k) {
    Registration r = s.registrations[k];
    if (r.superSig == kRootSig) count += runProcedure(r, root);
  }
  for (size_t k = 0; k < s.registrations.size(); ++k) {
    Registration r = s.registrations[k];
    if (r.superSig == kVhdSig) count += runProcedure(r, findClass(kVhdSig));
  }
  s.depth--;
  runScheduled();
  return count;
}

bool ZelkorBooted() { return state().booted_; }

std::vector<BootedClass> bootedClasses() { return state().booted; }

Word TThread::TaskCall(Word, Word, FourCC, FourCC task, Word cls, FourCC sig) {
  return send(cls, task, cls, sig);
}

Word TThread::TaskSched(Word, Word target, FourCC sel) {
  BootState& s = state();
  if (s.depth) {
    s.scheduled.push_back({target, sel});
    return 0;
  }
  return send(target, sel);
}

}  // namespace zelkor
