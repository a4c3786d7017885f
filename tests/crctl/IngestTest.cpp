#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "support/Json.h"
#include "tests/crctl/CrctlSteps.h"
#include "tools/crctl/EventStore.h"
#include "tools/crctl/IngestService.h"
#include "tools/crctl/PostCheck.h"

namespace {

namespace fs = std::filesystem;
using ingest::EventStore;
using ingest::IngestService;
using platform::Value;

const std::string constants =
    R"("source.platform":"Mac","event.workflow":"Lifecycle","event.category":"DESKTOP","event.subcategory":"Host",)"
    R"("event.type":"error","event.subtype":"exit","env.fw.name":"Crash Reporter SDK")";
const std::string whole =
    R"({"events":[{"project":"evtsk-dsk-channel","environment":"prod","time":"2026-03-04T05:06:07+01:00",)"
    R"("ingesttype":"quanta","data":{)" +
    constants +
    R"(,"source.name":"Photo","source.version":"","env.fw.version":"2.1","event.session_guid":"","event.user_guid":"U",)"
    R"("event.guid":"G","event.value":"abnormal:crash","event.error_type":"EXC_CRASH","event.error_code":"SIGABRT",)"
    R"("event.error_desc":"D","source.device":"M","source.os_version":"10.15.7","event.dts_start":"2026-03-04T05:06:07Z",)"
    R"("event.dts_end":"2026-03-04T05:06:17Z","event.count":"10.000000"}}]})";

std::string With(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::invalid_argument(from);
  return text.replace(at, from.size(), to);
}
std::string With(const std::string& from, const std::string& to) { return With(whole, from, to); }

ingest::Post PostOf(std::string body) {
  return {.method = "POST",
          .path = "/ingest",
          .contentType = "application/json",
          .apiKey = "evtsk-dsk-channel",
          .body = std::move(body)};
}

std::vector<std::string> ProblemsOf(const std::string& body) {
  static const ingest::PostCheck check;
  return check.Check(PostOf(body)).problems;
}

TEST(PostCheck, TakesWhatTheDaemonCanSend) {
  const std::vector<std::string> none;
  EXPECT_EQ(ProblemsOf(whole), none);
  // Of an event file that could not be understood.
  EXPECT_EQ(ProblemsOf(whole.substr(0, whole.find(",\"source.name\"")) + "}}]}"), none);
  for (const std::string value :
       {"6", "-2.5", "18446744073709551615", "true", "[[],{\"a\":[1]}]", "\"\\u0000\\ud83d\\ude00\""}) {
    EXPECT_EQ(ProblemsOf(With("\"SIGABRT\"", value)), none) << value;
  }
  EXPECT_EQ(ProblemsOf(With("\"SIGABRT\"", std::string(120, '[') + std::string(120, ']'))), none);
  EXPECT_EQ(ProblemsOf(With("\"G\"", '"' + std::string(3'000'000, '1') + '"')), none);
  EXPECT_EQ(ProblemsOf(With("abnormal:crash", "abnormal:others")), none);
}

TEST(PostCheck, NamesPlaceAndFaultOfWhatItRefuses) {
  const std::string data = "/events/0/data";
  const struct {
    std::string body;
    std::string problem;
  } broken[] = {
      {"", "body: is not JSON: incomplete JSON at byte 0"},
      {whole + "x", "body: is not JSON: "},
      {With("\"G\"", "\"\xff\""), "body: is not JSON: "},
      {With("\"G\"", std::string(1'000'000, '[')), "body: is not JSON: too deep"},
      {"[]", "body: must be of type \"object\", is []"},
      {With("\"events\"", "\"event\""), "body: unknown member 'event'"},
      {R"({"events":[]})", "/events: array should contain no fewer than 1"},
      {R"({"events":[7,8]})", "/events: array should contain no more than 1"},
      {R"({"events":[7]})", "/events/0: must be of type \"object\", is 7"},
      {With("evtsk-dsk-channel", "x"), "/events/0/project: must be \"evtsk-dsk-channel\", is \"x\""},
      {With("\"environment\":\"prod\",", ""), "/events/0: missing required property 'environment'"},
      {With("\"quanta\"", "null"), "/events/0/ingesttype: must be \"quanta\", is null"},
      {With("+01:00", "+0100"), "/events/0/time: must match"},
      {With("2026-03-04T05:06:07+", "2026-02-30T05:06:07+"), "/events/0/time: string should be a valid date-time"},
      {With("\"Mac\"", "\"mac\""), data + "/source.platform: must be \"Mac\", is \"mac\""},
      {With("\"event.type\":\"error\",", ""), data + ": missing required property 'event.type'"},
      {With("source.device", "source.a/b"), data + ": unknown member 'source.a/b'"},
      {With("abnormal:crash", "crash"), data + "/event.value: must be one of [\"abnormal:crash\""},
      {With("\"Photo\"", "7"), data + "/source.name: must be of type \"string\", is 7"},
      {With("\"SIGABRT\"", "null"), data + "/event.error_code: must be of type"},
      {With("\"SIGABRT\"", "[{\"a/b\":null}]"), data + "/event.error_code/0/a~1b: must be of type"},
      {With("10.15.7", "10."), data + "/source.os_version: must match"},
      {With("10.15.7", "1" + std::string(3'000'000, '1') + ".1"),
       data + "/source.os_version: string should be no more"},
      {With("10.000000", "10"), data + "/event.count: must match"},
      {With("\"event.dts_start\":\"2026-03-04T05:06:07Z\",", ""), data + ": missing dependency 'event.dts_start'"},
      {With("\"event.guid\"", "\"event.user_guid\""), "body: the key \"event.user_guid\" stands twice in one object"},
  };
  for (const auto& post : broken) {
    const auto problems = ProblemsOf(post.body);
    EXPECT_TRUE(
        std::any_of(problems.begin(), problems.end(), [&](const auto& text) { return text.starts_with(post.problem); }))
        << post.problem << "\nbut: " << testing::PrintToString(problems);
  }
  const ingest::PostCheck check;
  EXPECT_EQ(
      check.Check({.method = "PUT", .path = "/x", .contentType = "", .apiKey = "", .body = whole}).problems.size(), 4U);
}

// A folder that goes with the test.
class IngestFiles : public testing::Test {
 protected:
  IngestFiles() {
    std::string pattern = fs::temp_directory_path() / "crd-ingest-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category());
    folder_ = pattern;
  }
  ~IngestFiles() override { fs::remove_all(folder_); }

