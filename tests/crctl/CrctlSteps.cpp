#include "tests/crctl/CrctlSteps.h"

#include <sys/wait.h>

#include <variant>

#include "support/Json.h"

std::string TextOf(const platform::Value& dictionary, const std::string& key) {
  const platform::Value* value = dictionary.As<platform::Dictionary>()->Find(key);
  const auto* text = value == nullptr ? nullptr : value->As<std::string>();
  return text == nullptr ? "" : *text;
}

std::string Outcome::Text(const std::string& member) const { return TextOf(platform::Value(object), member); }

platform::Array Outcome::List(const std::string& member) const {
  const platform::Value* value = object.Find(member);
  return value == nullptr ? platform::Array() : *value->As<platform::Array>();
}

Outcome CrctlSandbox::Crctl(std::vector<std::string> arguments) const {
  static int runs = 0;
  const std::string output = "crctl" + std::to_string(++runs) + ".out";
  arguments.insert(arguments.begin(), Folder() / "bin/crctl");
  demo::Program crctl = StartProgram(std::move(arguments), output);
  const auto ended = crctl.AwaitEnd();
  Outcome outcome{.status = ended && WIFEXITED(*ended) ? WEXITSTATUS(*ended) : -1,
                  .output = demo::ContentOf(Folder() / output),
                  .object = {}};
  const std::size_t object = outcome.output.find('{');
  if (object == std::string::npos) return outcome;
  const auto parsed = json::Parse(outcome.output.substr(object, outcome.output.find('\n', object) - object),
                                  {"ok", "checks", "events", "event", "stored", "lines", "error", "path"});
  if (const auto* document = std::get_if<platform::Dictionary>(&parsed)) outcome.object = *document;
  return outcome;
}
