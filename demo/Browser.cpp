#include "demo/Browser.h"

#include <httplib.h>
#include <openssl/evp.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "demo/Program.h"
#include "support/Json.h"

namespace demo {
namespace {

namespace fs = std::filesystem;
using platform::Array;
using platform::Dictionary;
using platform::Value;

// It must neither ask the network for anything nor keep anything, and needs no sandbox for the one page that it shows.
constexpr const char* flags[] = {"--headless",
                                 "--no-sandbox",
                                 "--disable-gpu",
                                 "--disable-quic",
                                 "--no-first-run",
                                 "--disable-background-networking",
                                 "--disable-component-update",
                                 "--disable-sync",
                                 "--disable-dev-shm-usage",
                                 "--hide-scrollbars"};

constexpr char elementKey[] = "element-6066-11e4-a52e-4f735466cecf";  // fixed by the WebDriver protocol

std::string TextOf(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.Find(key);
  const auto* text = value == nullptr ? nullptr : value->As<std::string>();
  return text == nullptr ? "" : *text;
}

// "ChromeDriver was started successfully on port 45941."
int PortIn(const std::string& output) {
  constexpr std::string_view label = "successfully on port ";
  const std::size_t at = output.find(label);
  return at == std::string::npos || output.find('.', at) == std::string::npos
             ? 0
             : std::atoi(output.c_str() + at + label.size());
}

std::string Decoded(const std::string& base64) {
  std::string bytes(base64.size() / 4 * 3, '\0');
  const int length =
      EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                      reinterpret_cast<const unsigned char*>(base64.data()), static_cast<int>(base64.size()));
  if (length < 0) throw std::runtime_error("not base64");
  bytes.resize(static_cast<std::size_t>(length) - (base64.ends_with("==") ? 2 : base64.ends_with("=") ? 1 : 0));
  return bytes;
}

}  // namespace

struct Browser::Body {
  Body() {
    std::string pattern = fs::temp_directory_path() / "crdaemon-browser-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
    folder = pattern;
    fs::permissions(folder, fs::perms::all);
    const fs::path output = folder / "driver.out";
    const std::map<std::string, std::string> environment = {
        {"HOME", folder}, {"TMPDIR", folder}, {"PATH", "/usr/bin:/bin"}, {"TZ", "UTC"}};
    driver.emplace(std::vector<std::string>{"/usr/bin/chromedriver", "--port=0"}, environment, output);
    int port = 0;
    if (!Eventually([&] { return (port = PortIn(ContentOf(output))) != 0; })) {
      throw std::runtime_error("chromedriver: " + ContentOf(output));
    }
    client.emplace("127.0.0.1", port);
    client->set_read_timeout(patience);
  }

  ~Body() {
    // The driver ends the browser. One that does not is a child of ours once the driver is gone.
    const bool ended = !session.empty() && client->Delete(session);
    driver.reset();
    if (!ended && process > 0) const Program orphan(process);
    // Its helper processes may be on their way out still.
    static_cast<void>(Eventually([this] {
      std::error_code error;
      fs::remove_all(folder, error);
      return !error;
    }));
  }

  Value Ask(const std::string& method, const std::string& path, const Dictionary& parameters = {}) {
    const std::string body = std::get<std::string>(json::Write(Value(parameters)));
    const auto answer =
        method == "GET" ? client->Get(session + path) : client->Post(session + path, body, "application/json");
    if (!answer) throw std::runtime_error("the browser does not answer: " + path);
    auto parsed = json::Parse(answer->body, {"value"});
    const auto* document = std::get_if<Dictionary>(&parsed);
    const Value* value = document == nullptr ? nullptr : document->Find("value");
    if (value == nullptr) throw std::runtime_error("the browser's answer is none: " + answer->body);
    if (answer->status == 200) return *value;
    const auto* error = value->As<Dictionary>();
    throw std::runtime_error("the browser: " + (error == nullptr ? answer->body : TextOf(*error, "message")));
  }

