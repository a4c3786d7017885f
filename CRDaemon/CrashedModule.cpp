#include "CRDaemon/CrashedModule.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <variant>
#include <vector>

#include "CRDaemon/CrashReporterPreferences.h"
#include "support/Json.h"
#include "support/JsonView.h"
#include "support/Text.h"

namespace crashedmodule {
namespace {

constexpr std::string_view objectEnd = "}\n";
constexpr std::string_view marker = "crashed::";
constexpr std::size_t textUnitsRead = 1000;  // UTF-16
constexpr std::int32_t noImage = -1;
constexpr std::size_t queueBytes = std::size_t{64} << 10U;  // of all their lines

std::optional<std::string> TextMember(std::string_view object, std::string_view key) {
  const auto member = json::MemberOf(object, key);
  const platform::Value value = member ? json::ValueOf(*member) : platform::Value();
  const auto* text = value.As<std::string>();
  return text == nullptr ? std::nullopt : std::optional(*text);
}

// The body up to the end of its images, closed again: what follows them may be cut off or of any shape. None when it is
// not JSON.
std::optional<std::string> BodyOf(std::string_view report) {
  const std::size_t headerEnd = report.find(objectEnd);
  if (headerEnd == std::string_view::npos) return std::nullopt;
  const std::string_view rest = report.substr(headerEnd + objectEnd.size());
  constexpr std::string_view closing = "}\n]\n}";
  const std::string_view cut = rest.substr(0, rest.find(objectEnd));
  std::string body;
  body.reserve(cut.size() + closing.size());
  body.append(cut).append(closing);
  if (std::holds_alternative<json::Error>(json::Parse(body, {}))) return std::nullopt;
  return body;
}

std::int32_t FirstImageIndex(std::string_view frames) {
  json::Elements elements(frames);
  while (const auto frame = elements.Next()) {
    if (const auto index = json::MemberOf(*frame, "imageIndex")) return preferences::IntegerOf(json::ValueOf(*index));
  }
  return noImage;
}

// Adds the queues of the threads that crashed, up to the first with frames, and returns the image of its first one.
std::int32_t AddQueues(std::string_view threads, std::string& lines) {
  json::Elements elements(threads);
  while (const auto thread = elements.Next()) {
    if (!json::MemberOf(*thread, "triggered")) continue;
    const auto queue = lines.size() < queueBytes ? TextMember(*thread, "queue") : std::nullopt;
    if (queue) lines += text::Trim(*queue) + "\n";
    const auto frames = json::MemberOf(*thread, "frames");
    if (frames && json::IsArray(*frames)) return FirstImageIndex(*frames);
  }
  return noImage;
}

std::string ModuleOfImage(std::string_view images, std::int32_t index) {
  if (index < 0) return "";
  json::Elements elements(images);
  auto image = elements.Next();
  while (image && index-- > 0) image = elements.Next();
  for (const char* key : {"CFBundleIdentifier", "name"}) {
    if (const auto module = image ? TextMember(*image, key) : std::nullopt) return text::Trim(*module);
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
  if (!body) return std::nullopt;
  const std::string_view members = json::View(*body);
  const auto threads = json::MemberOf(members, "threads");
  if (!threads || !json::IsArray(*threads)) return std::nullopt;
  std::string lines;
  const std::int32_t image = AddQueues(*threads, lines);
  return lines + ModuleOfImage(json::MemberOf(members, "usedImages").value_or(""), image) + "\n";
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
