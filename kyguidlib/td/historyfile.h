// What the two history-file classes share: where their files live and the
// narrow profile calls they are written with.
#pragma once

#include <string>

namespace KyMacID {
namespace HistoryFile {

struct Location {
  std::wstring wide;
  std::string utf8;
};

// `fileName` in the folder of `path` (the folder part of a file path).
Location Sibling(const wchar_t* path, const wchar_t* fileName);

std::string ToUtf8(const wchar_t* text);

// GetPrivateProfileStringA into a buffer of `bufferSize` bytes, empty default.
std::string ReadString(const std::string& file, const char* section, const char* key,
                       unsigned bufferSize);
int ReadInt(const std::string& file, const char* section, const char* key, int defaultValue);
void WriteString(const std::string& file, const char* section, const char* key,
                 const std::string& value);

// The current time in seconds since 1970, in decimal.
std::string NowText();

}  // namespace HistoryFile
}  // namespace KyMacID
