// Loader singletons: one per feature class, made when the feature's library is loaded. Making it
// loads the chip plug-ins; a process without any plug-in goes on without.

#pragma once

#include <string>
#include <string_view>

#include "platform/plugin/Loader.h"
#include "platform/vell/Ptr.h"
#include "platform/zarn/Entity.h"

namespace Ostler::Core::Loader {

class Singleton : public Zarn::Entity {
 public:
  /// The family of features that the loader looks for, as "AsicFeature".
  virtual std::string prefixPath() const = 0;
  /// The feature, as the qualified type name of its table.
  virtual std::string suffixPath() const = 0;

  /// Loads the plug-ins of the family `prefix` and tells `loader` the chips that bring `suffix`.
  static void load(std::string_view prefix, std::string_view suffix, Plugin::Loader<void>& loader);

  /// The loader class `L`'s one object, made and its plug-ins loaded on the first call. `L` brings
  /// `type()`, its reflection type, and the constants `prefix` and `suffix`.
  template <class L>
  static Vell::Ptr<L> instantiate() {
    static Vell::Ptr<L> const singleton = theSingleton<L>();
    static Plugin::Loader<void> loader(std::string(L::type().data().name));
    load(L::prefix, L::suffix, loader);
    return singleton;
  }

 private:
  template <class L>
  static Vell::Ptr<L> theSingleton() {
    auto const name = L::type().data().name;
    if (auto* existing = singletonExists(name)) return static_cast<L*>(existing);
    return static_cast<L*>(singletonIs(name, L::type()).get());
  }
};

}  // namespace Ostler::Core::Loader
