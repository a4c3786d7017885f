#include "tools/crctl/IngestPage.h"

namespace ingest {

std::optional<PageContent> PageFile(std::string_view path) {
  if (path != "/") return std::nullopt;
  return PageContent{.content = "<!doctype html><title>Ingest</title><a href=\"api/events\">What was received</a>\n",
                     .type = "text/html; charset=utf-8"};
}

}  // namespace ingest
