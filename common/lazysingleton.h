// The lazy construction word shared by every process-wide object: 0 not
// built, 1 being built, otherwise the object's address. The first caller wins
// a compare-and-exchange and builds; the others yield until it publishes.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace KyGuidUtils {

template <typename T, typename Build>
T* GetOrBuild(std::atomic<uintptr_t>& word, Build build) {
  constexpr uintptr_t kEmpty = 0;
  constexpr uintptr_t kBuilding = 1;
  uintptr_t current = word.load();
  if (current != kEmpty && current != kBuilding) return reinterpret_cast<T*>(current);

  uintptr_t expected = kEmpty;
  if (!word.compare_exchange_strong(expected, kBuilding)) {
    while ((current = word.load()) == kBuilding) SwitchToThread();
    return reinterpret_cast<T*>(current);
  }
  // A failed build frees the word so that a later caller can try again,
  // instead of leaving every later caller spinning on "being built".
  T* built = build();
  word.exchange(built ? reinterpret_cast<uintptr_t>(built) : kEmpty);
  return built;
}

}  // namespace KyGuidUtils
