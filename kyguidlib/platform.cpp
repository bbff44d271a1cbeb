#include "kyguidlib/platform.h"

#include <windows.h>
#include <shlobj.h>

#include "kyguidlib/hardware.h"
#include "kyguidlib/platform_override.h"

namespace KyGuid {
namespace {

class Win32Folders final : public IFolders {
 public:
  bool GetFolder(int csidl, std::wstring& path) override {
    wchar_t buffer[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathW(nullptr, csidl | CSIDL_FLAG_CREATE, nullptr, 0, buffer))) {
      return false;
    }
    path = buffer;
    return true;
  }
};

class Win32Ticks final : public ITickSource {
 public:
  uint32_t GetTickCount() override { return ::GetTickCount(); }
};

Win32Folders g_folders;
Win32Ticks g_ticks;
Platform g_platform{&g_folders, &g_ticks, &Win32Hardware(), &KyGuidUtils::SystemClock(),
                    &Win32Security()};

}  // namespace

const Platform& CurrentPlatform() { return g_platform; }

ScopedPlatform::ScopedPlatform(const Platform& replacement) : m_previous(g_platform) {
  if (replacement.folders) g_platform.folders = replacement.folders;
  if (replacement.ticks) g_platform.ticks = replacement.ticks;
  if (replacement.hardware) g_platform.hardware = replacement.hardware;
  if (replacement.clock) {
    g_platform.clock = replacement.clock;
    KyGuidUtils::SetClock(replacement.clock);
  }
  if (replacement.security) g_platform.security = replacement.security;
}

ScopedPlatform::~ScopedPlatform() {
  g_platform = m_previous;
  KyGuidUtils::SetClock(m_previous.clock);
}

}  // namespace KyGuid
