// The legacy scheme's reading of IDENTIFY words.
#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "kyguidlib/devicestrings.h"
#include "kyguidlib/td/legacystrings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const int firstWord = input.ConsumeIntegral<int>();
  const int lastWord = input.ConsumeIntegral<int>();
  std::vector<uint8_t> identify = input.ConsumeBytes<uint8_t>(KyGuid::kIdentifyDataSize);
  identify.resize(KyGuid::kIdentifyDataSize);
  std::string text = KyMacID::ConvertToString(identify.data(), firstWord, lastWord);
  if (text.size() > KyGuid::kIdentifyDataSize) __builtin_trap();
  if (!text.empty() && (text.front() == ' ' || text.back() == ' ')) __builtin_trap();
  return 0;
}
