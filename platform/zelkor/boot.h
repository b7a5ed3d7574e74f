// Class start-up.
//
// A class registers a boot procedure under its superclass's signature with MakeBoot, from a
// static initializer. ZelkorBoot makes the framework's classes (`@roo`, then `@vhd`) and boots
// them; booting a class runs, in registration order, every procedure registered under its
// signature, each of which makes a subclass (SubC), starts it (TThread::TaskCall with boot and
// clsc), defines its selectors (Defn) and schedules Dspo of its boot word (TThread::TaskSched).
// Each new class is booted in turn as soon as its procedure returns, depth first, so a class
// exists before any procedure registered under it runs. Scheduled tasks run when the whole boot
// is over.
//
// A procedure registered after its superclass booted (a module loaded late) runs at once. A
// second ZelkorBoot does nothing and answers kAlreadyBooted.
#pragma once

#include <string>
#include <vector>

#include "platform/zelkor/classes.h"

namespace zelkor {

using BootProc = void (*)(Word bootWord, Word superclass);

constexpr int kAlreadyBooted = -1003;

// Registers a boot procedure; answers 0 (so it can initialise a static).
int MakeBoot(FourCC superSig, BootProc proc, const char* name = "");
// Registers one of the framework's own classes (such as `@vhd`): made by ZelkorBoot right after
// `@roo`, before any module class, and given its handlers by `build`. A `@vhd` nobody registers
// is made as a plain class.
int MakeFrameworkClass(FourCC sig, FourCC superSig, uint32_t bytes, void (*build)(ClassRec*));
// Boots the framework and every class registered so far; answers the number of classes booted.
int ZelkorBoot();
bool ZelkorBooted();

// A class as the boot left it: the procedure that made it, for tools that list what booted.
struct BootedClass {
  ClassRec* cls;
  std::string procedure;
};
std::vector<BootedClass> bootedClasses();

// The thread word used by TaskCall; the framework has one thread.
constexpr Word TransThread = 0;

struct TThread {
  // Runs a task now: sends `task` to the class object with (class, sig). Answers the answer.
  static Word TaskCall(Word thread, Word transThread, FourCC kind, FourCC task, Word cls,
                       FourCC sig);
  // Schedules `sel` to be sent to `target` when the boot is over (at once after it).
  static Word TaskSched(Word thread, Word target, FourCC sel);
};

}  // namespace zelkor
