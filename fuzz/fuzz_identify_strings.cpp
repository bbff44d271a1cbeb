// The 512-byte ATA IDENTIFY block, and word ranges including nonsense ones.
#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "kyguidlib/devicestrings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const int firstWord = input.ConsumeIntegral<int>();
  const int lastWord = input.ConsumeIntegral<int>();
  const size_t byteOffset = input.ConsumeIntegral<size_t>() % 1024;
  const size_t words = input.ConsumeIntegral<uint16_t>();
  std::vector<uint8_t> identify = input.ConsumeBytes<uint8_t>(KyGuid::kIdentifyDataSize);
  identify.resize(KyGuid::kIdentifyDataSize);
  std::string swapped = KyGuid::IdentifySwappedString(identify.data(), byteOffset, words);
  if (swapped.size() > KyGuid::kIdentifyDataSize) __builtin_trap();
  std::string text = KyGuid::GetIdentifyString(identify.data(), firstWord, lastWord);
  if (text.size() > KyGuid::kIdentifyDataSize) __builtin_trap();
  if (!text.empty() && text.back() == ' ') __builtin_trap();
  return 0;
}
