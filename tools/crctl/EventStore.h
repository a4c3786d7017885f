#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/Result.h"

namespace ingest {

// What the service received, in a file: one record a line, a JSON object each. A record's id is its place among the
// sound lines, from 1. The file holds everything, the memory only where each line lies. A record is written once Append
// returns, and survives the end of the service from then on, though not that of the machine. Any thread.
class EventStore {
 public:
  // A private file (0600), made when it is not there, and no other kind of file. Errors are the system's;
  // device_or_resource_busy: another service has it.
  [[nodiscard]] static platform::Result<std::unique_ptr<EventStore>> Open(const std::string& path);
  EventStore(const EventStore&) = delete;
  EventStore& operator=(const EventStore&) = delete;
  ~EventStore();

  // The numbers of the lines that were no records when the file was opened, such as the last one of a service that was
  // killed. They stay where they are.
  [[nodiscard]] const std::vector<std::size_t>& SkippedLines() const { return skippedLines_; }

  // The whole record or nothing of it; `object` is a JSON object with members and without a line break. Wakes those
  // that wait.
  [[nodiscard]] std::error_code Append(std::string_view object);

  // The newest id; 0 while there is none.
  [[nodiscard]] std::uint64_t Last() const;
  // The object with its "id" in front; none when there is no such record, or the file was changed behind our back.
  [[nodiscard]] std::optional<std::string> Read(std::uint64_t id) const;

  // Waits until there is a newer record than `id`, Close() or the time is over; then the newest id.
  [[nodiscard]] std::uint64_t AwaitNewerThan(std::uint64_t id, std::chrono::milliseconds time) const;
  // From now on nobody waits.
  void Close();

 private:
  struct Line {
    std::int64_t offset;
    std::size_t size;
  };

  explicit EventStore(int file) : file_(file) {}
  [[nodiscard]] std::error_code ReadLines();
  void TakeLine(std::string_view line, std::int64_t offset);

  const int file_;
  std::size_t lineCount_ = 0;
  std::vector<std::size_t> skippedLines_;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Line> lines_;
  bool endsInMidLine_ = false;
  bool isClosed_ = false;
};

}  // namespace ingest
