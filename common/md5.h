// MD5 (RFC 1321). Machine, disk and history GUIDs are MD5 digests of narrow
// key strings, so the exact digest is part of the stored data format.
#pragma once

#include <cstddef>
#include <string>

namespace KyGuidUtils {

// 32 lower-case hexadecimal digits, high nibble first.
std::string Md5Hex(const void* bytes, size_t length);
std::string Md5Hex(const std::string& bytes);

}  // namespace KyGuidUtils
