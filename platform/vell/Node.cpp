#include "platform/vell/Node.h"

namespace Vell {

void Node::lastUseDropped() const noexcept {
  if (!nodeFlag(freedAtZeroFlag)) return;
  auto* node = const_cast<Node*>(this);
  useTake();
  node->nodeFlagSet(inLastUserGoneFlag, true);
  node->lastUserGone();
  node->nodeFlagSet(inLastUserGoneFlag, false);
  if ((lessOne() & countMask) == 0) delete node;
}

}  // namespace Vell
