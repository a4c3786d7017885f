#pragma once

#include <optional>
#include <string_view>

namespace ingest {

struct PageContent {
  std::string_view content;
  const char* type;  // for the header of that name
};

// What the page consists of, by the path of the URL: "/", "/page.js", "/page.css". None for any other.
[[nodiscard]] std::optional<PageContent> PageFile(std::string_view path);

}  // namespace ingest
