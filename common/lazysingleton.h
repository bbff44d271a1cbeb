// The lazy construction word shared by every process-wide object: 0 not
// built, 1 being built, otherwise the object's address. The first caller wins
// a compare-and-exchange and builds; the others yield until it publishes.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

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

// The one process-wide T, built in static storage on first use and never
// destructed: a host thread that still holds it while the process exits
// calls a live object, not a destroyed one. What an object must do at exit
// it registers itself. T befriends this class when its constructor is
// private.
template <typename T>
class LazySingleton {
 public:
  // The first call constructs T from `args`; an exception from the
  // constructor ends the process.
  template <typename... Args>
  static T* Get(Args&&... args) {
    return GetOrBuild<T>(
        s_word, [&]() noexcept -> T* { return new (s_storage) T(std::forward<Args>(args)...); });
  }

  // As Get, but a constructor that throws leaves nothing built: null is
  // returned, and the next call tries again.
  template <typename... Args>
  static T* TryGet(Args&&... args) {
    return GetOrBuild<T>(s_word, [&]() noexcept -> T* {
      try {
        return new (s_storage) T(std::forward<Args>(args)...);
      } catch (...) {
        return nullptr;  // T's constructor undid its own partial state
      }
    });
  }

 private:
  static inline std::atomic<uintptr_t> s_word{0};
  alignas(T) static inline unsigned char s_storage[sizeof(T)] = {};
};

}  // namespace KyGuidUtils
