#include "provider/sysfs/SysfsNames.h"

#include <gtest/gtest.h>

#include "provider/host/WorldWideName.h"

namespace provider {

TEST(SysfsNames, HostNames) {
  EXPECT_EQ(ParseScsiHostName("host0"), 0u);
  EXPECT_EQ(ParseScsiHostName("host4294967295"), 4294967295u);
  for (const char* const bad :
       {"", "host", "host01", "host1x", "host-1", "host 1", "host4294967296", "shost1"}) {
    EXPECT_FALSE(ParseScsiHostName(bad).has_value()) << bad;
  }
}

TEST(SysfsNames, ChildNames) {
  EXPECT_EQ(ParseFcChildName("rport-10:2-33", "rport", 10), (FcChild{2, 33}));
  EXPECT_EQ(FcChildName("rport", 10, FcChild{2, 33}), "rport-10:2-33");
  for (const char* const bad : {"rport-1:2-33", "vport-10:2-33", "rport-10:2", "rport-10:2-", "rport-10:2-033",
                                "rport-10:2-33.", "rport-10-2-33", ""}) {
    EXPECT_FALSE(ParseFcChildName(bad, "rport", 10).has_value()) << bad;
  }
  EXPECT_TRUE(IsVirtualPortName("vport-7:0-1"));
  EXPECT_FALSE(IsVirtualPortName("vport"));
}

TEST(SysfsNames, ScsiDeviceNames) {
  EXPECT_EQ(ParseScsiDeviceName("1:0:2:18446744073709551615", "1:0:2"), UINT64_MAX);
  for (const char* const bad : {"1:0:2", "1:0:2:", "1:0:21:0", "1:0:2:-1", "1:0:2:18446744073709551616"}) {
    EXPECT_FALSE(ParseScsiDeviceName(bad, "1:0:2").has_value()) << bad;
  }
}

TEST(SysfsNames, PciAddresses) {
  const std::optional<PciAddress> address = ParsePciAddress("10000:fe:1f.7");
  ASSERT_TRUE(address.has_value());
  EXPECT_EQ(address->bus, 0xFE);
  EXPECT_EQ(address->function, 7);
  for (const char* const bad :
       {"pci0000:00", "0000:100:00.0", "0000:01:00.8", "0000:01:00", "1:0:0:0", "0000:01:00.", ""}) {
    EXPECT_FALSE(ParsePciAddress(bad).has_value()) << bad;
  }
}

TEST(SysfsNames, FcNames) {
  EXPECT_EQ(ParseFcName("0x2000525400fc0010"), WwnFromNumber(0x2000525400fc0010));
  EXPECT_EQ(ParseFcName("0x525400fc0010"), WwnFromNumber(0x525400fc0010));
  for (const char* const bad : {"0x0", "0xffffffffffffffff", "", "0x", "2000525400fc0010",
                                "0x2000525400fc00100", "0x2000525400fc001g", "0x-1"}) {
    EXPECT_FALSE(ParseFcName(bad).has_value()) << bad;
  }
}

TEST(SysfsNames, Numbers) {
  EXPECT_EQ(ParseHex("0xfffffc"), 0xFFFFFCu);
  EXPECT_FALSE(ParseHex("0x100000000").has_value());
  EXPECT_FALSE(ParseHex("fffffc").has_value());
  EXPECT_EQ(ParseDecimal("0"), 0u);
  EXPECT_FALSE(ParseDecimal("-1").has_value());
}

TEST(SysfsNames, DevicePaths) {
  const DevicePath path("../../devices/pci0000:00/0000:01:00.0/host0/fc_host/host0");
  ASSERT_EQ(path.Names().size(), 6u);
  EXPECT_EQ(path.Names()[2], "0000:01:00.0");
  EXPECT_EQ(path.WayTo(2), "./../../..");
  EXPECT_EQ(path.WayTo(5), ".");
  EXPECT_EQ(DevicePath("/sys//devices/./host0/").Names(),
            (std::vector<std::string>{"sys", "devices", "host0"}));
  EXPECT_TRUE(DevicePath("").Names().empty());
  EXPECT_TRUE(DevicePath("../../devices/host0/../host1").Names().empty());
}

}  // namespace provider
