// Which number, flag or colour a name or a position turns into, and what each falls back to.
#include <qv/nodes/keyer/keyer.h>
#include <qv/nodes/merge/channels.h>
#include <qv/nodes/merge/merge.h>

#include <algorithm>
#include <cmath>
#include <set>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::merge;
using namespace qv::nodes::keyer;

// That the fragment programs know the same rows is shown by pixels.
TEST(Names, OperationsHaveTheirRow) {
  const std::set<std::string_view> own_alpha = {"atop", "conjoint-over", "copy",  "disjoint-over",
                                                "in",   "mask",          "matte", "out",
                                                "over", "stencil",       "under", "xor"};
  const auto merge = merge_operations();
  EXPECT_TRUE(merge.size() == 30 && std::ranges::is_sorted(merge) && merge[merge_over] == "over");
  for (size_t row = 0; row < merge.size(); ++row) {
    EXPECT_EQ(merge_op_index(merge[row]), int(row)) << merge[row];
    EXPECT_EQ(merge_alpha_masking(merge[row], true), !own_alpha.contains(merge[row])) << merge[row];
  }
  const auto channel_merge = channelmerge_operations();
  EXPECT_EQ(channel_merge.size(), 14U);
  for (size_t row = 0; row < channel_merge.size(); ++row)
    EXPECT_EQ(channelmerge_op(channel_merge[row]), int(row)) << channel_merge[row];
  for (const char* unknown : {"", "Atop", " xor", "union "}) {
    EXPECT_EQ(merge_op_index(unknown), 22) << unknown;
    EXPECT_EQ(channelmerge_op(unknown), -1) << unknown;
    EXPECT_TRUE(merge_alpha_masking(unknown, true) && !merge_alpha_masking(unknown, false)) << unknown;
  }
}

TEST(Names, OutputAndConstantChannels) {
  struct Case {
    const char *text, *chans;
    std::array<float, 4> mask, colour;  // colour: of the constant 2 2 2 2
  };
  for (const Case& c :
       {Case{"", "rgba", {1, 1, 1, 1}, {2, 2, 2, 2}}, Case{"none", "", {1, 1, 1, 1}, {}},
        Case{"rgb", "rgba", {1, 1, 1, 0}, {2, 2, 2, 0}}, Case{"alpha", "rgba", {0, 0, 0, 1}, {0, 0, 0, 2}},
        Case{" \trgb\x1c", "rgba", {1, 1, 1, 0}, {2, 2, 2, 2}},
        Case{"\x1bnone", "\x1bnone", {1, 1, 1, 1}, {2, 2, 2, 2}}}) {
    EXPECT_EQ(merge_output(c.text).chans, c.chans) << c.text;
    EXPECT_EQ(merge_output(c.text).mask, c.mask) << c.text;
    EXPECT_EQ(constant_color(2, 2, 2, 2, c.text), c.colour) << c.text;
  }
}

TEST(Positions, SwitchAndDissolve) {
  struct Case {
    double x;
    int n, shown;
    Pick pick;
  };
  constexpr int most = INT32_MAX;
  for (const Case& c : {Case{2.75, 5, 2, {2, 3, 0.75}}, Case{-0.5, 5, 0, {0, 1, 0}}, Case{7, 5, 4, {4, 4, 0}},
                        Case{2, 3, 2, {2, 2, 0}}, Case{3, 0, 0, {0, 0, 0}}, Case{0.5, 1, 0, {0, 0, 0}},
                        Case{INFINITY, 5, 0, {4, 4, 0}}, Case{-INFINITY, 5, 0, {0, 1, 0}},
                        Case{NAN, 4, 0, {0, 1, 0}}, Case{1e300, most, most - 1, {most - 1, most - 1, 0}}}) {
    EXPECT_EQ(switch_index(c.x, c.n), c.shown) << c.x << " of " << c.n;
    EXPECT_EQ(dissolve_pick(c.x, c.n), c.pick) << c.x << " of " << c.n;
  }
}

TEST(Keyer, LevelsRangesAndScreens) {
  EXPECT_EQ(fill_levels(1, 1920, 1080), 10);
  EXPECT_EQ(fill_levels(0.1, 1, 1), 2);
  EXPECT_EQ(fill_levels(4, 2, 17), 4);  // 4 8 16 32
  EXPECT_EQ(fill_levels(4, 16, 2), 3);
  EXPECT_EQ(fill_levels(NAN, 100, 100), 1);
  EXPECT_EQ(keyer_range({0.5, 0.2, 0.1, 0.9}), (std::array{0.2, 0.5, 0.5, 0.9}));
  EXPECT_EQ(keyer_range({0.1, 0.8, 0.4, 0.2}), (std::array{0.1, 0.8, 0.8, 0.8}));

  using Colour = std::array<double, 3>;
  struct Case {
    Colour colour, selector, weights;
  };
  for (const Case& c :
       {Case{{3, 1, 2}, {1, 0, 0}, {0, 0.25, 0.75}}, Case{{2, 1, 2}, {0, 0, 1}, {0.25, 0.75, 0}},
        Case{{5, 5, 5}, {0, 1, 0}, {0.25, 0, 0.75}}, Case{{0, -1, 0}, {0, 1, 0}, {0.25, 0, 0.75}}}) {
    Colour selector{7, 7, 7}, weights{7, 7, 7};
    screen_channels(c.colour, 0.25, selector, weights);
    EXPECT_EQ(selector, c.selector) << c.colour[0];
    EXPECT_EQ(weights, c.weights) << c.colour[0];
  }
}

}  // namespace
