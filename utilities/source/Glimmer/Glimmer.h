#pragma once

#include <optional>
#include <string>
#include <vector>

// Finds the analytics session of the host in the session-info files of both generations of the analytics system. Only
// the names of those files are read. One lookup an object; folders that are missing are made.
class Glimmer {
 public:
  Glimmer();

  // The session id, or the empty text.
  [[nodiscard]] std::string getGlimmerDataForApp(const std::string& appName, const std::string& procID,
                                                 const std::string& productFamily, const std::string& productName);

  // The same, without the last line in the log.
  [[nodiscard]] std::string getGlimmerSessionIDForApp(const std::string& appName, const std::string& procID,
                                                      const std::string& productFamily, const std::string& productName);

  // The session id in the name of the first matching file of one folder. None when no file matches.
  [[nodiscard]] std::optional<std::string> getGlimmerSessionIDFromSIFFile(const std::string& appName,
                                                                          const std::string& procID,
                                                                          const std::string& productFamily,
                                                                          const std::string& productName,
                                                                          const std::string& sifPath);

  // The names in the log-transport folder that hold the session id, in directory order.
  [[nodiscard]] std::vector<std::string> getLogFilesForSessionID(const std::string& sessionID);

  // The texts of the two greatest of `names`, which loses them; empty for a file that cannot be read or is not UTF-8.
  [[nodiscard]] std::string getDatafromLogFiles(std::vector<std::string>& names);

  [[nodiscard]] static bool IsRootUser();
  // "<none>" when nobody is logged in at the console.
  [[nodiscard]] static std::string GetLoggedInUserName();

  const std::string UserLibrary;  // with a leading "~", as all four
  const std::string sessionFilePath;
  const std::string glSessionFilePath;
  const std::string logFilePath;
};

namespace glimmer {

// Assigns `text` to `out` when every character of it converts to UTF-8; otherwise, and for a null `text`, `out` keeps
// its value. A std::string stands in for the string type of the native platform: it converts when it is well-formed
// UTF-8.
void CFStringToString(const std::string* text, std::string& out);

}  // namespace glimmer
