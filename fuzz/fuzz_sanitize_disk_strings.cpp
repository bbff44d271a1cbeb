// The four identity strings of a disk come straight from its firmware.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>

#include "kyguidlib/hwrecords.h"

namespace {
// What lands in Guid.db and the log must be one line of printable bytes (or
// ANSI above 0x7F), and the 64-character cut plus "\xx" escapes bound it.
void CheckClean(const std::string& text) {
  if (text.size() > 64 * 3) abort();
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7F) abort();
  }
  // Leading blanks never survive. Trailing ones may: the 64-character cut
  // comes after the trim, and stored disk GUIDs were hashed from strings
  // cut that way, so only the front is checked.
  if (!text.empty() && text.front() == ' ') abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  KyGuid::DiskInfo disk;
  disk.ProductId = input.ConsumeRandomLengthString(300);
  disk.Revision = input.ConsumeRandomLengthString(300);
  disk.VendorId = input.ConsumeRandomLengthString(300);
  disk.SerialNumber = input.ConsumeRemainingBytesAsString();
  KyGuid::SanitizeDiskStrings(disk);
  CheckClean(disk.ProductId);
  CheckClean(disk.Revision);
  CheckClean(disk.VendorId);
  CheckClean(disk.SerialNumber);
  // The records built from a sanitized disk must not fail either.
  disk.Score = KyGuid::DiskScore(disk);
  (void)KyGuid::DiskKey(disk);
  (void)KyGuid::DiskDetail(disk);
  (void)KyGuid::IsGoodDisk(disk);
  (void)KyGuid::IsVirtualDisk(disk);
  return 0;
}
