#include "tools/crctl/EventStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <variant>

#include "platform/PropertyList.h"
#include "support/Json.h"

namespace ingest {
namespace {

constexpr mode_t privateMode = 0600;
constexpr std::size_t chunkBytes = std::size_t{1} << 20U;
constexpr std::size_t pieceBytes = std::size_t{64} << 10U;
// A full file loses one part in so many at a time, since what stays has to be copied.
constexpr std::size_t droppedParts = 10;
// Twice what a record can come to.
constexpr std::size_t longestLine = std::size_t{64} << 20U;

std::error_code LastError() { return {errno, std::generic_category()}; }

bool IsRecord(std::string_view line) {
  if (!line.starts_with("{\"")) return false;
  const auto parsed = json::Parse(line, {"received", "status", "problems", "event"});
  const auto* record = std::get_if<platform::Dictionary>(&parsed);
  return record != nullptr && record->size() == 4;
}

// At the end of the file.
std::error_code WriteAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return LastError();
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return {};
}

}  // namespace

platform::Result<std::unique_ptr<EventStore>> EventStore::Open(const std::string& path, std::size_t limitBytes) {
  // Not waiting for somebody to read, should it be a FIFO.
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, privateMode);
  if (file < 0) return LastError();
  std::unique_ptr<EventStore> store(new EventStore(file, path, limitBytes));
  struct stat facts {};
  if (fstat(file, &facts) != 0) return LastError();
  if (!S_ISREG(facts.st_mode)) return std::errc::no_such_device;
  if (flock(file, LOCK_EX | LOCK_NB) != 0) {
    return errno == EWOULDBLOCK ? std::make_error_code(std::errc::device_or_resource_busy) : LastError();
  }
  // Another service may have put a new file in its place, and let go of this one.
  struct stat now {};
  if (lstat(path.c_str(), &now) != 0) return LastError();
  if (now.st_ino != facts.st_ino || now.st_dev != facts.st_dev) return std::errc::device_or_resource_busy;
  if (fchmod(file, privateMode) != 0) return LastError();
  if (const auto error = store->ReadLines()) return error;
  if (const auto error = store->MakeRoom(0)) return error;
  return store;
}

EventStore::~EventStore() { close(file_); }

std::error_code EventStore::ReadLines() {
  std::string pending;
  std::string chunk(chunkBytes, '\0');
  std::int64_t offset = 0;  // of `pending`
  for (;;) {
    const ssize_t size = pread(file_, chunk.data(), chunk.size(), offset + static_cast<std::int64_t>(pending.size()));
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return LastError();
    if (size == 0) break;
    pending.append(chunk, 0, static_cast<std::size_t>(size));
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = pending.find('\n', begin)) != std::string::npos; begin = end + 1) {
      TakeLine(std::string_view(pending).substr(begin, end - begin), offset + static_cast<std::int64_t>(begin));
    }
    pending.erase(0, begin);
    offset += static_cast<std::int64_t>(begin);
    if (pending.size() > longestLine) return std::make_error_code(std::errc::file_too_large);
  }
  endsInMidLine_ = !pending.empty();
  if (endsInMidLine_) skippedLines_.push_back(lineCount_ + 1);
  return {};
}

void EventStore::TakeLine(std::string_view line, std::int64_t offset) {
  ++lineCount_;
  if (IsRecord(line)) {
    lines_.push_back({.offset = offset, .size = line.size()});
  } else {
    skippedLines_.push_back(lineCount_);
  }
}

std::error_code EventStore::Append(std::string_view object) {
  const std::lock_guard lock(mutex_);
  if (const auto error = MakeRoom(object.size() + 2)) return error;
  const std::int64_t end = lseek(file_, 0, SEEK_END);
  if (end < 0) return LastError();
  std::string bytes = endsInMidLine_ ? "\n" : "";
  const std::int64_t offset = end + static_cast<std::int64_t>(bytes.size());
  bytes.append(object).append("\n");
  if (const auto error = WriteAll(file_, bytes)) {
    if (ftruncate(file_, end) != 0) endsInMidLine_ = true;
    return error;
  }
  endsInMidLine_ = false;
  lines_.push_back({.offset = offset, .size = object.size()});
  return {};
}

