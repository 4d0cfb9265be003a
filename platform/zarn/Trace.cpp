#include "platform/zarn/Trace.h"

#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

namespace Zarn {
namespace {

struct LevelSetting {
  std::string name;
  U32 mask;
};

// Never destroyed: handles of static storage outlive any order of exit that could
// be given to these.
std::vector<LevelSetting>& settings() {
  static auto& all = *new std::vector<LevelSetting>;
  return all;
}
/// Shared with the line that is being written: a sink may be replaced while it runs, by itself too.
std::shared_ptr<TraceHandle::Sink const>& sink() {
  static auto& current = *new std::shared_ptr<TraceHandle::Sink const>;
  return current;
}
constinit TraceHandle* firstHandle = nullptr;

bool means(std::string_view setting, std::string_view handleName) {
  if (setting == handleName) return true;
  return setting.find("::") == setting.npos && handleName.ends_with(setting) &&
         handleName.substr(0, handleName.size() - setting.size()).ends_with("::");
}

}  // namespace

TraceHandle::TraceHandle(std::string_view name, bool allOn)
    : name_(name), enabled_(allOn ? ~U32{0} : 0), next_(firstHandle) {
  for (auto const& setting : settings())
    if (means(setting.name, name_)) enabled_ = setting.mask;
  if (firstHandle) firstHandle->previous_ = this;
  firstHandle = this;
}

TraceHandle::~TraceHandle() {
  if (next_) next_->previous_ = previous_;
  (previous_ ? previous_->next_ : firstHandle) = next_;
}

void TraceHandle::levelsIs(std::string_view name, U32 mask) {
  LevelSetting setting{std::string(name), mask};
  std::erase_if(settings(), [&](auto const& earlier) { return earlier.name == setting.name; });
  settings().push_back(
      std::move(setting));  // the last: where several mean a handle, the newest holds
  for (auto* handle = firstHandle; handle; handle = handle->next_)
    if (means(name, handle->name_)) handle->enabled_ = mask;
}

void TraceHandle::sinkIs(Sink newSink) {
  // The former one ends when the new one is in place: its end may call back.
  auto const former =
      std::exchange(sink(), newSink ? std::make_shared<Sink const>(std::move(newSink)) : nullptr);
}

void TraceHandle::emit(std::string const& line) {
  if (auto const current = sink())
    (*current)(line);
  else
    std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace Zarn
