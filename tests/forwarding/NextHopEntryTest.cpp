// A next hop as a text and through reflection: addresses and VLANs are refused before they are kept.

#include <gmock/gmock.h>

#include "forwarding/NextHopSwTable.h"
#include "platform/zarn/ValueText.h"

namespace Forwarding {
namespace {

using Entry = NextHopTable::Entry;
using ::testing::HasSubstr;

std::string text(std::string const& mac, std::string const& vlan) {
  return "Forwarding::NextHopTable::Entry{port:7 mac:" + mac + " vlan:" + vlan + '}';
}

TEST(NextHopEntry, isReadFromTheTextThatItIsWrittenAs) {
  auto const entry = Zarn::strepToValue<Entry>(text("02:00:00:00:0a:ff", "4094"));
  EXPECT_EQ(entry.port, 7);
  EXPECT_EQ(entry.mac, MacAddress(0x020000000AFF));
  EXPECT_EQ(entry.vlan, VlanId(4094));
  EXPECT_EQ(Vell::concatenate(entry), text("02:00:00:00:0a:ff", "4094"));
}

TEST(NextHopEntry, errorsNameTheAttributeAndThePlace) {
  auto const refusal = [](std::string const& mac, std::string const& vlan) {
    try {
      Zarn::strepToValue<Entry>(text(mac, vlan));
    } catch (Vell::RangeException const& error) {
      return error.attribute() + '@' + std::to_string(error.position()) + ' ' + error.problem();
    }
    return std::string("none");
  };
  EXPECT_THAT(refusal("02:00:00:00:0a:fg", "1"), HasSubstr("mac@43 an address is six bytes"));
  EXPECT_THAT(refusal("02:00:00:00:0a", "1"), HasSubstr("mac@43 "));
  EXPECT_THAT(refusal("02:00:00:00:00:01", "4095"),
              HasSubstr("vlan@66 a VLAN is 1 to 4094, or 0 for untagged, not 4095"));
  EXPECT_THAT(refusal("02:00:00:00:00:01", "65536"), HasSubstr("vlan@"));
}

TEST(NextHopEntry, aRefusedFieldKeepsItsValue) {
  auto const value = Asic::EntryReflection<Entry>::toValue(Entry{});
  Vell::Inspect entry(*value.record());
  entry.set(0x86, U64{4094});
  EXPECT_THROW(entry.set(0x86, U64{4095}), Vell::InspectError);
  EXPECT_THROW(entry.set(0x85, std::string("02-00-00-00-00-01")), Vell::InspectError);
  EXPECT_EQ(Asic::EntryReflection<Entry>::fromValue(value).vlan, VlanId(4094));
  EXPECT_EQ(Asic::EntryReflection<Entry>::fromValue(value).mac, MacAddress());
}

}  // namespace
}  // namespace Forwarding
