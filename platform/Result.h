#pragma once

#include <exception>
#include <system_error>
#include <utility>
#include <variant>

namespace platform {

// What a call on the outside world came to: a value, or the system's error. Reading the absent one ends the process.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::move(value)) {}
  Result(std::error_code error) : state_(error) {}
  Result(std::errc error) : state_(std::make_error_code(error)) {}

  explicit operator bool() const { return std::holds_alternative<T>(state_); }
  T& operator*() { return *Checked(std::get_if<T>(&state_)); }
  const T& operator*() const { return *Checked(std::get_if<T>(&state_)); }
  T* operator->() { return Checked(std::get_if<T>(&state_)); }
  const T* operator->() const { return Checked(std::get_if<T>(&state_)); }

  // No error while there is a value.
  [[nodiscard]] std::error_code Error() const {
    const auto* error = std::get_if<std::error_code>(&state_);
    return error == nullptr ? std::error_code() : *error;
  }

 private:
  template <typename Pointer>
  static Pointer Checked(Pointer value) {
    if (value == nullptr) std::terminate();
    return value;
  }

  std::variant<T, std::error_code> state_;
};

}  // namespace platform
