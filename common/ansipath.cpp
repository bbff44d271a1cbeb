#include "common/ansipath.h"

#include <windows.h>

namespace KyGuidUtils {

std::string WideToAnsi(const std::wstring& text) {
  if (text.empty()) return std::string();
  std::string out(text.size() * 3, '\0');
  int written = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &out[0],
                                    static_cast<int>(out.size()), nullptr, nullptr);
  out.resize(written > 0 ? written : 0);
  return out;
}

std::wstring AnsiToWide(const std::string& text) {
  if (text.empty()) return std::wstring();
  std::wstring out(text.size(), L'\0');
  int written = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &out[0],
                                    static_cast<int>(out.size()));
  out.resize(written > 0 ? written : 0);
  return out;
}

}  // namespace KyGuidUtils
