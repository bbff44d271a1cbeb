// The clean-up LoadGuidInfo applies to keys read back from Guid.db.
#include <fuzzer/FuzzedDataProvider.h>

#include "common/strutil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string marker = input.ConsumeRandomLengthString(16);
  std::string text = input.ConsumeRemainingBytesAsString();
  const std::string before = text;
  KyGuidUtils::RemoveBlanksAfterMarker(text, marker);
  // Only blanks go, and only right after the marker's first occurrence.
  if (text.size() > before.size()) __builtin_trap();
  const size_t at = before.find(marker);
  if (at == std::string::npos) {
    if (text != before) __builtin_trap();
    return 0;
  }
  const size_t start = at + marker.size();
  if (text.compare(0, start, before, 0, start) != 0) __builtin_trap();
  if (start < text.size() && text[start] == ' ') __builtin_trap();
  const size_t removed = before.size() - text.size();
  if (before.compare(start + removed, std::string::npos, text, start, std::string::npos) != 0) {
    __builtin_trap();
  }
  return 0;
}
