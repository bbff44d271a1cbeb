// Stored GUIDs are MD5 digests, so ours must agree with an independent
// implementation on every input, whatever its length.
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/md5.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (!EVP_Digest(data, size, digest, &length, EVP_md5(), nullptr) || length != 16) abort();
  std::string expected;
  for (unsigned i = 0; i < length; ++i) {
    char hex[3];
    snprintf(hex, sizeof(hex), "%02x", digest[i]);
    expected += hex;
  }
  const std::string actual = KyGuidUtils::Md5Hex(data, size);
  if (actual != expected) {
    fprintf(stderr, "MD5 of %zu bytes: %s, expected %s\n", size, actual.c_str(), expected.c_str());
    abort();
  }
  return 0;
}
