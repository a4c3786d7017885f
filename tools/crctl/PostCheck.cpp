#include "tools/crctl/PostCheck.h"

#include <algorithm>
#include <boost/json.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <valijson/adapters/boost_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>
#include <variant>

#include "embedded/crd_ingest.h"
#include "support/FixedNames.h"
#include "support/Json.h"
#include "support/Text.h"

namespace ingest {
namespace {

namespace js = boost::json;
using platform::Array;
using platform::Dictionary;
using valijson::adapters::BoostJsonAdapter;

// More than a queued event can nest.
constexpr std::size_t levels = 160;
constexpr std::size_t mostProblems = 50;
// The values and keys of one body. In memory each takes many times its bytes; the daemon sends a few thousand at most.
constexpr std::size_t mostValues = 20'000;
constexpr std::size_t quotedBytes = 80;
// The library matches patterns with a recursion as deep as a text is long. All that a pattern describes is shorter.
constexpr std::size_t comparedBytes = 4096;

// Lets everything pass up to that number of values, and notes the keys that stand twice in one object. What the parser
// expects of it is in snake case.
class RepeatedKeys {
 public:
  static constexpr std::size_t max_array_size = SIZE_MAX;
  static constexpr std::size_t max_object_size = SIZE_MAX;
  static constexpr std::size_t max_string_size = SIZE_MAX;
  static constexpr std::size_t max_key_size = SIZE_MAX;

  [[nodiscard]] const std::set<std::string>& Found() const { return found_; }

  bool on_document_begin(js::error_code&) { return true; }
  bool on_document_end(js::error_code&) { return true; }
  bool on_array_begin(js::error_code& error) { return Count(error); }
  bool on_array_end(std::size_t, js::error_code&) { return true; }
  bool on_object_begin(js::error_code& error) {
    open_.emplace_back();
    return Count(error);
  }
  bool on_object_end(std::size_t, js::error_code&) {
    open_.pop_back();
    return true;
  }
  bool on_key_part(std::string_view part, std::size_t, js::error_code&) {
    key_ += part;
    return true;
  }
  bool on_key(std::string_view part, std::size_t, js::error_code& error) {
    key_ += part;
    if (!open_.back().insert(key_).second) found_.insert(key_);
    key_.clear();
    return Count(error);
  }
  bool on_string_part(std::string_view, std::size_t, js::error_code&) { return true; }
  bool on_string(std::string_view, std::size_t, js::error_code& error) { return Count(error); }
  bool on_number_part(std::string_view, js::error_code&) { return true; }
  bool on_int64(std::int64_t, std::string_view, js::error_code& error) { return Count(error); }
  bool on_uint64(std::uint64_t, std::string_view, js::error_code& error) { return Count(error); }
  bool on_double(double, std::string_view, js::error_code& error) { return Count(error); }
  bool on_bool(bool, js::error_code& error) { return Count(error); }
  bool on_null(js::error_code& error) { return Count(error); }
  bool on_comment_part(std::string_view, js::error_code&) { return true; }
  bool on_comment(std::string_view, js::error_code&) { return true; }

 private:
  bool Count(js::error_code& error) {
    if (++count_ > mostValues) error = js::error::array_too_large;
    return !error;
  }

