// A descriptor string at an offset the driver chose, plain or as hex text.
#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "kyguidlib/devicestrings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const uint32_t offset = input.ConsumeIntegral<uint32_t>();
  const bool swap = input.ConsumeBool();
  std::vector<uint8_t> buffer = input.ConsumeRemainingBytes<uint8_t>();
  std::string text = KyGuid::DecodeDescriptorString(buffer.empty() ? nullptr : buffer.data(),
                                                    buffer.size(), offset, swap);
  if (text.size() > buffer.size()) __builtin_trap();
  return 0;
}
