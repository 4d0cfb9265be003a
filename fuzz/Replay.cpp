// A main for the fuzz targets where no fuzzer is: runs each file of the folders given, by name.

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "fuzz/Expect.h"

#ifdef __SANITIZE_ADDRESS__
extern "C" void __sanitizer_set_death_callback(void (*callback)());
#endif

namespace {

std::string current;

void tellInput() {
  auto const text = "the input was " + current + '\n';
  static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
}
void onAbort(int) { tellInput(); }

std::string bytesOf(std::string const& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

int main(int argumentCount, char** arguments) {
  std::set<std::string> files;
  for (int i = 1; i < argumentCount; ++i)
    for (auto const& each : std::filesystem::recursive_directory_iterator(arguments[i]))
      if (each.is_regular_file()) files.insert(each.path());
  if (files.empty()) {
    std::fputs("no input in the folders given; name folders that hold some\n", stderr);
    return 1;
  }
  std::signal(SIGABRT, &onAbort);
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_set_death_callback(&tellInput);
#endif
  for (auto const& file : files) {
    current = file;
    // On the heap and of the input's own size, where a sanitizer sees a step beyond its end.
    auto const bytes = bytesOf(file);
    std::vector<std::uint8_t> const exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
  }
  std::printf("%zu inputs\n", files.size());
}
