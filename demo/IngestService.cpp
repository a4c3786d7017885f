// A stand-in for the ingest service, on the loopback interface. It checks every request against the protocol, answers
// as it is told, and appends each event with its answer as one line of JSON to a file.
//   IngestService --events FILE [--certificate FILE --key FILE]
// Prints "port" and the port, then does what the lines of its standard input say, printing each once it is in force:
//   status LIST   answers with these status codes, separated by commas; the last one repeats. At first 200
//   delay N       takes N milliseconds for an answer. At first none
// Ends with its standard input.
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

#include "platform/PropertyList.h"
#include "support/Json.h"

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr int envelopeRefused = 422;

std::deque<int> StatusList(const std::string& text) {
  std::deque<int> list;
  std::istringstream pieces(text);
  for (std::string piece; std::getline(pieces, piece, ',');) list.push_back(std::stoi(piece));
  if (list.empty()) throw std::invalid_argument("no status");
  return list;
}

std::string TextOf(const Dictionary& dictionary, const std::string& key) {
  const Value* value = dictionary.Find(key);
  const auto* text = value == nullptr ? nullptr : value->As<std::string>();
  return text == nullptr ? "" : *text;
}

template <typename T>
const T* MemberOf(const Dictionary& dictionary, const std::string& key) {
  const Value* value = dictionary.Find(key);
  return value == nullptr ? nullptr : value->As<T>();
}

// 2021-03-04T05:06:07, then Z or an offset such as +01:00. Of its own: a service trusts no client's code.
bool IsEventTime(const std::string& text) {
  constexpr std::string_view shape = "9999-99-99T99:99:99";
  const auto matches = [](std::string_view piece, std::string_view pattern) {
    return std::equal(piece.begin(), piece.end(), pattern.begin(), pattern.end(), [](char character, char wanted) {
      return wanted == '9' ? character >= '0' && character <= '9' : character == wanted;
    });
  };
  if (text.size() < shape.size() || !matches(std::string_view(text).substr(0, shape.size()), shape)) return false;
  const std::string_view zone = std::string_view(text).substr(shape.size());
  return zone == "Z" || matches(zone, "+99:99") || matches(zone, "-99:99");
}

// One request, held against the protocol.
class Request {
 public:
  explicit Request(const httplib::Request& request) {
    Expect(request.method == "POST", "method");
    Expect(request.path == "/ingest", "path");
    Expect(request.get_header_value("content-type") == "application/json", "content-type");
    Expect(request.get_header_value("x-api-key") == "evtsk-dsk-channel", "x-api-key");
    const auto parsed = json::Parse(request.body, {"events"});
    const auto* envelope = std::get_if<Dictionary>(&parsed);
    const auto* events = envelope == nullptr ? nullptr : MemberOf<Array>(*envelope, "events");
    const bool single = events != nullptr && events->size() == 1 && events->front().As<Dictionary>() != nullptr;
    Expect(single, "events");
    if (single) CheckEvent(*events->front().As<Dictionary>());
  }

  [[nodiscard]] Dictionary Record(int status) const {
    return {{"status", Value(std::int64_t{status})}, {"problems", Value(problems_)}, {"event", Value(event_)}};
  }
  [[nodiscard]] bool IsSound() const { return problems_.empty(); }

 private:
  void CheckEvent(const Dictionary& event) {
    static const std::map<std::string, std::string> constants = {
        {"source.platform", "Mac"},           {"event.workflow", "Lifecycle"}, {"event.category", "DESKTOP"},
        {"event.subcategory", "Host"},        {"event.type", "error"},         {"event.subtype", "exit"},
        {"env.fw.name", "Crash Reporter SDK"}};
    event_ = event;
    Expect(event.size() == 5, "members of the event");
    Expect(TextOf(event, "project") == "evtsk-dsk-channel", "project");
    Expect(TextOf(event, "environment") == "prod", "environment");
    Expect(TextOf(event, "ingesttype") == "quanta", "ingesttype");
    Expect(IsEventTime(TextOf(event, "time")), "time");
    const auto* data = MemberOf<Dictionary>(event, "data");
    Expect(data != nullptr, "data");
    if (data == nullptr) return;
    for (const auto& [key, value] : constants) Expect(TextOf(*data, key) == value, key);
  }

  void Expect(bool met, const std::string& what) {
    if (!met) problems_.emplace_back(what);
  }

  Dictionary event_;
  Array problems_;
};

class Service {
 public:
  explicit Service(std::map<std::string, std::string> options) : events_(options.at("--events"), std::ios::app) {
    if (options.contains("--certificate")) {
      const std::string certificate = options["--certificate"];
      server_ = std::make_unique<httplib::SSLServer>(certificate.c_str(), options.at("--key").c_str());
    } else {
      server_ = std::make_unique<httplib::Server>();
    }
    const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
      Receive(request, response);
    };
    server_->Post(".*", handler).Get(".*", handler);
  }

  // Until standard input ends.
  void Serve() {
    const int port = server_->bind_to_any_port("127.0.0.1");
    if (!server_->is_valid() || port <= 0) throw std::runtime_error("cannot listen");
    std::thread listener([this] { server_->listen_after_bind(); });
    std::cout << "port " << port << std::endl;
    for (std::string verb, value; std::cin >> verb >> value;) {
      Obey(verb, value);
      std::cout << verb << ' ' << value << std::endl;
    }
    server_->stop();
    listener.join();
  }

 private:
  void Obey(const std::string& verb, const std::string& value) {
    const std::lock_guard lock(mutex_);
    if (verb == "status") statuses_ = StatusList(value);
    if (verb == "delay") delay_ = std::chrono::milliseconds(std::stoi(value));
  }

  std::chrono::milliseconds Delay() {
    const std::lock_guard lock(mutex_);
    return delay_;
  }

  void Receive(const httplib::Request& request, httplib::Response& response) {
    std::this_thread::sleep_for(Delay());
    const Request checked(request);
    const std::lock_guard lock(mutex_);
    response.status = checked.IsSound() ? statuses_.front() : envelopeRefused;
    if (statuses_.size() > 1) statuses_.pop_front();
    events_ << std::get<std::string>(json::Write(Value(checked.Record(response.status)))) << std::endl;
  }

  std::unique_ptr<httplib::Server> server_;
  std::mutex mutex_;
  std::ofstream events_;
  std::chrono::milliseconds delay_{0};
  std::deque<int> statuses_{200};
};

}  // namespace

int main(int argc, char** argv) try {
  std::map<std::string, std::string> options;
  for (int at = 1; at + 1 < argc; at += 2) options[argv[at]] = argv[at + 1];
  Service(options).Serve();
  return 0;
} catch (const std::exception& error) {
  std::cerr << "IngestService: " << error.what() << '\n';
  return 2;
}
