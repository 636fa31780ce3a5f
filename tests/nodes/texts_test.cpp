// Which number, flag, colour or route a text or a position turns into, what each falls back to, and that no
// bytes can upset their readers.
#include "tests/nodes/text_properties.h"

#include <cmath>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::merge;

// Which row each operation has is shown by pixels.
TEST(Names, OperationsHaveTheirRow) {
  const std::set<std::string_view> own_alpha = {"atop", "conjoint-over", "copy",  "disjoint-over",
                                                "in",   "mask",          "matte", "out",
                                                "over", "stencil",       "under", "xor"};
  for (const std::string_view name : merge_operations())
    EXPECT_EQ(merge_alpha_masking(name, true), !own_alpha.contains(name)) << name;
  for (const char* unknown : {"", "Atop", " xor", "union "}) {
    EXPECT_EQ(merge_op_index(unknown), merge_over) << unknown;
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

std::mt19937 generator(20);

template <class T>
T one_of(const std::vector<T>& choices) {
  return choices[generator() % choices.size()];
}

std::string shown(const std::optional<Chan>& chan) {
  return chan ? chan->layer + ":" + std::to_string(chan->index) : "nothing";
}

TEST(Channels, EachParserReadsItsOwnWay) {
  struct Case {
    const char *text, *common, *copy, *split;
  };
  for (const Case& c : {Case{"alpha", "rgba:3", "nothing", "rgba:3"}, Case{"B", "B:0", "nothing", "rgba:2"},
                        Case{"rgba", "rgba:3", "nothing", "rgba:0"}, Case{".r", ".r:0", "nothing", "rgba:0"},
                        Case{"d.Z", "d:0", "d:0", "d:0"}, Case{"none", "none:0", "nothing", "rgba:-1"},
                        Case{"", ":0", "nothing", "rgba:-1"}, Case{" \x1fl.Alpha\n", "l:3", "l:3", "l:3"},
                        Case{"a.b.Y", "a.b:1", "a.b:1", "a.b:0"}, Case{"--l.g", "--l:1", "--l:1", "l:-1"},
                        Case{"{l.Blue}", "{l.Blue}:0", "nothing", "l:2"},
                        Case{"{ none }", "{ none }:0", "nothing", "rgba:-1"}}) {
    EXPECT_EQ(shown(common_parse_channel(c.text)), c.common);
    EXPECT_EQ(shown(copy_parse_channel(c.text)), c.copy);
    EXPECT_EQ(shown(channelmerge_split(c.text)), c.split);
  }
  EXPECT_EQ(shuffle_slot_of({"\0r", 2}, -1), -1);
  EXPECT_TRUE(is_ascii("\x7f ") && !is_ascii("caf\xc3\xa9"));
}

TEST(Shuffle, CodesOfRoutes) {
  using Codes = std::array<float, 4>;
  const std::array<Route, 4> mixed = {Route{0, 0, 0}, {3, 0, 2}, {3, 1, 2}, {2, 0, 0}};
  EXPECT_EQ(shuffle_codes(mixed, true, true, true), (Codes{10, 2, 8, 5}));
  EXPECT_EQ(shuffle_codes(mixed, false, false, true), (Codes{4, 4, 8, 5}));
  EXPECT_EQ(shuffle_codes(mixed, false, true, false), (Codes{4, 2, 4, 5}));
  const std::array<Route, 4> odd = {Route{1, 1, 1}, {-1, 0, 0}, {3, -9, 3}, {3, 1, INT32_MAX}};
  EXPECT_EQ(shuffle_codes(odd, true, true, true), (Codes{4, 5, 9, 0x1p31F}));
}

// A channel of this slot (-1: of none) and its fallback, spelled in one of the ways a person may.
std::pair<std::string, std::string> spelled(int slot) {
  const std::string layer = one_of<std::string>({"", ".", "rgba.", "over.", "a.b.", "\xff."});
  if (slot < 0) return {layer + "q", one_of<std::string>({"4", "-1", "9_223_372_036_854_775_808"})};
  if (generator() % 4 == 0) return {layer + "q", "+0_" + std::to_string(slot)};
  const std::vector<std::string> names[] = {
      {"r", "Red", "x", "U"}, {"g", "green", "Y", "v"}, {"b", "blue", "z", "BLUE"}, {"a", "Alpha", "w"}};
  if (slot == 0 && generator() % 4 == 0) return {one_of<std::string>({"dePTH.q", "Z.blue"}), "3"};
  return {layer + one_of(names[slot]), "9"};
}

TEST(Shuffle, RoutesAreReadBackFromTheirText) {
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    int count = 0;
    const auto add = [&](std::string source, int from, std::string input, std::string group, int to) {
      const auto [name, fallback] = spelled(from);
      const auto [target, target_fallback] = spelled(to);
      for (const auto& word :
           {source.empty() ? name : source, input, fallback, target, group, target_fallback})
        text += one_of<char>({' ', '\t', '\n', '\v', '\f', '\r', 28, 29, 30, 31}) + word;
      ++count;
    };
    std::array<Route, 8> routes, read;
    for (size_t i = 0; i < 8; ++i) {
      const int slot = static_cast<int>(i % 4), channel = static_cast<int>(generator() % 4);
      const std::string group = std::to_string(i / 4), input = one_of<std::string>({"0", "1"});
      routes[i] = one_of<Route>({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, input == "1", channel}});
      // Without effect: the first is written again below, the others are of no use.
      if (routes[i].kind != 0) add("", channel, "0", group, slot);
      add("", channel, one_of<std::string>({"1_0", "0x1", "2", "-1"}), group, slot);
      add("", channel, "0", one_of<std::string>({"2", "-1", "_1", "1_", "0__0", "+"}), slot);
      add("white", channel, "0", group, -1);
      if (routes[i].kind == 1) add(one_of<std::string>({"", "black"}), -1, "0", group, slot);
      if (routes[i].kind == 2) add("white", channel, "-5", group, slot);
      if (routes[i].kind == 3) add("", channel, "+0_" + input, group, slot);
    }
    text.insert(0, std::to_string(count));
    add("white", 0, "0", "0", 0);  // one record more than counted
    EXPECT_TRUE(shuffle_routing(text, read));
    ASSERT_EQ(read, routes) << testing::PrintToString(text);
  }
}

TEST(Texts, HoldTheirPropertiesForAnyBytes) {
  std::vector<std::string> pieces = {"r",    "Red",   "z",    "x",    "rgba", "rgb", "depth", "alpha",
                                     "none", "black", "over", "1",    "lut",  ".",   ".",     "-",
                                     "{",    "}",     "_",    "+",    "#",    "(",   " ",     " ",
                                     "q",    ", ",    "\t",   "\x1c", " 0 ",  " 1 ", " 6 ",   "texture"};
  pieces.insert(pieces.end(), {"//@OCIO\n", " 99999999999999999999 "});
  for (int round = 0; round < 20000; ++round) {
    std::string text = one_of<std::string>({"", "3 "});
    for (size_t left = generator() % 24; left > 0; --left)
      text += generator() % 8 ? one_of(pieces) : std::string(1, static_cast<char>(generator()));
    namespace properties = text_properties;
    ASSERT_TRUE(properties::common_parse_channel(text) && properties::copy_parse_channel(text) &&
                properties::channelmerge_split(text) && properties::shuffle_slot_of(text) &&
                properties::shuffle_routing(text) && properties::merge_setup(text) &&
                properties::splice(text))
        << testing::PrintToString(text);
  }
}

}  // namespace
