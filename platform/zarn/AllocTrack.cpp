#include "platform/zarn/AllocTrack.h"

namespace Zarn {
namespace {

AllocTrackTypeInfo const*& head() {
  static constinit AllocTrackTypeInfo const* head = nullptr;
  return head;
}

}  // namespace

void AllocTrackTypeInfo::list() {
  isListed_ = true;
  next_ = head();
  head() = this;
}

AllocTrackTypeInfo const* AllocTrackTypeInfo::first() { return head(); }

}  // namespace Zarn
