// Entities: counted nodes that can be found by name, one of each name.

#pragma once

#include <string_view>

#include "platform/vell/Node.h"
#include "platform/vell/Ptr.h"

namespace Zarn {

using Vell::ZarnType;

class Entity : public Vell::Node {
 public:
  /// The entity that this one belongs to, or null.
  virtual Entity* handleParent() { return nullptr; }

  /// The singleton of that name, or null. The registry holds one use until the process exits.
  static Entity* singletonExists(std::string_view name);
  /// The singleton of that name, made from its type's reflection data if there is none yet.
  static Vell::Ptr<Entity> singletonIs(std::string_view name, ZarnType type);
};

}  // namespace Zarn
