#include "kyguidlib/td/legacystrings.h"

#include <utility>

#include "common/kylog.h"
#include "common/strutil.h"
#include "kyguidlib/devicestrings.h"

namespace KyMacID {
namespace {

// The legacy disk reads mark every function's entry with its full name.
constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\td\\hddfetcher";

void LogEntry(const wchar_t* function) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(function), "enter");
}

bool IsBlank(unsigned char c) { return c == ' '; }

}  // namespace

std::string ConvertToString(const uint8_t* identify512, int firstWord, int lastWord) {
  LogEntry(L"KyMacID::ConvertToString");
  std::string text = KyGuid::IdentifyWordRange(identify512, firstWord, lastWord);
  KyGuidUtils::TrimLeadingBlanks(text);
  KyGuidUtils::TrimTrailingBlanks(text);
  return text;
}

std::string flipAndCodeBytes(const uint8_t* buffer, size_t size, int offset, bool flip) {
  LogEntry(L"KyMacID::flipAndCodeBytes");
  if (offset < 1) return std::string();
  std::string text = KyGuid::DescriptorStringAt(buffer, size, static_cast<size_t>(offset));
  std::string result;
  // Unlike DecodeDescriptorString: only the blank stands for '0', and text
  // that is not hex is taken as it is, printable or not.
  if (!KyGuid::DecodeHexText(text, IsBlank, result)) result = text;
  // An odd last character has no partner and stays where it is.
  if (flip) {
    for (size_t i = 0; i + 1 < result.size(); i += 2) std::swap(result[i], result[i + 1]);
  }
  KyGuidUtils::TrimLeadingBlanks(result);
  KyGuidUtils::TrimTrailingBlanks(result);
  return result;
}

}  // namespace KyMacID
