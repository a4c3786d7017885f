#include "tools/crctl/IngestPage.h"

#include "embedded/crd_ingest.h"

namespace ingest {

std::optional<PageContent> PageFile(std::string_view path) {
  if (path == "/") return PageContent{.content = embedded::indexHtml, .type = "text/html; charset=utf-8"};
  if (path == "/page.js") return PageContent{.content = embedded::pageJs, .type = "text/javascript; charset=utf-8"};
  if (path == "/page.css") return PageContent{.content = embedded::pageCss, .type = "text/css; charset=utf-8"};
  return std::nullopt;
}

}  // namespace ingest
