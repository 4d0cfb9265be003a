#include "platform/vell/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Vell {

void fatalAssertion(std::string_view expression, std::string const& detail,
                    std::source_location where) {
  std::fprintf(stderr, "fatal assertion \"%.*s\" at %s:%u in %s%s%s\n",
               static_cast<int>(expression.size()), expression.data(), where.file_name(),
               static_cast<unsigned>(where.line()), where.function_name(),
               detail.empty() ? "" : ": ", detail.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace Vell
