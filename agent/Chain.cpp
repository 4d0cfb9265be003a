#include "agent/Chain.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

#include "agent/EntryReader.h"
#include "agent/Words.h"
#include "frame/FieldEntry.h"

namespace DlbAgent {
namespace {

using TessarL3Common::L3AdjIdKeyType;

constexpr std::string_view blocksSection = "memberBlocks";
constexpr std::string_view adjacenciesSection = "adjacencies";

/// The members of an object; a problem and none if it is something else.
JsonValue::Object const& membersOf(std::string_view path, JsonValue const& value,
                                   std::string_view what, Problems& problems) {
  static JsonValue::Object const none;
  if (auto const* object = value.as<JsonValue::Object>()) return *object;
  problems.add(path, fmt::format("must be an object of {}, not {}", what, value.described()));
  return none;
}

// ---- fields that are no entry's ----

/// A number up to `largest`; a problem, and `field` as it was, if it is something else.
template <class Number>
bool readNumberInto(Number& field, U64 largest, std::string const& path, JsonValue const& value,
                    Problems& problems) {
  auto const* number = value.as<U64>();
  auto const* text = value.as<std::string>();
  auto const read = text ? readNumber(*text) : NumberText{NumberText::Outcome::notANumber, 0};
  if (text && read.outcome == NumberText::Outcome::number) number = &read.value;
  if (!number || *number > largest) {
    problems.add(path,
                 fmt::format("must be a number up to {}, not {}", largest, value.described()));
    return false;
  }
  field = static_cast<Number>(*number);
  return true;
}

bool readNameInto(std::string& field, std::string_view ofWhat, std::string const& path,
                  JsonValue const& value, Problems& problems) {
  auto const* text = value.as<std::string>();
  if (text)
    field = *text;
  else
    problems.add(path, fmt::format("must be the name of {}, not {}", ofWhat, value.described()));
  return text;
}

void readTypeInto(L3AdjIdKeyType& field, std::string const& path, JsonValue const& value,
                  Problems& problems) {
  std::vector<std::string> names;
  auto const last = static_cast<unsigned>(highestEnumerator(L3AdjIdKeyType()));
  for (unsigned number = 0; number <= last; ++number) {
    auto const type = static_cast<L3AdjIdKeyType>(number);
    names.push_back(Vell::concatenate(type));
    if (auto const* text = value.as<std::string>(); text && *text == names.back()) {
      field = type;
      return;
    }
  }
  problems.add(path,
               fmt::format("must be one of {}, not {}", fmt::join(names, ", "), value.described()));
}

// ---- next hops ----

void readNextHops(ChainCheck const& check, std::string const& path, JsonValue const& value) {
  for (auto const& [name, fields] : membersOf(path, value, "next hops by name", check.problems)) {
    auto& nextHop = check.chain.nextHops[name];  // known by its name, whatever is wrong in it
    if (auto const record =
            readEntry(tableTypeOf<NextHopTable>(), pathTo(path, name), fields, check.problems))
      nextHop = Asic::EntryReflection<NextHopTable::Entry>::fromValue(*record);
  }
}

// ---- member blocks ----

WantedRow readRow(std::string const& path, JsonValue const& value, Problems& problems) {
  WantedRow row;
  for (auto const& [name, field] : membersOf(path, value, "fields", problems)) {
    auto const fieldPath = pathTo(path, name);
    if (name == "nextHop")
      readNameInto(row.nextHop, "a next hop", fieldPath, field, problems);
    else if (name == "weightIdx")
      readNumberInto(row.weightIdx, 0xFF, fieldPath, field, problems);
    else
      problems.add(fieldPath, "no such field; " + hintFor(name, {"nextHop", "weightIdx"}));
  }
  if (row.nextHop.empty()) problems.add(path, "names no next hop; add \"nextHop\": NAME");
  return row;
}

std::vector<WantedRow> readRows(std::string const& path, JsonValue const& value,
                                Problems& problems) {
  std::vector<WantedRow> rows;
  auto const* list = value.as<JsonValue::List>();
  if (!list)
    problems.add(path, fmt::format("must be a list of rows, not {}", value.described()));
  else
    for (auto const& each : *list)
      rows.push_back(readRow(elementOf(path, rows.size()), each, problems));
  return rows;
}

void readMemberBlocks(ChainCheck const& check, std::string const& path, JsonValue const& value) {
  for (auto const& [name, block] : membersOf(path, value, "blocks by name", check.problems)) {
    auto const blockPath = pathTo(path, name);
    auto& rows = check.chain.blocks[name];
    for (auto const& [field, content] : membersOf(blockPath, block, "\"rows\"", check.problems))
      if (field == "rows")
        rows = readRows(pathTo(blockPath, field), content, check.problems);
      else
        check.problems.add(pathTo(blockPath, field), "no such field; " + hintFor(field, {"rows"}));
  }
}

// ---- groups ----

/// The fields of a group that are its key, and no part of its entry.
class GroupKeyReader {
 public:
  explicit GroupKeyReader(Problems& problems) : problems_(problems) {}

