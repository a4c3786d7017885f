#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CRDaemon/ReportConversion.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/HttpClient.h"
#include "platform/Workers.h"

// What one worker run holds on to until its end. Of one thread.
struct UploadRun {
  platform::HttpClient http;
  // Of events that another run is posting: some of them, since each has a descriptor.
  std::vector<platform::FileLock> refusedLocks = {};
  // Of the event that was seen to last. Its file is moved to the next one.
  std::optional<platform::FileLock> lock = {};
  // The event that comes after the one seen to now, to be read while that is on its way; empty when there is none.
  std::string next = {};
  struct Ahead {
    std::string path;
    platform::FileStamp stamp;
    platform::Dictionary event;
  };
  std::optional<Ahead> ahead = {};
  // The event file of this daemon's report, empty when there is none. It is posted first, and its age does not count
  // before.
  std::string own = {};
  // Answers 5xx or 429 since the last other answer. A service that has trouble is left in peace after a few.
  int busyAnswers = 0;
  static constexpr int mostBusyAnswers = 3;

  ~UploadRun() { ReleaseLock(); }
  [[nodiscard]] bool MayPost() const { return busyAnswers < mostBusyAnswers && !http.IsSpent(); }
  void ReleaseLock();
};

// The outbox for crash events. A report becomes an event file in the queue; worker runs in the background expire old
// files and post the others. What could not be delivered waits for a later run, of any process. Used from one thread;
// no operation lets an exception out.
class Ingester {
 public:
  Ingester(const std::string& appName, const std::string& appVersion, const std::string& crashReporterVersion,
           const std::string& sessionGuid, const std::string& userGuid);

  // Before every other operation.
  void start();
  void setSessionGuid(const std::string& guid);
  // Schedules one worker run and returns at once.
  void runOnce();
  // Queues the report's event on the calling thread, then schedules a run. An event that cannot be queued, on a full
  // disk for example, is posted by that run from memory, and queued after all when that fails and there is room by
  // then.
  void submitReport(const std::string& path, const std::string& type);
  // Returns when every run has ended.
  void stop();

  // How long a file may stay in the queue, or an unfinished one anywhere.
  static constexpr std::chrono::hours lifeOfFiles{30 * 24};
  // How many events the queue holds at most: a new one takes the place of the oldest.
  static constexpr std::size_t mostEvents = 2000;

  // The steps of a run. They touch no field of any object.
  static void cleanupExpiredFiles(const UploadRun& run);
  static void processReports(UploadRun& run);
  // The event stays locked until the run sees to the next one, or ends.
  static bool processReport(const std::string& path, UploadRun& run);

  [[nodiscard]] static bool shouldProcessReport(const std::string& path);
  [[nodiscard]] static bool shouldDeleteFile(const std::string& path);
  [[nodiscard]] static bool isFileAtPath(const std::string& path, std::int32_t days);
  // Calls `action` with the full path of everything in the folder that is not a folder, until it answers false.
  static void forEachFileAtPath(const std::string& folder, const std::function<bool(const std::string&)>& action);
  [[nodiscard]] static std::string getLockPathForReportPath(const std::string& path);
  [[nodiscard]] static std::string getUniqueFileName();

 private:
  // An event, and the file that holds it; no path when it could not be queued.
  struct SavedEvent {
    platform::Dictionary event;
    std::optional<std::string> path;
  };
  [[nodiscard]] SavedEvent saveReport(const std::string& path, const std::string& type);
  void Schedule(std::optional<SavedEvent> saved);

  std::optional<platform::WorkerGroup> asyncGroup_;
  conversion::Sender sender_;
};

// The event of a report's file. One that cannot be read counts as empty, and still makes an event. Throws
// std::out_of_range for a JSON report of a single line.
[[nodiscard]] platform::Dictionary EventOfReport(const std::string& path, const std::string& type,
                                                 const conversion::Sender& sender);

// The event as far as its file tells it. None when the file must stay as it is: somebody else delivered and removed it,
// the guard refused it, or the system failed for the moment. One that is there and cannot be understood is an empty
// event.
[[nodiscard]] std::optional<platform::Dictionary> ReadEvent(const std::string& path);

// Removes the file; a failure is logged.
void deleteFile(const std::string& path);

// Stops the ingester when the scope ends.
class ScopedIngester {
 public:
  explicit ScopedIngester(std::unique_ptr<Ingester> ingester) : ingester_(std::move(ingester)) {}
  ScopedIngester(const ScopedIngester&) = delete;
  ScopedIngester& operator=(const ScopedIngester&) = delete;
  ~ScopedIngester() { ingester_->stop(); }

  Ingester* operator->() const { return ingester_.get(); }

 private:
  std::unique_ptr<Ingester> ingester_;
};
