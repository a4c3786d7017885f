#include "tools/crctl/EventStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <variant>

#include "platform/PropertyList.h"
#include "support/Json.h"

namespace ingest {
namespace {

constexpr mode_t privateMode = 0600;
constexpr std::size_t chunkBytes = std::size_t{1} << 20U;
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

platform::Result<std::unique_ptr<EventStore>> EventStore::Open(const std::string& path) {
  // Not waiting for somebody to read, should it be a FIFO.
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, privateMode);
  if (file < 0) return LastError();
  std::unique_ptr<EventStore> store(new EventStore(file));
  struct stat facts {};
  if (fstat(file, &facts) != 0) return LastError();
  if (!S_ISREG(facts.st_mode)) return std::errc::no_such_device;
  if (flock(file, LOCK_EX | LOCK_NB) != 0) {
    return errno == EWOULDBLOCK ? std::make_error_code(std::errc::device_or_resource_busy) : LastError();
  }
  if (fchmod(file, privateMode) != 0) return LastError();
  if (const auto error = store->ReadLines()) return error;
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
  changed_.notify_all();
  return {};
}

std::uint64_t EventStore::Last() const {
  const std::lock_guard lock(mutex_);
  return lines_.size();
}

std::optional<std::string> EventStore::Read(std::uint64_t id) const {
  Line line{};
  {
    const std::lock_guard lock(mutex_);
    if (id == 0 || id > lines_.size()) return std::nullopt;
    line = lines_[static_cast<std::size_t>(id - 1)];
  }
  std::string object(line.size, '\0');
  const ssize_t size = pread(file_, object.data(), object.size(), line.offset);
  const bool isWhole =
      size == static_cast<ssize_t>(object.size()) && object.starts_with("{\"") && object.ends_with('}');
  if (!isWhole || object.find('\n') != std::string::npos) return std::nullopt;
  return "{\"id\":" + std::to_string(id) + "," + object.substr(1);
}

std::uint64_t EventStore::AwaitNewerThan(std::uint64_t id, std::chrono::milliseconds time) const {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, time, [&] { return isClosed_ || lines_.size() > id; });
  return lines_.size();
}

void EventStore::Close() {
  const std::lock_guard lock(mutex_);
  isClosed_ = true;
  changed_.notify_all();
}

}  // namespace ingest