  std::vector<FieldBeside> fields() {
    return {{"adjId",
             [this](std::string const& at, JsonValue const& id) {
               hasId = true;
               readNumberInto(adjId, 0xFFFFFFFF, at, id, problems_);
             }},
            {"type", [this](std::string const& at, JsonValue const& given) {
               readTypeInto(type, at, given, problems_);
             }}};
  }

  bool hasId = false;
  U32 adjId = 0;
  L3AdjIdKeyType type = L3AdjIdKeyType::ecmpGroup;

 private:
  Problems& problems_;
};

/// A group that stands on a block: the block is named, and its index is no field of the user's.
template <class T>
void addBlockFields(std::vector<FieldBeside>& fields, WantedGroup<T>& group, Problems& problems) {
  fields.push_back({"block", [&](std::string const& at, JsonValue const& name) {
                      readNameInto(group.block, "a block", at, name, problems);
                    }});
  auto const refuse = [&problems](std::string const& at, JsonValue const&) {
    problems.add(at, "follows from the block; leave it out");
  };
  for (auto const* name : {"ecmpSecondaryBlockPtr", "ecmpSecondaryBlockPtrHandle"})
    fields.push_back({name, refuse, true});
}

/// A block has no place in a group that stands on none.
void refuseBlockField(std::vector<FieldBeside>& fields, std::string_view otherSection,
                      Problems& problems) {
  fields.push_back({"block",
                    [&problems, otherSection](std::string const& at, JsonValue const&) {
                      problems.add(at, fmt::format("is for groups that stand on a block; move the "
                                                   "group to the section {}",
                                                   otherSection));
                    },
                    true});
}

/// What is left to the group's block where the user said nothing.
template <class T>
void blockDefaultsAre(WantedGroup<T>& group, JsonValue const& fields) {
  auto const* const given = fields.as<JsonValue::Object>();
  auto const isGiven = [&](std::string_view name) {
    return given && std::ranges::find(*given, name, &JsonValue::Member::key) != given->end();
  };
  if (!isGiven("secondaryBlockValid")) group.entry.secondaryBlockValid = true;
  group.countsAllRows = !isGiven("countSecondary");
}

template <class T>
void readGroups(ChainCheck const& check, std::string const& path, JsonValue const& value) {
  auto& groups = std::get<WantedGroups<T>>(check.chain.groups);
  std::map<typename T::Key, std::string> names;
  for (auto const& [name, fields] : membersOf(path, value, "groups by name", check.problems)) {
    auto const groupPath = pathTo(path, name);
    auto& group = groups[name];  // known by its name, whatever is wrong in it
    GroupKeyReader keyReader(check.problems);
    auto beside = keyReader.fields();
    if constexpr (Asic::Trait::needsEntries<T>)
      addBlockFields(beside, group, check.problems);
    else
      refuseBlockField(beside,
                       std::same_as<T, GroupTable> ? groupWords<SelectiveGroupTable>.section
                                                   : groupWords<VxlanSelectiveGroupTable>.section,
                       check.problems);
    auto const record = readEntry(tableTypeOf<T>(), groupPath, fields, check.problems, beside);
    if (!record) continue;
    if (Asic::Trait::needsEntries<T> && group.block.empty())
      check.problems.add(groupPath, "names no block; add \"block\": NAME");
    if (!keyReader.hasId) {
      check.problems.add(groupPath, "names no adjacency id; add \"adjId\": NUMBER");
      continue;
    }
    group.key = {.adjId = keyReader.adjId, .type = keyReader.type};
    group.entry = Asic::EntryReflection<typename T::Entry>::fromValue(*record);
    if constexpr (Asic::Trait::needsEntries<T>) blockDefaultsAre(group, fields);
    auto const [first, isFirst] = names.try_emplace(group.key, name);
    if (!isFirst)
      check.problems.add(groupPath, fmt::format("has the adjacency id and type of \"{}\"; give it "
                                                "another \"adjId\"",
                                                first->second));
  }
}

// ---- adjacencies ----

/// Whether the hardware has a row of that number.
void checkRoom(ChainCheck const& check, std::string const& path, U32 id) {
  auto const& type = tableTypeOf<AdjacencyTable>();
  auto const why =
      check.room.misfit(type, Key(Vell::Value(U64{id})), Vell::inspectMakeValue(type.entry()));
  if (!why.empty()) check.problems.add(path, why);
}

void readAdjacencies(ChainCheck const& check, std::string const& path, JsonValue const& value) {
  std::map<U32, std::string> names;
  for (auto const& [name, fields] : membersOf(path, value, "adjacencies by name", check.problems)) {
    auto const adjacencyPath = pathTo(path, name);
    WantedAdjacency adjacency;
    bool namesId = false, namesGroup = false;
    for (auto const& [field, content] :
         membersOf(adjacencyPath, fields, "\"id\" and \"group\"", check.problems)) {
      auto const fieldPath = pathTo(adjacencyPath, field);
      if (field == "id") {
        namesId = true;
        if (!readNumberInto(adjacency.id, 0xFFFFFFFE, fieldPath, content, check.problems)) continue;
        auto const [first, isFirst] = names.try_emplace(adjacency.id, name);
        if (!isFirst)
          check.problems.add(fieldPath,
                             fmt::format("is the id of \"{}\"; take another one", first->second));
        checkRoom(check, fieldPath, adjacency.id);
      } else if (field == "group") {
        namesGroup =
            !readNameInto(adjacency.group, "a group", fieldPath, content, check.problems) ||
            !adjacency.group.empty();
      } else {
        check.problems.add(fieldPath, "no such field; " + hintFor(field, {"id", "group"}));
      }
    }
    if (!namesId) check.problems.add(adjacencyPath, "names no id; add \"id\": NUMBER");
    if (!namesGroup) check.problems.add(adjacencyPath, "names no group; add \"group\": NAME");
    check.chain.adjacencies[name] = std::move(adjacency);
  }
}

// ---- names ----

/// The names of one kind, and a problem for each that stands for nothing.
class KnownNames {
 public:
  KnownNames(std::string_view kind, std::string_view sections, Problems& problems)
      : kind_(kind), sections_(sections), problems_(problems) {}

