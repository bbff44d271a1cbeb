// Linked into KyGuid64.dll only. The runtime's default terminate handler
// prints the type of an escaping exception, demangled, through a printf of
// its own; the two come to some 80 KiB mapped into every process that loads
// the library. No exception leaves the library's interfaces, and a library
// must not print on its host's console anyway: this handler, which the
// linker takes in place of the runtime's, only aborts, as the runtime's does
// after printing.
#include <cstdlib>

namespace __gnu_cxx {

void __verbose_terminate_handler() { std::abort(); }

}  // namespace __gnu_cxx
