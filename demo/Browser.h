#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "platform/PropertyList.h"

namespace demo {

// A Chromium without a screen, driven over WebDriver. What it cannot do is a std::runtime_error. It trusts every
// certificate. All of it goes with this object.
class Browser {
 public:
  // The page is this large, in pixels.
  Browser(int width = 1200, int height = 800);
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;
  ~Browser();

  // Returns once the page and its scripts are loaded, whatever they still ask for.
  void Open(const std::string& url);

  // The value of a JavaScript expression in the page; `$` and `$$` find elements by a CSS selector.
  [[nodiscard]] platform::Value Evaluate(const std::string& expression);
  // The same, as text: "" for everything else, null included.
  [[nodiscard]] std::string Text(const std::string& expression);
  // Whether the expression comes to hold.
  [[nodiscard]] bool Await(const std::string& expression);

  // As a user does, at the element in view that the CSS selector finds.
  void Click(const std::string& selector);
  void Type(const std::string& selector, const std::string& text);

  // A PNG of what is in view.
  void Photograph(const std::filesystem::path& path);

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace demo
