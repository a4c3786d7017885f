#include "demo/Display.h"

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace demo {
namespace {

namespace fs = std::filesystem;

// The lines of `output` that are whole.
std::vector<std::string> WholeLines(const fs::path& output) {
  std::vector<std::string> lines;
  std::istringstream stream(ContentOf(output));
  for (std::string line; std::getline(stream, line) && !stream.eof();) lines.push_back(line);
  return lines;
}

// The first line that is as wanted.
std::string AwaitLine(const fs::path& output, bool (*isWanted)(const std::string& line)) {
  std::string found;
  const bool isThere = Eventually([&] {
    const auto lines = WholeLines(output);
    const auto line = std::find_if(lines.begin(), lines.end(), isWanted);
    if (line != lines.end()) found = *line;
    return line != lines.end();
  });
  if (!isThere) throw std::runtime_error(output.string() + ": " + ContentOf(output));
  return found;
}

bool IsNumber(const std::string& line) {
  return !line.empty() && line.find_first_not_of("0123456789") == std::string::npos;
}

bool SaysShown(const std::string& line) { return line.starts_with("shown"); }

}  // namespace

Display::Display() {
  std::string pattern = fs::temp_directory_path() / "crdaemon-display-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
  folder_ = pattern;
  fs::permissions(folder_, fs::perms::all);
  environment_ = {
      {"HOME", folder_}, {"XDG_CONFIG_HOME", folder_}, {"XDG_CACHE_HOME", folder_}, {"PATH", "/usr/bin:/bin"}};
  const fs::path output = NextOutput();
  // Its standard output carries the number of the display that it found free.
  server_.emplace(std::vector<std::string>{"/usr/bin/Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-ac", "-noreset",
                                           "-screen", "0", "1024x768x24"},
                  environment_, output);
  name_ = ":" + AwaitLine(output, IsNumber);
  environment_["DISPLAY"] = name_;
}

Display::~Display() {
  manager_.reset();
  server_.reset();
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

void Display::Stop() const { kill(server_->Id(), SIGSTOP); }

void Display::Continue() const { kill(server_->Id(), SIGCONT); }

void Display::StartWindowManager() {
  const fs::path ready = folder_ / "managed";
  fs::remove(ready);
  manager_.emplace(std::vector<std::string>{"/usr/bin/openbox", "--startup", "/usr/bin/touch " + ready.string()},
                   environment_, NextOutput());
  if (!Eventually([&] { return fs::exists(ready); })) throw std::runtime_error("no window manager");
}

SampleWindows Display::Show(const std::string& owner, const std::vector<std::string>& arguments) {
  const fs::path program = folder_ / owner;
  fs::copy_file(fs::read_symlink("/proc/self/exe").parent_path() / "SampleWindow", program,
                fs::copy_options::skip_existing);
  std::vector<std::string> command = {program};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const fs::path output = NextOutput();
  SampleWindows shown{Program(std::move(command), environment_, output), {}, output};
  std::istringstream words(AwaitLine(output, SaysShown));
  std::string word;
  for (words >> word; words >> word;) shown.numbers.push_back(word);
  return shown;
}

fs::path Display::NextOutput() { return folder_ / (std::to_string(++programs_) + ".out"); }

}  // namespace demo
