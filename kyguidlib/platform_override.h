// Runs a scope against a substitute platform: the test executables' and the
// support tool's simulated machine (kyguid --machine and its what-if runs),
// on purpose. KyGuid64.dll never includes it. Members left null keep the
// implementation in force.
#pragma once

#include "kyguidlib/platform.h"

namespace KyGuid {

class ScopedPlatform {
 public:
  explicit ScopedPlatform(const Platform& replacement);
  ~ScopedPlatform();
  ScopedPlatform(const ScopedPlatform&) = delete;
  ScopedPlatform& operator=(const ScopedPlatform&) = delete;

 private:
  Platform m_previous;
};

}  // namespace KyGuid
