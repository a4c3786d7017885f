#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <utility>

// A text that the worker sets and a notification handler reads.
class SharedText {
 public:
  [[nodiscard]] std::optional<std::string> Get() const {
    const std::scoped_lock lock(mutex_);
    return text_;
  }
  void Set(std::optional<std::string> text) {
    const std::scoped_lock lock(mutex_);
    text_ = std::move(text);
  }

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> text_;
};
