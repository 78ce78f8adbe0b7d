#include "track/TrModes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

TEST(TrModes, EveryNameFindsItsOwnRowAndNamesAreUnique) {
    std::set<std::string> seen;
    for (const auto& row : TrModes::behaviors) {
        ASSERT_EQ(TrModes::findBehavior(row.name), &row);
        EXPECT_STREQ(TrModes::name(row.mode), row.name);
        EXPECT_TRUE(seen.insert(row.name).second) << row.name;
    }
    seen.clear();
    for (const auto& row : TrModes::colorModes) {
        ASSERT_EQ(TrModes::findColorMode(row.name), &row);
        EXPECT_STREQ(TrModes::name(row.mode), row.name);
        EXPECT_TRUE(seen.insert(row.name).second) << row.name;
    }
}

TEST(TrModes, HostCodesAreTablePositions) {
    // The host compiled these numbers in; they must never move.
    EXPECT_STREQ(TrModes::behaviors[0].name, "default");
    EXPECT_STREQ(TrModes::behaviors[1].name, "stop");
    EXPECT_STREQ(TrModes::behaviors[5].name, "useExistingCurve");
    for (int code = 0; code < TrModes::behaviorCount; ++code)
        EXPECT_EQ(static_cast<int>(TrModes::behaviors[code].mode), code);
}

TEST(TrModes, UnknownNullAndWrongCaseNamesAreNotFound) {
    EXPECT_EQ(TrModes::findBehavior(nullptr), nullptr);
    EXPECT_EQ(TrModes::findBehavior(""), nullptr);
    EXPECT_EQ(TrModes::findBehavior("Stop"), nullptr);
    EXPECT_EQ(TrModes::findColorMode(nullptr), nullptr);
    EXPECT_EQ(TrModes::findColorMode("lum"), nullptr);
    EXPECT_EQ(TrModes::findColorMode("luminance "), nullptr);
}

TEST(TrModes, ListsFollowTableOrder) {
    EXPECT_EQ(TrModes::behaviorList(),
              "default, stop, predict, predictAndKey, dontPredict, useExistingCurve");
    EXPECT_EQ(TrModes::colorModeList(), "red, green, blue, luminance, saturation, hue");
}
