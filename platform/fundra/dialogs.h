// Alerts and text-entry dialogs.
//
// The module asks the user through Queryf and tells through Alertf; the host decides who answers
// by installing a DialogHost: TerminalDialogs for a person at a terminal, ScriptedDialogs for
// tests (answers queued beforehand, questions and alerts read back afterwards). Without a host,
// every query is cancelled and every alert goes to the framework log.
//
// Style words: the low four bits name the buttons (1 OK, 2 OK and Cancel); 0x10 marks a dialog
// the module raises for the application's own data. The module passes 17 for alerts and 18 for
// queries. The length word of Queryf limits the answer to |length| characters; a negative length
// asks the dialog to offer the proposal selected, so that typing replaces it.
#pragma once

#include <cstdint>
#include <deque>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "platform/fundra/tstring.h"

namespace fundra {

constexpr int32_t kDialogConfirmed = -1203;
constexpr int32_t kDialogCancelled = -1201;

struct QueryRequest {
  uint32_t style;
  int32_t length;    // as passed; the answer is cut to |length| characters
  TString proposal;  // the answer buffer's text when the query was raised
  TString text;      // the prompt, formatted
};

class DialogHost {
 public:
  virtual ~DialogHost() = default;
  // Answers kDialogConfirmed with the entered text in answer, or kDialogCancelled (answer is then
  // left as it was).
  virtual int32_t Query(const QueryRequest& q, TString* answer) = 0;
  // Shows the text; answers kDialogConfirmed, or kDialogCancelled for a two-button alert declined.
  virtual int32_t Alert(uint32_t style, const TString& text) = 0;
};

// Installs the host (nullptr: none); the caller keeps it alive while installed. Answers the
// previous one.
DialogHost* SetDialogHost(DialogHost* host);

int32_t QueryDialog(uint32_t style, int32_t length, TString* answer, const TString& text);
int32_t AlertDialog(uint32_t style, const TString& text);

// Asks for a text: the prompt is format filled with the arguments (as SPrintf). answer holds the
// proposal and receives the entered text, cut to |length| characters.
template <class... A>
int32_t Queryf(uint32_t style, int32_t length, TString* answer, const TString& format,
               const A&... args) {
  TString text;
  text.SPrintf(format, args...);
  return QueryDialog(style, length, answer, text);
}

// Shows the format filled with the arguments; the format may be a keyed text's TString.
template <class... A>
int32_t Alertf(uint32_t style, const TString& format, const A&... args) {
  TString text;
  text.SPrintf(format, args...);
  return AlertDialog(style, text);
}

// Reads answers from a stream and writes dialogs to another: a query shows its text and the
// proposal in brackets; an empty line keeps the proposal, the end of input cancels.
class TerminalDialogs : public DialogHost {
 public:
  TerminalDialogs(std::istream& in, std::ostream& out) : in_(in), out_(out) {}
  int32_t Query(const QueryRequest& q, TString* answer) override;
  int32_t Alert(uint32_t style, const TString& text) override;

 private:
  std::istream& in_;
  std::ostream& out_;
};

// Answers from a queue filled beforehand and records every dialog. An empty queue cancels.
class ScriptedDialogs : public DialogHost {
 public:
  void QueueAnswer(std::string_view text);  // the next query is confirmed with this text
  void QueueCancel();                       // the next query is cancelled
  void QueueAlertAnswer(int32_t code);      // the next alert answers code (default confirmed)

  std::vector<QueryRequest> TakeQueries();
  std::vector<TString> TakeAlerts();
  size_t PendingAnswers() const;

  int32_t Query(const QueryRequest& q, TString* answer) override;
  int32_t Alert(uint32_t style, const TString& text) override;

 private:
  struct Answer {
    int32_t code;
    std::string text;
  };
  mutable std::mutex mu_;
  std::deque<Answer> answers_;
  std::deque<int32_t> alert_answers_;
  std::vector<QueryRequest> queries_;
  std::vector<TString> alerts_;
};

}  // namespace fundra
