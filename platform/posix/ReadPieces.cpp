#include <unistd.h>

#include <cerrno>

#include "platform/Files.h"
#include "platform/posix/Descriptor.h"

namespace platform {

std::error_code ReadPieces(const std::string& path, std::uint64_t limitBytes,
                           const std::function<void(std::string_view)>& take) {
  const auto place = Resolve(path, LastLink::followOwn);
  if (!place) return place.Error();
  const auto opened = OpenToRead(place->Start(), place->name.c_str(), limitBytes);
  if (!opened) return opened.Error();

  // Small enough for the processor's cache, since whoever takes it reads it more than once.
  constexpr std::size_t pieceBytes = std::size_t{64} << 10U;
  const std::unique_ptr<char[]> piece(new char[pieceBytes]);
  for (std::uint64_t bytes = 0;;) {
    const ssize_t count = read(opened->file.Number(), piece.get(), pieceBytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return LastError();
    if (count == 0) return {};
    bytes += static_cast<std::uint64_t>(count);
    // It may have grown meanwhile.
    if (bytes > limitBytes) return std::make_error_code(std::errc::file_too_large);
    take({piece.get(), static_cast<std::size_t>(count)});
  }
}

}  // namespace platform
