#include <algorithm>
#include <utility>

#include "tools/crctl/ErrorLines.h"
#include "tools/crctl/Verbs.h"

namespace crctl {
namespace {

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size() + 1, width), ' ');
  return text;
}

std::string LineOf(const Finding& finding) {
  constexpr std::size_t stateWidth = 9;
  constexpr std::size_t nameWidth = 20;
  const std::string advice = finding.advice.empty() ? "" : " -> " + finding.advice;
  return Line(Padded(TextOf(finding.state), stateWidth) + Padded(finding.name, nameWidth) + finding.seen + advice);
}

platform::Value JsonOf(const Finding& finding) {
  return platform::Value(platform::Dictionary{
      {"name", finding.name}, {"state", TextOf(finding.state)}, {"seen", finding.seen}, {"advice", finding.advice}});
}

Findings AllFindings(const Subject& subject) {
  Findings all;
  for (Findings part : {CheckMachine(), CheckFolders(), CheckQueue(), CheckService(), CheckRuns(subject)}) {
    std::move(part.begin(), part.end(), std::back_inserter(all));
  }
  return all;
}

}  // namespace

const char* TextOf(State state) {
  switch (state) {
    case State::ok:
      return "ok";
    case State::warning:
      return "warning";
    case State::error:
      break;
  }
  return "error";
}

Answer Doctor(const Subject& subject) {
  const Findings findings = AllFindings(subject);
  const auto number = [&findings](State state) {
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(), [state](const Finding& one) { return one.state == state; }));
  };
  Answer answer;
  platform::Array checks;
  for (const Finding& finding : findings) {
    answer.text += LineOf(finding);
    checks.push_back(JsonOf(finding));
  }
  const std::size_t errors = number(State::error);
  const std::size_t warnings = number(State::warning);
  static_cast<void>(ErrorLines::Get().Take());  // the findings say as much
  answer.isWell = errors == 0;
  answer.text +=
      errors + warnings == 0 ? "All is well.\n" : Count(errors, "error") + ", " + Count(warnings, "warning") + "\n";
  answer.json = {{"ok", platform::Value(answer.isWell)}, {"checks", platform::Value(std::move(checks))}};
  return answer;
}

}  // namespace crctl
