#include "support/Json.h"

#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <utility>

#include "support/BoostJson.h"
#include "support/JsonPlain.h"

namespace json {

namespace {

using boost::json::error;
using boost::json::error_code;
using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr std::size_t parsedLevels = 512;
// Far more digits than make a difference to a double.
constexpr std::size_t digitsKept = 4096;
// A key longer than that names none of the members asked for.
constexpr std::size_t nameBytes = 256;
// Below it, the parser's own conversion is good enough to tell that a number is no infinity.
constexpr double surelyFinite = 1e300;
// What most elements of a report's arrays end with, unless it stands in a text.
constexpr std::string_view elementEnd = "},";
// To interrupt the parser costs about as much as to parse so many.
constexpr std::size_t worthwhileBytes = 512;

// Receives the parser's events and builds the members kept. What the parser expects of it is in snake case.
class Builder {
 public:
  static constexpr std::size_t max_array_size = SIZE_MAX;
  static constexpr std::size_t max_object_size = SIZE_MAX;
  static constexpr std::size_t max_string_size = SIZE_MAX;
  static constexpr std::size_t max_key_size = SIZE_MAX;

  Builder(std::vector<Member> keep, Limits limits) : keep_(std::move(keep)), limits_(limits) {}

  [[nodiscard]] Dictionary TakeDocument() { return TakeDictionary(open_.front()); }
  [[nodiscard]] const std::vector<std::string_view>& LeftOut() const { return leftOut_; }
  // After an `elementEnd`: whether it is one, in an array of which nothing is built, with levels left for plain
  // elements.
  [[nodiscard]] bool IsBetweenSkipped() const {
    const std::size_t levels = open_.size() + skipped_;
    return hasClosed_ && skipped_ > 0 && !isObject_[skipped_] && levels + plainLevels <= parsedLevels;
  }

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }

  bool on_array_begin(error_code& code) { return Begin(Array(), code); }
  bool on_array_end(std::size_t, error_code&) { return End(); }
  bool on_object_begin(error_code& code) { return Begin(Members(), code); }
  bool on_object_end(std::size_t, error_code&) {
    hasClosed_ = true;
    return End();
  }

  bool on_key_part(std::string_view part, std::size_t, error_code&) {
    hasClosed_ = false;
    if (skipped_ > 0) return true;
    if (open_.size() == memberLevel_) part = part.substr(0, nameBytes - std::min(text_.size(), nameBytes));
    if (SpendBytes(part.size())) text_ += part;
    return true;
  }
  bool on_key(std::string_view part, std::size_t size, error_code& code) {
    if (skipped_ > 0) return true;
    on_key_part(part, size, code);
    if (skipped_ == 0) BeginMember();
    text_.clear();
    return true;
  }

  bool on_string_part(std::string_view part, std::size_t, error_code&) {
    hasClosed_ = false;
    if (skipped_ > 0 || !wanted_) return true;
    // It is all of the member: what fits of it still tells something.
    if (open_.size() == memberLevel_) part = part.substr(0, limits_.bytes - bytes_);
    if (SpendBytes(part.size())) text_ += part;
    return true;
  }
  bool on_string(std::string_view part, std::size_t size, error_code& code) {
    on_string_part(part, size, code);
    const bool added = Add(std::move(text_), code);
    text_.clear();
    return added;
  }

  bool on_number_part(std::string_view part, error_code&) {
    digits_ += part.substr(0, digitsKept - std::min(digits_.size(), digitsKept));
    return true;
  }
  bool on_int64(std::int64_t number, std::string_view, error_code& code) {
    digits_.clear();
    return Add(number, code);
  }
  bool on_uint64(std::uint64_t number, std::string_view, error_code& code) {
    digits_.clear();
    return Add(number, code);
  }
  bool on_double(double number, std::string_view part, error_code& code) {
    if (IsWanted() || !(std::abs(number) < surelyFinite)) {
      on_number_part(part, code);
      // From the digits: the parser's own conversion is one bit off for many of them.
      if (digits_.size() < digitsKept) number = std::strtod(digits_.c_str(), nullptr);
      if (!std::isfinite(number)) return Fail(error::exponent_overflow, code);
    }
    digits_.clear();
    return Add(number, code);
  }
  bool on_bool(bool truth, error_code& code) { return Add(truth, code); }
  bool on_null(error_code& code) { return Add(platform::Null(), code); }

