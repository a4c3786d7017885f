#include "support/SLGarbageCollection.h"

namespace SLGarbageCollection {

GarbageCollection* GarbageCollection::pGC = nullptr;

GarbageCollection& GarbageCollection::Get() {
  if (pGC == nullptr) pGC = new GarbageCollection();
  return *pGC;
}

}  // namespace SLGarbageCollection
