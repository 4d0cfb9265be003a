#include "endurance/Trials.h"

namespace Endurance {

Summary watchers(Trials const& trials) {
  trials.forEach([](U64, auto&) {});
  return {};
}

}  // namespace Endurance
