// Narrow paths are in the process's ANSI code page, the one the narrow file
// and profile functions read them in; these are the only conversions.
#pragma once

#include <string>

namespace KyGuidUtils {

std::string WideToAnsi(const std::wstring& text);
std::wstring AnsiToWide(const std::string& text);

}  // namespace KyGuidUtils
