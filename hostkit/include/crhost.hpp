// The host kit for C++17. As crhost.h says, with objects that free themselves and results that carry their error.
#pragma once

#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "crhost.h"

namespace crhost {

// True when it went well.
class [[nodiscard]] Result {
 public:
  explicit Result(const crhost_error& error) : error_(error) {}
  explicit operator bool() const { return error_.status == CRHOST_OK; }
  crhost_status Status() const { return error_.status; }
  std::string Text() const { return error_.text; }

 private:
  crhost_error error_;
};

namespace internal {
template <typename Function, typename... Arguments>
Result Call(Function function, Arguments... arguments) {
  crhost_error error{};
  function(arguments..., &error);
  return Result(error);
}
}  // namespace internal

class Options {
 public:
  Options() : options_(crhost_options_new()) {
    if (!options_) throw std::bad_alloc();
  }
  // std::invalid_argument: no such option, or a NUL in the value.
  Options& Set(crhost_option option, const std::string& value) {
    if (value.find('\0') != std::string::npos) throw std::invalid_argument("crhost: a value with a NUL");
    switch (crhost_set(options_.get(), option, value.c_str())) {
      case CRHOST_OK:
        return *this;
      case CRHOST_INVALID_OPTION:
        throw std::invalid_argument("crhost: no such option");
      default:
        throw std::bad_alloc();
    }
  }
  const crhost_options* Get() const { return options_.get(); }

 private:
  struct Free {
    void operator()(crhost_options* options) const { crhost_options_free(options); }
  };
  std::unique_ptr<crhost_options, Free> options_;
};

inline Result Start(const Options& options) { return internal::Call(crhost_start, options.Get()); }
inline Result ReportSignals(unsigned which) { return internal::Call(crhost_report_signals, which); }
inline Result ArmThread() { return internal::Call(crhost_arm_thread); }
inline Result AnnounceNormalEnd() { return internal::Call(crhost_announce_normal_end); }
inline Result AnnounceExceptionDelivered() { return internal::Call(crhost_announce_exception_delivered); }

}  // namespace crhost
