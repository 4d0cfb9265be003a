#include "agent/Generate.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <random>
#include <vector>

#include "agent/ChainTables.h"
#include "agent/Failure.h"
#include "agent/Words.h"
#include "config/DlbEcmpFlowsetSwTable.h"
#include "config/DlbEcmpGroupSwTable.h"
#include "config/DlbEcmpPortControlSwTable.h"

namespace DlbAgent {
namespace {

constexpr U64 idsOfWord = 64;  ///< DLB ids that one enable table has a bit for
constexpr U64 enableWords = 2;
constexpr U64 profiles = 4;  ///< of thresholds and of the quality map
constexpr U64 levels = 8;    ///< of a load measure
constexpr U64 fewestMembers = 4;
constexpr U64 mostMembers = 16;  ///< of a DLB group
/// Of any size: more than any chip has, and few enough to count with.
constexpr U64 mostOfAll = U64{1} << 24;

U64 blocksOf(Sizes const& sizes) {
  // Every sixth group stands on the block of another.
  return sizes.even ? sizes.groups : sizes.groups - sizes.groups / 6;
}

// ---- text ----

/// JSON with one member a line.
class Printer {
 public:
  Printer() { text_ += '{'; }
  void open(std::string_view name) {
    entry(name, "{");
    isFirst_ = true;
    ++depth_;
  }
  void close() {
    --depth_;
    line("");
    text_ += '}';
    isFirst_ = false;
  }
  void entry(std::string_view name, std::string_view value) {
    line(isFirst_ ? "" : ",");
    fmt::format_to(std::back_inserter(text_), "\"{}\": {}", name, value);
    isFirst_ = false;
  }
  std::string text() && {
    close();
    text_ += '\n';
    return std::move(text_);
  }

 private:
  void line(std::string_view end) { text_.append(end).append(1, '\n').append(2 * depth_, ' '); }

  std::string text_;
  std::size_t depth_ = 1;
  bool isFirst_ = true;
};

/// Names that stand in the order of their numbers, which is the order that they are committed in.
class Names {
 public:
  Names(std::string_view kind, U64 count)
      : kind_(kind), digits_(std::to_string(count > 0 ? count - 1 : 0).size()) {}
  std::string operator()(U64 number) const {
    return fmt::format("{}{:0{}}", kind_, number, digits_);
  }

 private:
  std::string_view kind_;
  std::size_t digits_;
};

// ---- what is generated ----

class Generator {
 public:
  Generator(Sizes const& sizes, U64 seed)
      : sizes_(sizes),
        random_(seed),
        nextHopName_("nh", sizes.nextHops),
        blockName_("b", blocksOf(sizes)) {}

  std::string text() && {
    out_.open("tables");
    control();
    thresholds();
    portControl();
    qualityMap();
    dlbGroups();
    out_.close();
    if (sizes_.nextHops > 0) nextHops();
    if (sizes_.groups > 0) memberBlocks();
    auto const vxlan = sizes_.plainGroups / 4;
    auto const vxlanSelective = sizes_.groups / 4;
    plainGroups("groups", "g", sizes_.plainGroups - vxlan);
    plainGroups("vxlanGroups", "v", vxlan);
    selectiveGroups("selectiveGroups", "s", 0, sizes_.groups - vxlanSelective);
    selectiveGroups("vxlanSelectiveGroups", "t", sizes_.groups - vxlanSelective, vxlanSelective);
    if (sizes_.adjacencies > 0) adjacencies();
    return std::move(out_).text();
  }

 private:
  // By hand, since the distributions of the standard differ from library to library. For the same
  // reason no two draws stand in the arguments of one call: their order is the compiler's.
  U64 below(U64 bound) { return random_() % bound; }
  U64 between(U64 least, U64 most) { return least + below(most - least + 1); }
  bool isOneIn(U64 bound) { return below(bound) == 0; }

