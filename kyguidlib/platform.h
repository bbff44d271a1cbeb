// Everything the library takes from the machine goes through these seams.
// The shipped library only ever uses the Win32 implementations; the test
// executables, which link the core directly, install simulated ones with
// ScopedPlatform (platform_testing.h). Nothing reachable from the exports can
// swap them, and no environment variable or file substitutes them.
#pragma once

#include <cstdint>
#include <string>

#include "common/clock.h"

namespace KyGuid {

class IFolders {
 public:
  virtual ~IFolders() = default;
  // The shell folder `csidl` (CSIDL_COMMON_APPDATA, CSIDL_APPDATA), created
  // when missing; false when the shell cannot give it.
  virtual bool GetFolder(int csidl, std::wstring& path) = 0;
};

class ITickSource {
 public:
  virtual ~ITickSource() = default;
  virtual uint32_t GetTickCount() = 0;
};

using KyGuidUtils::IClock;

class IHardware;

struct Platform {
  IFolders* folders;
  ITickSource* ticks;
  IHardware* hardware;
  IClock* clock = nullptr;
};

const Platform& CurrentPlatform();

}  // namespace KyGuid