std::error_code EventStore::MakeRoom(std::size_t bytes) {
  const std::int64_t end = lseek(file_, 0, SEEK_END);
  if (end < 0) return LastError();
  if (static_cast<std::size_t>(end) + bytes <= limitBytes_) return {};
  const std::size_t room = limitBytes_ - std::min(limitBytes_, std::max(bytes, limitBytes_ / droppedParts));
  const auto kept = std::find_if(lines_.begin(), lines_.end(),
                                 [&](const Line& line) { return static_cast<std::size_t>(end - line.offset) <= room; });
  const std::int64_t offset = kept == lines_.end() ? end : kept->offset;
  if (const auto error = DropBefore(offset)) return error;
  dropped_ += static_cast<std::uint64_t>(kept - lines_.begin());
  lines_.erase(lines_.begin(), kept);
  for (Line& line : lines_) line.offset -= offset;
  endsInMidLine_ = endsInMidLine_ && offset < end;
  return {};
}

std::error_code EventStore::DropBefore(std::int64_t offset) {
  const std::string newPath = path_ + ".new";
  // A service that was killed may have left one.
  static_cast<void>(unlink(newPath.c_str()));
  const int made = open(newPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC, privateMode);
  if (made < 0) return LastError();
  const auto copy = [&]() -> std::error_code {
    if (fchmod(made, privateMode) != 0 || flock(made, LOCK_EX | LOCK_NB) != 0) return LastError();
    std::string chunk(chunkBytes, '\0');
    for (;;) {
      const ssize_t size = pread(file_, chunk.data(), chunk.size(), offset);
      if (size < 0 && errno == EINTR) continue;
      if (size < 0) return LastError();
      if (size == 0) break;
      if (const auto error = WriteAll(made, std::string_view(chunk).substr(0, static_cast<std::size_t>(size)))) {
        return error;
      }
      offset += size;
    }
    return rename(newPath.c_str(), path_.c_str()) == 0 ? std::error_code() : LastError();
  };
  const std::error_code error = copy();
  if (error) static_cast<void>(unlink(newPath.c_str()));
  close(error ? made : std::exchange(file_, made));
  return error;
}

const EventStore::Line* EventStore::Find(std::uint64_t id) const {
  return id <= dropped_ || id - dropped_ > lines_.size() ? nullptr
                                                         : &lines_[static_cast<std::size_t>(id - dropped_ - 1)];
}

std::uint64_t EventStore::First() const {
  const std::lock_guard lock(mutex_);
  return dropped_ + 1;
}

std::uint64_t EventStore::Last() const {
  const std::lock_guard lock(mutex_);
  return dropped_ + lines_.size();
}

bool EventStore::HasDropped() const { return First() > 1; }

std::size_t EventStore::Size(std::uint64_t id) const {
  const std::lock_guard lock(mutex_);
  const Line* line = Find(id);
  return line == nullptr ? 0 : line->size;
}

std::optional<std::string> EventStore::Read(std::uint64_t id, std::size_t piece) const {
  const std::lock_guard lock(mutex_);
  const Line* line = Find(id);
  if (line == nullptr) return std::nullopt;
  const std::size_t begin = std::min(piece * pieceBytes, line->size);
  std::string bytes(std::min(pieceBytes, line->size - begin), '\0');
  const ssize_t size = pread(file_, bytes.data(), bytes.size(), line->offset + static_cast<std::int64_t>(begin));
  if (size != static_cast<ssize_t>(bytes.size()) || bytes.find('\n') != std::string::npos) return std::nullopt;
  const bool isLast = begin + bytes.size() == line->size;
  if (isLast && !bytes.empty() && !bytes.ends_with('}')) return std::nullopt;
  if (piece > 0) return bytes;
  if (!bytes.starts_with("{\"")) return std::nullopt;
  return "{\"id\":" + std::to_string(id) + "," + bytes.substr(1);
}

}  // namespace ingest
