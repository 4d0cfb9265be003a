// The part of a loader that knows which feature it looks for: it carries the name of the loader
// class that asked, and after loading the chips that bring the feature.

#pragma once

#include <string>
#include <vector>

namespace Plugin {

template <class Result>
class Loader;

/// A loader that hands nothing over itself: features are made later, chip by chip (Registry.h).
template <>
class Loader<void> {
 public:
  explicit Loader(std::string loaderTypeName) : loaderTypeName_(std::move(loaderTypeName)) {}

  std::string const& loaderTypeName() const { return loaderTypeName_; }
  std::vector<std::string> const& chips() const { return chips_; }
  void chipsIs(std::vector<std::string> chips) { chips_ = std::move(chips); }

 private:
  std::string loaderTypeName_;
  std::vector<std::string> chips_;
};

}  // namespace Plugin
