// What can be called over and over in one process.
#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "CRDaemon/IngestUpload.h"
#include "CRDaemon/ReportConversion.h"
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

// Windows of our own on the display of the environment, for as long as it lives.
class OwnWindows {
 public:
  explicit OwnWindows(std::int64_t count) : server_(xcb_connect(nullptr, nullptr), xcb_disconnect) {
    if (xcb_connection_has_error(server_.get()) != 0) return;
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(server_.get())).data;
    for (std::int64_t made = 0; made < count; ++made) {
      const xcb_window_t window = xcb_generate_id(server_.get());
      xcb_create_window(server_.get(), XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 10, 10, 0,
                        XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
      xcb_map_window(server_.get(), window);
    }
    std::free(xcb_get_input_focus_reply(server_.get(), xcb_get_input_focus(server_.get()), nullptr));
  }

 private:
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> server_;
};

void Windows(benchmark::State& state) {
  const OwnWindows windows(state.range(0));
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
