#include "platform/zarn/Entity.h"

#include <functional>
#include <map>
#include <string>

#include "platform/vell/Inspect.h"

namespace Zarn {
namespace {

using Singletons = std::map<std::string, Vell::Ptr<Entity>, std::less<>>;

Singletons& singletons() {
  static Singletons all;
  return all;
}

}  // namespace

Entity* Entity::singletonExists(std::string_view name) {
  auto const found = singletons().find(name);
  return found == singletons().end() ? nullptr : found->second.get();
}

Vell::Ptr<Entity> Entity::singletonIs(std::string_view name, ZarnType type) {
  if (auto* existing = singletonExists(name)) return existing;
  auto const made = Vell::inspectMake(type.data(), std::string(name));
  auto& entry = singletons()[std::string(name)];
  entry = static_cast<Entity*>(made.get());
  return entry;
}

}  // namespace Zarn
