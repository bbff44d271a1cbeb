// A storage device descriptor as a driver returns it: offsets inside are
// whatever the driver wrote.
#include <cstring>
#include <vector>

#include "kyguidlib/devicestrings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Exactly the bytes given, so the sanitizer sees any read past them.
  std::vector<uint8_t> buffer(data, data + size);
  KyGuid::StorageDescriptorFields fields =
      KyGuid::ParseStorageDescriptor(buffer.empty() ? nullptr : buffer.data(), buffer.size());
  if (fields.SerialNumber.size() > size || fields.ProductId.size() > size) __builtin_trap();
  return 0;
}