  bool on_comment_part(std::string_view, error_code&) { return true; }
  bool on_comment(std::string_view, error_code&) { return true; }

 private:
  using Members = std::vector<std::pair<std::string, Value>>;
  // An array or object being built, and the key that its next member will have.
  struct Container {
    std::variant<Array, Members> content;
    std::string key;
  };

  static bool Fail(error reason, error_code& code) {
    code = reason;
    return false;
  }

  static Dictionary TakeDictionary(Container& container) {
    return Dictionary(std::move(std::get<Members>(container.content)));
  }

  [[nodiscard]] bool IsWanted() const { return skipped_ == 0 && wanted_; }

  // Of the outermost object, or of one of which only some members are kept.
  void BeginMember() {
    const std::size_t level = open_.size();
    if (level == 1) {
      outer_ = keep_.end();
      memberLevel_ = 1;
    }
    if (level == memberLevel_) {
      const auto kept = std::find_if(keep_.begin(), keep_.end(), [&](const Member& member) {
        return level == 1 ? member.name == text_ : member.name == outer_->name && member.inner == text_;
      });
      wanted_ = kept != keep_.end();
      values_ = 0;
      bytes_ = 0;
      if (level == 1) outer_ = kept;
    }
    if (wanted_) open_.back().key.swap(text_);
  }

  bool Begin(std::variant<Array, Members> empty, error_code& code) {
    const bool isObject = std::holds_alternative<Members>(empty);
    if (open_.empty() && !isObject) return Fail(error::not_object, code);
    const bool isFiltered = open_.size() == 1 && IsWanted() && !outer_->inner.empty();
    if (!IsWanted() || (!isFiltered && !open_.empty() && !SpendValue(open_.size() - memberLevel_ + 1))) {
      isObject_[++skipped_] = isObject;
      return true;
    }
    open_.push_back({std::move(empty), {}});
    if (isFiltered) {
      memberLevel_ = 2;
      // Of an array in that place, nothing is kept.
      wanted_ = isObject;
    }
    return true;
  }

  bool End() {
    if (skipped_ > 0) {
      --skipped_;
      return true;
    }
    if (open_.size() == 1) return true;
    Container complete = std::move(open_.back());
    open_.pop_back();
    if (open_.size() < memberLevel_) memberLevel_ = 1;
    if (auto* array = std::get_if<Array>(&complete.content)) {
      Store(Value(Value::State(std::move(*array))));
    } else {
      Store(Value(Value::State(TakeDictionary(complete))));
    }
    wanted_ = true;
    return true;
  }

  template <typename T>
  bool Add(T value, error_code& code) {
    if (open_.empty()) return Fail(error::not_object, code);
    if (IsWanted() && SpendValue(0)) Store(Value(Value::State(std::move(value))));
    return true;
  }

  void Store(Value value) {
    Container& container = open_.back();
    if (auto* array = std::get_if<Array>(&container.content)) {
      array->push_back(std::move(value));
      return;
    }
    auto& members = std::get<Members>(container.content);
    // There are as few of these as are asked for, however often one is repeated.
    const auto repeated = open_.size() > memberLevel_
                              ? members.end()
                              : std::find_if(members.begin(), members.end(),
                                             [&](const auto& member) { return member.first == container.key; });
    if (repeated != members.end()) {
      repeated->second = std::move(value);
    } else {
      members.emplace_back(std::exchange(container.key, {}), std::move(value));
    }
  }

  bool SpendValue(std::size_t levels) {
    if (++values_ <= limits_.values && levels <= limits_.levels) return true;
    LeaveOut();
    return false;
  }

