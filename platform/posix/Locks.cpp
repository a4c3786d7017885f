#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "platform/Files.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/FileFacts.h"

namespace platform {
namespace {

using std::chrono::steady_clock;
constexpr int maxAttempts = 16;
constexpr auto folderPatience = std::chrono::seconds(1);
constexpr auto folderPause = std::chrono::milliseconds(10);

bool TryLock(int descriptor) {
  int result = 0;
  do {
    result = flock(descriptor, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

struct Identity {
  dev_t device;
  ino_t number;
};

// None of a descriptor that cannot be looked at.
std::optional<Identity> IdentityOf(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 ? std::optional(Identity{status.st_dev, status.st_ino}) : std::nullopt;
}

bool StandsAt(const Place& place, const std::optional<Identity>& file) {
  struct stat status {};
  return file && fstatat(place.Start(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         file->device == status.st_dev && file->number == status.st_ino;
}

}  // namespace

struct FileLock::Body {
  State state = State::notCreated;
  int errorNumber = 0;
  Place place;
  Descriptor file;
  std::optional<Identity> identity;
};

FileLock FileLock::Try(const std::string& path) {
  auto place = Resolve(path);
  if (!place) return FileLock(std::make_unique<Body>(Body{State::notCreated, place.Error().value(), {}, {}, {}}));
  auto body = std::make_unique<Body>(Body{State::notLocked, EWOULDBLOCK, std::move(*place), {}, {}});
  for (int i = 0; i < maxAttempts; ++i) {
    auto file = OpenOrMake(body->place, O_RDWR, 0644);
    if (!file) {
      body->state = State::notCreated;
      body->errorNumber = file.Error().value();
      break;
    }
    body->file = std::move(*file);
    if (!TryLock(body->file.Number())) {
      body->errorNumber = errno;
      break;
    }
    body->identity = IdentityOf(body->file.Number());
    if (StandsAt(body->place, body->identity)) {
      body->state = State::held;
      body->errorNumber = 0;
      break;
    }
  }
  return FileLock(std::move(body));
}

FileLock::FileLock(std::unique_ptr<Body> body) : body_(std::move(body)) {}
FileLock::FileLock(FileLock&&) noexcept = default;
FileLock& FileLock::operator=(FileLock&&) noexcept = default;
FileLock::~FileLock() = default;

FileLock::State FileLock::state() const { return body_->state; }

int FileLock::errorNumber() const { return body_->errorNumber; }

bool FileLock::MoveTo(const std::string& path) {
  auto place = Resolve(path);
  if (!place || !StandsAt(body_->place, body_->identity)) return false;
  const bool moved =
      RenameToAbsent(body_->place.Start(), body_->place.name.c_str(), place->Start(), place->name.c_str());
  if (moved) body_->place = std::move(*place);
  return moved;
}

void FileLock::RemoveAndRelease() {
  if (StandsAt(body_->place, body_->identity)) unlinkat(body_->place.Start(), body_->place.name.c_str(), 0);
  body_->file.Close();
}

struct FolderLock::Body {
  Descriptor folder;
};

FolderLock::FolderLock(const std::string& folder) : body_(std::make_unique<Body>()) {
  const auto place = ResolveFolder(folder);
  if (!place) return;
  auto opened = OpenAt(place->Start(), ".", O_RDONLY | O_DIRECTORY);
  if (!opened) return;
  const auto deadline = steady_clock::now() + folderPatience;
  while (!TryLock(opened->Number())) {
    if (errno != EWOULDBLOCK || steady_clock::now() >= deadline) return;
    SleepFor(folderPause);
  }
  body_->folder = std::move(*opened);
}

FolderLock::~FolderLock() = default;

}  // namespace platform
