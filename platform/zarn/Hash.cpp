#include "platform/zarn/Hash.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace Zarn {
namespace {

bool parseSeed(char const* text, U32& seed) {
  char* end = nullptr;
  errno = 0;
  unsigned long long const number = std::strtoull(text, &end, 0);
  bool const isNumber = std::isdigit(static_cast<unsigned char>(*text)) && *end == '\0';
  seed = static_cast<U32>(number);
  return isNumber && errno == 0 && number == seed;
}

}  // namespace

U32 HashHelper::initialSeed() {
  U32 seed = 0;
  char const* const text = std::getenv("ZARN_HASH_SEED");
  if (text && parseSeed(text, seed)) return seed;
  if (text)
    std::fprintf(
        stderr,
        "environment variable ZARN_HASH_SEED: \"%s\" is not a number from 0 to 4294967295; "
        "this run takes a random seed\n",
        text);
  return std::random_device{}();
}

}  // namespace Zarn
