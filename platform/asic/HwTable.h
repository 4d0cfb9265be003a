// One table of the hardware, as software holds on to it. A chip plug-in derives from it.

#pragma once

#include <memory>

#include "platform/asic/IndexUserTracker.h"
#include "platform/vell/Node.h"

namespace Asic {

class HwTable : public Vell::Node {
 public:
  Vell::ZarnType typeData() const override;

 private:
  friend class IndexUserTracker::Stub;

  std::unique_ptr<IndexUserTracker> indexUserTracker_;
};

}  // namespace Asic
