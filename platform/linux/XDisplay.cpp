#include "platform/linux/XDisplay.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>

namespace platform {
namespace {

constexpr std::uint32_t mostWindows = 4096;
constexpr std::uint32_t longestTitleBytes = 1024;
constexpr std::uint32_t numberBytes = sizeof(std::uint32_t);
constexpr std::uint32_t sourcePager = 2;  // a request of the user's, not of an application for itself

struct FreeReply {
  void operator()(void* reply) const { std::free(reply); }
};
template <typename Reply>
using Owned = std::unique_ptr<Reply, FreeReply>;
using Property = Owned<xcb_get_property_reply_t>;

// The numbers behind the fixed part of a reply.
template <typename Reply>
std::vector<std::uint32_t> Numbers(const Reply& reply, std::uint32_t count) {
  std::vector<std::uint32_t> numbers(std::min(count, reply.length));
  if (!numbers.empty()) std::memcpy(numbers.data(), &reply + 1, numbers.size() * numberBytes);
  return numbers;
}

std::vector<std::uint32_t> Numbers(const Property& property) {
  if (!property || property->format != 32) return {};
  return Numbers(*property, property->value_len);
}

std::uint32_t FirstNumber(const Property& property) {
  const auto numbers = Numbers(property);
  return numbers.empty() ? 0 : numbers.front();
}

bool Exists(const Property& property) { return property && property->type != XCB_NONE; }

std::string Text(const Property& property) {
  if (property->format != 8) return {};
  const auto* bytes = reinterpret_cast<const char*>(property.get() + 1);
  return {bytes, std::min(property->value_len, property->length * numberBytes)};
}

// Behind the fixed part come pairs of what was asked for, the byte count of the answer, and the answer.
std::int32_t ProcessId(const Owned<xcb_res_query_client_ids_reply_t>& reply) {
  constexpr std::size_t numbersOfOneId = 4;
  if (!reply || reply->num_ids == 0) return 0;
  const auto numbers = Numbers(*reply, numbersOfOneId);
  return numbers.size() == numbersOfOneId ? static_cast<std::int32_t>(numbers.back()) : 0;
}

xcb_res_client_id_spec_t ProcessOf(std::uint32_t resource) {
  return {.client = resource, .mask = XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
}

}  // namespace

template <typename Reply, typename Cookie>
auto XDisplay::Await(Cookie cookie) const {
  return Owned<Reply>(static_cast<Reply*>(xcb_.waitForReply(connection_, cookie.sequence, nullptr)));
}

std::unique_ptr<XDisplay> XDisplay::Connect(const std::string& name) {
  const XcbLibrary* const xcb = LoadedXcb();
  if (xcb == nullptr) return nullptr;
  int screenNumber = 0;
  std::unique_ptr<XDisplay> display(new XDisplay(*xcb, xcb->connect(name.c_str(), &screenNumber)));
  return display->Prepare(screenNumber) ? std::move(display) : nullptr;
}

XDisplay::~XDisplay() { xcb_.disconnect(connection_); }

bool XDisplay::Prepare(int screenNumber) {
  if (xcb_.connectionHasError(connection_) != 0) return false;
  auto screens = xcb_.setupRootsIterator(xcb_.getSetup(connection_));
  for (; screenNumber > 0 && screens.rem > 1; --screenNumber) xcb_.screenNext(&screens);
  if (screens.rem == 0) return false;
  root_ = screens.data->root;

  struct Wanted {
    std::string_view name;
    xcb_atom_t Atoms::*atom;
  };
  constexpr std::array wanted = {Wanted{"_NET_ACTIVE_WINDOW", &Atoms::activeWindow},
                                 Wanted{"_NET_CLIENT_LIST", &Atoms::clientList},
                                 Wanted{"_NET_SUPPORTING_WM_CHECK", &Atoms::supportingWmCheck},
                                 Wanted{"_NET_WM_NAME", &Atoms::wmName},
                                 Wanted{"_NET_WM_PID", &Atoms::wmPid},
                                 Wanted{"UTF8_STRING", &Atoms::utf8String}};
  std::array<xcb_intern_atom_cookie_t, wanted.size()> cookies;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    cookies[i] =
        xcb_.internAtom(connection_, 0, static_cast<std::uint16_t>(wanted[i].name.size()), wanted[i].name.data());
  }
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    const auto reply = Await<xcb_intern_atom_reply_t>(cookies[i]);
    if (!reply) return false;
    atoms_.*wanted[i].atom = reply->atom;
  }
  knowsProcesses_ = KnowsOurProcess();
  return true;
}

// The server of another machine or outside our container counts other processes than we do.
bool XDisplay::KnowsOurProcess() const {
  if (xcb_.queryClientIds == nullptr) return false;
  const auto* extension = xcb_.getExtensionData(connection_, xcb_.resourceExtension);
  if (extension == nullptr || extension->present == 0) return false;
  const auto self = ProcessOf(xcb_.getSetup(connection_)->resource_id_base);
  return ProcessId(Await<xcb_res_query_client_ids_reply_t>(xcb_.queryClientIds(connection_, 1, &self))) == getpid();
}

