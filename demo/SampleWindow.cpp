// Shows windows on an X display until it is ended:
//   SampleWindow TITLE|--untitled [--old-title TEXT] [--count N] [--pid-property PID] [--seconds S]
//                [--iconic|--unmapped|--past-manager]
// A window's owner is known by the name of the program, so run a copy under the name wanted. TITLE stands in the
// property of today, TEXT in that of old. Prints "shown" and the windows' numbers once they are, and "front" and its
// number when one gets the keyboard.
#include <unistd.h>
#include <xcb/xcb.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::uint16_t sideInPixels = 120;
constexpr std::uint32_t iconicState = 3;

struct Options {
  std::optional<std::string> title;
  std::optional<std::string> oldTitle;
  std::optional<std::uint32_t> pidProperty;
  std::uint32_t count = 1;
  std::uint32_t seconds = 0;
  bool isIconic = false;
  bool isMapped = true;
  bool goesPastManager = false;
};

std::optional<std::uint32_t> Number(std::string_view text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

bool TakeNumber(const std::vector<std::string>& arguments, std::size_t at, std::uint32_t& number) {
  const auto taken = at < arguments.size() ? Number(arguments[at]) : std::nullopt;
  number = taken.value_or(0);
  return taken.has_value();
}

std::optional<Options> FromArguments(const std::vector<std::string>& arguments) {
  if (arguments.empty()) return std::nullopt;
  Options options;
  if (arguments[0] != "--untitled") options.title = arguments[0];
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    bool isGood = true;
    if (name == "--iconic") {
      options.isIconic = true;
    } else if (name == "--unmapped") {
      options.isMapped = false;
    } else if (name == "--past-manager") {
      options.goesPastManager = true;
    } else if (name == "--count") {
      isGood = TakeNumber(arguments, ++i, options.count);
    } else if (name == "--seconds") {
      isGood = TakeNumber(arguments, ++i, options.seconds);
    } else if (name == "--pid-property") {
      isGood = TakeNumber(arguments, ++i, options.pidProperty.emplace());
    } else if (name == "--old-title" && ++i < arguments.size()) {
      options.oldTitle = arguments[i];
    } else {
      isGood = false;
    }
    if (!isGood) return std::nullopt;
  }
  return options;
}

struct FreeReply {
  void operator()(void* reply) const { std::free(reply); }
};
template <typename Reply>
using Owned = std::unique_ptr<Reply, FreeReply>;

class Connection {
 public:
  Connection() : connection_(xcb_connect(nullptr, nullptr)) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { xcb_disconnect(connection_); }

  [[nodiscard]] bool IsGood() const { return xcb_connection_has_error(connection_) == 0; }

  [[nodiscard]] xcb_window_t Show(const Options& options) const {
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
    const xcb_window_t window = xcb_generate_id(connection_);
    const std::array<std::uint32_t, 3> values = {screen->white_pixel, options.goesPastManager ? 1U : 0U,
                                                 XCB_EVENT_MASK_FOCUS_CHANGE};
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, sideInPixels, sideInPixels, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values.data());
    if (options.title) SetText(window, Atom("_NET_WM_NAME"), Atom("UTF8_STRING"), *options.title);
    if (options.oldTitle) SetText(window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, *options.oldTitle);
    if (options.pidProperty) SetNumbers(window, Atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, {*options.pidProperty});
    if (options.isIconic) {
      constexpr std::uint32_t onlyState = 2;
      SetNumbers(window, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, {onlyState, 0, iconicState, 0, 0, 0, 0, 0, 0});
    }
    if (options.isMapped) xcb_map_window(connection_, window);
    return window;
  }

  // Returns once the server has done all that it was asked for.
  void Settle() const { Atom("UTF8_STRING"); }

  // Returns when the server is gone.
  void Stay() const {
    while (const Owned<xcb_generic_event_t> event{xcb_wait_for_event(connection_)}) {
      if (event->response_type != XCB_FOCUS_IN) continue;
      xcb_focus_in_event_t focus;
      std::memcpy(&focus, event.get(), sizeof focus);
      std::printf("front %u\n", focus.event);
      std::fflush(stdout);
    }
  }

 private:
  xcb_atom_t Atom(std::string_view name) const {
    const auto cookie = xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const Owned<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, cookie, nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_NONE);
  }

  void SetText(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, const std::string& text) const {
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, property, type, 8,
                        static_cast<std::uint32_t>(text.size()), text.data());
  }

  void SetNumbers(xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                  const std::vector<std::uint32_t>& numbers) const {
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, property, type, 32,
                        static_cast<std::uint32_t>(numbers.size()), numbers.data());
  }

  xcb_connection_t* connection_;
};

}  // namespace

int main(int argc, char** argv) {
  const auto options = FromArguments({argv + 1, argv + argc});
  if (!options) return 2;
  const Connection connection;
  if (!connection.IsGood()) return 1;
  std::string numbers;
  for (std::uint32_t i = 0; i < options->count; ++i) numbers += " " + std::to_string(connection.Show(*options));
  connection.Settle();
  std::printf("shown%s\n", numbers.c_str());
  std::fflush(stdout);
  if (options->seconds > 0) alarm(options->seconds);  // ends the program
  connection.Stay();
  return 0;
}
