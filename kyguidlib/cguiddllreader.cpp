#include "kyguidlib/cguiddllreader.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <utility>

#include "common/lazysingleton.h"
#include "common/modules.h"
#include "common/win32raii.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/singletonex.h"

namespace KyGuid {
namespace {

constexpr wchar_t kModuleName[] = L"KyGuid64.dll";
constexpr size_t kModuleNameLength = 12;

// Zero-initialised and trivially destructible: it needs no construction
// guard and nothing runs for it at exit except the routine below.
LoadedCopy g_copy;

GetGuidReaderFn LoadGuidModule(const wchar_t* dir, LoadedCopy& copy) {
  KyGuidUtils::UniqueModule module(KyGuidUtils::LoadModuleFromFolder(dir, kModuleName));
  auto getReader = KyGuidUtils::GetProcAs<GetGuidReaderFn>(module.get(), "GetGuidReader");
  if (getReader) copy.m_module = module.release();
  return getReader;
}

// A copy its host already loaded under the suite's name, kept with a
// reference of our own when it serves.
GetGuidReaderFn FindLoadedGuidModule(LoadedCopy& copy) {
  KyGuidUtils::UniqueModule loaded;
  if (!GetModuleHandleExW(0, kModuleName, loaded.put())) return nullptr;
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(loaded.get(), path, MAX_PATH);
  auto getReader = IsGuidModulePath(path)
                       ? KyGuidUtils::GetProcAs<GetGuidReaderFn>(loaded.get(), "GetGuidReader")
                       : nullptr;
  if (getReader) copy.m_module = loaded.release();
  return getReader;
}

// A copy already in the process is preferred: usually it is the running
// library itself, loaded by its host under the name the suite installs.
GetGuidReaderFn FindGuidReaderExport(LoadedCopy& copy) {
  if (GetGuidReaderFn getReader = FindLoadedGuidModule(copy)) return getReader;

  GetGuidReaderFn getReader = nullptr;
  KyGuidUtils::LoadFromSuiteFolders([&](const wchar_t* dir) {
    getReader = LoadGuidModule(dir, copy);
    return getReader != nullptr;
  });
  return getReader;
}

void ReleaseLoadedCopy() {
  g_copy.m_reader = nullptr;
  g_copy.m_updater = nullptr;
  const KyGuidUtils::UniqueModule module(std::exchange(g_copy.m_module, nullptr));
}

LoadedCopy* BuildLoadedCopy() noexcept {
  g_copy = LoadedCopy{nullptr, nullptr, nullptr};
  GetGuidReaderFn getReader = FindGuidReaderExport(g_copy);
  if (g_copy.m_module) {
    if (getReader) g_copy.m_reader = getReader();
    auto getUpdater = KyGuidUtils::GetProcAs<GetGuidUpdaterFn>(g_copy.m_module, "GetGuidUpdater");
    if (getUpdater) g_copy.m_updater = getUpdater();
  }
  atexit(&ReleaseLoadedCopy);
  return &g_copy;
}

}  // namespace

const LoadedCopy& GetLoadedCopy() {
  static std::atomic<uintptr_t> published{0};
  return *KyGuidUtils::GetOrBuild<LoadedCopy>(published, &BuildLoadedCopy);
}

bool IsGuidModulePath(const wchar_t* path) {
  const size_t length = path ? wcslen(path) : 0;
  return length >= kModuleNameLength &&
         _wcsicmp(path + length - kModuleNameLength, kModuleName) == 0;
}

CGuidDllReader::CGuidDllReader() : m_target(GetLoadedCopy().m_reader) {}

void CGuidDllReader::OnProcessExit() { m_target = nullptr; }

BOOL CGuidDllReader::WaitForGuid(uint32_t timeoutMs) {
  return m_target ? m_target->WaitForGuid(timeoutMs) : FALSE;
}

BOOL CGuidDllReader::GetGuidBytes(uint8_t* buffer, uint64_t size) {
  if (m_target) return m_target->GetGuidBytes(buffer, size);
  if (buffer) memset(buffer, 0, size);
  return FALSE;
}

BOOL CGuidDllReader::GetGuidStringA(char* buffer, uint64_t size) {
  if (m_target) return m_target->GetGuidStringA(buffer, size);
  if (buffer) memset(buffer, 0, size);
  return FALSE;
}

BOOL CGuidDllReader::GetGuidStringW(wchar_t* buffer, uint64_t count) {
  if (m_target) return m_target->GetGuidStringW(buffer, count);
  if (buffer) memset(buffer, 0, count * sizeof(wchar_t));
  return FALSE;
}

BOOL GetInstalledGuid(char buffer[33]) {
  CGuidDllReader* reader = KyGuidUtils::CSingletonEx<CGuidDllReader>::Instance();
  if (!reader) {
    memset(buffer, 0, 33);
    return FALSE;
  }
  return reader->GetGuidStringA(buffer, 33);
}

}  // namespace KyGuid
