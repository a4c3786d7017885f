#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "platform/Files.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/FileFacts.h"
#include "platform/posix/Listing.h"

namespace platform {
namespace {

constexpr int maxAttempts = 16;

// How a name of a file in the making begins and ends, and the hexadecimal digits in between. No event, report, dump or
// session begins or ends like that.
constexpr std::string_view nameBegin = ".crd-";
constexpr std::string_view nameEnd = ".tmp";
constexpr std::string_view digits = "0123456789abcdef";
constexpr std::size_t randomBytes = 8;

std::string TemporaryName() {
  std::array<unsigned char, randomBytes> random{};
  if (getentropy(random.data(), random.size()) != 0) return {};
  std::string name(nameBegin);
  for (const unsigned char byte : random) {
    name += digits[byte >> 4U];
    name += digits[byte & 15U];
  }
  return name.append(nameEnd);
}

bool IsTemporaryName(std::string_view name) {
  if (name.size() != nameBegin.size() + 2 * randomBytes + nameEnd.size()) return false;
  return name.starts_with(nameBegin) && name.ends_with(nameEnd) &&
         name.substr(nameBegin.size(), 2 * randomBytes).find_first_not_of(digits) == std::string_view::npos;
}

bool IsOurs(int folder, const std::string& name, const std::optional<Owner>& owner) {
  struct stat status {};
  if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode)) return false;
  return status.st_uid == geteuid() || (owner && status.st_uid == owner->user);
}

// Empty for a path that ends in no name.
std::string LastName(const std::string& path) {
  const auto end = path.find_last_not_of('/') + 1;
  const std::string name = path.substr(0, end);
  return name.substr(name.find_last_of('/') + 1);
}

}  // namespace

struct NewFile::Body {
  Place place;  // no name: the file has none
  Descriptor file;
  Target target;

  Body(Place folder, Descriptor made, Target target_)
      : place(std::move(folder)), file(std::move(made)), target(target_) {}
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;
  ~Body() { DropName(); }

  void DropName() {
    if (!place.name.empty()) unlinkat(place.folder.Number(), place.name.c_str(), 0);
    place.name.clear();
  }

  // Under another name where nothing stands; the temporary name stays.
  [[nodiscard]] std::error_code AddName(const char* name) const {
    const int folder = place.folder.Number();
    if (place.name.empty()) return NameUnnamed(file.Number(), folder, name);
    return linkat(folder, place.name.c_str(), folder, name, 0) == 0 ? std::error_code() : LastError();
  }

  std::error_code Rename(const char* name) {
    const int folder = place.folder.Number();
    if (renameat(folder, place.name.c_str(), folder, name) != 0) return LastError();
    place.name.clear();
    return {};
  }
};

Result<NewFile> NewFile::Create(const std::string& folder, Target target) {
  auto place = ResolveFolder(folder);
  if (!place) return place.Error();
  Result<Descriptor> file = std::errc::not_supported;
  if (target == Target::absent) {
    place->name.clear();
    file = OpenUnnamed(place->folder.Number());
  }
  for (int i = 0; i < maxAttempts && !file; ++i) {
    place->name = TemporaryName();
    file = OpenAt(place->folder.Number(), place->name.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (!file && file.Error() != std::errc::file_exists) break;
  }
  if (!file) return file.Error();
  NewFile made(std::make_unique<Body>(std::move(*place), std::move(*file), target));
  const int number = made.body_->file.Number();
  const auto& owner = made.body_->place.newOwner;
  // Whatever the umask says.
  if (fchmod(number, 0600) != 0) return LastError();
  if (owner && fchown(number, owner->user, owner->group) != 0) return LastError();
  return made;
}

NewFile::NewFile(std::unique_ptr<Body> body) : body_(std::move(body)) {}
NewFile::NewFile(NewFile&&) noexcept = default;
NewFile& NewFile::operator=(NewFile&&) noexcept = default;
NewFile::~NewFile() = default;

void NewFile::TakeModeAndOwnerOf(const std::string& path) {
  const auto model = Resolve(path);
  struct stat status {};
  if (!model || fstatat(model->Start(), model->name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (!S_ISREG(status.st_mode)) return;
  const int file = body_->file.Number();
  // What root makes in somebody's Library stays theirs. An ordinary user cannot give it away, but can to a group of
  // their own.
  if (!body_->place.newOwner && fchown(file, status.st_uid, status.st_gid) != 0)
    static_cast<void>(fchown(file, getuid(), status.st_gid) == 0);
  static_cast<void>(fchmod(file, status.st_mode & 0777U) == 0);
}

std::error_code NewFile::Write(std::string_view bytes) { return WriteAll(body_->file.Number(), bytes); }

std::error_code NewFile::Sync() { return SyncToDisk(body_->file.Number()) ? std::error_code() : LastError(); }

std::error_code NewFile::Publish(const std::string& path) {
  const std::string name = LastName(path);
  if (body_->target == Target::replaced) return body_->Rename(name.c_str());
  const auto error = body_->AddName(name.c_str());
  if (!error) body_->DropName();
  return error;
}

std::error_code RemoveLeftovers(const std::string& path, Time before) {
  const auto place = ResolveFolder(path);
  if (!place) return place.Error();
  auto folder = OpenAt(place->folder.Number(), ".", O_RDONLY | O_DIRECTORY);
  if (!folder) return folder.Error();
  Listing listing(std::move(*folder));
  std::error_code failure;
  while (const auto name = listing.Next()) {
    if (!IsTemporaryName(*name) || !IsOurs(listing.Number(), *name, place->newOwner)) continue;
    const auto created = CreationDateAt(listing.Number(), name->c_str());
    if (!created || *created >= before) continue;
    if (unlinkat(listing.Number(), name->c_str(), 0) != 0 && !failure) failure = LastError();
  }
  return failure ? failure : listing.Error();
}

struct OutputFile::Body {
  Descriptor file;
};

Result<OutputFile> OutputFile::Open(const std::string& path, bool append) {
  const auto place = Resolve(path);
  if (!place) return place.Error();
  auto file = OpenOrMake(*place, O_WRONLY | (append ? O_APPEND : 0), 0600);
  if (!file) return file.Error();
  if (!append && ftruncate(file->Number(), 0) != 0) return LastError();
  return OutputFile(std::make_unique<Body>(Body{std::move(*file)}));
}

OutputFile::OutputFile(std::unique_ptr<Body> body) : body_(std::move(body)) {}
OutputFile::OutputFile(OutputFile&&) noexcept = default;
OutputFile& OutputFile::operator=(OutputFile&&) noexcept = default;
OutputFile::~OutputFile() = default;

bool OutputFile::Write(std::string_view bytes) { return !WriteAll(body_->file.Number(), bytes); }

}  // namespace platform
