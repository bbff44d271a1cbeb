#include "kyguidlib/cguidreader.h"

#include <cstring>

#include "common/kylog.h"
#include "common/profilefile.h"
#include "common/strutil.h"
#include "kyguidlib/guiddbfile.h"
#include "kyguidlib/guidpaths.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidreader";
constexpr DWORD kLockSpinCount = 4000;
constexpr DWORD kGuidValueBuffer = 256;

}  // namespace

CGuidReader::CGuidReader() : m_lock(kLockSpinCount), m_profilePath(GetGuidFilePath()) {}

void CGuidReader::OnProcessExit() {
  m_lock.Delete();
  std::string().swap(m_profilePath);
}

BOOL CGuidReader::WaitForGuid(uint32_t) { return TRUE; }

BOOL CGuidReader::GetGuidBytes(uint8_t* buffer, uint64_t size) {
  if (!buffer) return FALSE;
  memset(buffer, 0, size);
  if (size < 16) return FALSE;
  UpdateGuidFromFile();
  char text[33];
  CopyGuid(buffer, text);
  return text[0] != '\0';
}

BOOL CGuidReader::GetGuidStringA(char* buffer, uint64_t size) {
  if (!buffer) return FALSE;
  memset(buffer, 0, size);
  if (size < 32) return FALSE;
  UpdateGuidFromFile();
  uint8_t bytes[16];
  char text[33];
  CopyGuid(bytes, text);
  memcpy(buffer, text, 32);
  return buffer[0] != '\0';
}

BOOL CGuidReader::GetGuidStringW(wchar_t* buffer, uint64_t count) {
  if (!buffer) return FALSE;
  memset(buffer, 0, count * sizeof(wchar_t));
  if (count < 32) return FALSE;
  UpdateGuidFromFile();
  uint8_t bytes[16];
  char text[33];
  CopyGuid(bytes, text);
  // Callers of this slot size their buffers for the 33 units stored here
  // (and the 34th when they pass 33 or more); the stores are part of the ABI.
  for (int i = 0; i < 33; ++i) buffer[i] = static_cast<wchar_t>(static_cast<signed char>(text[i]));
  if (count >= 33) buffer[33] = L'\0';
  return buffer[0] != L'\0';
}

void CGuidReader::UpdateGuidFromFile() {
  uint64_t time = FileLastWriteTime(m_profilePath);
  if (time == m_fileTime.load(std::memory_order_acquire)) return;

  KyGuidUtils::CriticalSection::Lock lock(m_lock);
  time = FileLastWriteTime(m_profilePath);
  if (time == m_fileTime.load(std::memory_order_relaxed)) return;

  const std::string value = m_profilePath.empty()
                                ? std::string()
                                : KyGuidUtils::ReadIniString(m_profilePath, GuidDb::kActiveSection,
                                                             GuidDb::Key::Guid, kGuidValueBuffer);
  uint8_t bytes[16];
  if (KyGuidUtils::ParseGuidBytes(value.c_str(), bytes) && value.size() == 32) {
    StoreGuid(bytes, value.c_str());
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidReader::UpdateGuidFromFile"),
                 "read guid: %s", m_guidText);
  }
  m_fileTime.store(time, std::memory_order_release);
}

void CGuidReader::StoreGuid(const uint8_t bytes[16], const char text[33]) {
  m_storeSequence.fetch_add(1, std::memory_order_acq_rel);
  memcpy(m_guidBytes, bytes, 16);
  memcpy(m_guidText, text, 32);
  m_guidText[32] = '\0';
  m_storeSequence.fetch_add(1, std::memory_order_acq_rel);
}

void CGuidReader::CopyGuid(uint8_t bytes[16], char text[33]) const {
  for (;;) {
    uint32_t before = m_storeSequence.load(std::memory_order_acquire);
    if (before & 1) {
      YieldProcessor();
      continue;
    }
    memcpy(bytes, m_guidBytes, 16);
    memcpy(text, m_guidText, 33);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (m_storeSequence.load(std::memory_order_relaxed) == before) return;
  }
}

}  // namespace KyGuid
