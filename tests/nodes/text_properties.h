#pragma once

#include <qv/nodes/merge/channels.h>
#include <qv/nodes/merge/merge.h>
#include <qv/nodes/ocio/splice.h>

#include <string>

// What must hold for any bytes that a text function is given, one predicate each under its name. The
// tests try them on random texts, the fuzz programs on texts that reach new branches.
namespace text_properties {

namespace merge = qv::nodes::merge;
namespace ocio = qv::nodes::ocio;

inline bool common_parse_channel(const std::string& text) {
  const merge::Chan chan = merge::common_parse_channel(text);
  return chan.index >= 0 && chan.index <= 3 && merge::common_parse_channel("\x1f\t" + text + "\r ") == chan;
}

inline bool copy_parse_channel(const std::string& text) {
  const auto chan = merge::copy_parse_channel(text);
  return !chan ||
         (chan == merge::common_parse_channel(text) && merge::strip(text).starts_with(chan->layer + "."));
}

inline bool channelmerge_split(const std::string& text) {
  const std::string stripped(merge::strip(text));
  const merge::Chan chan = merge::channelmerge_split(text);
  return chan.index >= -1 && chan.index <= 3 && !chan.layer.empty() &&
         merge::channelmerge_split(" }{" + stripped + "}") == chan;
}

inline bool shuffle_slot_of(const std::string& text) {
  const int slot = merge::shuffle_slot_of(text, -7);
  return slot >= -1 && slot <= 3 && merge::shuffle_slot_of(text, 4) == slot &&
         merge::shuffle_slot_of(text, 2) == (slot < 0 ? 2 : slot);
}

inline bool shuffle_routing(const std::string& text) {
  std::array<merge::Route, 8> routes;
  routes.fill({7, 7, 7});
  bool holds = merge::shuffle_routing(text, routes);
  for (const merge::Route& r : routes)
    holds = holds && (r.kind == 3 ? (r.input | 1) == 1 && r.channel >= 0 && r.channel <= 3
                                  : r.kind >= 0 && r.kind <= 2 && r.input == 0 && r.channel == 0);
  return holds;
}

inline bool merge_setup(const std::string& text) {
  const std::string stripped(merge::strip(text));
  const merge::MergeOut out = merge::merge_output(text);
  const merge::MergeSetup setup = merge::merge_setup(text, text, " " + stripped, text, text, 2, true, true);
  return setup.a_chans == (stripped.empty() ? "none" : stripped) && setup.b_chans == setup.a_chans &&
         setup.mask_chans == stripped && setup.out_chans == out.chans && setup.out_mask == out.mask &&
         setup.out_none == out.none && out.none == out.chans.empty() && out.none == (stripped == "none") &&
         setup.op == static_cast<float>(merge::merge_op_index(text));
}

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

// "#" stands for a marker and "(" for the start of a lookup.
inline bool splice(const std::string& text) {
  const std::string marked = replaced(text, "#", "\n//@OCIO\n"),
                    called = replaced(text, "(", "texture(lut, ");
  const std::string expected = replaced(called, "texture(lut, ", "qv_lut3d_trilinear(lut, ");
  std::string patched = called;
  return ocio::splice(marked, text) == replaced(marked, "\n//@OCIO\n", "\n" + text + "\n") &&
         ocio::patch_lut3d(patched, "lut") == (expected != called) && patched == expected;
}

}  // namespace text_properties
