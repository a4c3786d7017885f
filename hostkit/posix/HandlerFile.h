#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace hostkit {

// A new file beside the one that it becomes, written with system calls alone. Safe in a signal handler.
class HandlerFile {
 public:
  // Replaces what stands at `temporary`, unless it is a folder.
  explicit HandlerFile(const char* temporary);
  HandlerFile(const HandlerFile&) = delete;
  HandlerFile& operator=(const HandlerFile&) = delete;
  // Removes the file, unless it was kept.
  ~HandlerFile();

  // Our own words.
  void Put(std::string_view text);
  // Words of others, of which only what is printable goes in.
  void PutForeign(std::string_view text);
  void PutDecimal(std::uint64_t number, std::size_t leastDigits = 1);
  void PutHexadecimal(std::uint64_t number, std::size_t leastDigits = 1);
  // Up to that column of the line.
  void PadTo(std::size_t column);

  // Gives the file its name once it is safe on the disk. False, and there is no file, when anything went wrong.
  bool KeepAs(const char* path);

 private:
  void Flush();

  const char* temporary_;
  int file_;
  bool failed_;
  bool kept_ = false;
  std::size_t column_ = 0;
  std::size_t used_ = 0;
  char buffer_[2048];
};

}  // namespace hostkit
