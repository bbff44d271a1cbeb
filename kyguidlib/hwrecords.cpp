#include "kyguidlib/hwrecords.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "common/kylog.h"
#include "common/md5.h"
#include "common/strutil.h"

namespace KyGuid {
namespace {

constexpr size_t kMaxDiskStringLength = 64;
constexpr int32_t kMaxDetailScore = 100;

const char* const kVirtualDiskWords[] = {"vmware",     "virtual", "vbox", "virtio",
                                         "virtualbox", "hyper-v", "qemu"};
const char* const kWirelessWords[] = {"wifi", "wi-fi", "wireless", "wlan"};
// Interface types (IANA ifType) that count as wireless whatever the description says.
const uint32_t kWirelessProtocols[] = {55, 71, 161};

constexpr uint32_t kRatingWiredPci = 110;
constexpr uint32_t kRatingWirelessPci = 100;
constexpr uint32_t kRatingBluetooth = 85;
constexpr uint32_t kRatingWiredUsb = 60;
constexpr uint32_t kRatingWirelessUsb = 50;
constexpr uint32_t kRatingOther = 40;
constexpr uint32_t kRatingVirtual = 30;

int32_t CapForDetail(int32_t score) { return std::min(score, kMaxDetailScore); }

// Some controllers hand ATA strings over as hex text of the word-swapped
// bytes ("4A5A2020" for "ZJ  "). Only a string that is entirely printable
// once decoded is taken for that form.
bool DecodeSwappedHex(const std::string& text, std::string& decoded) {
  if (text.empty() || text.size() % 2 != 0) return false;
  std::string bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    int high = KyGuidUtils::HexValue(text[i]);
    int low = KyGuidUtils::HexValue(text[i + 1]);
    if (high < 0 || low < 0) return false;
    unsigned char byte = static_cast<unsigned char>(high << 4 | low);
    if (!KyGuidUtils::IsAsciiPrint(byte)) return false;
    bytes.push_back(static_cast<char>(byte));
  }
  if (bytes.size() % 2 != 0) bytes.pop_back();
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) std::swap(bytes[i], bytes[i + 1]);
  decoded = bytes;
  return true;
}

// Control characters would break the INI lines and log lines these strings
// end up in; "\xx" keeps them visible and keeps distinct disks distinct.
std::string EscapeControlCharacters(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      escaped += '\\';
      escaped += KyGuidUtils::BytesToHex(&byte, 1);
    } else {
      escaped.push_back(c);
    }
  }
  return escaped;
}

void SanitizeDiskString(std::string& text) {
  // A NUL ends the string: drives pad firmware strings with NUL bytes as
  // well as blanks, and the padding identifies nothing.
  text.resize(std::min(text.find('\0'), text.size()));
  std::string decoded;
  if (DecodeSwappedHex(text, decoded)) text = decoded;
  KyGuidUtils::TrimLeadingBlanks(text);
  KyGuidUtils::TrimTrailingBlanks(text);
  if (text.size() > kMaxDiskStringLength) text.resize(kMaxDiskStringLength);
  // After the cut on purpose: the escapes may take the text past 64.
  text = EscapeControlCharacters(text);
}

bool ContainsAnyWholeWord(const std::string& text, const char* const* words, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (KyGuidUtils::ContainsWholeWord(text, words[i])) return true;
  }
  return false;
}

}  // namespace

// The texts are put together by hand, not with a stream: a stream drags the
// runtime's locale machinery into every process that loads the library,
// and decimal numbers in the C locale are the same digits either way.
std::string DiskKey(const DiskInfo& disk) {
  return "PID:{" + disk.ProductId + "}SN:{" + disk.SerialNumber + "}";
}

std::string AdapterKey(const AdapterInfo& adapter) { return "Mac:{" + adapter.MacAddress + "}"; }

std::string DiskDetail(const DiskInfo& disk) {
  return "DID:{" + std::to_string(disk.Index) + "}PID:{" + disk.ProductId + "}VID:{" +
         disk.VendorId + "}Rev:{" + disk.Revision + "}SN:{" + disk.SerialNumber + "}Sys:{" +
         (disk.Has(DiskInfo::kSystemDisk) ? "1" : "0") + "}Move:{" +
         (disk.Has(DiskInfo::kRemovableMedia) ? "1" : "0") + "}Bus:{" +
         std::to_string(disk.BusType) + "}Score:{" + std::to_string(CapForDetail(disk.Score)) + "}";
}

std::string AdapterDetail(const AdapterInfo& adapter) {
  return "Guid:{" + adapter.AdapterName + "}Desc:{" + adapter.Description + "}Mac:{" +
         adapter.MacAddress + "}Proto:{" + std::to_string(adapter.Protocol) + "}Type:{" +
         std::to_string(adapter.Type) + "}Score:{" + std::to_string(CapForDetail(adapter.Score)) +
         "}";
}

void SanitizeDiskStrings(DiskInfo& disk) {
  SanitizeDiskString(disk.ProductId);
  SanitizeDiskString(disk.Revision);
  SanitizeDiskString(disk.VendorId);
  SanitizeDiskString(disk.SerialNumber);
}

