#include "platform/plugin/Registry.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

#include "platform/vell/Assert.h"

namespace Plugin {
namespace {

namespace fs = std::filesystem;
using FeatureKey = std::tuple<std::string, std::string, std::string>;  // prefix, type name, chip

// Never destroyed: plug-ins and loaders let go of their objects in whatever order
// the process exits.
struct State {
  std::map<FeatureKey, Factory> features;
  std::set<std::string> chips;
  std::set<std::string, std::less<>> prefixes;
  std::vector<Problem> problems;
};
State& state() {
  static auto& all = *new State;
  return all;
}

fs::path folderOfThisLibrary() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void const*>(&searchPath), &info) == 0) return {};
  std::error_code error;
  auto const library = fs::canonical(info.dli_fname, error);
  return error ? fs::path{} : library.parent_path();
}

std::string lastDlError() {
  char const* const text = dlerror();
  return text ? text : "unknown error";
}

}  // namespace

void Registration::featureIs(std::string_view prefix, std::string_view typeName, Factory factory) {
  state().features[{std::string(prefix), std::string(typeName), chip_}] = factory;
}

/// The rest of `loadFile`, with exceptions of the plug-in's own code on their way.
static std::string loadNew(std::string const& file, std::string const& chip) {
  auto* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library)
    return Vell::concatenate(file, " cannot be loaded: ", lastDlError(),
                             "; rebuild the plug-in for this machine");
  auto* const entry = reinterpret_cast<EntryFunction*>(dlsym(library, entrySymbol));
  if (!entry) {
    dlclose(library);
    return Vell::concatenate(file, " has no symbol \"", entrySymbol,
                             "\"; export it as extern \"C\", or move the file away");
  }
  U32 const version = entry(nullptr);
  if (version != interfaceVersion) {
    dlclose(library);
    return Vell::concatenate(file, " is built for plug-in interface ", version,
                             ", and this library has interface ", interfaceVersion,
                             "; rebuild the plug-in against this library");
  }
  Registration registration(chip);
  entry(&registration);
  state().chips.insert(chip);
  return {};
}

std::string loadFile(std::string const& file) {
  auto const chip = fs::path(file).stem().string();
  if (state().chips.contains(chip)) return {};
  try {
    return loadNew(file, chip);
  } catch (std::exception const& error) {
    std::erase_if(state().features,
                  [&](auto const& each) { return std::get<2>(each.first) == chip; });
    return Vell::concatenate(file, " throws while it is loaded: ", error.what(),
                             "; a plug-in must not throw");
  }
}

void loadAll(std::string_view prefix) {
  if (!state().prefixes.emplace(prefix).second) return;
  for (auto const& folder : searchPath()) {
    std::error_code error;
    std::vector<std::string> files;
    // Step by step, since a folder that cannot be read is one without plug-ins, and no exception
    // may leave the load of a library.
    fs::directory_iterator at(fs::path(folder) / prefix, error);
    for (; !error && at != fs::directory_iterator(); at.increment(error))
      if (at->path().extension() == ".so") files.push_back(at->path().string());
    std::ranges::sort(files);
    for (auto const& file : files)
      if (auto problem = loadFile(file); !problem.empty())
        state().problems.push_back({file, std::move(problem)});
  }
}

std::vector<std::string> searchPath() {
  std::vector<std::string> folders;
  if (char const* const path = std::getenv("DLB_PLUGIN_PATH")) {
    std::string_view rest = path;
    while (!rest.empty()) {
      auto const end = rest.find(':');
      if (end != 0) folders.emplace_back(rest.substr(0, end));
      rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    }
  }
  auto const own = folderOfThisLibrary();
  if (!own.empty()) {
    folders.push_back(own / "dlb-tables");
    folders.push_back(own / "plugins");
  }
  return folders;
}

std::vector<Problem> const& problems() { return state().problems; }

std::vector<std::string> chipsWith(std::string_view prefix, std::string_view typeName) {
  std::vector<std::string> chips;
  for (auto const& [key, factory] : state().features)
    if (std::get<0>(key) == prefix && std::get<1>(key) == typeName)
      chips.push_back(std::get<2>(key));
  return chips;
}

Vell::Ptr<Zarn::Entity> make(std::string_view chip, std::string_view prefix,
                             std::string_view typeName) {
  auto const found =
      state().features.find({std::string(prefix), std::string(typeName), std::string(chip)});
  return found == state().features.end() ? nullptr : found->second();
}

}  // namespace Plugin
