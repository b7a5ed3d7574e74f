// Queries and alerts through the installed dialog host.
#include "platform/fundra/dialogs.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/zelkor/log.h"

namespace fundra {
namespace {

// Installs a host for the scope of a test and restores the previous one.
class Installed {
 public:
  explicit Installed(DialogHost* h) : previous_(SetDialogHost(h)) {}
  ~Installed() { SetDialogHost(previous_); }

 private:
  DialogHost* previous_;
};

TEST(DialogsTest, ScriptedAnswersAreGivenInOrderAndQueriesRecorded) {
  ScriptedDialogs script;
  Installed in(&script);
  script.QueueAnswer("A name that is far longer than thirty-one characters");
  script.QueueCancel();
  script.QueueAnswer("Mine");
  TString answer("New folder 2");
  EXPECT_EQ(Queryf(18, -31, &answer, TString("Name of the new %s:"), TString("folder")),
            kDialogConfirmed);
  EXPECT_EQ(answer.Length(), 31);
  EXPECT_EQ(answer, "A name that is far longer than ");
  TString kept("keep me");
  EXPECT_EQ(Queryf(18, 31, &kept, TString("Again")), kDialogCancelled);
  EXPECT_EQ(kept, "keep me");
  EXPECT_EQ(Queryf(18, 31, &kept, TString("Third")), kDialogConfirmed);
  EXPECT_EQ(kept, "Mine");
  // Nothing queued: cancelled.
  EXPECT_EQ(Queryf(18, 31, &kept, TString("Fourth")), kDialogCancelled);
  EXPECT_EQ(script.PendingAnswers(), 0u);

  std::vector<QueryRequest> q = script.TakeQueries();
  ASSERT_EQ(q.size(), 4u);
  EXPECT_EQ(q[0].style, 18u);
  EXPECT_EQ(q[0].length, -31);
  EXPECT_EQ(q[0].proposal, "New folder 2");
  EXPECT_EQ(q[0].text, "Name of the new folder:");
  EXPECT_EQ(q[2].proposal, "keep me");
  EXPECT_TRUE(script.TakeQueries().empty());

  script.QueueAlertAnswer(kDialogCancelled);
  EXPECT_EQ(Alertf(17, TString("The name \"%s\" is taken."), TString("Mine")), kDialogCancelled);
  EXPECT_EQ(Alertf(17, TString("Plain")), kDialogConfirmed);
  std::vector<TString> alerts = script.TakeAlerts();
  ASSERT_EQ(alerts.size(), 2u);
  EXPECT_EQ(alerts[0], "The name \"Mine\" is taken.");
}

TEST(DialogsTest, TerminalReadsLinesAndKeepsTheProposalOnAnEmptyOne) {
  std::istringstream in("typed\n\n");
  std::ostringstream out;
  TerminalDialogs term(in, out);
  Installed installed(&term);
  TString answer("first");
  EXPECT_EQ(Queryf(18, 31, &answer, TString("Name:")), kDialogConfirmed);
  EXPECT_EQ(answer, "typed");
  EXPECT_EQ(Queryf(18, 31, &answer, TString("Name:")), kDialogConfirmed);
  EXPECT_EQ(answer, "typed");
  EXPECT_EQ(Queryf(18, 31, &answer, TString("Name:")), kDialogCancelled);
  EXPECT_EQ(Alertf(17, TString("Careful")), kDialogConfirmed);
  EXPECT_EQ(out.str(), "Name: [first]: Name: [typed]: Name: [typed]: \n! Careful\n");
}

TEST(DialogsTest, WithoutAHostQueriesCancelAndAlertsAreLogged) {
  Installed none(nullptr);
  zelkor::LogCapture log;
  TString answer("x");
  EXPECT_EQ(Queryf(18, 31, &answer, TString("Name?")), kDialogCancelled);
  EXPECT_EQ(answer, "x");
  EXPECT_EQ(Alertf(17, TString("Lost %~d"), 3), kDialogConfirmed);
  EXPECT_EQ(Queryf(18, 31, nullptr, TString("Name?")), kDialogCancelled);
  std::vector<zelkor::LogEntry> lines = log.take();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].text, "Alertf: Lost 3");
}

}  // namespace
}  // namespace fundra
