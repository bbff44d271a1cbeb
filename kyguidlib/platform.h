// Everything the library takes from the machine goes through these seams.
// The shipped library only ever uses the Win32 implementations; the test
// executables, which link the core directly, install simulated ones with
// ScopedPlatform (platform_testing.h). Nothing reachable from the exports can
// swap them, and no environment variable or file substitutes them.
#pragma once

#include <cstdint>
#include <string>

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

// Wall-clock time, for ages measured across processes and restarts.
class IClock {
 public:
  virtual ~IClock() = default;
  // Seconds since 1970-01-01 UTC.
  virtual int64_t Now() = 0;
};

class IHardware;

struct Platform {
  IFolders* folders;
  ITickSource* ticks;
  IHardware* hardware;
  IClock* clock = nullptr;
};

const Platform& CurrentPlatform();

}  // namespace KyGuid
