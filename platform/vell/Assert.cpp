#include "platform/vell/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Vell {

void fatalAssertion(std::string_view expression, std::string const& detail, char const* file,
                    unsigned line, char const* function) {
  std::fprintf(stderr, "fatal assertion \"%.*s\" at %s:%u in %s%s%s\n",
               static_cast<int>(expression.size()), expression.data(), file, line, function,
               detail.empty() ? "" : ": ", detail.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace Vell
