#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>

#include "hostkit/posix/Machine.h"

namespace hostkit {
namespace {

// Reads a file line by line. Lines that are too long lose their end.
class LineReader {
 public:
  explicit LineReader(const char* path) : file_(open(path, O_RDONLY | O_CLOEXEC)) {}
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader() {
    if (file_ >= 0) close(file_);
  }

  // False at the end. The line is good until the next call.
  [[nodiscard]] bool Next(std::string_view& line) {
    std::size_t size = 0;
    while (next_ != end_ || Fill()) {
      const char character = chunk_[next_++];
      if (character == '\n') break;
      if (size < sizeof line_) line_[size++] = character;
    }
    line = {line_, size};
    return size > 0;
  }

 private:
  [[nodiscard]] bool Fill() {
    ssize_t count = -1;
    do {
      count = file_ < 0 ? -1 : read(file_, chunk_, sizeof chunk_);
    } while (file_ >= 0 && count < 0 && errno == EINTR);
    next_ = 0;
    end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return count > 0;
  }

  int file_;
  std::size_t next_ = 0;
  std::size_t end_ = 0;
  char chunk_[1024];
  char line_[4400];  // a path of 4096 bytes, and what goes before it
};

// Takes the word up to `end` off the front.
std::string_view TakeUntil(std::string_view& text, char end) {
  const std::string_view word = text.substr(0, text.find(end));
  text.remove_prefix(word.size() < text.size() ? word.size() + 1 : text.size());
  return word;
}

std::uintptr_t HexadecimalValue(std::string_view digits) {
  std::uintptr_t value = 0;
  for (const char digit : digits)
    value = value << 4U | static_cast<unsigned>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
  return value;
}

struct Mapping {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  bool isCode = false;
  std::string_view path;
};

// "7f1c2000-7f1c4000 r-xp 00002000 08:01 1234      /usr/lib/libm.so"
Mapping MappingOf(std::string_view line) {
  Mapping mapping;
  mapping.begin = HexadecimalValue(TakeUntil(line, '-'));
  mapping.end = HexadecimalValue(TakeUntil(line, ' '));
  mapping.isCode = TakeUntil(line, ' ').find('x') != std::string_view::npos;
  const std::size_t slash = line.find('/');
  if (slash != std::string_view::npos) mapping.path = line.substr(slash);
  return mapping;
}

// The mappings of a file, which follow each other.
struct Group {
  char path[4200];
  std::size_t pathSize;
  std::uintptr_t begin;
  std::uintptr_t end;
  bool isCode;

  [[nodiscard]] std::string_view Path() const { return {path, pathSize}; }
  void Begin(const Mapping& mapping) {
    pathSize = mapping.path.copy(path, sizeof path);
    begin = mapping.begin;
    isCode = false;
  }
};
Group group;  // too large for the stack of a handler

}  // namespace

Registers RegistersOf(const void* context) {
  const mcontext_t& machine = static_cast<const ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
  const auto value = [&machine](int name) { return static_cast<std::uintptr_t>(machine.gregs[name]); };
  return {.instruction = value(REG_RIP), .stack = value(REG_RSP), .frame = value(REG_RBP), .caller = 0};
#elif defined(__aarch64__)
  return {.instruction = machine.pc, .stack = machine.sp, .frame = machine.regs[29], .caller = machine.regs[30]};
#else
#error "registers of this processor"
#endif
}

pid_t ThreadNumber() { return static_cast<pid_t>(syscall(SYS_gettid)); }

std::string_view ThreadName(NameBuffer& buffer) {
  return prctl(PR_GET_NAME, buffer, 0, 0, 0) == 0 ? std::string_view(buffer) : std::string_view();
}

std::string_view ProcessName(pid_t process, NameBuffer& buffer) {
  char path[32] = "/proc/";
  char digits[16];
  std::size_t count = 0;
  for (; process > 0; process /= 10) digits[count++] = static_cast<char>('0' + process % 10);
  std::size_t size = sizeof "/proc/" - 1;
  while (count > 0) path[size++] = digits[--count];
  constexpr std::string_view file = "/comm";
  path[size + file.copy(path + size, file.size())] = '\0';

  LineReader reader(path);
  std::string_view name;
  if (!reader.Next(name)) return {};
  return {buffer, name.copy(buffer, sizeof buffer)};
}

void ForEachImage(VisitImage visit, void* context) {
  const auto finish = [&] {
    if (group.isCode) visit({.begin = group.begin, .end = group.end, .path = group.Path()}, context);
  };
  group.pathSize = 0;
  group.isCode = false;
  LineReader reader("/proc/self/maps");
  for (std::string_view line; reader.Next(line);) {
    const Mapping mapping = MappingOf(line);
    if (mapping.path.empty()) continue;
    if (mapping.path != group.Path()) {
      finish();
      group.Begin(mapping);
    }
    group.end = mapping.end;
    group.isCode = group.isCode || mapping.isCode;
  }
  finish();
}

}  // namespace hostkit
