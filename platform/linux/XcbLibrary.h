#pragma once

#include <xcb/res.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>

namespace platform {

// The calls of libxcb that we need, under their own names without the prefix. It is opened at the first display and not
// linked: a daemon without one is spared the memory.
struct XcbLibrary {
  decltype(&xcb_connect) connect = nullptr;
  decltype(&xcb_disconnect) disconnect = nullptr;
  decltype(&xcb_connection_has_error) connectionHasError = nullptr;
  decltype(&xcb_get_setup) getSetup = nullptr;
  decltype(&xcb_setup_roots_iterator) setupRootsIterator = nullptr;
  decltype(&xcb_screen_next) screenNext = nullptr;
  decltype(&xcb_get_extension_data) getExtensionData = nullptr;
  decltype(&xcb_intern_atom) internAtom = nullptr;
  decltype(&xcb_query_tree) queryTree = nullptr;
  decltype(&xcb_get_window_attributes) getWindowAttributes = nullptr;
  decltype(&xcb_get_property) getProperty = nullptr;
  decltype(&xcb_send_event_checked) sendEventChecked = nullptr;
  decltype(&xcb_request_check) requestCheck = nullptr;
  decltype(&xcb_wait_for_reply) waitForReply = nullptr;
  decltype(&xcb_poll_for_event) pollForEvent = nullptr;

  // Of libxcb-res, which may be absent; both or neither.
  decltype(&xcb_res_id) resourceExtension = nullptr;
  decltype(&xcb_res_query_client_ids) queryClientIds = nullptr;
};

// Null when it is not installed. Any thread; what is opened stays open.
[[nodiscard]] const XcbLibrary* LoadedXcb();

}  // namespace platform
