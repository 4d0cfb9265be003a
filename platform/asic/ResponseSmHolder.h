// The place of a table's response machine: there is one for each table, its coming and going is told,
// and it takes answers only while it lies here.

#pragma once

#include <utility>

#include "platform/asic/ResponseSm.h"
#include "platform/asic/SwTable.h"

namespace Asic {

/// `make` makes a machine for a table, not active yet.
template <class Machine, Vell::Ptr<Machine> (*make)(SwTable*)>
class ResponseSmHolder {
 public:
  /// `owner` tells each change under `fieldId`, with the former machine as the former value.
  ResponseSmHolder(SwTable& owner, U32 fieldId) : owner_(owner), fieldId_(fieldId) {}

  Machine* get() const { return machine_.get(); }

  /// The machine for that table: the one that is here, or a new active one in its place. The former
  /// one takes no answers any more when the change is told.
  Vell::Ptr<Machine> machineIs(SwTable* swTable) {
    if (machine_ && machine_->swTable() == swTable) return machine_;
    Vell::Ptr<SwTable> const held(&owner_);
    auto const made = make(swTable);
    auto const former = std::exchange(machine_, made);
    if (former) former->hasNotificationActiveIs(false);
    publish(former);
    if (machine_ == made) made->hasNotificationActiveIs(true);  // no watcher took it away
    return made;
  }
  /// Takes the machine out, inactive once the change is told, and gives it; null if there was none.
  Vell::Ptr<Machine> machineDel() {
    Vell::Ptr<SwTable> const held(&owner_);
    auto const former = std::exchange(machine_, nullptr);
    if (!former) return nullptr;
    publish(former);
    former->hasNotificationActiveIs(false);
    return former;
  }

 private:
  void publish(Vell::Ptr<Machine> const& former) {
    owner_.publisher()->publishChangeRecursive(fieldId_, nullptr, &former, nullptr);
  }

  SwTable& owner_;
  U32 fieldId_;
  Vell::Ptr<Machine> machine_;
};

}  // namespace Asic
