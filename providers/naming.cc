// Making and renaming user containers (`@PCL` PcNC, PRen): the proposal of a free name, the
// naming dialog and the alert for a name that is taken.
//
// Texts: the type's name is CoTN of the type's table; the prompts (NCPt, RCPt), the proposals
// (DCNm, DCNN) and the alert (DCNE) are table 18100's. A text the tables lack shows its marker
// ("[?18100.NCPt]"), so a missing text is seen rather than silently empty.
#include <functional>
#include <string_view>

#include "platform/fundra/dialogs.h"
#include "providers/companions.h"

namespace zove {

using fundra::TString;
using zelkor::i32;
using zelkor::send;
using zelkor::toWord;
using zelkor::u32;

namespace {

TString* stringArg(Word w) { return zelkor::asPtr<TString>(w); }

TString typeNameOf(const RecordFields& f) { return TString(f.table(), kCoTN); }

// The names of a type, for one proposal: open addressing over the names read, at most half full,
// so that a candidate costs a hash and a probe or two and the set allocates once.
class NameSet {
 public:
  explicit NameSet(const std::vector<TString>& names) {
    size_t capacity = 16;
    while (capacity < names.size() * 2) capacity *= 2;
    slots_.assign(capacity, nullptr);
    for (const TString& name : names) {
      size_t i = slotOf(name.View());
      if (!slots_[i]) slots_[i] = &name;
    }
  }
  bool contains(std::string_view name) const { return slots_[slotOf(name)] != nullptr; }

 private:
  // The slot that holds the name, or the empty slot where it would go.
  size_t slotOf(std::string_view name) const {
    size_t mask = slots_.size() - 1;
    size_t i = std::hash<std::string_view>()(name) & mask;
    while (slots_[i] && slots_[i]->View() != name) i = (i + 1) & mask;
    return i;
  }
  std::vector<const TString*> slots_;
};

}  // namespace

// Candidates DCNm (type name, 0), then DCNN (type name, n) for n = 1, 2, ..., each cut to its
// first 31 characters; the first that names no container of the type. The type's names are read
// once: a proposal among a thousand names compares each candidate with a set, not with the list.
//
// Among count + 1 different candidates one is free. When cutting makes candidates alike (a type
// name so long that the number falls past the 31st character), none may be; the search then
// stops after count + 1 candidates with the last, and the user who keeps it sees the alert.
TString collProposeName(Object* self, int32_t rec, const TString& typeName) {
  Word store = collData(self)->store;
  std::vector<TString> names = readNames(store, listOf(store, rec, kContainersKey));
  NameSet taken(names);
  // The formats are loaded once (a missing one is its marker, as a keyed SPrintf shows it).
  const TString first(kContainerTexts, kDCNm), further(kContainerTexts, kDCNN);
  TString candidate;
  for (size_t n = 0;; ++n) {
    if (n == 0)
      candidate.SPrintf(first, typeName, 0);
    else
      candidate.SPrintf(further, typeName, int32_t(n));
    if (candidate.ByteLength() > kProposalLength) candidate = candidate.Left(kProposalLength);
    if (!taken.contains(candidate.View()) || n >= names.size()) return candidate;
  }
}

int32_t collAskName(Object* self, int32_t rec, int32_t container, const TString& typeName,
                    const TString& prompt, TString* answer) {
  for (;;) {
    int32_t r = fundra::Queryf(kNameQueryStyle, kNameQueryLength, answer, prompt, answer);
    if (r != fundra::kDialogConfirmed) return r;
    int32_t found = collFindNamed(self, rec, *answer);
    if (found == 0) return fundra::kDialogConfirmed;
    if (found == container) return 0;
    fundra::Alertf(kNameAlertStyle, TString(kContainerTexts, kDCNE), typeName, *answer);
  }
}

// PcNC (type, TString* name or 0): a new container of the type, named as given or as the user
// answers the naming dialog (which offers a free proposal). 0 when the type has no record or the
// user cancels. The container goes at the end of the type's `PCo#`; it is not shown: its maker
// places it.
Word collNewContainer(Object* self, const Msg& m) {
  CollData* d = collData(self);
  FourCC type = u32(m.w[0]);
  RecordFields f;
  int32_t rec = collTypeRecord(self, type, &f);
  if (!rec) return 0;
  TString name;
  if (const TString* given = stringArg(m.w[1])) {
    name = *given;
  } else {
    TString typeName = typeNameOf(f), prompt;
    prompt.SPrintf(kContainerTexts, kNCPt, typeName);
    name = collProposeName(self, rec, typeName);
    if (collAskName(self, rec, 0, typeName, prompt, &name) != fundra::kDialogConfirmed) return 0;
  }
  int32_t c = i32(send(d->store, kTSDN, toWord(type), 0, collModule(self)));
  if (c <= 0) return 0;
  send(d->store, kTSSS, c);
  send(d->store, kTSLA, rec, kContainersKey, c);
  send(d->store, kTSSs, c, kNameKey, &name);
  return c;
}

// PRen (p, TString* name or 0): p's `Name` set to the name given, or to the user's answer to the
// renaming dialog (which offers p's current name); the manager announces the change (PmMd).
// kProviderMisplaced when p's uType has no type record; the dialog's answer when the user
// cancels; 0 without any change when the user keeps p's own name.
Word collRename(Object* self, const Msg& m) {
  CollData* d = collData(self);
  int32_t p = i32(m.w[0]);
  RecordFields f;
  int32_t rec = collTypeRecord(self, u32(send(d->store, kTSDT, p)), &f);
  if (!rec) return kProviderMisplaced;
  TString name;
  if (const TString* given = stringArg(m.w[1])) {
    name = *given;
  } else {
    send(self, kPGNm, p, &name, 0);
    TString typeName = typeNameOf(f), prompt;
    prompt.SPrintf(kContainerTexts, kRCPt, typeName);
    int32_t r = collAskName(self, rec, p, typeName, prompt, &name);
    if (r != fundra::kDialogConfirmed) return r;
  }
  send(d->store, kTSSs, p, kNameKey, &name);
  send(d->manager, kPmMd, p);
  return 0;
}

}  // namespace zove
