// Test executables only: runs a scope against a simulated platform. Members
// left null keep the Win32 implementation.
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
