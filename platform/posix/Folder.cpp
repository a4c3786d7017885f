#include <fcntl.h>

#include <cerrno>

#include "platform/Files.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/FileFacts.h"
#include "platform/posix/Listing.h"

namespace platform {
namespace {

std::optional<FileKind> KindOfType(unsigned char type) {
  switch (type) {
    case DT_UNKNOWN:
      return std::nullopt;
    case DT_REG:
      return FileKind::regular;
    case DT_DIR:
      return FileKind::folder;
    default:
      return FileKind::other;
  }
}

}  // namespace

Listing::Listing(Descriptor folder) : stream_(fdopendir(folder.Number())) {
  if (stream_) {
    static_cast<void>(folder.Release());
  } else {
    error_ = LastError();
  }
}

bool Listing::Next(std::string& name) {
  while (!error_) {
    errno = 0;
    last_ = readdir(stream_.get());
    if (last_ == nullptr) {
      if (errno != 0) error_ = LastError();
      return false;
    }
    name = last_->d_name;
    if (name != "." && name != "..") return true;
  }
  return false;
}

std::optional<std::string> Listing::Next() {
  std::string name;
  return Next(name) ? std::optional(std::move(name)) : std::nullopt;
}

std::optional<FileKind> Listing::KnownKind(std::string_view name) const {
  return last_ != nullptr && name == last_->d_name ? KindOfType(last_->d_type) : std::nullopt;
}

struct Folder::Body {
  Listing listing;
};

Result<Folder> Folder::Open(const std::string& path) {
  const auto open = [&path](LastLink last) -> Result<Descriptor> {
    const auto place = Resolve(path, last);
    return place ? OpenAt(place->Start(), place->name.c_str(), O_RDONLY | O_DIRECTORY) : place.Error();
  };
  auto folder = open(LastLink::keep);
  // Links are rare, and to look for one costs a call.
  if (folder.Error() == std::errc::too_many_symbolic_link_levels) folder = open(LastLink::followOwn);
  if (!folder) return folder.Error();
  Listing listing(std::move(*folder));
  if (listing.Error()) return listing.Error();
  return Folder(std::make_unique<Body>(Body{std::move(listing)}));
}

Folder::Folder(std::unique_ptr<Body> body) : body_(std::move(body)) {}
Folder::Folder(Folder&&) noexcept = default;
Folder& Folder::operator=(Folder&&) noexcept = default;
Folder::~Folder() = default;

std::optional<std::string> Folder::Next() { return body_->listing.Next(); }

bool Folder::Next(std::string& name) { return body_->listing.Next(name); }

std::error_code Folder::Error() const { return body_->listing.Error(); }

FileKind Folder::KindOf(const std::string& name) const {
  const auto known = body_->listing.KnownKind(name);
  return known ? *known : KindAt(body_->listing.Number(), name.c_str());
}

std::optional<Time> Folder::CreationDate(const std::string& name) const {
  return CreationDateAt(body_->listing.Number(), name.c_str());
}

Result<std::string> Folder::Read(const std::string& name, std::uint64_t limitBytes) const {
  return ReadAt(body_->listing.Number(), name.c_str(), limitBytes);
}

}  // namespace platform