  /// Brings `count` elements at random to the front.
  void draw(std::vector<U64>& from, std::size_t count) {
    for (std::size_t i = 0; i < count && i < from.size(); ++i)
      std::swap(from[i], from[i + below(from.size() - i)]);
  }
  std::vector<U64> shuffled(U64 count) {
    std::vector<U64> all(count);
    std::iota(all.begin(), all.end(), 0);
    draw(all, all.size());
    return all;
  }

  template <class... Parts>
  void entry(std::string_view name, fmt::format_string<Parts...> text, Parts&&... parts) {
    out_.entry(name, fmt::format(text, std::forward<Parts>(parts)...));
  }

  void control();
  void thresholds();
  void portControl();
  void qualityMap();
  void dlbGroups();
  void nextHops();
  void memberBlocks();
  void plainGroups(std::string_view section, std::string_view kind, U64 count);
  void selectiveGroups(std::string_view section, std::string_view kind, U64 first, U64 count);
  void adjacencies();

  U64 newAdjId() { return lastAdjId_ += 1 + below(4); }

  Sizes const sizes_;
  std::mt19937_64 random_;
  Names const nextHopName_, blockName_;
  Printer out_;
  std::vector<U64> blockOf_;         ///< by the number of the selective group
  std::vector<std::string> groups_;  ///< names of all kinds
  U64 lastAdjId_ = 0;
};

void Generator::control() {
  out_.open("DlbEcmpControlTable");
  for (U64 i = 0; i < enableWords; ++i)
    entry(std::to_string(i), R"({{ "baseEcmpIndex": {}, "randomSelectionSeed": "0x{:08X}" }})",
          i * idsOfWord, below(U64{1} << 32));
  out_.close();
  out_.open("DlbControlTable");
  for (U64 i = 0; i < profiles; ++i) {
    U64 const weights[] = {between(10, 100), between(10, 100), between(10, 100)};
    bool const isCapped[] = {isOneIn(2), isOneIn(2), isOneIn(2)};
    entry(std::to_string(i),
          R"({{ "portLoadingWeight": {}, "totalQsizeWeight": {}, "itmPortQsizeWeight": {}, )"
          R"("capPortLoadingAverage": {}, "capTotalPortQsizeAverage": {}, )"
          R"("capItmPortQsizeAverage": {}, "samplingPeriod": {} }})",
          weights[0], weights[1], weights[2], isCapped[0], isCapped[1], isCapped[2],
          between(8, 255));
  }
  out_.close();
}

/// Lowest band first; a band begins above the one before it.
void Generator::thresholds() {
  out_.open("DlbEcmpQuantizationThresholdTable");
  for (U64 i = 0; i < profiles * levels; ++i) {
    auto const band = i % levels;
    U64 const least[] = {band * 100 + between(10, 90), (U64{4} << 2 * band) + below(8),
                         (U64{2} << 2 * band) + below(4)};
    entry(std::to_string(i),
          R"({{ "portLoadingThreshold": {}, "totalPortQsizeThreshold": {}, )"
          R"("itmPortQsizeThreshold": {} }})",
          least[0], least[1], least[2]);
  }
  out_.close();
}

/// Ports stand in cages of eight, of one speed each: factors 5 to 7 stand for 100 to 400 Gbit/s.
void Generator::portControl() {
  constexpr U64 portsOfCage = 8;
  out_.open("DlbEcmpPortControlTable");
  U64 factor = 0;
  for (U64 port = 0; port < sizes_.ports; ++port) {
    if (port % portsOfCage == 0) factor = between(5, 7);
    entry(std::to_string(port),
          R"({{ "qualityMappingProfilePtr": {0}, "portLoadThresholdScalingFac": {1}, )"
          R"("totalPortQsizeThresholdScalingFac": {1}, "itmPortQsizeThresholdScalingFac": {1} }})",
          factor % profiles, factor);
  }
  out_.close();
}

/// The first profile goes by the worst of the three levels; each of the others takes one of them twice.
void Generator::qualityMap() {
  out_.open("DlbEcmpQualityMapTable");
  for (U64 i = 0; i < profiles * levels * levels * levels; ++i) {
    U64 const profile = i / (levels * levels * levels);
    U64 const of[] = {i / (levels * levels) % levels, i / levels % levels, i % levels};
    auto const load = profile == 0 ? std::max({of[0], of[1], of[2]})
                                   : (of[0] + of[1] + of[2] + of[profile - 1]) / 4;
    entry(fmt::format("DlbEcmpQualityMapKey{{portLoading:{} totalPortQsize:{} itmPortQsize:{} "
                      "profile:{}}}",
                      of[0], of[1], of[2], profile),
          "{}", levels - 1 - load);
  }
  out_.close();
}

/// The groups with their members, and then the flowsets, each on a member of its group.
void Generator::dlbGroups() {
  for (U64 word = 0; word < enableWords; ++word) {
    auto const first = word * idsOfWord;
    auto const ids = std::min(sizes_.dlbGroups - std::min(sizes_.dlbGroups, first), idsOfWord);
    out_.open(word == 0 ? "DlbEcmpDlbId0To63EnableTable" : "DlbEcmpDlbId64To127EnableTable");
    entry("0", "\"0x{:016X}\"", ids > 0 ? largestOf(static_cast<unsigned>(ids)) : 0);
    out_.close();
  }
  if (sizes_.dlbGroups == 0) return;

  struct Run {
    U64 first, size;
    std::vector<U64> ports;  ///< by the number of the member
  };
  std::vector<Run> runs;
  auto const deck = shuffled(sizes_.ports);
  U64 drawn = 0, flowset = 0;
  out_.open("DlbEcmpGroupTable");
  for (U64 group = 0; group < sizes_.dlbGroups; ++group) {
    auto const rest = sizes_.flowsets % sizes_.dlbGroups;
    auto& run = runs.emplace_back(
        Run{flowset, sizes_.flowsets / sizes_.dlbGroups + (group < rest ? 1 : 0), {}});
    flowset += run.size;
    auto const members = std::min(between(fewestMembers, mostMembers), sizes_.ports);
    for (U64 i = 0; i < members; ++i) run.ports.push_back(deck[drawn++ % deck.size()]);
    std::ranges::sort(run.ports);
    std::string ports, hops;
    for (U64 member = 0; member < members; ++member) {
      auto const port = run.ports[member];
      ports += fmt::format("{}\"{}\": {}", member > 0 ? ", " : "", port, member);
      // One of the next hops that leave through the port.
      if (port >= sizes_.nextHops) continue;
      auto const ofPort = (sizes_.nextHops - port - 1) / sizes_.ports + 1;
      hops += fmt::format("{}\"{}\": {}", hops.empty() ? "" : ", ",
                          port + sizes_.ports * below(ofPort), member);
    }
    U64 const inactivity = U64{16} << below(6);
    int const mode = isOneIn(8) ? 1 : 0;
    // The primary members, and when an active flowset moves.
    U64 const rebalance[] = {between((members + 1) / 2, members), between(1, 4), between(32, 255)};
    entry(std::to_string(group),
          R"({{ "inactivityDuration": {}, "portAssignmentMode": {}, "flowSetBase": {}, )"
          R"("flowSetSize": {}, "groupMembershipPointer": {}, "primaryGroupSize": {}, )"
          R"("rebalanceDelta": {}, "rebalanceProbabilityThreshold": {}, )"
          R"("portToMemberMap": {{ {} }}, "nhiToMemberMap": {{ {} }} }})",
          inactivity, mode, run.first, run.size, group, rebalance[0], rebalance[1], rebalance[2],
          ports, hops);
  }
  out_.close();

  if (sizes_.flowsets == 0) return;
  out_.open("DlbEcmpFlowsetTable");
  for (auto const& run : runs)
    for (U64 i = 0; i < run.size; ++i) {
      auto const member = below(run.ports.size());
      entry(std::to_string(run.first + i), R"({{ "portAssignment": {}, "memberAssignment": {} }})",
            run.ports[member], member);
    }
  out_.close();
}

/// Each next hop leaves through one port; those of a port differ by their addresses.
void Generator::nextHops() {
  out_.open("nextHops");
  for (U64 i = 0; i < sizes_.nextHops; ++i) {
    auto const maker = below(256);
    entry(nextHopName_(i),
          R"({{ "port": {}, "mac": "02:{:02x}:00:{:02x}:{:02x}:{:02x}", "vlan": {} }})",
          i % sizes_.ports, maker, i >> 16 & 0xFF, i >> 8 & 0xFF, i & 0xFF, between(1, 4094));
  }
  out_.close();
}

void Generator::memberBlocks() {
  auto const blocks = blocksOf(sizes_);
  auto hops = shuffled(sizes_.nextHops);
  out_.open("memberBlocks");
  for (U64 block = 0; block < blocks; ++block) {
    blockOf_.push_back(block);
    auto const rows =
        sizes_.even ? sizes_.width : between(std::max<U64>(1, sizes_.width / 4), sizes_.width);
    draw(hops, rows);
    std::string list;
    for (U64 row = 0; row < rows; ++row)
      list += fmt::format("{}\n      {{ \"nextHop\": \"{}\", \"weightIdx\": {} }}",
                          row > 0 ? "," : "", nextHopName_(hops[row % hops.size()]), below(4));
    entry(blockName_(block), "{{ \"rows\": [{}\n    ] }}", list);
  }
  out_.close();
  while (blockOf_.size() < sizes_.groups) blockOf_.push_back(below(blocks));
  draw(blockOf_, blockOf_.size());
}

void Generator::plainGroups(std::string_view section, std::string_view kind, U64 count) {
  if (count == 0) return;
  Names const name(kind, count);
  out_.open(section);
  for (U64 i = 0; i < count; ++i) {
    groups_.push_back(name(i));
    U64 const values[] = {newAdjId(), below(4)};
    entry(groups_.back(), R"({{ "adjId": {}, "lbMode": {}, "fastLinkFailover": {} }})", values[0],
          values[1], isOneIn(8));
  }
  out_.close();
}

/// Of all selective groups the `count` ones from `first` on.
void Generator::selectiveGroups(std::string_view section, std::string_view kind, U64 first,
                                U64 count) {
  if (count == 0) return;
  Names const name(kind, count);
  out_.open(section);
  for (U64 i = 0; i < count; ++i) {
    groups_.push_back(name(i));
    entry(groups_.back(), R"({{ "adjId": {}, "block": "{}" }})", newAdjId(),
          blockName_(blockOf_[first + i]));
  }
  out_.close();
}

/// As many groups as there are adjacencies have one of their own; the other adjacencies share groups.
void Generator::adjacencies() {
  Names const name("a", sizes_.adjacencies);
  auto const ids = shuffled(sizes_.adjacencies);
  auto const groups = shuffled(groups_.size());
  out_.open("adjacencies");
  for (U64 i = 0; i < sizes_.adjacencies; ++i)
    entry(name(i), R"({{ "id": {}, "group": "{}" }})", ids[i],
          groups_[i < groups.size() ? groups[i] : below(groups.size())]);
  out_.close();
}

// ---- checks ----

struct NamedSize {
  std::string_view option;
  U64 Sizes::*size;
  U64 least;
  U64 most;
};
constexpr NamedSize namedSizes[] = {
    {"--ports", &Sizes::ports, 1, U64{1} << 16},  // ports and next hop indices have 16 bits
    {"--dlb-groups", &Sizes::dlbGroups, 0, enableWords* idsOfWord},
    {"--flowsets", &Sizes::flowsets, 0, 0xFFFF},  // the size of a group's run has 16 bits
    {"--next-hops", &Sizes::nextHops, 0, U64{1} << 16},
    {"--groups", &Sizes::groups, 0, mostOfAll},
    {"--width", &Sizes::width, 1, mostOfAll},
    {"--plain-groups", &Sizes::plainGroups, 0, mostOfAll},
    {"--adjacencies", &Sizes::adjacencies, 0, mostOfAll},
};

void checkSense(Sizes const& sizes) {
  std::vector<std::string> lines;
  for (auto const& each : namedSizes)
    if (auto const size = sizes.*each.size; size < each.least || size > each.most)
      lines.push_back(fmt::format("{}: must be a number from {} to {}, not {}", each.option,
                                  each.least, each.most, size));
  if (sizes.groups > 0 && sizes.nextHops == 0)
    lines.push_back("--next-hops: the blocks of groups need one; take 1 or more, or --groups 0");
  if (sizes.flowsets > 0 && sizes.dlbGroups == 0)
    lines.push_back(
        "--flowsets: there is no DLB group to deal them to; take 0, or --dlb-groups 1 "
        "or more");
  if (sizes.adjacencies > 0 && sizes.groups + sizes.plainGroups == 0)
    lines.push_back(
        "--adjacencies: there is no group to point at; take 0, or --plain-groups 1 or "
        "more");
  if (!lines.empty()) throw Failure(std::move(lines));
}

/// How many rows the chip has for a table; many if it does not tell.
U64 rowsOf(Room const& room, TableType const& type) {
  auto const entry = Vell::inspectMakeValue(type.entry());
  U64 fits = 0, tooMany = mostOfAll + 1;  // numbers of rows
  while (tooMany - fits > 1) {
    auto const middle = fits + (tooMany - fits) / 2;
    bool const hasRow = room.misfit(type, Key(Vell::Value(middle - 1)), entry).empty();
    (hasRow ? fits : tooMany) = middle;
  }
  return fits;
}

}  // namespace

void checkRoom(Sizes const& sizes, Room const& room) {
  std::vector<std::string> lines;
  auto const fits = [&](std::string_view option, U64 size, U64 most, std::string_view of) {
    if (size <= most) return true;
    lines.push_back(fmt::format("{}: the chip has room for {} {}, not for {}; take fewer", option,
                                most, of, size));
    return false;
  };
  auto const needs = [&](std::string_view option, U64 size, TableType const& type,
                         std::string_view of) { fits(option, size, rowsOf(room, type), of); };
  using namespace TessarLoadBalance;
  needs("--ports", sizes.ports, tableTypeOf<DlbEcmpPortControlTable>(), "ports");
  needs("--dlb-groups", sizes.dlbGroups, tableTypeOf<DlbEcmpGroupTable>(), "DLB groups");
  needs("--flowsets", sizes.flowsets, tableTypeOf<DlbEcmpFlowsetTable>(), "flowsets");
  needs("--next-hops", sizes.nextHops, tableTypeOf<NextHopTable>(), "next hops");
  needs("--adjacencies", sizes.adjacencies, tableTypeOf<AdjacencyTable>(), "adjacencies");
  auto const bank = rowsOf(room, tableTypeOf<MemberTable>()) / DlbEcmpMember1Sheet::banks;
  if (sizes.groups > 0 && sizes.width > 0 &&
      fits("--width", sizes.width, bank, "rows in one block"))
    // As many blocks as this find room, whatever of `width` each of them takes.
    fits("--groups", blocksOf(sizes), bank / sizes.width * DlbEcmpMember1Sheet::banks,
         fmt::format("blocks of up to {} rows", sizes.width));
  auto const indices = rowsOf(room, tableTypeOf<GroupTable>());
  if (fits("--groups", sizes.groups, indices, "groups"))
    fits("--plain-groups", sizes.plainGroups, indices - sizes.groups, "of them beside --groups");
  if (!lines.empty()) throw Failure(std::move(lines));
}

std::string generated(Sizes const& sizes, U64 seed) {
  checkSense(sizes);
  return Generator(sizes, seed).text();
}

}  // namespace DlbAgent
