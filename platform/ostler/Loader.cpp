#include "platform/ostler/Loader.h"

#include "platform/plugin/Registry.h"

namespace Ostler::Core::Loader {

void Singleton::load(std::string_view prefix, std::string_view suffix,
                     Plugin::Loader<void>& loader) {
  Plugin::loadAll(prefix);
  loader.chipsIs(Plugin::chipsWith(prefix, suffix));
}

}  // namespace Ostler::Core::Loader
