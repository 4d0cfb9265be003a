// Trees of watchers and hooks that act in the midst of what they hear. Each trial is a world of its own
// (endurance/WatchedWorld.h).

#include <fmt/format.h>

#include "endurance/Trials.h"
#include "endurance/WatchedWorld.h"
#include "platform/zarn/AllocTrack.h"

namespace Endurance {
namespace {

U64 liveObjects() {
  U64 live = 0;
  for (auto const* type = Zarn::AllocTrackTypeInfo::first(); type; type = type->next())
    live += type->live();
  return live;
}

std::string objectsLeft() {
  std::string text;
  for (auto const* type = Zarn::AllocTrackTypeInfo::first(); type; type = type->next())
    if (type->live() != 0) text += fmt::format(" {} {}", type->live(), type->typeName());
  return text;
}

}  // namespace

Summary watchers(Trials const& trials) {
  WatchCounts counts;
  auto const before = liveObjects();
  auto const made = trials.forEach([&](U64, std::mt19937_64& random) {
    auto world = std::make_unique<WatchedWorld>(random, counts, trials.count == 1);
    try {
      world->live();
    } catch (Fault const&) {
      static_cast<void>(
          world.release());  // its tables might stop the process, and the finding be lost
      throw;
    }
    world = nullptr;
    if (liveObjects() != before) throw Fault("objects are left:" + objectsLeft());
  });
  U32 deepest = 0;
  std::string depths, kinds;
  for (U32 i = 0; i < counts.byDepth.size(); ++i) {
    if (counts.byDepth[i] != 0) deepest = i;
    depths += fmt::format("{}{}", i == 0 ? "" : ", ", counts.byDepth[i]);
  }
  for (U32 i = 0; i < counts.names.size(); ++i)
    kinds += fmt::format("{}{} {}", i == 0 ? "" : ", ", counts.byKind[i], counts.names[i]);
  return {
      fmt::format("{} trees, {} of them over rows that were found, {} traced, {} ended in place",
                  made, counts.replays, counts.traced, counts.endsInPlace),
      fmt::format("{} publications, {} tellings to watchers that come and go", counts.events,
                  counts.heard),
      fmt::format("{} actions: {}", counts.actions, kinds),
      fmt::format("{} refused writes", counts.refusals),
      fmt::format("{} levels deep at most; actions by depth from 0 on: {}", deepest, depths)};
}

}  // namespace Endurance
