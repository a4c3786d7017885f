#include <string_view>
#include <utility>

#include "CRDaemon/CrashReporterPreferences.h"
#include "platform/Files.h"
#include "support/FixedNames.h"
#include "tools/crctl/ErrorLines.h"
#include "tools/crctl/Verbs.h"

namespace crctl {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;

// Nothing is stored as long as there is no file; none when it cannot be read.
std::optional<Dictionary> ReadStored() {
  auto values = preferences::Read();
  if (!values && platform::KindOf(preferences::FilePath()) != platform::FileKind::absent) return std::nullopt;
  Dictionary stored;
  if (!values) return stored;
  for (const auto& [key, value] : *values) {
    if (std::string_view(key).starts_with(names::lastCrashKeyPrefix)) stored.Set(key, value);
  }
  return stored;
}

Answer Unreadable() { return Failed("cannot read " + preferences::FilePath() + " as a property list"); }

std::vector<std::string> KeysOf(const StoredChoice& choice, const Dictionary& stored) {
  std::vector<std::string> keys = choice.keys;
  if (choice.application)
    keys.push_back(preferences::StoredCrashKey(*choice.application, choice.version, choice.build));
  if (choice.all) {
    for (const auto& member : stored) keys.push_back(member.first);
  }
  return keys;
}

}  // namespace

Answer ListStored() {
  const auto stored = ReadStored();
  if (!stored) return Unreadable();
  Answer answer;
  Array records;
  for (const auto& [key, value] : *stored) {
    const auto* report = value.As<std::string>();
    answer.text += Line(key + "  " + (report == nullptr ? "(no text)" : *report));
    records.emplace_back(Dictionary{{"key", key}, {"report", report == nullptr ? Value() : value}});
  }
  if (records.empty()) answer.text = "Nothing is stored.\n";
  answer.json = {{"stored", Value(std::move(records))}};
  return answer;
}

// Never removed: to a daemon that runs, a missing value would make every report an old one.
Answer ForgetStored(const StoredChoice& choice) {
  const auto stored = ReadStored();
  if (!stored) return Unreadable();
  const std::vector<std::string> keys = KeysOf(choice, *stored);
  for (const std::string& key : keys) {
    if (stored->Find(key) == nullptr) return Failed("nothing is stored under " + key + " (see: crctl stored list)");
  }
  Answer answer;
  Array forgotten;
  for (const std::string& key : keys) {
    if (!preferences::Store(key, names::nothing)) {
      const std::string why = Joined(ErrorLines::Get().Take());
      return Failed("cannot write " + preferences::FilePath() + (why.empty() ? "" : ": " + why));
    }
    answer.text += Line(key + "  forgotten");
    forgotten.emplace_back(key);
  }
  if (forgotten.empty()) answer.text = "Nothing is stored.\n";
  answer.json = {{"forgotten", Value(std::move(forgotten))}};
  return answer;
}

}  // namespace crctl