  bool SpendBytes(std::size_t count) {
    bytes_ += count;
    if (bytes_ <= limits_.bytes || open_.size() <= memberLevel_) return true;
    LeaveOut();
    return false;
  }

  // Null stands for the member being built, and the rest of it is skipped.
  void LeaveOut() {
    if (std::find(leftOut_.begin(), leftOut_.end(), outer_->name) == leftOut_.end()) leftOut_.push_back(outer_->name);
    skipped_ = open_.size() - memberLevel_;
    open_.resize(memberLevel_);
    text_.clear();
    Store(Value());
    wanted_ = false;
  }

  std::vector<Member> keep_;
  Limits limits_;
  std::vector<Container> open_;                // the first is the document itself
  std::size_t memberLevel_ = 1;                // of the object whose members are kept or not
  std::vector<Member>::const_iterator outer_;  // the member that is being built
  std::size_t skipped_ = 0;                    // containers that are open and not built
  std::bitset<parsedLevels + 1> isObject_;     // each of these
  bool hasClosed_ = false;                     // an object, and no part of a text came since
  bool wanted_ = true;                         // whether the next value here is built
  std::size_t values_ = 0;                     // of the member so far
  std::size_t bytes_ = 0;
  std::string text_;    // the parts of a key or text so far
  std::string digits_;  // and of a number
  std::vector<std::string_view> leftOut_;
};

boost::json::parse_options Options() {
  boost::json::parse_options options;
  options.max_depth = parsedLevels;
  return options;
}

}  // namespace

struct Parser::Body {
  Body(std::vector<Member> keep, Limits limits) : parser(Options(), std::move(keep), limits) {}

  void Write(std::string_view piece) {
    // Most of a report is elements of arrays that nobody asks for. Where the parser stands between two of them, it is
    // the same to it whether it sees the next ones, as long as they are no errors.
    std::size_t uninterrupted = 0;
    while (!piece.empty()) {
      const std::size_t mark = piece.find(elementEnd, std::min(uninterrupted, piece.size()));
      const bool isFound = mark != std::string_view::npos;
      const std::string_view parsed = piece.substr(0, isFound ? mark + elementEnd.size() : mark);
      Parse(true, parsed);
      if (failed) return;
      piece.remove_prefix(parsed.size());
      const std::size_t skipped = isFound && parser.handler().IsBetweenSkipped() ? PlainElements(piece) : 0;
      position += skipped;
      piece.remove_prefix(skipped);
      uninterrupted = skipped < worthwhileBytes ? 2 * worthwhileBytes : 0;
    }
  }

  void Parse(bool more, std::string_view piece) {
    if (failed) return;
    const std::size_t count = parser.write_some(more, piece.data(), piece.size(), failed);
    if (!failed && count < piece.size()) failed = error::extra_data;
    position += count;
  }

  boost::json::basic_parser<Builder> parser;
  error_code failed;
  std::uint64_t position = 0;  // of what is read
};

Parser::Parser(std::vector<Member> keep, Limits limits) : body_(std::make_unique<Body>(std::move(keep), limits)) {}
Parser::Parser(Parser&&) noexcept = default;
Parser& Parser::operator=(Parser&&) noexcept = default;
Parser::~Parser() = default;

void Parser::Write(std::string_view piece) { body_->Write(piece); }

std::variant<Dictionary, Error> Parser::Finish() {
  body_->Parse(false, {});
  if (body_->failed) return Error{body_->failed.message() + " at byte " + std::to_string(body_->position)};
  return body_->parser.handler().TakeDocument();
}

const std::vector<std::string_view>& Parser::LeftOut() const { return body_->parser.handler().LeftOut(); }

std::variant<Dictionary, Error> Parse(std::string_view text, std::initializer_list<std::string_view> keep) {
  std::vector<Member> members;
  for (const std::string_view name : keep) members.push_back({.name = name});
  Parser parser(std::move(members));
  parser.Write(text);
  auto parsed = parser.Finish();
  if (!parser.LeftOut().empty()) return Error{"a value too large: " + std::string(parser.LeftOut().front())};
  return parsed;
}

}  // namespace json
