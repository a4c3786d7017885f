#include "hostkit/posix/HandlerFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "hostkit/posix/Utf8.h"

namespace hostkit {
namespace {

int CreateFile(const char* path) {
  unlink(path);
  return open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

// To have run out of descriptors is a way to come to a crash.
void AllowMoreDescriptors() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

HandlerFile::HandlerFile(const char* temporary) : temporary_(temporary), file_(CreateFile(temporary)) {
  if (file_ < 0 && errno == EMFILE) {
    AllowMoreDescriptors();
    file_ = CreateFile(temporary);
  }
  failed_ = file_ < 0;
}

HandlerFile::~HandlerFile() {
  if (file_ >= 0) close(file_);
  if (file_ >= 0 && !kept_) unlink(temporary_);
}

void HandlerFile::Put(std::string_view text) {
  for (const char character : text) {
    if (used_ == sizeof buffer_) Flush();
    buffer_[used_++] = character;
    column_ = character == '\n' ? 0 : column_ + 1;
  }
}

void HandlerFile::PutForeign(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = PrintableSize(text);
    Put(size == 0 ? "?" : text.substr(0, size));
    text.remove_prefix(size == 0 ? 1 : size);
  }
}

void HandlerFile::PutDecimal(std::uint64_t number, std::size_t leastDigits) {
  char digits[20];
  std::size_t count = 0;
  for (; number != 0 || count < leastDigits; number /= 10) digits[count++] = static_cast<char>('0' + number % 10);
  while (count > 0) Put({&digits[--count], 1});
}

void HandlerFile::PutHexadecimal(std::uint64_t number, std::size_t leastDigits) {
  Put("0x");
  std::size_t digits = 16;
  while (digits > leastDigits && number >> (4 * (digits - 1)) == 0) --digits;
  while (digits-- > 0) Put({&"0123456789abcdef"[number >> (4 * digits) & 0xFU], 1});
}

void HandlerFile::PadTo(std::size_t column) {
  do {
    Put(" ");
  } while (column_ < column);
}

bool HandlerFile::KeepAs(const char* path) {
  Flush();
  kept_ = !failed_ && fsync(file_) == 0 && rename(temporary_, path) == 0;
  return kept_;
}

void HandlerFile::Flush() {
  for (std::size_t written = 0; !failed_ && written < used_;) {
    const ssize_t count = write(file_, buffer_ + written, used_ - written);
    if (count > 0) {
      written += static_cast<std::size_t>(count);
    } else {
      failed_ = count == 0 || errno != EINTR;
    }
  }
  used_ = 0;
}

}  // namespace hostkit
