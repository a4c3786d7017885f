// A property list in either form. What is read can be written, and is then the same for good.
#include "platform/PropertyList.h"

#include "fuzz/Target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto value = platform::ParsePropertyList(fuzz::TextOf(data, size));
  if (!value) return 0;
  const auto text = platform::WritePropertyList(*value);
  if (!text) return 0;
  const auto again = platform::ParsePropertyList(*text);
  fuzz::Require(bool{again}, "what was written can be read");
  const auto rewritten = platform::WritePropertyList(*again);
  fuzz::Require(rewritten && *rewritten == *text, "a second rewrite changes nothing");
  return 0;
}
