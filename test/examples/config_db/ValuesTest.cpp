#include "examples/config_db/Values.h"

#include <gtest/gtest.h>

#include "examples/config_db/Loader.h"

using namespace ConfigDb;

namespace {

struct Case {
  char const* type;
  char const* text;
  char const* value;  // null: refused
};

Case const cases[] = {
    {"U16", "9100", "9100"},
    {"U16", " 0x8100 ", "33024"},
    {"U16", "007", "7"},
    {"U16", "65536", nullptr},
    {"U8", "-1", nullptr},
    {"U8", "1.0", nullptr},
    {"U64", "18446744073709551616", nullptr},
    {"S8", "-1", "-1"},
    {"S8", "-129", nullptr},
    {"F64", "-26.6", "-26.6"},
    {"F64", "fast", nullptr},
    {"F64", "inf", nullptr},
    {"bool", "True", "true"},
    {"bool", "off", "false"},
    {"bool", "maybe", nullptr},
    {"ConfigDb::AclStage", "INGRESS", "ingress"},
    {"ConfigDb::AclStage", "unset", nullptr},
    {"ConfigDb::RoutingConfigMode", "split-unified", "split_unified"},
    {"ConfigDb::BufferMode", "static", "static"},
    {"ConfigDb::AdminStatus", "true", "up"},
    {"ConfigDb::Ip", "FC00::01 ", "fc00::1"},
    {"ConfigDb::Ip", "192.0.2.256", nullptr},
    {"ConfigDb::Prefix", "2001:DB8:0::1/64", "2001:db8::1/64"},
    {"ConfigDb::Prefix", "192.0.2.1", "192.0.2.1/32"},
    {"ConfigDb::Prefix", "192.0.2.1/33", nullptr},
    {"ConfigDb::Prefix", "192.0.2.1/", nullptr},
    {"ConfigDb::IpOrPrefix", "192.0.2.1", "192.0.2.1"},
    {"ConfigDb::IpOrName", "Ethernet0", "Ethernet0"},
    {"ConfigDb::Mac", "02-00-5E-00-53-01", "02:00:5e:00:53:01"},
    {"ConfigDb::Mac", "02:00:5e:00:53", nullptr},
    {"ConfigDb::Range", "3 - 04", "3-4"},
    {"ConfigDb::Range", "3-3", "3"},
    {"ConfigDb::Range", "4-3", nullptr},
    {"ConfigDb::NumberOrAuto", "AUTO", "auto"},
    {"ConfigDb::NumberOrAll", "none", nullptr},
    {"ConfigDb::HexMask", "0X02/0x3F", "0x2/0x3f"},
    {"ConfigDb::Metres", "300m", "300"},
    {"ConfigDb::Metres", "far", nullptr},
};

TEST(ConfigDbValues, OneSpelling) {
  ASSERT_FALSE(sessionRoots().empty());        // the library with the types is there,
  ASSERT_TRUE(Kel::TypeOf<Kel::U16>::type());  // and the builtin types are made
  for (Case const& c : cases) {
    Kel::KelType const* const type = Kel::KelType::find(c.type);
    ASSERT_TRUE(type) << c.type;
    auto const value = valueFromText(*type, c.text);
    EXPECT_EQ(value ? value->text().str() : "refused", c.value ? c.value : "refused") << c.type << " " << c.text;
  }
}

TEST(ConfigDbValues, Absent) {
  for (char const* text : {"", " ", "None", "NULL", "null"}) EXPECT_TRUE(isAbsent(text)) << text;
  for (char const* text : {"none", "0", "false"}) EXPECT_FALSE(isAbsent(text)) << text;
}

}  // namespace
