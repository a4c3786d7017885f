#include "platform/linux/XcbLibrary.h"

#include <dlfcn.h>

namespace platform {
namespace {

class SharedObject {
 public:
  explicit SharedObject(const char* name) : handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL)) {}

  // False when there is no such symbol.
  template <typename Symbol>
  [[nodiscard]] bool Find(const char* name, Symbol*& symbol) const {
    symbol = handle_ == nullptr ? nullptr : reinterpret_cast<Symbol*>(dlsym(handle_, name));
    return symbol != nullptr;
  }

 private:
  void* handle_;  // never closed: threads that wait for a silent server run in it to the end
};

bool LoadCore(XcbLibrary& xcb) {
  const SharedObject library("libxcb.so.1");
  return library.Find("xcb_connect", xcb.connect) && library.Find("xcb_disconnect", xcb.disconnect) &&
         library.Find("xcb_connection_has_error", xcb.connectionHasError) &&
         library.Find("xcb_get_setup", xcb.getSetup) &&
         library.Find("xcb_setup_roots_iterator", xcb.setupRootsIterator) &&
         library.Find("xcb_screen_next", xcb.screenNext) &&
         library.Find("xcb_get_extension_data", xcb.getExtensionData) &&
         library.Find("xcb_intern_atom", xcb.internAtom) && library.Find("xcb_query_tree", xcb.queryTree) &&
         library.Find("xcb_get_window_attributes", xcb.getWindowAttributes) &&
         library.Find("xcb_get_property", xcb.getProperty) &&
         library.Find("xcb_send_event_checked", xcb.sendEventChecked) &&
         library.Find("xcb_request_check", xcb.requestCheck) && library.Find("xcb_wait_for_reply", xcb.waitForReply) &&
         library.Find("xcb_poll_for_event", xcb.pollForEvent);
}

void LoadResources(XcbLibrary& xcb) {
  const SharedObject library("libxcb-res.so.0");
  if (!library.Find("xcb_res_query_client_ids", xcb.queryClientIds) ||
      !library.Find("xcb_res_id", xcb.resourceExtension)) {
    xcb.queryClientIds = nullptr;
  }
}

}  // namespace

const XcbLibrary* LoadedXcb() {
  static const XcbLibrary* const loaded = []() -> const XcbLibrary* {
    static XcbLibrary library;
    if (!LoadCore(library)) return nullptr;
    LoadResources(library);
    return &library;
  }();
  return loaded;
}

}  // namespace platform
