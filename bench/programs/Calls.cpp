// What can be called over and over in one process.
#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "CRDaemon/IngestUpload.h"
#include "CRDaemon/ReportConversion.h"
#include "platform/Processes.h"
#include "platform/Windows.h"
#include "support/Json.h"

namespace {

constexpr std::int64_t megabyte = std::int64_t{1} << 20U;

std::string TextReport(std::size_t bytes) {
  std::string report =
      "Process:         Photo [4711]\nDate/Time:       2021-03-04 05:06:19.567 +0000\n"
      "Launch Time:     2021-03-04 05:06:07.123 +0000\nOS Version:      macOS 12.6.1 (21G217)\n"
      "Exception Type:  EXC_BAD_ACCESS (SIGSEGV)\n\nThread 0 Crashed:: Dispatch queue: com.apple.main-thread\n";
  for (int frame = 0; report.size() < bytes; ++frame) {
    report +=
        std::to_string(frame) + "   com.malvex.photo.filters      0x000000018ac1d0d4 Filters::Apply(Image&) + 512\n";
  }
  return report;
}

void FloorLines(benchmark::State& state) {
  const std::string report = TextReport(static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] auto turn : state) {
    std::size_t lines = 0;
    const char* const end = report.data() + report.size();
    for (const char* at = report.data(); at != end; ++lines) {
      const void* newline = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
      if (newline == nullptr) break;
      at = static_cast<const char*>(newline) + 1;
      benchmark::DoNotOptimize(at);
    }
    benchmark::DoNotOptimize(lines);
  }
}

void TextConversion(benchmark::State& state) {
  const std::string report = TextReport(static_cast<std::size_t>(state.range(0)));
  const conversion::Sender sender{"Photo", "4.2", "2.1", "F0F0", "6F1C"};
  for ([[maybe_unused]] auto turn : state) benchmark::DoNotOptimize(conversion::EventFromReport(report, "0", sender));
}

// As it stands in the queue.
std::string QueuedEvent() {
  const conversion::Sender sender{"Photo", "4.2", "2.1", "F0F0", "6F1C"};
  return *platform::WritePropertyList(platform::Value(conversion::EventFromReport(TextReport(1), "0", sender)));
}

void FloorEvent(benchmark::State& state) {
  const std::string bytes = QueuedEvent();
  for ([[maybe_unused]] auto turn : state) {
    plist_t event = nullptr;
    plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &event);
    plist_free(event);
  }
}

void EventToBody(benchmark::State& state) {
  const std::string bytes = QueuedEvent();
  for ([[maybe_unused]] auto turn : state) {
    auto event = platform::ParsePropertyList(bytes);
    auto& members = std::get<platform::Dictionary>(event->state());
    benchmark::DoNotOptimize(json::Write(upload::Envelope(std::move(members), platform::Now())));
  }
}

// Shows windows on the display of the environment, says so, and stays.
[[noreturn]] void ShowWindows(std::int64_t count, int tell) {
  xcb_connection_t* const server = xcb_connect(nullptr, nullptr);
  if (xcb_connection_has_error(server) != 0) _exit(1);
  const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(server)).data;
  for (std::int64_t made = 0; made < count; ++made) {
    const xcb_window_t window = xcb_generate_id(server);
    xcb_create_window(server, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 10, 10, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
    xcb_map_window(server, window);
  }
  std::free(xcb_get_input_focus_reply(server, xcb_get_input_focus(server), nullptr));
  static_cast<void>(!write(tell, "", 1));
  for (;;) pause();
}

// Windows of a process that lives as long as this object: only one that started after the host's end counts.
class YoungWindows {
 public:
  explicit YoungWindows(std::int64_t count) {
    int ends[2];
    if (pipe(ends) != 0) return;
    process_ = fork();
    if (process_ == 0) ShowWindows(count, ends[1]);
    close(ends[1]);
    char shown = 0;
    static_cast<void>(!read(ends[0], &shown, 1));
    close(ends[0]);
  }
  YoungWindows(const YoungWindows&) = delete;
  YoungWindows& operator=(const YoungWindows&) = delete;
  ~YoungWindows() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }

 private:
  pid_t process_ = -1;
};

void Windows(benchmark::State& state) {
  platform::WatchHost(0);  // gone
  const YoungWindows windows(state.range(0));
  for ([[maybe_unused]] auto turn : state) {
    const auto seen = platform::OnScreenWindows();
    if (!seen || seen->size() < static_cast<std::size_t>(state.range(0))) {
      state.SkipWithError("the display does not show them");
      break;
    }
  }
}

BENCHMARK(FloorLines)->Arg(megabyte);
BENCHMARK(TextConversion)->Arg(megabyte)->Arg(10 * megabyte);
BENCHMARK(FloorEvent);
BENCHMARK(EventToBody);
BENCHMARK(Windows)->Arg(10)->Arg(100)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
