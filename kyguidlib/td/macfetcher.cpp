#include "kyguidlib/td/macfetcher.h"

#include <windows.h>
#include <iphlpapi.h>
#include <nb30.h>

#include <cstring>

#include "common/kylog.h"
#include "common/strutil.h"
#include "kyguidlib/hardware.h"
#include "kyguidlib/platform.h"

namespace KyMacID {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\td\\macfetcher";
constexpr char kEntry[] = "enter";

// Room for 16 adapter records. A machine with more adapters than that gets
// its address from NetBIOS instead; the older components chose the same way.
constexpr uint32_t kAdapterBufferSize = 11264;
constexpr uint32_t kPnpIdBufferSize = 260;
// ADAPTER_STATUS followed by 30 NAME_BUFFERs.
constexpr size_t kAdapterStatusSize = 600;
constexpr uint8_t kFallbackMac[MACAddress::kLength] = {0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0x6F};

void LogEntry(const wchar_t* function) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(function), kEntry);
}

void AddFetched(const wchar_t* function, const MACAddress& address,
                std::vector<MACAddress>& macList) {
  macList.push_back(address);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(function), "fetch Adapter,  mac=%s",
               address.ToString().c_str());
}

bool IsEthernetOrPpp(uint32_t interfaceType) {
  return interfaceType == MIB_IF_TYPE_ETHERNET || interfaceType == MIB_IF_TYPE_PPP;
}

}  // namespace

bool QueryLanaAddresses(KyGuid::IHardware& hardware, std::vector<LanaAddress>& answers) {
  LANA_ENUM lanas{};
  NCB ncb{};
  ncb.ncb_command = NCBENUM;
  ncb.ncb_buffer = reinterpret_cast<UCHAR*>(&lanas);
  ncb.ncb_length = sizeof(lanas);
  if (hardware.Netbios(&ncb) != NRC_GOODRET) return false;

  for (UCHAR i = 0; i < lanas.length; ++i) {
    // A LAN adapter answers a status request only after a reset.
    ncb = NCB{};
    ncb.ncb_command = NCBRESET;
    ncb.ncb_lana_num = lanas.lana[i];
    hardware.Netbios(&ncb);

    alignas(ADAPTER_STATUS) uint8_t status[kAdapterStatusSize] = {};
    ncb = NCB{};
    ncb.ncb_command = NCBASTAT;
    ncb.ncb_lana_num = lanas.lana[i];
    memset(ncb.ncb_callname, ' ', NCBNAMSZ);
    ncb.ncb_callname[0] = '*';
    ncb.ncb_buffer = status;
    ncb.ncb_length = sizeof(status);
    if (hardware.Netbios(&ncb) != NRC_GOODRET) continue;

    LanaAddress answer{lanas.lana[i], {}};
    memcpy(answer.address, reinterpret_cast<const ADAPTER_STATUS*>(status)->adapter_address,
           MACAddress::kLength);
    answers.push_back(answer);
  }
  return true;
}

MACAddress::MACAddress() : m_bytes{} { LogEntry(L"MACAddress::MACAddress"); }

MACAddress::MACAddress(const uint8_t* bytes) {
  LogEntry(L"MACAddress::MACAddress");
  memcpy(m_bytes, bytes, kLength);
}

MACAddress& MACAddress::operator=(const uint8_t* bytes) {
  LogEntry(L"MACAddress::operator =");
  memmove(m_bytes, bytes, kLength);
  return *this;
}

bool MACAddress::operator==(const MACAddress& other) const {
  LogEntry(L"MACAddress::operator ==");
  return memcmp(m_bytes, other.m_bytes, kLength) == 0;
}

std::string MACAddress::ToString() const {
  LogEntry(L"MACAddress::ToString");
  return KyGuidUtils::BytesToHex(m_bytes, kLength);
}

bool MACAddress::IsZero() const {
  for (uint8_t byte : m_bytes) {
    if (byte != 0) return false;
  }
  return true;
}

bool CMacFetcher::GetMAC(MACAddress& mac, std::vector<MACAddress>& macList) {
  LogEntry(L"KyMacID::CMacFetcher::GetMAC");
  macList.clear();
  if (GetMACbyAdapter(mac, macList)) return true;
  macList.clear();
  if (GetMACbyNetBiosStat(mac, macList)) return true;
  // Every machine gets a MAC-based id, even one without any readable adapter.
  mac = kFallbackMac;
  macList.push_back(mac);
  return true;
}

bool CMacFetcher::GetMACbyAdapter(MACAddress& mac, std::vector<MACAddress>& macList) {
  static constexpr wchar_t kFunction[] = L"KyMacID::CMacFetcher::GetMACbyAdapter";
  LogEntry(kFunction);
  // From the system directory, although the older components loaded the IP
  // helper by its bare name: that let the search path, which a host may have
  // changed, pick up a planted copy.
  std::unique_ptr<KyGuid::IAdapterQuery> query =
      KyGuid::CurrentPlatform().hardware->LoadAdapterQuery();
  if (!query) return false;
  std::vector<uint8_t> buffer(kAdapterBufferSize, 0);
  uint32_t size = kAdapterBufferSize;
  if (query->GetAdaptersInfo(buffer.data(), &size) != ERROR_SUCCESS) return false;

  MACAddress chosen;
  int bestKind = kOther;
  for (auto* entry = reinterpret_cast<const IP_ADAPTER_INFO*>(buffer.data()); entry;
       entry = entry->Next) {
    const int kind = GetAdapterType(entry->AdapterName);
    const MACAddress address(entry->Address);
    const bool ethernetOrPpp = IsEthernetOrPpp(entry->Type);
    // The first adapter with an address is taken whatever it is; after that
    // only a strictly better wired or dial-up one replaces it, so of two
    // equal adapters the first in the system's order stays.
    if (chosen.IsZero() || (ethernetOrPpp && kind < bestKind)) {
      chosen = address;
      bestKind = kind;
    }
    if (ethernetOrPpp) AddFetched(kFunction, address, macList);
  }
  if (chosen.IsZero()) return false;
  mac = chosen;
  return true;
}

bool CMacFetcher::GetMACbyNetBiosStat(MACAddress& mac, std::vector<MACAddress>& macList) {
  static constexpr wchar_t kFunction[] = L"KyMacID::CMacFetcher::GetMACbyNetBiosStat";
  LogEntry(kFunction);
  std::vector<LanaAddress> answers;
  if (!QueryLanaAddresses(*KyGuid::CurrentPlatform().hardware, answers)) return false;
  for (const LanaAddress& answer : answers) {
    const MACAddress address(answer.address);
    if (&answer == &answers.front()) mac = address;
    AddFetched(kFunction, address, macList);
  }
  return !answers.empty();
}

int CMacFetcher::GetAdapterType(const std::string& adapterName) {
  LogEntry(L"KyMacID::CMacFetcher::GetAdapterType");
  KyGuid::IHardware& hardware = *KyGuid::CurrentPlatform().hardware;
  const std::string connectionKey = adapterName + "\\Connection";
  uint32_t mediaSubType = 0;
  if (!hardware.ReadNetworkDword(connectionKey, "MediaSubType", mediaSubType)) return kOther;
  std::string pnpId;
  hardware.ReadNetworkString(connectionKey, "PnpInstanceID", kPnpIdBufferSize, pnpId);
  switch (mediaSubType) {
    case 1:
      return pnpId.compare(0, 3, "PCI") == 0 ? kPciWired : kWired;
    case 2:
      return kWireless;
    default:
      return kOther;
  }
}

}  // namespace KyMacID