bool IsVirtualDisk(const DiskInfo& disk) {
  if (disk.BusType == kBusTypeVirtual || disk.BusType == kBusTypeFileBackedVirtual) return true;
  return ContainsAnyWholeWord(KyGuidUtils::ToLowerAscii(disk.ProductId), kVirtualDiskWords,
                              std::size(kVirtualDiskWords));
}

bool IsGoodDisk(const DiskInfo& disk) {
  if (disk.ProductId.empty() || disk.Revision.empty()) return false;
  const std::string& serial = disk.SerialNumber;
  if (serial.size() < 5) return false;
  // Case-sensitive although firmware writes these placeholders either way:
  // disks already judged good must stay good, so "FFFF_..." passes.
  if (serial == "ffff_ffff_ffff_ffff." || serial == "0000_0000_0000_0000.") return false;
  size_t rest = serial.find_first_not_of('0');
  if (rest != std::string::npos) rest = serial.find_first_not_of('f', rest);
  if (rest == std::string::npos || serial.compare(rest, std::string::npos, "1") == 0) {
    return false;
  }
  return !IsVirtualDisk(disk);
}

int32_t DiskScore(const DiskInfo& disk) {
  int32_t score = disk.Has(DiskInfo::kSystemDisk) ? 150 : 100;
  if (disk.Has(DiskInfo::kRemovableMedia)) score -= 50;
  if (IsVirtualDisk(disk)) score -= 20;
  switch (disk.BusType) {
    case kBusTypeScsi:
    case kBusTypeRaid:
    case kBusTypeSata:
    case kBusTypeNvme:
      break;
    default:
      score -= 5;
  }
  if (disk.SerialNumber.empty()) score -= 10;
  return score;
}

int ScoreDisks(std::vector<DiskInfo>& disks) {
  int best = -1;
  int32_t bestScore = -1;
  for (size_t i = 0; i < disks.size(); ++i) {
    DiskInfo& disk = disks[i];
    disk.Flags &= ~DiskInfo::kBestDisk;
    disk.Score = DiskScore(disk);
    if (disk.Score > bestScore) {
      bestScore = disk.Score;
      best = static_cast<int>(i);
    }
  }
  if (best >= 0) disks[best].Flags |= DiskInfo::kBestDisk;
  return best;
}

uint32_t ClassifyAdapter(const AdapterInfo& adapter, const std::string& pnpInstanceId) {
  using KyGuidUtils::StartsWithNoCase;
  uint32_t rating;
  if (StartsWithNoCase(pnpInstanceId, "PCI\\")) {
    rating = kRatingWiredPci;
  } else if (StartsWithNoCase(pnpInstanceId, "USB\\")) {
    rating = kRatingWiredUsb;
  } else if (StartsWithNoCase(pnpInstanceId, "BTH\\")) {
    rating = kRatingBluetooth;
  } else if (StartsWithNoCase(pnpInstanceId, "ROOT\\") ||
             StartsWithNoCase(pnpInstanceId, "SWD\\")) {
    rating = kRatingVirtual;
  } else {
    rating = kRatingOther;
  }

  std::string description = KyGuidUtils::ToLowerAscii(adapter.Description);
  if (rating == kRatingOther) {
    return KyGuidUtils::ContainsWholeWord(description, "virtual") ? kRatingVirtual : kRatingOther;
  }
  if (rating == kRatingWiredPci || rating == kRatingWiredUsb) {
    bool wireless = std::find(std::begin(kWirelessProtocols), std::end(kWirelessProtocols),
                              adapter.Protocol) != std::end(kWirelessProtocols) ||
                    ContainsAnyWholeWord(description, kWirelessWords, std::size(kWirelessWords));
    if (wireless) return rating == kRatingWiredPci ? kRatingWirelessPci : kRatingWirelessUsb;
  }
  return rating;
}

int ScoreAdapters(std::vector<AdapterInfo>& adapters) {
  int best = -1;
  int32_t bestScore = -1;
  for (size_t i = 0; i < adapters.size(); ++i) {
    AdapterInfo& adapter = adapters[i];
    adapter.Flags &= ~AdapterInfo::kBestAdapter;
    adapter.Score = static_cast<int32_t>(adapter.Type);
    if (adapter.Score > bestScore) {
      bestScore = adapter.Score;
      best = static_cast<int>(i);
    }
  }
  if (best >= 0) adapters[best].Flags |= AdapterInfo::kBestAdapter;
  return best;
}

std::string CalcDiskGuid(const std::string& productId, const std::string& revision,
                         const std::string& serialNumber) {
  const std::string joined = serialNumber + productId + revision;
  std::string guid = KyGuidUtils::Md5Hex(joined);
  // Logged under the ancient disk fetcher, whose rule this is.
  constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\ancientdiskfetcher";
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(L"KyGuid::CAncientDiskFetcher::CalcDiskGuid"),
               "Calc disk Guid: %s-->%s", joined.c_str(), guid.c_str());
  return guid;
}

}  // namespace KyGuid
