// An entry of some other table, in whatever state the test wants.

#pragma once

#include <functional>
#include <vector>

#include "member/DlbEcmpMember1SwTable.h"

namespace Testing {

class Needed final : public Asic::SwTableBase::EntryHandle {
 public:
  using State = Asic::SwTableBase::EntryState;

  Vell::ZarnType typeData() const override {
    return {&TessarLoadBalance::DlbEcmpMember1Table::module(), 2};
  }
  void handleIndexSuggestions(Asic::IndexSet const& indices) const override {
    for (auto const index : indices) suggested.push_back(index.value());
    if (onSuggestion) onSuggestion();
  }
  Asic::Index hwIndexForDependentField() const override {
    if (onAsked) onAsked();
    return hwIndex();
  }
  void becomes(State state, U32 index) {
    hwIndexIs(index);
    entryStateIs(state);
  }

  mutable std::vector<U32> suggested;
  std::function<void()> onSuggestion, onAsked;
};

inline Vell::Ptr<Needed> needed(Needed::State state = Needed::State::unresolved,
                                U32 index = 0xFFFFFFFF) {
  Vell::Ptr<Needed> made = new Needed;
  made->becomes(state, index);
  return made;
}
inline Vell::Ptr<Needed> usable(U32 index) { return needed(Needed::State::success, index); }

}  // namespace Testing
