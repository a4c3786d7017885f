// The page of the ingest service, in a real browser.
#include <gtest/gtest.h>
#include <httplib.h>

#include "demo/Browser.h"
#include "support/Json.h"
#include "tests/e2e/Steps.h"

namespace {

using demo::Browser;
using demo::Sandbox;
using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr char isLive[] = "$('#link').textContent == 'Live'";

std::string Quoted(const std::string& text) { return std::get<std::string>(json::Write(Value(text))); }

// What the list shows in one of the columns, newest first.
std::string Column(Browser& browser, const std::string& name) {
  return browser.Text("$$('#rows ." + name + "').map((cell) => cell.textContent).join(',')");
}

std::string Member(Browser& browser, const std::string& key) {
  return browser.Text("$$('#detail dt').find((key) => key.textContent == " + Quoted(key) +
                      ")?.nextElementSibling.textContent");
}

// "page: http://127.0.0.1:8737/", once it is printed.
std::string PageIn(const std::string& output) {
  const std::size_t begin = output.find("page: ");
  const std::size_t end = output.find('\n', begin);
  return begin == std::string::npos || end == std::string::npos ? "" : output.substr(begin + 6, end - begin - 6);
}

// With the seven constants and these.
Dictionary Data(std::initializer_list<std::pair<std::string, std::string>> members) {
  Dictionary data = {
      {"source.platform", "Mac"},           {"event.workflow", "Lifecycle"}, {"event.category", "DESKTOP"},
      {"event.subcategory", "Host"},        {"event.type", "error"},         {"event.subtype", "exit"},
      {"env.fw.name", "Crash Reporter SDK"}};
  for (const auto& [key, value] : members) data.Set(key, value);
  return data;
}

// The answer's status.
int Post(const std::string& page, const Dictionary& data) {
  const Dictionary event = {{"project", "evtsk-dsk-channel"},
                            {"environment", "prod"},
                            {"time", "2026-11-23T10:00:00Z"},
                            {"ingesttype", "quanta"},
                            {"data", Value(data)}};
  const Dictionary envelope = {{"events", Value(Array{Value(event)})}};
  httplib::Client client(page.substr(0, page.size() - 1));
  client.enable_server_certificate_verification(false);
  client.set_read_timeout(demo::patience);
  const auto answer = client.Post("/ingest", {{"x-api-key", "evtsk-dsk-channel"}},
                                  std::get<std::string>(json::Write(Value(envelope))), "application/json");
  return answer ? answer->status : 0;
}

TEST(IngestPage, ShowsACrashAsItArrives) {
  const Sandbox sandbox;
  Browser browser;
  browser.Open(sandbox.Page());
  ASSERT_TRUE(browser.Await(isLive));
  EXPECT_EQ(browser.Text("$('#variable').textContent"),
            "CRDAEMON_INGEST_URL=" + sandbox.environment.at("CRDAEMON_INGEST_URL"));
  ASSERT_TRUE(browser.Await("!$('#empty').hidden && (window.neverReloaded = true)"));

  demo::HostRun run = sandbox.StartWatchedHost();
  CrashWithSystemReport(sandbox, run);
  ASSERT_TRUE(browser.Await("$$('#rows .row').length == 1 && $('#empty').hidden && window.neverReloaded"));
  EXPECT_EQ(Column(browser, "app"), "Photo");
  EXPECT_EQ(Column(browser, "kind"), "abnormal:crash");
  EXPECT_EQ(Column(browser, "status"), "200");
  EXPECT_EQ(Column(browser, "problems"), "");

  browser.Click("#rows .row");
  ASSERT_TRUE(browser.Await("location.hash == '#1' && $('#detail h2') != null"));
  EXPECT_EQ(Member(browser, "event.error_type"), "EXC_BAD_ACCESS");
  EXPECT_EQ(Member(browser, "event.guid"), sandbox.Received().at(0).Data("event.guid"));
  EXPECT_EQ(Member(browser, "ingesttype"), "quanta");

  // The address that stands in the browser now is all that another person needs.
  Browser another;
  another.Open(sandbox.Page() + "#1");
  ASSERT_TRUE(another.Await("$('#detail h2')?.textContent == 'Photoabnormal:crash'"));
  EXPECT_EQ(Member(another, "event.guid"), Member(browser, "event.guid"));
}

TEST(IngestPage, FiltersByAppKindAndText) {
  const Sandbox sandbox;
  Post(sandbox.Page(),
       Data({{"source.name", "Photo"}, {"event.value", "abnormal:crash"}, {"event.error_desc", "first"}}));
  Post(sandbox.Page(),
       Data({{"source.name", "Draw"}, {"event.value", "abnormal:crash"}, {"event.error_desc", "second"}}));
  Browser browser;
  browser.Open(sandbox.Page());
  ASSERT_TRUE(browser.Await(isLive));
  Post(sandbox.Page(),
       Data({{"source.name", "Draw"}, {"event.value", "abnormal:hang"}, {"event.error_desc", "third"}}));
  ASSERT_TRUE(browser.Await("$$('#rows .row').length == 3"));

  struct {
    const char* app;
    const char* kind;
    const char* text;
    const char* shown;
  } const cases[] = {{"", "", "", "third,second,first"},
                     {"=Draw", "", "", "third,second"},
                     {"=Draw", "=abnormal:crash", "", "second"},
                     {"", "=abnormal:crash", "", "second,first"},
                     {"", "", "FIRST", "first"},
                     {"=Photo", "=abnormal:hang", "", ""}};
  for (const auto& [app, kind, text, shown] : cases) {
    browser.Click("#app option[value='" + std::string(app) + "']");
    browser.Click("#kind option[value='" + std::string(kind) + "']");
    static_cast<void>(browser.Evaluate("$('#search').select()"));
    browser.Type("#search", std::string("\xEE\x80\x97") + text);  // the Delete key, as WebDriver writes it
    EXPECT_TRUE(browser.Await("$$('#rows .summary').map((cell) => cell.textContent).join() == " + Quoted(shown)))
        << app << ' ' << kind << ' ' << text << ": " << Column(browser, "summary");
  }
  browser.Click("#clear");
  EXPECT_TRUE(browser.Await("$$('#rows .row').length == 3"));
}

TEST(IngestPage, TakesHostileTextForText) {
  const Sandbox sandbox;
  const std::string image = "<img src=x onerror=\"window.struck=1\">";
  const std::string script = "</script></textarea><script>window.struck=1</script>";
  Browser browser;
  browser.Open(sandbox.Page() + "#1");
  ASSERT_TRUE(browser.Await(isLive));
  // The kind, and a key that does not belong there, make it one that the service refuses, with problems that quote it.
  ASSERT_EQ(Post(sandbox.Page(), Data({{"source.name", image}, {"event.value", image}, {script, script}})), 422);

  ASSERT_TRUE(browser.Await("$$('#rows .row').length == 1 && $('#detail h2') != null"));
  EXPECT_EQ(Column(browser, "app"), image);
  EXPECT_EQ(Column(browser, "kind"), image);
  EXPECT_EQ(Column(browser, "status"), "422");
  EXPECT_NE(Column(browser, "problems"), "");
  EXPECT_EQ(Member(browser, script), script);
  EXPECT_TRUE(browser.Await("$$('.refusal li').some((problem) => problem.textContent.includes('event.value'))"));
  EXPECT_TRUE(browser.Await("[...$('#app').options].some((option) => option.text == " + Quoted(image) + ")"));
  browser.Click(".raw summary");
  EXPECT_TRUE(browser.Await("JSON.parse($('.raw pre').textContent).data['source.name'] == " + Quoted(image)));
  EXPECT_TRUE(browser.Await("window.struck === undefined && $$('img, body script').length == 0"));
}

// A service of its own, at one address in two lives.
TEST(IngestPage, ComesBackWithItsService) {
  const Sandbox sandbox({.isServedWithTls = false});
  const std::string output = sandbox.Folder() / "own.out";
  const auto start = [&](const std::string& port) {
    return sandbox.StartProgram(
        {sandbox.Folder() / "bin/crctl", "ingest", "--port", port, "--events", sandbox.Folder() / "own.jsonl"},
        "own.out");
  };
  std::optional<demo::Program> service(start("0"));
  std::string page;
  ASSERT_TRUE(demo::Eventually([&] { return !(page = PageIn(demo::ContentOf(output))).empty(); }));
  Post(page, Data({{"source.name", "Before"}}));
  Browser browser;
  browser.Open(page);
  ASSERT_TRUE(browser.Await(isLive));

  service.reset();
  ASSERT_TRUE(browser.Await("$('#link').dataset.state == 'lost' && $$('#rows .row').length == 1"));
  const std::size_t colon = page.rfind(':');
  service.emplace(start(page.substr(colon + 1, page.size() - colon - 2)));
  ASSERT_TRUE(browser.Await(isLive));
  EXPECT_EQ(Post(page, Data({{"source.name", "After"}})), 200);
  EXPECT_TRUE(browser.Await("$$('#rows .app').map((app) => app.textContent).join() == 'After,Before'"));
}

}  // namespace
