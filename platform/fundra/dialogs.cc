#include "platform/fundra/dialogs.h"

#include <atomic>
#include <istream>
#include <ostream>
#include <utility>

#include "platform/zelkor/log.h"

namespace fundra {

namespace {

std::atomic<DialogHost*> installed{nullptr};

// Cuts an answer to the query's length; the length's sign only tells how to offer the proposal.
void Limit(const QueryRequest& q, TString* answer) {
  int32_t max = q.length < 0 ? -q.length : q.length;
  if (q.length != INT32_MIN && answer->Length() > max) *answer = answer->Left(max);
}

}  // namespace

DialogHost* SetDialogHost(DialogHost* host) { return installed.exchange(host); }

int32_t QueryDialog(uint32_t style, int32_t length, TString* answer, const TString& text) {
  if (answer == nullptr) return kDialogCancelled;
  QueryRequest q{style, length, *answer, text};
  DialogHost* host = installed.load();
  if (host == nullptr) {
    zelkor::DebugLogf(1, "Queryf: no dialog host, cancelled: %s", text.CStr());
    return kDialogCancelled;
  }
  int32_t r = host->Query(q, answer);
  if (r == kDialogConfirmed) Limit(q, answer);
  return r == kDialogConfirmed ? r : kDialogCancelled;
}

int32_t AlertDialog(uint32_t style, const TString& text) {
  DialogHost* host = installed.load();
  if (host == nullptr) {
    zelkor::DebugLogf(1, "Alertf: %s", text.CStr());
    return kDialogConfirmed;
  }
  return host->Alert(style, text);
}

int32_t TerminalDialogs::Query(const QueryRequest& q, TString* answer) {
  out_ << q.text.View() << " [" << q.proposal.View() << "]: " << std::flush;
  std::string line;
  if (!std::getline(in_, line)) {
    out_ << "\n";
    return kDialogCancelled;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (!line.empty()) answer->Set(line);
  return kDialogConfirmed;
}

int32_t TerminalDialogs::Alert(uint32_t style, const TString& text) {
  out_ << "! " << text.View();
  if ((style & 0xF) != 2) {
    out_ << "\n" << std::flush;
    return kDialogConfirmed;
  }
  out_ << " [y/n]: " << std::flush;
  std::string line;
  bool yes = std::getline(in_, line) && !line.empty() && (line[0] == 'y' || line[0] == 'Y');
  return yes ? kDialogConfirmed : kDialogCancelled;
}

void ScriptedDialogs::QueueAnswer(std::string_view text) {
  std::lock_guard lock(mu_);
  answers_.push_back({kDialogConfirmed, std::string(text)});
}

void ScriptedDialogs::QueueCancel() {
  std::lock_guard lock(mu_);
  answers_.push_back({kDialogCancelled, ""});
}

void ScriptedDialogs::QueueAlertAnswer(int32_t code) {
  std::lock_guard lock(mu_);
  alert_answers_.push_back(code);
}

std::vector<QueryRequest> ScriptedDialogs::TakeQueries() {
  std::lock_guard lock(mu_);
  return std::exchange(queries_, {});
}

std::vector<TString> ScriptedDialogs::TakeAlerts() {
  std::lock_guard lock(mu_);
  return std::exchange(alerts_, {});
}

size_t ScriptedDialogs::PendingAnswers() const {
  std::lock_guard lock(mu_);
  return answers_.size();
}

int32_t ScriptedDialogs::Query(const QueryRequest& q, TString* answer) {
  std::lock_guard lock(mu_);
  queries_.push_back(q);
  if (answers_.empty()) return kDialogCancelled;
  Answer a = answers_.front();
  answers_.pop_front();
  if (a.code == kDialogConfirmed) answer->Set(a.text);
  return a.code;
}

int32_t ScriptedDialogs::Alert(uint32_t, const TString& text) {
  std::lock_guard lock(mu_);
  alerts_.push_back(text);
  if (alert_answers_.empty()) return kDialogConfirmed;
  int32_t code = alert_answers_.front();
  alert_answers_.pop_front();
  return code;
}

}  // namespace fundra
