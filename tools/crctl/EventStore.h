#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/Result.h"

namespace ingest {

// What the service received, in a file: one record a line, a JSON object each. A record's id is its place among the
// sound lines, from 1, and stays the same while the store is open. The memory holds only where each line lies. A record
// is written once Append returns, and survives the end of the service from then on, though not that of the machine.
// The file is bounded: once it is full, its oldest tenth is dropped to make room. Any thread.
class EventStore {
 public:
  static constexpr std::size_t storeLimitBytes = 200'000'000;

  // A private file (0600), made when it is not there, and no other kind of file. Errors are the system's;
  // device_or_resource_busy: another service has it.
  [[nodiscard]] static platform::Result<std::unique_ptr<EventStore>> Open(const std::string& path,
                                                                          std::size_t limitBytes = storeLimitBytes);
  EventStore(const EventStore&) = delete;
  EventStore& operator=(const EventStore&) = delete;
  ~EventStore();

  // The numbers of the lines that were no records when the file was opened, such as the last one of a service that was
  // killed. They stay where they are.
  [[nodiscard]] const std::vector<std::size_t>& SkippedLines() const { return skippedLines_; }

  // The whole record or nothing of it; `object` is a JSON object with members and without a line break.
  [[nodiscard]] std::error_code Append(std::string_view object);

  // The oldest id that is still kept; 1 more than the newest while there is none.
  [[nodiscard]] std::uint64_t First() const;
  // The newest id; 0 while there was none.
  [[nodiscard]] std::uint64_t Last() const;
  // Whether old records were dropped since the file was opened.
  [[nodiscard]] bool HasDropped() const;
  // 0 when there is no such record.
  [[nodiscard]] std::size_t Size(std::uint64_t id) const;
  // A piece of the object with its "id" in front; the pieces hold 64 KiB of the file each and count from 0. Empty
  // behind the last one; none when there is no such record, or the file was changed behind our back.
  [[nodiscard]] std::optional<std::string> Read(std::uint64_t id, std::size_t piece = 0) const;

 private:
  struct Line {
    std::int64_t offset;
    std::size_t size;
  };

  EventStore(int file, std::string path, std::size_t limitBytes)
      : file_(file), path_(std::move(path)), limitBytes_(limitBytes) {}
  [[nodiscard]] std::error_code ReadLines();
  void TakeLine(std::string_view line, std::int64_t offset);
  // With the mutex held: drops the oldest records when the file has no room for that many bytes.
  [[nodiscard]] std::error_code MakeRoom(std::size_t bytes);
  // Puts a file in place of this one that holds what begins there.
  [[nodiscard]] std::error_code DropBefore(std::int64_t offset);
  [[nodiscard]] const Line* Find(std::uint64_t id) const;

  int file_;
  const std::string path_;
  const std::size_t limitBytes_;
  std::size_t lineCount_ = 0;
  std::vector<std::size_t> skippedLines_;

  mutable std::mutex mutex_;
  std::deque<Line> lines_;
  std::uint64_t dropped_ = 0;  // records that were there when the file was opened, or came since
  bool endsInMidLine_ = false;
};

}  // namespace ingest
