// A feature: something that a chip plug-in brings under a name.

#pragma once

#include "platform/vell/Types.h"
#include "platform/zarn/Entity.h"

namespace Asic {

class Feature : public Zarn::Entity {
 public:
  explicit Feature(Vell::String name) : name_(std::move(name)) {}

  /// The name given at construction.
  virtual Vell::String featureName() const { return name_; }
  /// Whether one object of the feature may serve several tables.
  virtual bool shared() const { return false; }

 private:
  Vell::String name_;
};

}  // namespace Asic
