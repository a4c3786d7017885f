#include "CRDaemon/CrashedModule.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <variant>
#include <vector>

#include "CRDaemon/CrashReporterPreferences.h"
#include "support/Json.h"
#include "support/Text.h"

namespace crashedmodule {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr std::string_view objectEnd = "}\n";
constexpr std::string_view marker = "crashed::";
constexpr std::size_t textUnitsRead = 1000;  // UTF-16
constexpr std::int32_t noImage = -1;

template <typename T>
const T* Member(const Dictionary& object, std::string_view key) {
  const Value* value = object.Find(key);
  return value == nullptr ? nullptr : value->As<T>();
}

// The body up to the end of its images, closed again: what follows them may be cut off or of any shape.
std::optional<Dictionary> BodyOf(std::string_view report) {
  const std::size_t headerEnd = report.find(objectEnd);
  if (headerEnd == std::string_view::npos) return std::nullopt;
  const std::string_view rest = report.substr(headerEnd + objectEnd.size());
  std::string body(rest.substr(0, rest.find(objectEnd)));
  body += "}\n]\n}";
  auto parsed = json::Parse(body, {"threads", "usedImages"});
  if (auto* members = std::get_if<Dictionary>(&parsed)) return std::move(*members);
  return std::nullopt;
}

std::int32_t FirstImageIndex(const Array& frames) {
  for (const Value& frame : frames) {
    const auto* members = frame.As<Dictionary>();
    const Value* index = members == nullptr ? nullptr : members->Find("imageIndex");
    if (index != nullptr) return preferences::IntegerOf(*index);
  }
  return noImage;
}

// Adds the queues of the threads that crashed, up to the first with frames, and returns the image of its first one.
std::int32_t AddQueues(const Array& threads, std::string& lines) {
  for (const Value& thread : threads) {
    const auto* members = thread.As<Dictionary>();
    if (members == nullptr || members->Find("triggered") == nullptr) continue;
    if (const auto* queue = Member<std::string>(*members, "queue")) lines += text::Trim(*queue) + "\n";
    if (const auto* frames = Member<Array>(*members, "frames")) return FirstImageIndex(*frames);
  }
  return noImage;
}

std::string ModuleOfImage(const Dictionary& body, std::int32_t index) {
  const auto* images = Member<Array>(body, "usedImages");
  if (index < 0 || images == nullptr || images->size() <= static_cast<std::size_t>(index)) return "";
  const auto* image = (*images)[static_cast<std::size_t>(index)].As<Dictionary>();
  if (image == nullptr) return "";
  for (const char* key : {"CFBundleIdentifier", "name"}) {
    if (const auto* module = Member<std::string>(*image, key)) return text::Trim(*module);
  }
  return "";
}

// The text from the one marker on; none when there is no marker or several.
std::optional<std::string_view> FromMarker(std::string_view report) {
  const auto equalIgnoringCase = [](char left, char right) {
    return std::tolower(static_cast<unsigned char>(left)) == right;
  };
  const auto find = [&](const char* from) {
    return std::search(from, report.data() + report.size(), marker.begin(), marker.end(), equalIgnoringCase);
  };
  const char* const end = report.data() + report.size();
  const char* const first = find(report.data());
  if (first == end || find(first + marker.size()) != end) return std::nullopt;
  return report.substr(static_cast<std::size_t>(first - report.data()));
}

}  // namespace

std::optional<std::string> LinesFromJson(std::string_view report) {
  const auto body = BodyOf(report);
  const auto* threads = body ? Member<Array>(*body, "threads") : nullptr;
  if (threads == nullptr) return std::nullopt;
  std::string lines;
  const std::int32_t image = AddQueues(*threads, lines);
  return lines + ModuleOfImage(*body, image) + "\n";
}

std::string LinesFromText(std::string_view report) {
  const auto crashed = FromMarker(report);
  if (!crashed) return "";
  const auto lines = text::Split(text::UpTo(*crashed, textUnitsRead), '\n');
  if (lines.size() < 2) return "";
  std::string result = text::Trim(text::Split(lines[0], ':').back()) + "\n";

  std::string frame(lines[1]);
  std::replace(frame.begin(), frame.end(), '\t', ' ');
  const auto columns = text::Split(frame, ' ');
  const auto module = std::find_if(columns.begin() + 1, columns.end(), [](auto column) { return !column.empty(); });
  if (module != columns.end()) result.append(*module).append("\n");
  return result;
}

}  // namespace crashedmodule
