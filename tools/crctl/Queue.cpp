#include <algorithm>
#include <variant>

#include "CRDaemon/IngestUpload.h"
#include "CRDaemon/Ingester.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Diagnosis.h"
#include "support/Dates.h"
#include "support/FixedNames.h"
#include "support/Json.h"
#include "support/Paths.h"
#include "tools/crctl/ErrorLines.h"
#include "tools/crctl/QueueFolder.h"
#include "tools/crctl/Verbs.h"

namespace crctl {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::FileKind;
using platform::Value;

std::string IdOf(const std::string& path) {
  const std::string name = paths::LastComponent(path);
  const std::string before = std::string(names::eventFilePrefix) + "_";
  const std::string after = std::string(".") + names::eventFileSuffix;
  const bool isUsual = name.size() > before.size() + after.size() && name.starts_with(before) && name.ends_with(after);
  return isUsual ? name.substr(before.size(), name.size() - before.size() - after.size()) : name;
}

std::optional<std::string> PathOf(const std::string& id) {
  for (const std::string& path : EventPaths()) {
    if (IdOf(path) == id || paths::LastComponent(path) == id) return path;
  }
  return std::nullopt;
}

Answer UnknownId(const std::string& id) {
  return Failed("no event " + id + " in " + ProcessWide().REPORTS_DIR + " (see: crctl queue list)");
}

std::string TextOf(const Dictionary& event, const char* key) {
  const Value* value = event.Find(key);
  const auto* text = value == nullptr ? nullptr : value->As<std::string>();
  return text == nullptr ? "-" : *text;
}

// What can be said of an event without its contents.
Dictionary FactsOf(const std::string& path) {
  const auto created = platform::CreationDate(path);
  const auto holder = platform::LockHolder(Ingester::getLockPathForReportPath(path));
  return {{"id", IdOf(path)},
          {"path", path},
          {"created", created ? Value(dates::FormatLogTime(*created)) : Value()},
          {"postedBy", holder ? Value(std::int64_t{*holder}) : Value()}};
}

// A value as a person reads it: a text as it is, the rest as JSON.
std::string Shown(const Value& value) {
  if (const auto* text = value.As<std::string>()) return *text;
  auto written = json::Write(value);
  const auto* error = std::get_if<json::Error>(&written);
  return error == nullptr ? std::get<std::string>(written) : "(" + error->description + ")";
}

struct Outcome {
  bool isGone = false;
  std::string why;  // of one that stays
};

Outcome PostOne(const std::string& path, UploadRun& run) {
  if (run.http.IsSpent()) return {.isGone = false, .why = "not tried: the service does not answer in time"};
  static_cast<void>(ErrorLines::Get().Take());
  const bool posted = Ingester::processReport(path, run);
  const std::string why = Joined(ErrorLines::Get().Take());
  // A daemon that was quicker has done as well.
  return {.isGone = posted || platform::KindOf(path) == FileKind::absent, .why = why};
}

}  // namespace

std::vector<std::string> EventPaths() {
  std::vector<std::string> events;
  if (platform::KindOf(ProcessWide().REPORTS_DIR) == FileKind::absent) return events;
  Ingester::forEachFileAtPath(ProcessWide().REPORTS_DIR, [&events](const std::string& path) {
    if (Ingester::shouldProcessReport(path)) events.push_back(path);
    return true;
  });
  std::sort(events.begin(), events.end());
  return events;
}

std::vector<std::string> LockPaths() {
  std::vector<std::string> locks;
  auto folder = platform::Folder::Open(ProcessWide().REPORTS_DIR);
  if (!folder) return locks;
  while (const auto name = folder->Next()) {
    if (paths::Extension(*name) == names::lockFileExtension)
      locks.push_back(paths::Join(ProcessWide().REPORTS_DIR, *name));
  }
  std::sort(locks.begin(), locks.end());
  return locks;
}

Answer ListQueue() {
  Answer answer;
  Array events;
  for (const std::string& path : EventPaths()) {
    const Dictionary event = ReadEvent(path).value_or(Dictionary());
    Dictionary facts = FactsOf(path);
    for (const char* key : {"event.value", "source.name", "source.version"}) facts.Set(key, TextOf(event, key));
    answer.text += Line(IdOf(path) + "  " + TextOf(facts, "created") + "  " + TextOf(event, "event.value") + "  " +
                        TextOf(event, "source.name") + " " + TextOf(event, "source.version") +
                        (facts.Find("postedBy")->IsNull() ? "" : "  (being posted)"));
    events.emplace_back(std::move(facts));
  }
  if (events.empty()) answer.text = "The queue is empty.\n";
  answer.json = {{"folder", ProcessWide().REPORTS_DIR}, {"events", Value(std::move(events))}};
  return answer;
}

Answer ShowEvent(const std::string& id) {
  const auto path = PathOf(id);
  if (!path) return UnknownId(id);
  const auto event = ReadEvent(*path);
  if (!event) return Failed("cannot read event " + id + ": " + Joined(ErrorLines::Get().Take()));
  Answer answer;
  for (const auto& [key, value] : *event) answer.text += Line(key + ": " + Shown(value));
  if (event->empty()) answer.text = "(not to be understood: it is posted as an event without contents of its own)\n";
  answer.json = FactsOf(*path);
  answer.json.Set("event", Value(*event));
  return answer;
}

Answer PostEvents(const std::vector<std::string>& ids) {
  std::vector<std::string> chosen;
  for (const std::string& id : ids) {
    const auto path = PathOf(id);
    if (!path) return UnknownId(id);
    chosen.push_back(*path);
  }
  if (ids.empty()) chosen = EventPaths();

  Answer answer;
  Array events;
  std::size_t stayed = 0;
  UploadRun run{.http = upload::ServiceClient()};
  for (const std::string& path : chosen) {
    const Outcome outcome = PostOne(path, run);
    if (!outcome.isGone) ++stayed;
    answer.text += Line(IdOf(path) + "  " + (outcome.isGone ? "posted" : "stays: " + outcome.why));
    events.emplace_back(Dictionary{
        {"id", IdOf(path)}, {"posted", Value(outcome.isGone)}, {"error", outcome.isGone ? "" : outcome.why}});
  }
  if (chosen.empty()) answer.text = "The queue is empty.\n";
  answer.json = {{"events", Value(std::move(events))}};
  if (stayed > 0) {
    answer.isWell = false;
    answer.error = Count(stayed, "event") + " could not be posted";
  }
  return answer;
}

Answer ExpireQueue(bool onlyName) {
  Answer answer;
  Array expired;
  if (platform::KindOf(ProcessWide().REPORTS_DIR) != FileKind::absent) {
    Ingester::forEachFileAtPath(ProcessWide().REPORTS_DIR, [&](const std::string& path) {
      if (!Ingester::shouldDeleteFile(path)) return true;
      if (!onlyName) deleteFile(path);
      answer.text += Line(path);
      expired.emplace_back(path);
      return true;
    });
  }
  const std::string errors = Joined(ErrorLines::Get().Take());
  if (!errors.empty()) return Failed(errors);
  answer.text += Count(expired.size(), "file") + (onlyName ? " would expire\n" : " expired\n");
  answer.json = {{"expired", Value(std::move(expired))}};
  return answer;
}

}  // namespace crctl
