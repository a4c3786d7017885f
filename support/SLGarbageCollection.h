#pragma once

#include <string>
#include <vector>

// Anything that is kept for the life of the process.
class GlobalItem {
 public:
  GlobalItem() = default;
  GlobalItem(const GlobalItem&) = delete;
  GlobalItem& operator=(const GlobalItem&) = delete;
  virtual ~GlobalItem() = default;
};

namespace SLGarbageCollection {

// The registry of the objects that live until the process ends: reachable, and so never reported as leaked. Nothing in
// it is ever deleted. Not locked: registrations happen before other threads start.
class GarbageCollection {
 public:
  // Created empty on first use.
  static GarbageCollection& Get();

  // Adds `item` unless it is null or already there.
  template <typename Item>
  static void PushGlobalValue(Item* item, std::vector<Item*>& list) {
    if (item == nullptr) return;
    for (const Item* known : list) {
      if (known == item) return;
    }
    list.push_back(item);
  }

  std::vector<GlobalItem*> items;
  std::vector<std::string*> strings;

 private:
  GarbageCollection() = default;
  static GarbageCollection* pGC;
};

}  // namespace SLGarbageCollection
