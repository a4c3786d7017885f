#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/XcbLibrary.h"

namespace platform {

struct XWindow {
  std::uint32_t number = 0;
  std::int32_t processId = 0;  // of the owner; 0 when unknown
  std::optional<std::string> title;
};

// A connection to an X server. Every operation blocks for as long as the server is silent, also one that has begun to
// answer: none is for a thread that has anything else to do. One thread at a time.
class XDisplay {
 public:
  // Null without libxcb, for a name that makes no sense, and when nobody answers there.
  [[nodiscard]] static std::unique_ptr<XDisplay> Connect(const std::string& name);

  XDisplay(const XDisplay&) = delete;
  XDisplay& operator=(const XDisplay&) = delete;
  ~XDisplay();

  // What is on screen, front first: under a live window manager its clients, the newest first, below the windows that
  // go past it; otherwise all that stands on the root. None when the connection is lost, which is for good.
  [[nodiscard]] std::optional<std::vector<XWindow>> Windows() const;

  // Asks the window manager for the window to come to the front; nothing happens without one.
  void Activate(std::uint32_t window) const;

 private:
  struct Atoms {
    xcb_atom_t activeWindow, clientList, supportingWmCheck, wmName, wmPid, utf8String;
  };
  struct Listed {
    xcb_window_t window;
    bool onlyPastManager;  // counts only if it is none of a window manager's business
  };

  XDisplay(const XcbLibrary& xcb, xcb_connection_t* connection) : xcb_(xcb), connection_(connection) {}

  [[nodiscard]] bool Prepare(int screenNumber);
  [[nodiscard]] bool KnowsOurProcess() const;
  [[nodiscard]] std::vector<Listed> Candidates() const;
  [[nodiscard]] std::vector<xcb_window_t> OnScreen() const;
  [[nodiscard]] xcb_get_property_cookie_t AskFor(xcb_window_t window, xcb_atom_t property, std::uint32_t bytes) const;

  // Null for an error, such as that of a window that has gone meanwhile.
  template <typename Reply, typename Cookie>
  [[nodiscard]] auto Await(Cookie cookie) const;

  const XcbLibrary& xcb_;
  xcb_connection_t* connection_;
  xcb_window_t root_ = XCB_NONE;
  Atoms atoms_{};
  bool knowsProcesses_ = false;  // the server's process ids are ours
};

}  // namespace platform