xcb_get_property_cookie_t XDisplay::AskFor(xcb_window_t window, xcb_atom_t property, std::uint32_t bytes) const {
  return xcb_.getProperty(connection_, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, bytes / numberBytes);
}

std::vector<XDisplay::Listed> XDisplay::Candidates() const {
  const auto checkCookie = AskFor(root_, atoms_.supportingWmCheck, numberBytes);
  const auto clientsCookie = AskFor(root_, atoms_.clientList, mostWindows * numberBytes);
  const auto treeCookie = xcb_.queryTree(connection_, root_);
  const xcb_window_t check = FirstNumber(Await<xcb_get_property_reply_t>(checkCookie));
  auto clients = Numbers(Await<xcb_get_property_reply_t>(clientsCookie));
  const auto tree = Await<xcb_query_tree_reply_t>(treeCookie);
  auto children = tree ? Numbers(*tree, tree->children_len) : std::vector<xcb_window_t>();

  // A window manager that died leaves its notes on the root, but takes the window along that they point to.
  const bool isManaged =
      check != XCB_NONE &&
      FirstNumber(Await<xcb_get_property_reply_t>(AskFor(check, atoms_.supportingWmCheck, numberBytes))) == check;
  if (!isManaged) clients.clear();

  std::reverse(children.begin(), children.end());
  std::reverse(clients.begin(), clients.end());
  std::vector<Listed> listed;
  std::set<xcb_window_t> unlisted(clients.begin(), clients.end());
  for (const xcb_window_t child : children) {
    if (!unlisted.contains(child) && listed.size() < mostWindows) listed.push_back({child, isManaged});
  }
  for (const xcb_window_t client : clients) {
    if (unlisted.erase(client) != 0) listed.push_back({client, false});
  }
  return listed;
}

std::vector<xcb_window_t> XDisplay::OnScreen() const {
  const auto listed = Candidates();
  std::vector<xcb_get_window_attributes_cookie_t> cookies;
  cookies.reserve(listed.size());
  for (const Listed& candidate : listed) {
    cookies.push_back(xcb_.getWindowAttributes(connection_, candidate.window));
  }
  std::vector<xcb_window_t> windows;
  for (std::size_t i = 0; i < listed.size(); ++i) {
    const auto attributes = Await<xcb_get_window_attributes_reply_t>(cookies[i]);
    if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
        attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT &&
        (attributes->override_redirect != 0 || !listed[i].onlyPastManager)) {
      windows.push_back(listed[i].window);
    }
  }
  return windows;
}

std::optional<std::vector<XWindow>> XDisplay::Windows() const {
  // Nobody asked for events; some come all the same.
  while (const Owned<xcb_generic_event_t> event{xcb_.pollForEvent(connection_)}) {
  }
  struct Asked {
    xcb_window_t window;
    xcb_get_property_cookie_t name, oldName, statedProcess;
    std::optional<xcb_res_query_client_ids_cookie_t> process;
  };
  std::vector<Asked> asked;
  for (const xcb_window_t window : OnScreen()) {
    asked.push_back({window, AskFor(window, atoms_.wmName, longestTitleBytes),
                     AskFor(window, XCB_ATOM_WM_NAME, longestTitleBytes), AskFor(window, atoms_.wmPid, numberBytes),
                     std::nullopt});
    const auto process = ProcessOf(window);
    if (knowsProcesses_) asked.back().process = xcb_.queryClientIds(connection_, 1, &process);
  }
  std::vector<XWindow> windows;
  windows.reserve(asked.size());
  for (const Asked& cookies : asked) {
    const auto name = Await<xcb_get_property_reply_t>(cookies.name);
    const auto oldName = Await<xcb_get_property_reply_t>(cookies.oldName);
    const auto statedProcess = Await<xcb_get_property_reply_t>(cookies.statedProcess);
    XWindow window{.number = cookies.window, .processId = 0, .title = std::nullopt};
    if (cookies.process) window.processId = ProcessId(Await<xcb_res_query_client_ids_reply_t>(*cookies.process));
    if (window.processId == 0) window.processId = static_cast<std::int32_t>(FirstNumber(statedProcess));
    if (Exists(name) && name->type == atoms_.utf8String) {
      window.title = Text(name);
    } else if (Exists(oldName)) {
      window.title = Text(oldName);
    }
    if (name && oldName) windows.push_back(std::move(window));
  }
  if (xcb_.connectionHasError(connection_) != 0) return std::nullopt;
  return windows;
}

void XDisplay::Activate(std::uint32_t window) const {
  xcb_client_message_event_t message{};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = window;
  message.type = atoms_.activeWindow;
  message.data.data32[0] = sourcePager;
  std::array<char, 32> bytes;
  static_assert(sizeof bytes == sizeof message, "events are as long as the call takes them to be");
  std::memcpy(bytes.data(), &message, sizeof message);
  const auto cookie = xcb_.sendEventChecked(
      connection_, 0, root_, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT, bytes.data());
  // Waits until it has arrived: the connection may be closed next.
  const Owned<xcb_generic_error_t> ignored(xcb_.requestCheck(connection_, cookie));
}

}  // namespace platform
