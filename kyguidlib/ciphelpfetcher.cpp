#include "kyguidlib/ciphelpfetcher.h"

#include <windows.h>
#include <iphlpapi.h>

#include <new>

#include "common/kylog.h"
#include "common/strutil.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\ciphelpfetcher";
constexpr wchar_t kQueryAdapter[] = L"KyGuid::CIpHelpFetcher::QueryAdapter";
constexpr uint32_t kFirstBufferSize = 0x1600;

// Blanks around the name, then the braces around the GUID text.
std::string CleanAdapterName(const char* raw) {
  std::string name = raw;
  size_t first = name.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  name = name.substr(first, name.find_last_not_of(' ') - first + 1);
  size_t open = name.find_first_not_of('{');
  if (open == std::string::npos) return std::string();
  name.erase(0, open);
  size_t close = name.find_last_not_of('}');
  name.erase(close == std::string::npos ? 0 : close + 1);
  return name;
}

bool Allocate(std::vector<uint8_t>& buffer, uint32_t size) {
  try {
    buffer.assign(size, 0);
    return true;
  } catch (const std::bad_alloc&) {
    KyLog::Write(KyLog::kError, KYLOG_SITE(kQueryAdapter), "adapter allow %u mem failed!", size);
    return false;
  }
}

}  // namespace

CIpHelpFetcher::CIpHelpFetcher() : m_query(CurrentPlatform().hardware->LoadAdapterQuery()) {}

CIpHelpFetcher::~CIpHelpFetcher() = default;

void CIpHelpFetcher::QueryAdapter(std::vector<AdapterInfo>& adapters) {
  if (!m_query) {
    KyLog::Write(KyLog::kError, KYLOG_SITE(kQueryAdapter),
                 "adapter api failed: maybe iphlpapi.dll miss");
    return;
  }
  std::vector<uint8_t> buffer;
  uint32_t size = kFirstBufferSize;
  if (!Allocate(buffer, size)) return;
  uint32_t result = m_query->GetAdaptersInfo(buffer.data(), &size);
  if (result == ERROR_BUFFER_OVERFLOW) {
    // One retry with twice what the system asked for: the list may grow
    // between the two calls.
    size *= 2;
    if (!Allocate(buffer, size)) return;
    result = m_query->GetAdaptersInfo(buffer.data(), &size);
  }
  if (result != ERROR_SUCCESS) {
    KyLog::Write(KyLog::kError, KYLOG_SITE(kQueryAdapter), "GetAdaptersInfo failed: %u", result);
    return;
  }

  for (auto* entry = reinterpret_cast<const IP_ADAPTER_INFO*>(buffer.data()); entry;
       entry = entry->Next) {
    if (entry->AddressLength == 0) {
      KyLog::Write(KyLog::kTrace, KYLOG_SITE(kQueryAdapter),
                   "Fetch no mac Adapter[%d]=> Guid[%s], Desc[%s], Proto[%d]",
                   static_cast<int>(entry->Index), entry->AdapterName, entry->Description,
                   static_cast<int>(entry->Type));
      continue;
    }
    AdapterInfo adapter;
    adapter.Index = static_cast<int32_t>(entry->Index);
    adapter.AdapterName = CleanAdapterName(entry->AdapterName);
    adapter.MacAddress = KyGuidUtils::BytesToHex(
        entry->Address, std::min<size_t>(entry->AddressLength, MAX_ADAPTER_ADDRESS_LENGTH));
    adapter.Description = entry->Description;
    adapter.Protocol = entry->Type;
    adapters.push_back(adapter);
  }
}

}  // namespace KyGuid