  std::size_t count_ = 0;
  std::vector<std::set<std::string>> open_;
  std::string key_;
  std::set<std::string> found_;
};

std::string Quoted(std::string_view text) {
  if (text.size() <= quotedBytes) return std::string(text);
  return text::ToUtf8(text.substr(0, quotedBytes)) + " ...";
}

// Cuts texts that are too long to be compared: where that matters, they are refused for their length. An integer beyond
// 63 bits, which the library takes for no value at all, becomes the number next to it.
void MakeComparable(js::value& value) {
  if (auto* text = value.if_string(); text != nullptr && text->size() > comparedBytes) text->resize(comparedBytes);
  if (const auto* integer = value.if_uint64()) value = static_cast<double>(*integer);
  if (auto* array = value.if_array()) std::for_each(array->begin(), array->end(), MakeComparable);
  if (auto* object = value.if_object()) {
    for (auto& member : *object) MakeComparable(member.value());
  }
}

// The validator writes whole sentences.
std::string AsFault(std::string_view sentence) {
  if (sentence.ends_with('.')) sentence.remove_suffix(1);
  std::string fault = Quoted(sentence);
  if (!fault.empty() && fault[0] >= 'A' && fault[0] <= 'Z') fault[0] = static_cast<char>(fault[0] - 'A' + 'a');
  return fault;
}

// The validator's steps to a value are "<root>", "[events]", "[0]" and so on.
std::string NameOf(const std::string& step) { return step.substr(1, step.size() - 2); }

// As a JSON pointer.
std::string PlaceOf(const std::vector<std::string>& steps) {
  std::string place;
  for (std::size_t at = 1; at < steps.size(); ++at) {
    place += '/';
    for (const char character : NameOf(steps[at])) {
      if (character == '~' || character == '/') {
        place += character == '~' ? "~0" : "~1";
      } else {
        place += character;
      }
    }
  }
  return place;
}

const js::value* Member(const js::value* of, std::string_view name) {
  const auto* object = of == nullptr ? nullptr : of->if_object();
  return object == nullptr ? nullptr : object->if_contains(name);
}

// What the schema says of the value at the end of these steps; null when it says nothing.
const js::value* RuleOf(const js::value& schema, const std::vector<std::string>& steps) {
  const auto resolved = [&schema](const js::value* rule) {
    const js::value* reference = Member(rule, "$ref");
    js::error_code none;
    return reference == nullptr ? rule : schema.find_pointer(reference->as_string().subview(1), none);
  };
  const js::value* rule = &schema;
  for (std::size_t at = 1; at < steps.size(); ++at) {
    const std::string name = NameOf(steps[at]);
    const js::value* next = Member(Member(rule, "properties"), name);
    if (next == nullptr) next = Member(rule, "items");
    if (next == nullptr) next = Member(rule, "additionalProperties");
    rule = resolved(next);
  }
  return rule;
}

// The validator's sentence for a broken rule, its keyword, and ours, which the rule itself ends.
struct Sentence {
  std::string_view begin;
  const char* keyword;
  const char* text;
};
constexpr Sentence sentences[] = {
    {"Failed to match expected value", "const", "must be "},
    {"Failed to match against any enum", "enum", "must be one of "},
    {"Failed to match regex", "pattern", "must match "},
    {"Value type not permitted", "type", "must be of type "},
};

// None where the fault lies deeper and is told there.
std::optional<std::string> FaultOf(const valijson::ValidationResults::Error& error, const js::value& schema,
                                   const js::value& document) {
  const std::string_view description = error.description;
  if (description.starts_with("Failed to validate")) return std::nullopt;
  for (const Sentence& sentence : sentences) {
    const js::value* rule = Member(RuleOf(schema, error.context), sentence.keyword);
    if (rule == nullptr || !description.starts_with(sentence.begin)) continue;
    js::error_code none;
    const js::value* found = document.find_pointer(PlaceOf(error.context), none);
    return sentence.text + js::serialize(*rule) + (found == nullptr ? "" : ", is " + Quoted(js::serialize(*found)));
  }
  if (description.starts_with("Object contains a property")) {
    return "unknown member" + AsFault(description.substr(description.find(": '") + 1));
  }
  return AsFault(description);
}

js::parse_options Options() {
  js::parse_options options;
  options.max_depth = levels;
  return options;
}

Dictionary FirstEvent(const std::string& body) {
  const auto parsed = json::Parse(body, {"events"});
  const auto* envelope = std::get_if<Dictionary>(&parsed);
  const auto* value = envelope == nullptr ? nullptr : envelope->Find("events");
  const auto* events = value == nullptr ? nullptr : value->As<Array>();
  const auto* event = events == nullptr || events->empty() ? nullptr : events->front().As<Dictionary>();
  return event == nullptr ? Dictionary() : *event;
}

std::string DataText(const Dictionary& event, const char* key) {
  const auto* member = event.Find("data");
  const auto* data = member == nullptr ? nullptr : member->As<Dictionary>();
  const auto* value = data == nullptr ? nullptr : data->Find(key);
  const auto* text = value == nullptr ? nullptr : value->As<std::string>();
  return text == nullptr ? "" : *text;
}

// The problems of one request.
class Problems {
 public:
  void Add(const std::string& place, const std::string& fault) {
    if (++count_ <= mostProblems)
      texts_.push_back((place.empty() ? "body" : text::ToUtf8(Quoted(place))) + ": " + fault);
  }
  void ExpectSame(const char* place, const std::string& found, const char* expected) {
    if (found != expected)
      Add(place, std::string("must be \"") + expected + "\", is \"" + text::ToUtf8(Quoted(found)) + '"');
  }
  [[nodiscard]] std::size_t Number() const { return count_; }
  [[nodiscard]] std::vector<std::string> Take() {
    if (count_ > mostProblems) texts_.push_back("body: " + std::to_string(count_ - mostProblems) + " more problems");
    return std::move(texts_);
  }