  void Begin(int width, int height) {
    Array arguments(std::begin(flags), std::end(flags));
    arguments.emplace_back("--user-data-dir=" + (folder / "profile").string());
    const Dictionary options = {{"binary", Value("/usr/bin/chromium")}, {"args", Value(arguments)}};
    const Dictionary always = {{"acceptInsecureCerts", Value(true)}, {"goog:chromeOptions", Value(options)}};
    const Value begun = Ask("POST", "/session", {{"capabilities", Value(Dictionary{{"alwaysMatch", Value(always)}})}});
    const auto* answer = begun.As<Dictionary>();
    if (answer == nullptr || TextOf(*answer, "sessionId").empty()) throw std::runtime_error("no browser session");
    session = "/session/" + TextOf(*answer, "sessionId");
    const Value* capabilities = answer->Find("capabilities");
    if (const auto* all = capabilities == nullptr ? nullptr : capabilities->As<Dictionary>()) {
      const Value* id = all->Find("goog:processID");
      const auto* number = id == nullptr ? nullptr : id->As<std::int64_t>();
      if (number != nullptr) process = static_cast<pid_t>(*number);
    }
    // Of the page, not of a window around it.
    const Dictionary size = {{"width", Value(std::int64_t{width})},
                             {"height", Value(std::int64_t{height})},
                             {"deviceScaleFactor", Value(std::int64_t{1})},
                             {"mobile", Value(false)}};
    static_cast<void>(Ask("POST", "/goog/cdp/execute",
                          {{"cmd", Value("Emulation.setDeviceMetricsOverride")}, {"params", Value(size)}}));
  }

  // The path of commands to it.
  std::string Element(const std::string& selector) {
    const Value found = Ask("POST", "/element", {{"using", Value("css selector")}, {"value", Value(selector)}});
    const auto* element = found.As<Dictionary>();
    return "/element/" + (element == nullptr ? "" : TextOf(*element, elementKey));
  }

  fs::path folder;
  std::optional<Program> driver;
  std::optional<httplib::Client> client;
  std::string session;
  pid_t process = 0;
};

Browser::Browser(int width, int height) : body_(std::make_unique<Body>()) { body_->Begin(width, height); }

Browser::~Browser() = default;

void Browser::Open(const std::string& url) { static_cast<void>(body_->Ask("POST", "/url", {{"url", Value(url)}})); }

Value Browser::Evaluate(const std::string& expression) {
  const std::string script =
      "const $ = (selector) => document.querySelector(selector);"
      "const $$ = (selector) => [...document.querySelectorAll(selector)];"
      "return " +
      expression;
  return body_->Ask("POST", "/execute/sync", {{"script", Value(script)}, {"args", Value(Array())}});
}

std::string Browser::Text(const std::string& expression) {
  const Value value = Evaluate(expression);
  const auto* text = value.As<std::string>();
  return text == nullptr ? "" : *text;
}

bool Browser::Await(const std::string& expression) {
  return Eventually([&] {
    const Value value = Evaluate(expression);
    const auto* holds = value.As<bool>();
    return holds != nullptr && *holds;
  });
}

void Browser::Click(const std::string& selector) {
  static_cast<void>(body_->Ask("POST", body_->Element(selector) + "/click"));
}

void Browser::Type(const std::string& selector, const std::string& text) {
  static_cast<void>(body_->Ask("POST", body_->Element(selector) + "/value", {{"text", Value(text)}}));
}

void Browser::Photograph(const fs::path& path) {
  const Value image = body_->Ask("GET", "/screenshot");
  const auto* base64 = image.As<std::string>();
  std::ofstream file(path, std::ios::binary);
  if (base64 == nullptr || !(file << Decoded(*base64)).flush())
    throw std::runtime_error("no image at " + path.string());
}

}  // namespace demo
