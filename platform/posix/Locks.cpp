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

bool StillStandsAt(const Place& place, int descriptor) {
  struct stat opened {};
  struct stat standing {};
  return fstat(descriptor, &opened) == 0 &&
         fstatat(place.folder.Number(), place.name.c_str(), &standing, AT_SYMLINK_NOFOLLOW) == 0 &&
         opened.st_dev == standing.st_dev && opened.st_ino == standing.st_ino;
}

}  // namespace

struct FileLock::Body {
  State state = State::notCreated;
  int errorNumber = 0;
  Place place;
  Descriptor file;
};

FileLock FileLock::Try(const std::string& path) {
  auto place = Resolve(path);
  if (!place) return FileLock(std::make_unique<Body>(Body{State::notCreated, place.Error().value(), {}, {}}));
  auto body = std::make_unique<Body>(Body{State::notLocked, EWOULDBLOCK, std::move(*place), {}});
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
    if (StillStandsAt(body->place, body->file.Number())) {
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
  if (!place || !StillStandsAt(body_->place, body_->file.Number())) return false;
  const bool moved = RenameToAbsent(body_->place.folder.Number(), body_->place.name.c_str(), place->folder.Number(),
                                    place->name.c_str());
  if (moved) body_->place = std::move(*place);
  return moved;
}

void FileLock::RemoveAndRelease() {
  unlinkat(body_->place.folder.Number(), body_->place.name.c_str(), 0);
  body_->file.Close();
}

struct FolderLock::Body {
  Descriptor folder;
};

FolderLock::FolderLock(const std::string& folder) : body_(std::make_unique<Body>()) {
  const auto place = ResolveFolder(folder);
  if (!place) return;
  auto opened = OpenAt(place->folder.Number(), ".", O_RDONLY | O_DIRECTORY);
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
