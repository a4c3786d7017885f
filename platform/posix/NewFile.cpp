#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/Files.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/FileFacts.h"

namespace platform {
namespace {

constexpr int maxAttempts = 16;

std::string TemporaryName() {
  constexpr char digits[] = "0123456789abcdef";
  std::array<unsigned char, 8> random{};
  if (getentropy(random.data(), random.size()) != 0) return {};
  std::string name = ".crd-";
  for (const unsigned char byte : random) {
    name += digits[byte >> 4U];
    name += digits[byte & 15U];
  }
  return name + ".tmp";
}

// Empty for a path that ends in no name.
std::string LastName(const std::string& path) {
  const auto end = path.find_last_not_of('/') + 1;
  const std::string name = path.substr(0, end);
  return name.substr(name.find_last_of('/') + 1);
}

}  // namespace

struct NewFile::Body {
  Place place;
  Descriptor file;
  bool published = false;

  Body(Place folder, Descriptor made) : place(std::move(folder)), file(std::move(made)) {}
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;
  ~Body() {
    if (!published) unlinkat(place.folder.Number(), place.name.c_str(), 0);
  }
};

Result<NewFile> NewFile::Create(const std::string& folder) {
  auto place = ResolveFolder(folder);
  if (!place) return place.Error();
  std::error_code error;
  for (int i = 0; i < maxAttempts; ++i) {
    place->name = TemporaryName();
    auto file = OpenAt(place->folder.Number(), place->name.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    error = file.Error();
    if (error == std::errc::file_exists) continue;
    if (error) return error;
    NewFile made(std::make_unique<Body>(std::move(*place), std::move(*file)));
    const int number = made.body_->file.Number();
    const auto& owner = made.body_->place.newOwner;
    // Whatever the umask says.
    if (fchmod(number, 0600) != 0) return LastError();
    if (owner && fchown(number, owner->user, owner->group) != 0) return LastError();
    return made;
  }
  return error;
}

NewFile::NewFile(std::unique_ptr<Body> body) : body_(std::move(body)) {}
NewFile::NewFile(NewFile&&) noexcept = default;
NewFile& NewFile::operator=(NewFile&&) noexcept = default;
NewFile::~NewFile() = default;

void NewFile::TakeModeAndOwnerOf(const std::string& path) {
  const auto model = Resolve(path);
  struct stat status {};
  if (!model || fstatat(model->folder.Number(), model->name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (!S_ISREG(status.st_mode)) return;
  const int file = body_->file.Number();
  // An ordinary user cannot give it away, but can to a group of their own.
  if (fchown(file, status.st_uid, status.st_gid) != 0) static_cast<void>(fchown(file, getuid(), status.st_gid) == 0);
  static_cast<void>(fchmod(file, status.st_mode & 0777U) == 0);
}

std::error_code NewFile::Write(std::string_view bytes) { return WriteAll(body_->file.Number(), bytes); }

std::error_code NewFile::Sync() { return SyncToDisk(body_->file.Number()) ? std::error_code() : LastError(); }

std::error_code NewFile::Publish(const std::string& path) {
  const int folder = body_->place.folder.Number();
  if (renameat(folder, body_->place.name.c_str(), folder, LastName(path).c_str()) != 0) return LastError();
  body_->published = true;
  return {};
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
