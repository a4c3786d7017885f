#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/crctl/Answer.h"
#include "tools/crctl/Checks.h"

// What crctl can be told to do, apart from how it is told. Every verb works on the files of this user with the daemon's
// own code, and holds its locks while it changes something.
namespace crctl {

// Not well when a check found an error.
[[nodiscard]] Answer Doctor(const Subject& subject);

// An event's id is the GUID in its file's name, or the whole name where that has another form.
[[nodiscard]] Answer ListQueue();
[[nodiscard]] Answer ShowEvent(const std::string& id);
// All events when `ids` is empty. Not well when one of them stays.
[[nodiscard]] Answer PostEvents(const std::vector<std::string>& ids);
// Deletes what the daemon's next run would, or only names it.
[[nodiscard]] Answer ExpireQueue(bool onlyName);

struct ReportSource {
  std::string path;
  std::string type = "0";
  std::string application;
  std::string version;
  std::string reporterVersion;
  std::string session;
  std::string user;
};
// The body of the request that would be posted for it, in both forms of the answer.
[[nodiscard]] Answer ConvertReport(const ReportSource& source);

[[nodiscard]] Answer ListStored();
struct StoredChoice {
  std::vector<std::string> keys;
  std::optional<std::string> application;  // with version, and build where the product has one
  std::string version;
  std::optional<std::string> build;
  bool all = false;
};
[[nodiscard]] Answer ForgetStored(const StoredChoice& choice);

// `members` are further texts of the user info, each KEY=VALUE.
[[nodiscard]] Answer Notify(const std::string& name, std::int32_t host, const std::vector<std::string>& members);

[[nodiscard]] Answer TurnLogOn(bool append);
[[nodiscard]] Answer TurnLogOff();
// Of the process with that id, daemon or host; without one, the newest.
[[nodiscard]] Answer ShowLog(const std::optional<std::int32_t>& process);
// Prints the lines that all daemons write from now on; returns when nobody reads them any more.
[[nodiscard]] Answer FollowLogs(bool asJson);

inline constexpr int ingestPort = 8737;
struct IngestChoice {
  int port = ingestPort;              // 0: any that is free
  std::vector<std::string> tls;       // certificate and key, or nothing
  std::optional<std::string> events;  // the file; else one in the user's state folder
  std::optional<int> status;          // of the answer to sound events, in place of 200
  bool takesCommands = false;         // from standard input, and ends with it
};
// Runs the ingest service, prints where it is and what it receives; returns on SIGINT or SIGTERM.
[[nodiscard]] Answer ServeIngest(const IngestChoice& choice, bool asJson);

}  // namespace crctl
