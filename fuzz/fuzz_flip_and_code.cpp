// The legacy decoder of descriptor strings; its offset is a signed int.
#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "kyguidlib/devicestrings.h"
#include "kyguidlib/td/legacystrings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const int offset = input.ConsumeIntegral<int>();
  const bool flip = input.ConsumeBool();
  std::vector<uint8_t> buffer = input.ConsumeRemainingBytes<uint8_t>();
  std::string text = KyMacID::flipAndCodeBytes(buffer.empty() ? nullptr : buffer.data(),
                                               buffer.size(), offset, flip);
  if (text.size() > buffer.size()) __builtin_trap();
  if (!text.empty() && (text.front() == ' ' || text.back() == ' ')) __builtin_trap();
  return 0;
}
