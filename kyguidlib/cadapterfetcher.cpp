#include "kyguidlib/cadapterfetcher.h"

#include "common/kylog.h"
#include "kyguidlib/ciphelpfetcher.h"
#include "kyguidlib/hardware.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cadapterfetcher";
constexpr wchar_t kFetch[] = L"KyGuid::CAdapterFetcher::Fetch";
constexpr uint32_t kRegistryBufferSize = 2048;

}  // namespace

std::string CAdapterFetcher::QueryPnpInstanceId(const std::string& adapterName) {
  std::string connectionKey = "{" + adapterName + "}\\Connection";
  if (connectionKey.size() >= kRegistryBufferSize) return std::string();
  std::string id;
  if (!CurrentPlatform().hardware->ReadNetworkString(connectionKey, "PnpInstanceID",
                                                     kRegistryBufferSize, id)) {
    return std::string();
  }
  return id;
}

int CAdapterFetcher::Fetch() {
  m_adapters.clear();
  {
    // The IP helper is loaded only for the length of one query.
    CIpHelpFetcher helper;
    helper.QueryAdapter(m_adapters);
  }
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFetch), "Fetch %d Adapters",
               static_cast<int>(m_adapters.size()));
  for (AdapterInfo& adapter : m_adapters) {
    adapter.Type = ClassifyAdapter(adapter, QueryPnpInstanceId(adapter.AdapterName));
  }
  ScoreAdapters(m_adapters);
  LogAdapters();
  return static_cast<int>(m_adapters.size());
}

void CAdapterFetcher::LogAdapters() const {
  if (!KyLog::IsEnabled(KyLog::kInfo)) return;
  for (const AdapterInfo& adapter : m_adapters) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFetch),
                 "Fetch Adapter[%02d]=> Guid[%s], Desc[%s], Address[%s], Proto[%d], Type[%d], "
                 "Score[%d]",
                 adapter.Index, adapter.AdapterName.c_str(), adapter.Description.c_str(),
                 adapter.MacAddress.c_str(), static_cast<int>(adapter.Protocol),
                 static_cast<int>(adapter.Type), adapter.Score);
  }
}

}  // namespace KyGuid
