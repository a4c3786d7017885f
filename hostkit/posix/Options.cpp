#include "hostkit/posix/Options.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

#include "hostkit/posix/Utf8.h"

namespace hostkit {
namespace {

constexpr std::size_t processId = 1;

#if defined(__x86_64__)
constexpr char codeType[] = "X86-64";
#elif defined(__aarch64__)
constexpr char codeType[] = "ARM-64";
#else
constexpr char codeType[] = "";
#endif

enum class Form { any, line, fileName, flag, number };

struct Row {
  crhost_option option;
  const char* name;
  Form form;
  const char* initial;
};

// Those that need a check or have a default. The others are any text, and empty.
constexpr Row rows[] = {
    {CRHOST_APP_NAME, "CRHOST_APP_NAME", Form::fileName, ""},
    {CRHOST_APP_VERSION, "CRHOST_APP_VERSION", Form::line, ""},
    {CRHOST_SEND_WITHOUT_PROMPT, "CRHOST_SEND_WITHOUT_PROMPT", Form::any, "0"},
    {CRHOST_SHOW_ONLY_ONCE, "CRHOST_SHOW_ONLY_ONCE", Form::any, "0"},
    {CRHOST_SCALING_FACTOR, "CRHOST_SCALING_FACTOR", Form::any, "1.0"},
    {CRHOST_DIALOG_FOR_SIGNAL, "CRHOST_DIALOG_FOR_SIGNAL", Form::flag, "1"},
    {CRHOST_REPORTER_VERSION, "CRHOST_REPORTER_VERSION", Form::line, ""},
    {CRHOST_EXIT_ZERO_IS_NORMAL, "CRHOST_EXIT_ZERO_IS_NORMAL", Form::flag, "0"},
    {CRHOST_WAIT_SECONDS, "CRHOST_WAIT_SECONDS", Form::number, "20"},
    {CRHOST_DISABLE_REPORTING, "CRHOST_DISABLE_REPORTING", Form::flag, "0"},
    {CRHOST_USER_GUID, "CRHOST_USER_GUID", Form::line, ""},
    {CRHOST_CODE_TYPE, "CRHOST_CODE_TYPE", Form::any, codeType},
    {CRHOST_LOG_CRASHED_MODULE, "CRHOST_LOG_CRASHED_MODULE", Form::flag, "0"},
    {CRHOST_SIGNAL_HANDLING, "CRHOST_SIGNAL_HANDLING", Form::flag, "1"},
    {CRHOST_SESSION_ID, "CRHOST_SESSION_ID", Form::line, ""},
};

// What is wrong with it; null: nothing.
const char* Complaint(Form form, const std::string& text) {
  constexpr std::size_t nameLimitBytes = 128;  // leaves room for date, process id and host name
  switch (form) {
    case Form::any:
      return nullptr;
    case Form::line:
      return IsPrintable(text) ? nullptr : "must be UTF-8 without control characters";
    case Form::fileName:
      if (text.empty()) return "must be set";
      if (text.size() > nameLimitBytes) return "must not be longer than 128 bytes";
      if (text == "." || text == ".." || text.find('/') != std::string::npos) return "must be fit for a file name";
      return Complaint(Form::line, text);
    case Form::flag:
      return text == "0" || text == "1" ? nullptr : "must be \"0\" or \"1\"";
    case Form::number:
      constexpr std::size_t digitsLimit = 6;
      return !text.empty() && text.size() <= digitsLimit && text.find_first_not_of("0123456789") == std::string::npos
                 ? nullptr
                 : "must be a whole number of seconds";
  }
  return nullptr;
}

Outcome CheckExecutable(const std::string& path, const char* option, crhost_status failure) {
  if (path.empty()) return {CRHOST_INVALID_OPTION, std::string(option) + " must be set"};
  struct stat facts {};
  const bool found = stat(path.c_str(), &facts) == 0;
  if (found && !S_ISREG(facts.st_mode)) return SystemFailure(failure, std::string(option) + ": " + path, EISDIR);
  if (found && access(path.c_str(), X_OK) == 0) return {};
  return SystemFailure(failure, std::string(option) + ": " + path, errno);
}

}  // namespace

Outcome CheckOptions(const crhost_options& options) {
  for (const Row& row : rows) {
    const char* complaint = Complaint(row.form, options[row.option]);
    if (complaint != nullptr) return {CRHOST_INVALID_OPTION, std::string(row.name) + " " + complaint};
  }
  Outcome daemon = CheckExecutable(options[CRHOST_DAEMON_PATH], "CRHOST_DAEMON_PATH", CRHOST_NO_DAEMON);
  if (!daemon) return daemon;
  return CheckExecutable(options[CRHOST_REPORTER_PATH], "CRHOST_REPORTER_PATH", CRHOST_NO_REPORTER);
}

std::vector<std::string> DaemonArguments(const crhost_options& options) {
  std::vector<std::string> arguments(options.texts.begin(), options.texts.begin() + CRHOST_SESSION_ID);
  arguments[processId] = std::to_string(getpid());
  std::string& displayName = arguments[CRHOST_DIALOG_DISPLAY_NAME];
  if (displayName.empty()) displayName = options[CRHOST_APP_NAME];
  return arguments;
}

}  // namespace hostkit

crhost_options* crhost_options_new() try {
  auto options = std::make_unique<crhost_options>();
  for (const auto& row : hostkit::rows) options->texts[row.option] = row.initial;
  return options.release();
} catch (const std::bad_alloc&) {
  return nullptr;
}

void crhost_options_free(crhost_options* options) { delete options; }

crhost_status crhost_set(crhost_options* options, crhost_option option, const char* value) try {
  const auto number = static_cast<std::size_t>(option);
  const bool known = number < crhost_options::count && number != hostkit::processId;
  if (options == nullptr || value == nullptr || !known) return CRHOST_INVALID_OPTION;
  options->texts[number] = value;
  return CRHOST_OK;
} catch (const std::exception&) {
  return CRHOST_SYSTEM_ERROR;
}
