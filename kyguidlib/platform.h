// Everything the library takes from the machine goes through these seams.
// The shipped library only ever uses the Win32 implementations; the test
// executables and the support tool, which link the core directly, install
// simulated ones with ScopedPlatform (platform_override.h). Nothing reachable
// from the exports can swap them, and no environment variable or file
// substitutes them.
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
struct SecuritySnapshot;

// The security calls that guard the data folder. Wine keeps no security
// descriptors, so tests present owners and DACLs here.
class ISecurity {
 public:
  virtual ~ISecurity() = default;
  // Whether the process runs elevated, and so may give folders an owner and
  // a protected DACL.
  virtual bool IsElevated() = 0;
  // The account the process runs as, as a string SID.
  virtual std::string ProcessAccount() = 0;
  // The owner, the DACL when `withDacl`, and the number of hard links of a
  // file or folder, not following a link at its name; false when they
  // cannot be read.
  virtual bool Read(const std::wstring& path, bool withDacl, SecuritySnapshot& snapshot) = 0;
  // Gives an existing folder the owner and the protected DACL of
  // `descriptor` (a SECURITY_DESCRIPTOR).
  virtual bool Protect(const std::wstring& path, void* descriptor) = 0;
  // CreateDirectoryW with `descriptor`, or with the inherited security when
  // it is null; false with `error` set when it fails.
  virtual bool CreateFolder(const std::wstring& path, void* descriptor, uint32_t* error) = 0;
};

struct Platform {
  IFolders* folders;
  ITickSource* ticks;
  IHardware* hardware;
  IClock* clock = nullptr;  // ScopedPlatform puts it in force with KyGuidUtils::SetClock
  ISecurity* security = nullptr;
};

// The Win32 implementation used by the shipped library.
ISecurity& Win32Security();

const Platform& CurrentPlatform();

}  // namespace KyGuid