  template <class Entries>
  void add(Entries const& entries) {
    for (auto const& each : entries) names_.insert(each.first);
  }
  void check(std::string const& path, std::string const& name) {
    if (name.empty() || names_.contains(name)) return;
    problems_.add(path, fmt::format("no {} named \"{}\"{}", kind_, clipped(name), hintOf(name)));
  }

 private:
  /// A hint takes a look at every name: whoever renamed all of them needs it no more than so often.
  static constexpr int mostHints = 20;

  std::string hintOf(std::string const& name) {
    if (names_.empty()) return fmt::format("; {} none", sections_);
    if (hints_++ >= mostHints) return "";
    return "; " + hintFor(name, {names_.begin(), names_.end()});
  }

  std::string_view kind_, sections_;
  Problems& problems_;
  std::set<std::string_view> names_;
  int hints_ = 0;
};

/// Whether the block can serve the group.
template <class T>
void checkBlockOf(WantedChain const& chain, WantedGroup<T> const& group, std::string const& path,
                  Problems& problems) {
  auto const block = chain.blocks.find(group.block);
  if (block == chain.blocks.end()) return;  // told by its name
  auto const rows = block->second.size();
  if (rows == 0)
    problems.add(pathTo(path, "block"),
                 fmt::format("\"{}\" has no rows; a group needs one at least", group.block));
  else if (!group.countsAllRows && group.entry.countSecondary.value() > rows)
    problems.add(pathTo(path, "countSecondary"),
                 fmt::format("is more than the {} of \"{}\"; leave it out to use them all",
                             counted(rows, "row", "rows"), group.block));
}

void checkGroups(WantedChain const& chain, Problems& problems) {
  KnownNames blocks("member block", "the section memberBlocks names", problems);
  blocks.add(chain.blocks);
  KnownNames groups("group", "the sections of groups name", problems);
  std::map<std::string, std::string_view> sections;  // of groups, by name
  forEachOf(chain.groups, [&]<class T>(std::map<std::string, WantedGroup<T>> const& section) {
    groups.add(section);
    for (auto const& [name, group] : section) {
      auto const path = pathTo(groupWords<T>.section, name);
      auto const [first, isFirst] = sections.try_emplace(name, groupWords<T>.section);
      if (!isFirst)
        problems.add(path, fmt::format("is the name of a group in the section {} as well; rename "
                                       "one of them",
                                       first->second));
      if constexpr (Asic::Trait::needsEntries<T>) {
        blocks.check(pathTo(path, "block"), group.block);
        checkBlockOf(chain, group, path, problems);
      }
    }
  });
  for (auto const& [name, adjacency] : chain.adjacencies)
    groups.check(pathTo(pathTo(adjacenciesSection, name), "group"), adjacency.group);
}

}  // namespace

std::span<ChainSection const> chainSections() {
  static constexpr ChainSection sections[] = {
      {"nextHops", &readNextHops},
      {blocksSection, &readMemberBlocks},
      {groupWords<GroupTable>.section, &readGroups<GroupTable>},
      {groupWords<VxlanGroupTable>.section, &readGroups<VxlanGroupTable>},
      {groupWords<SelectiveGroupTable>.section, &readGroups<SelectiveGroupTable>},
      {groupWords<VxlanSelectiveGroupTable>.section, &readGroups<VxlanSelectiveGroupTable>},
      {adjacenciesSection, &readAdjacencies}};
  return sections;
}

void checkNames(WantedChain const& chain, Problems& problems) {
  KnownNames nextHops("next hop", "the section nextHops names", problems);
  nextHops.add(chain.nextHops);
  for (auto const& [name, rows] : chain.blocks)
    for (std::size_t i = 0; i < rows.size(); ++i)
      nextHops.check(pathTo(elementOf(pathTo(pathTo(blocksSection, name), "rows"), i), "nextHop"),
                     rows[i].nextHop);
  checkGroups(chain, problems);
}

}  // namespace DlbAgent
