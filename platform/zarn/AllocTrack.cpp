#include "platform/zarn/AllocTrack.h"

namespace Zarn {
namespace {

AllocTrackTypeInfo const*& head() {
  static constinit AllocTrackTypeInfo const* head = nullptr;
  return head;
}

}  // namespace

AllocTrackTypeInfo::AllocTrackTypeInfo(std::string_view typeName)
    : typeName_(typeName), next_(head()) {
  head() = this;
}

AllocTrackTypeInfo const* AllocTrackTypeInfo::first() { return head(); }

}  // namespace Zarn
