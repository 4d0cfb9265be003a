#include "platform/fennlog/Registry.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <vector>

#include "platform/fennlog/Ring.h"
#include "platform/vell/Assert.h"

namespace Fennlog::Registry {

namespace {

struct State {
  std::mutex mutex;
  std::map<std::string, U32, std::less<>> numbers;
  std::vector<std::string const*> texts;  // keys of the map above, by number - 1
  std::vector<Handle*> handles;
};

// Never destroyed: destructors of static objects write messages too.
State& state() {
  static State& state = *new State;
  return state;
}

}  // namespace

U32 numberOf(Site& site) {
  auto text = site.expanded();
  auto& all = state();
  std::lock_guard const lock(all.mutex);
  auto const [it, isNew] =
      all.numbers.try_emplace(std::move(text), static_cast<U32>(all.texts.size() + 1));
  auto const& [key, number] = *it;
  if (isNew) {
    VELL_ASSERT(number <= RecordSite::numberMask, "number <= RecordSite::numberMask",
                "too many message sites; the last is \"", key, "\"");
    all.texts.push_back(&key);
    for (Handle* const handle : all.handles) handle->siteIs(number, key);
  }
  site.numberIs(number);
  return number;
}

std::string textOf(U32 number) {
  auto& all = state();
  std::lock_guard const lock(all.mutex);
  return number == 0 || number > all.texts.size() ? std::string() : *all.texts[number - 1];
}

void handleIsEnrolled(Handle& handle) {
  auto& all = state();
  std::lock_guard const lock(all.mutex);
  for (U32 i = 0; i < all.texts.size(); ++i) handle.siteIs(i + 1, *all.texts[i]);
  all.handles.push_back(&handle);
}

void handleResigns(Handle& handle) {
  auto& all = state();
  std::lock_guard const lock(all.mutex);
  std::erase(all.handles, &handle);
}

}  // namespace Fennlog::Registry
