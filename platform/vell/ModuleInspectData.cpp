#include "platform/vell/ModuleInspectData.h"

#include <algorithm>

#include "platform/vell/Assert.h"

namespace Vell {
namespace {

struct ModuleList {
  ModuleInspectData* first = nullptr;
  ModuleInspectData* last = nullptr;
};
constinit ModuleList modules;

template <class Predicate>
AttributeData const* findAttribute(TypeData const& type, Predicate predicate) {
  auto const found = std::ranges::find_if(type.attributes, predicate);
  return found == type.attributes.end() ? nullptr : &*found;
}

}  // namespace

TypeData const& ZarnType::data() const {
  VELL_ASSERT(module && number < module->types().size(), "module && number < types", "type number ",
              number);
  return *module->types()[number];
}

AttributeData const* TypeData::attribute(U32 id) const {
  return findAttribute(*this, [id](auto const& attribute) { return attribute.id == id; });
}

AttributeData const* TypeData::attribute(std::string_view attributeName) const {
  return findAttribute(*this, [=](auto const& each) { return each.name == attributeName; });
}

void ModuleInspectData::loaded() {
  if (known_) return;
  known_ = true;
  (modules.last ? modules.last->next_ : modules.first) = this;
  modules.last = this;
}

ModuleInspectData const* ModuleInspectData::first() { return modules.first; }

}  // namespace Vell