  [[nodiscard]] std::string File() const { return folder_ / "events.jsonl"; }
  [[nodiscard]] std::unique_ptr<EventStore> Open(std::size_t limitBytes = EventStore::storeLimitBytes) const {
    auto store = EventStore::Open(File(), limitBytes);
    if (!store) throw std::system_error(store.Error());
    return std::move(*store);
  }

 private:
  fs::path folder_;
};

constexpr char record[] = R"({"received":"","status":200,"problems":[],"event":{}})";

TEST_F(IngestFiles, StoreReadsWhatEarlierOnesKept) {
  std::ofstream(File()) << record << "\nnonsense\n";
  fs::permissions(File(), fs::perms::all);
  {
    const auto store = Open();
    EXPECT_FALSE(store->Append(record));
    EXPECT_EQ(EventStore::Open(File()).Error(), std::errc::device_or_resource_busy);
    EXPECT_EQ(fs::status(File()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  }
  std::ofstream(File(), std::ios::app) << R"({"received":"","status":200,"pro)";  // and then it was killed
  {
    const auto store = Open();
    EXPECT_EQ(store->SkippedLines(), (std::vector<std::size_t>{2, 4}));
    EXPECT_EQ(store->Last(), 2U);
    EXPECT_FALSE(store->Append(record));
  }
  const auto store = Open();
  EXPECT_EQ(store->Read(3), R"({"id":3,"received":"","status":200,"problems":[],"event":{}})");
  EXPECT_EQ(store->Read(4), std::nullopt);
  EXPECT_EQ(store->Last(), 3U);

  fs::resize_file(File(), 10);
  EXPECT_EQ(store->Read(3), std::nullopt);
  fs::remove(File());
  fs::create_symlink("elsewhere", File());
  EXPECT_EQ(EventStore::Open(File()).Error(), std::errc::too_many_symbolic_link_levels);
}

TEST_F(IngestFiles, FullDiskKeepsNothingOfAnEvent) {
  const auto store = Open();
  ASSERT_FALSE(store->Append(record));
  signal(SIGXFSZ, SIG_IGN);
  rlimit former{};
  getrlimit(RLIMIT_FSIZE, &former);
  const rlimit tight{.rlim_cur = sizeof record + 10, .rlim_max = former.rlim_max};
  setrlimit(RLIMIT_FSIZE, &tight);
  EXPECT_EQ(store->Append(record), std::errc::file_too_large);
  setrlimit(RLIMIT_FSIZE, &former);
  EXPECT_FALSE(store->Append(record));
  EXPECT_EQ(demo::ContentOf(File()), std::string(record) + "\n" + record + "\n");
  EXPECT_TRUE(store->Read(2));
}

TEST_F(IngestFiles, FullStoreDropsItsOldest) {
  constexpr std::size_t limit = 1000;
  const auto numbered = [](std::size_t number) { return With(record, "\"\"", std::to_string(number)); };
  {
    const auto store = Open(limit);
    std::size_t number = 0;
    for (; !store->HasDropped(); ++number) ASSERT_FALSE(store->Append(numbered(number)));
    EXPECT_GT(number * sizeof record, limit - 2 * sizeof record);
    for (; number < 50; ++number) ASSERT_FALSE(store->Append(numbered(number)));
    EXPECT_LE(fs::file_size(File()), limit);
    EXPECT_EQ(store->Last(), 50U);
    EXPECT_FALSE(store->Read(store->First() - 1));
    for (std::uint64_t id = store->First(); id <= store->Last(); ++id)
      EXPECT_EQ(store->Read(id), "{\"id\":" + std::to_string(id) + "," + numbered(id - 1).substr(1));
  }
  const auto store = Open(limit / 2);
  EXPECT_TRUE(store->HasDropped());
  EXPECT_NE(store->Read(store->Last())->find("49"), std::string::npos);
  EXPECT_LE(fs::file_size(File()), limit / 2);
}

// All that the service says to these bytes until it closes the connection.
std::string Said(const std::string& origin, const std::string& bytes) {
  boost::asio::io_context context;
  boost::asio::ip::tcp::socket socket(context);
  const auto port = static_cast<std::uint16_t>(std::stoi(origin.substr(origin.rfind(':') + 1)));
  socket.connect({boost::asio::ip::address_v4::loopback(), port});
  boost::system::error_code ends;
  boost::asio::write(socket, boost::asio::buffer(bytes), ends);
  std::string answer;
  boost::asio::read(socket, boost::asio::dynamic_buffer(answer), ends);
  return answer;
}

class IngestApi : public IngestFiles {
 protected:
  IngestApi() { Serve({}); }
  void Serve(const ingest::Limits& limits) {
    service_ = std::make_unique<IngestService>(*store_, std::nullopt, nullptr, limits);
    if (const auto why = service_->Start(0)) throw std::runtime_error(*why);
  }

  [[nodiscard]] httplib::Client Client() const {
    httplib::Client client(service_->Origin());
    client.set_read_timeout(demo::patience);
    return client;
  }
  // The status of the answer.
  [[nodiscard]] int Post(const std::string& body) const {
    const auto answer =
        Client().Post("/ingest", httplib::Headers{{"x-api-key", "evtsk-dsk-channel"}}, body, "application/json");
    return answer ? answer->status : 0;
  }
  [[nodiscard]] platform::Dictionary Events(const std::string& query) const {
    const auto answer = Client().Get("/api/events" + query);
    if (!answer || answer->status != 200) throw std::runtime_error("no events");
    return std::get<platform::Dictionary>(json::Parse(answer->body, {"events", "last"}));
  }

  std::unique_ptr<EventStore> store_ = Open();
  std::unique_ptr<IngestService> service_;
};

TEST_F(IngestApi, ListsWhatItTookAndWhatItRefused) {
  EXPECT_EQ(Post(whole), 200);
  EXPECT_EQ(Post(With("prod", "dev")), 422);
  EXPECT_EQ(Post(std::string(5'000'000, ' ')), 413);
  service_->AnswerWith({500, 399});
  EXPECT_EQ(Post(whole), 500);
  EXPECT_EQ(Post(whole), 399);
  EXPECT_EQ(Post(whole), 399);

  const auto listed = Events("?after=1");
  EXPECT_EQ(*listed.Find("last"), Value(std::int64_t{6}));
  const auto& events = *listed.Find("events")->As<platform::Array>();
  ASSERT_EQ(events.size(), 5U);
  const auto& refused = *events[0].As<platform::Dictionary>();
  EXPECT_EQ(*refused.Find("id"), Value(std::int64_t{2}));
  EXPECT_EQ(*refused.Find("status"), Value(std::int64_t{422}));
  EXPECT_EQ(TextOf(events[0], "app") + TextOf(events[0], "kind"), "Photoabnormal:crash");
  EXPECT_EQ(TextOf(*refused.Find("event"), "environment"), "dev");
  EXPECT_EQ(*refused.Find("problems"), Value(platform::Array{"/events/0/environment: must be \"prod\", is \"dev\""}));
  EXPECT_EQ(Client().Get("/api/events?after=-1")->status, 400);
  EXPECT_EQ(Client().Get("/ingest")->status, 405);
  EXPECT_EQ(Client().Get("/../crctl")->status, 404);
}

TEST_F(IngestApi, AnswersToLoopbackNamesOnly) {
  for (const std::string host : {"localhost:80", "127.0.0.1", "[::1]:80", "127.1.2.3"}) {
    EXPECT_EQ(Client().Get("/", {{"Host", host}})->status, 200) << host;
  }
  for (const std::string host : {"evil.example", "127.0.0.1.evil.example", "localhost.evil", "evil:80", "[::1", ""}) {
    EXPECT_EQ(Client().Get("/api/events", {{"Host", host}})->status, 403) << host;
  }
  EXPECT_TRUE(Client().Get("/")->get_header_value("Content-Security-Policy").starts_with("default-src 'none'; "));
}

TEST_F(IngestApi, PagesOfOthersPostNothing) {
  const auto post = [this](const httplib::Headers& headers) {
    return Client().Post("/ingest", headers, whole, "application/json")->status;
  };
  for (const auto& header : {std::pair("Origin", "http://evil.example"),
                             {"Origin", "null"},
                             {"Origin", "http://127.0.0.1:1"},
                             {"Sec-Fetch-Site", "cross-site"}}) {
    EXPECT_EQ(post({header, {"x-api-key", "evtsk-dsk-channel"}}), 403) << header.second;
    EXPECT_EQ(Client().Get("/api/events", {header})->status, 403) << header.second;
  }
  EXPECT_EQ(store_->Last(), 0U);
  EXPECT_EQ(post({{"Origin", service_->Origin()}, {"x-api-key", "evtsk-dsk-channel"}}), 200);
}

TEST_F(IngestApi, HeaderLinesAreBoundedAndRangesNotServed) {
  const auto said = [this](const std::string& lines) {
    return Said(service_->Origin(), "GET /page.js HTTP/1.1\r\nHost: localhost\r\n" + lines + "\r\n");
  };
  std::string many;
  for (int line = 0; line < 101; ++line) many += "a:\r\n";
  for (const std::string& lines : {many, "a: " + std::string(20'000, 'a') + "\r\n"})
    EXPECT_TRUE(said(lines).starts_with("HTTP/1.1 431 ")) << lines.size();
  const std::string ranges = said("Range: bytes=0-,0-,0-\r\n");
  EXPECT_TRUE(ranges.starts_with("HTTP/1.1 200 ")) << ranges;
  EXPECT_EQ(ranges.size(), said("").size());
}

TEST_F(IngestApi, SlowClientsHoldUpNobody) {
  const auto isCut = [](const std::string& origin) { return Said(origin, "POST /ingest HTTP/1.1\r\nHost: a").empty(); };
  service_.reset();
  Serve({.requestTime = std::chrono::milliseconds(500)});
  EXPECT_TRUE(isCut(service_->Origin()));

  service_.reset();
  constexpr int room = 8;
  Serve({.requestTime = demo::patience, .connections = room});
  std::array<std::thread, 60> clients;
  std::atomic<std::size_t> cut = 0;
  for (std::thread& client : clients)
    client = std::thread([&, origin = service_->Origin()] { cut += isCut(origin) ? 1 : 0; });
  EXPECT_TRUE(demo::Eventually([&] { return cut >= clients.size() - room; }, demo::patience / 2));
  EXPECT_EQ(Client().Get("/")->status, 200);
  service_.reset();
  for (std::thread& client : clients) client.join();
}

// Streams what arrives until `count` events are there, or the service ends.
std::string Live(httplib::Client client, const httplib::Headers& headers, std::size_t count) {
  std::string received;
  client.Get("/api/live", headers, [&](const char* text, std::size_t size) {
    received.append(text, size);
    std::size_t ends = 0;
    for (std::size_t at = 0; (at = received.find("}\n\n", at)) != std::string::npos; ++at) ++ends;
    return ends < count;
  });
  return received;
}

TEST_F(IngestApi, StreamsGoOnWhereTheyWereAndStarveNobody) {
  for (int event = 0; event < 3; ++event) ASSERT_EQ(Post(whole), 200);
  const std::string missed = Live(Client(), {{"Last-Event-ID", "1"}}, 2);
  EXPECT_TRUE(missed.starts_with("id: 2\ndata: {\"id\":2,")) << missed;
  EXPECT_NE(missed.find("\n\nid: 3\ndata: {"), std::string::npos);

  std::array<std::thread, 40> readers;
  std::atomic<std::size_t> started = 0;
  for (std::thread& reader : readers) {
    reader = std::thread([&, client = Client()]() mutable {
      client.Get(
          "/api/live", [&](const httplib::Response& answer) { return ++started, answer.status == 200; },
          [](const char*, std::size_t) { return true; });
    });
  }
  EXPECT_TRUE(demo::Eventually([&] { return started == readers.size(); }));
  EXPECT_EQ(Post(whole), 200);
  service_.reset();
  for (std::thread& reader : readers) reader.join();
}

TEST(Ingest, ServesPeopleUntilItIsTold) {
  CrctlSandbox sandbox;
  const std::string events = sandbox.Folder() / "mine.jsonl";
  const std::string program = sandbox.Folder() / "bin/crctl";
  demo::Program service =
      sandbox.StartProgram({program, "ingest", "--port", "0", "--events", events, "--fail", "503"}, "ingest.out");
  const auto printed = [&] { return demo::ContentOf(sandbox.Folder() / "ingest.out"); };
  ASSERT_TRUE(demo::Eventually([&] { return printed().find("events: ") != std::string::npos; }));
  sandbox.environment["CRDAEMON_INGEST_URL"] = printed().substr(20, printed().find('\n') - 20);
  sandbox.Put(sandbox.Queue() / "crMacLog_A.log",
              "<plist version=\"1.0\"><dict><key>source.name</key><string>Ph\xC2\x9Boto</string></dict></plist>");
  EXPECT_NE(sandbox.Crctl({"queue", "post"}).output.find("status 503"), std::string::npos);
  EXPECT_TRUE(demo::Eventually([&] { return printed().find("503  -  Ph\\u009boto\n") != std::string::npos; }));

  const std::string& url = sandbox.environment["CRDAEMON_INGEST_URL"];
  const std::string port = url.substr(17, url.rfind('/') - 17);
  const std::string other = sandbox.Folder() / "other.jsonl";
  const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
      {{"--port", port, "--events", other}, "port " + port + " is taken: choose another with --port"},
      {{"--port", "0", "--events", events}, "another ingest service"},
      {{"--port", "0", "--events", "/proc/none"}, "/proc/none: No such file"},
      {{"--port", "0", "--events", other, "--tls", "/none", "/none"}, "/none: No such file"},
      {{"--port", "0", "--events", other, "--tls", program, program}, "are no certificate and its key"},
  };
  for (auto [arguments, why] : mistakes) {
    arguments.insert(arguments.begin(), "ingest");
    const Outcome outcome = sandbox.Crctl(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.output.find(why), std::string::npos) << outcome.output;
  }

  // Each of many connections asks for as much as it can.
  std::array<std::thread, 100> clients;
  std::string rest = "Host: 127.0.0.1\r\nContent-Length: 4000000\r\n\r\n{\"events\":[0";
  while (rest.size() < 4'100'000) rest += ",{}";
  for (std::size_t number = 0; number < clients.size(); ++number) {
    clients.at(number) = std::thread([&, number] {
      const std::string request = number % 2 == 0 ? "GET /api/events HTTP/1.1\r\n" : "POST /ingest HTTP/1.1\r\n";
      static_cast<void>(Said(url.substr(0, url.rfind('/')), request + rest));
    });
  }
  for (std::thread& client : clients) client.join();
  const std::string status = demo::ContentOf("/proc/" + std::to_string(service.Id()) + "/status");
  [[maybe_unused]] const std::size_t peak = std::stoul(status.substr(status.find("VmHWM:") + 6));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LT(peak, 64'000U) << "kB";
#endif
  kill(service.Id(), SIGTERM);
  EXPECT_EQ(service.AwaitEnd(), 0);
}

// Every member that the schema describes anywhere.
void CollectMembers(const Value& schema, std::set<std::string>& members) {
  if (const auto* array = schema.As<platform::Array>()) {
    for (const Value& element : *array) CollectMembers(element, members);
  }
  const auto* object = schema.As<platform::Dictionary>();
  if (object == nullptr) return;
  for (const auto& [key, value] : *object) {
    if (key == "properties") {
      for (const auto& member : *value.As<platform::Dictionary>()) members.insert(member.first);
    }
    CollectMembers(value, members);
  }
}

TEST(EventSchema, DocumentAndSchemaNameTheSameMembers) {
  const fs::path docs = CRD_DOCS;
  const auto schema = json::Parse(demo::ContentOf(docs / "event.schema.json"), {"properties", "definitions"});
  std::set<std::string> described;
  CollectMembers(Value(std::get<platform::Dictionary>(schema)), described);
  EXPECT_GT(described.size(), 25U);

  std::set<std::string> documented;
  std::istringstream lines(demo::ContentOf(docs / "event-schema.md"));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("| `")) documented.insert(line.substr(3, line.find('`', 3) - 3));
  }
  EXPECT_EQ(documented, described);
}

}  // namespace