 private:
  std::size_t count_ = 0;
  std::vector<std::string> texts_;
};

}  // namespace

struct PostCheck::Body {
  // False when nothing can be made of the text.
  bool CheckEnvelope(const std::string& text, Problems& problems) const {
    js::basic_parser<RepeatedKeys> parser(Options());
    js::error_code error;
    const std::size_t parsed = parser.write_some(false, text.data(), text.size(), error);
    if (!error && parsed < text.size()) error = js::error::extra_data;
    if (error == js::error::array_too_large) {
      problems.Add("", "has more than " + std::to_string(mostValues) + " values and keys");
      return false;
    }
    if (error) {
      problems.Add("", "is not JSON: " + error.message() + " at byte " + std::to_string(parsed));
      return false;
    }
    for (const std::string& key : parser.handler().Found()) {
      problems.Add("", "the key \"" + Quoted(key) + "\" stands twice in one object");
    }

    js::value document = js::parse(text, js::storage_ptr(), Options());
    MakeComparable(document);
    valijson::ValidationResults results;
    valijson::Validator validator;
    const std::size_t before = problems.Number();
    if (validator.validate(schema, BoostJsonAdapter(document), &results)) return true;
    for (const auto& broken : results) {
      if (const auto fault = FaultOf(broken, source, document)) problems.Add(PlaceOf(broken.context), *fault);
    }
    if (problems.Number() == before) problems.Add("", "is not what the schema describes");
    return true;
  }

  js::value source;
  valijson::Schema schema;
};

PostCheck::PostCheck() : body_(std::make_unique<Body>()) {
  body_->source = js::parse(embedded::eventSchemaJson);
  valijson::SchemaParser(valijson::SchemaParser::kDraft7)
      .populateSchema(BoostJsonAdapter(body_->source), body_->schema);
}

PostCheck::~PostCheck() = default;

CheckedPost PostCheck::Check(const Post& post) const {
  Problems problems;
  problems.ExpectSame("method", post.method, "POST");
  problems.ExpectSame("path", post.path, "/ingest");
  problems.ExpectSame("content-type", post.contentType, "application/json");
  problems.ExpectSame("x-api-key", post.apiKey, names::ingestProject);
  CheckedPost checked;
  if (body_->CheckEnvelope(post.body, problems)) checked.event = FirstEvent(post.body);
  checked.problems = problems.Take();
  checked.app = DataText(checked.event, "source.name");
  checked.kind = DataText(checked.event, "event.value");
  return checked;
}

}  // namespace ingest
