// SPDX-License-Identifier: Apache-2.0
// Tests of the probes.

#include "bootvigil/BootState.h"

#include <sys/stat.h>

#include "tests/daemon/DeviceTest.h"

namespace {

class BootStateTest : public DeviceTest {};

TEST_F(BootStateTest, PropertiesAreComparedAsTextOrNumber) {
    const struct {
        bool (*probe)();
        const char* property;
        const char* yes;
        std::vector<const char*> no;
    } cases[] = {
            {checkNormalBootMode, "ro.boot.mode", "normal", {"", "0", "Normal", "normal ", "norm"}},
            {checkFirstBoot,
             "sys.boot.reason",
             "reboot,factory_reset",
             {"", "reboot", "reboot,factory_reset,x"}},
            {isRescueEnable, "persist.sys.enable_rescue", "true", {"", "1", "TRUE", "true\n"}},
            {isBootComplete, "sys.vela.BOOT_COMPLETED", "1x", {"", "0", "2", "-1", "yes", "x1"}},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(c.probe()) << c.property << " unset";
        for (const char* value : c.no) {
            setProperty(c.property, value);
            EXPECT_FALSE(c.probe()) << c.property << " " << value;
        }
        setProperty(c.property, c.yes);
        EXPECT_TRUE(c.probe()) << c.property;
    }
}

TEST_F(BootStateTest, BootedNeedsTheFrameworkAndTheAnimation) {
    const struct {
        const char* completed;
        const char* animation;
        bool booted;
    } cases[] = {{"1", "0", false},
                 {"0", "1", false},
                 {"yes", "1", false},
                 {"1", "1", true},
                 {"2", "-1", true}};
    for (const auto& c : cases) {
        setProperty("sys.boot_completed", c.completed);
        setProperty("service.bootanim.exit", c.animation);
        EXPECT_EQ(checkBooted(), c.booted) << c.completed << c.animation;
    }
    EXPECT_TRUE(logged("D checkBooted get service.bootanim.exit = -1 "));
    EXPECT_EQ(getCountry(), "0");
    setProperty("persist.sys.oobe_country", "NG");
    EXPECT_EQ(getCountry(), "NG");
}

TEST_F(BootStateTest, ReasonIsWholeOnceThenItsLowByte) {
    EXPECT_EQ(getBFReason(), 0);
    setProperty("sys.vela.boot_fail_reason", "256");
    EXPECT_EQ(getBFReason(), 256);  // nothing was cached, so the property is asked again
    setProperty("sys.vela.boot_fail_reason", "300");
    EXPECT_EQ(getBFReason(), 300);
    setProperty("sys.vela.boot_fail_reason", "20");
    EXPECT_EQ(getBFReason(), 44);
    setBFReason(100);
    EXPECT_EQ(getBFReason(), 100);
    setBFReason(0);
    EXPECT_EQ(getBFReason(), 20);
}

TEST_F(BootStateTest, FirstBootOnceAWipe) {
    EXPECT_FALSE(checkFirstBootInNative());
    EXPECT_TRUE(logged("E Creat file path /data/vela_dfr/firstboot fail."));
    mkdir("/data/vela_dfr", 0755);
    EXPECT_TRUE(checkFirstBootInNative());
    EXPECT_EQ(modeOf("/data/vela_dfr/firstboot"), 0777);
    EXPECT_EQ(read("/data/vela_dfr/firstboot"), "");
    EXPECT_FALSE(checkFirstBootInNative());
    EXPECT_TRUE(logged("E checkFirstBootInNative found file"));
}

TEST_F(BootStateTest, ValuesOfMaximumLengthAndGarbage) {
    const std::string longest(91, 'N');
    setProperty("persist.sys.oobe_country", longest);
    EXPECT_EQ(getCountry(), longest);
    setProperty("persist.sys.oobe_country", longest + "cut off");
    EXPECT_EQ(getCountry(), longest);
    setProperty("sys.vela.boot_fail_reason", "\xff\x80garbage");
    EXPECT_EQ(getBFReason(), 0);
    setProperty("ro.boot.mode", std::string("normal\0x", 8));
    EXPECT_TRUE(checkNormalBootMode());
}

}  // namespace
