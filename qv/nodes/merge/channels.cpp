#include <qv/nodes/merge/channels.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace qv::nodes::merge {

namespace {

constexpr std::array<std::string_view, 14> channel_merge_operations = {
    "union", "absminus", "b if not a", "divide", "from", "in",      "max",
    "min",   "minus",    "multiply",   "out",    "plus", "stencil", "xor"};

constexpr char lowered(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}

constexpr char unchanged(char byte) {
  return byte;
}

// A name of up to seven bytes as one number, so that names label the cases of a switch. The length
// stands above the bytes, which keeps "r" and "r\0" apart; longer names, all unknown, share a code.
template <char (*change)(char) = unchanged>
constexpr uint64_t code(std::string_view name) {
  if (name.size() > 7) return std::numeric_limits<uint64_t>::max();
  uint64_t packed = name.size();
  for (const char byte : name) packed = packed << 8 | static_cast<unsigned char>(change(byte));
  return packed;
}

// The names that all nodes have in common; -1 for any other.
int color_channel(uint64_t name) {
  switch (name) {
    case code("r"):
    case code("red"):
      return 0;
    case code("g"):
    case code("green"):
      return 1;
    case code("b"):
    case code("blue"):
      return 2;
    case code("a"):
    case code("alpha"):
      return 3;
    default:
      return -1;
  }
}

// The channel names of copy and common texts; "z" is 0 here, the only channel of a depth layer.
int named_channel(uint64_t name) {
  if (name == code("x") || name == code("z")) return 0;
  return name == code("y") ? 1 : color_channel(name);
}

// The channel names of shuffles, where "z" is the third coordinate.
int named_slot(uint64_t name) {
  if (name == code("x") || name == code("u")) return 0;
  if (name == code("y") || name == code("v")) return 1;
  if (name == code("z")) return 2;
  return name == code("w") ? 3 : color_channel(name);
}

// The channel names of channel merges, where any other name is red.
int named_color(uint64_t name) {
  return std::max(0, color_channel(name));
}

// A "layer.channel" text with a layer before its last dot and a known channel, in any case, behind.
std::optional<Chan> dotted_channel(std::string_view text) {
  const size_t dot = text.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return std::nullopt;
  const int index = named_channel(code<lowered>(text.substr(dot + 1)));
  if (index < 0) return std::nullopt;
  return Chan{std::string(text.substr(0, dot)), index};
}

// Removes the next word from the front of `rest` and returns it; empty when none is left.
std::string_view take_word(std::string_view& rest) {
  size_t begin = 0;
  while (begin < rest.size() && is_white(rest[begin])) ++begin;
  size_t end = begin;
  while (end < rest.size() && !is_white(rest[end])) ++end;
  const std::string_view word = rest.substr(begin, end - begin);
  rest.remove_prefix(end);
  return word;
}

// A decimal whole number: a sign or none, then digits with single underscores between them. Beyond
// 64 bits it saturates: it is gathered in double, which large counts only ever compare against.
std::optional<int64_t> whole_number(std::string_view word) {
  const bool negative = word.starts_with('-');
  if (negative || word.starts_with('+')) word.remove_prefix(1);

  double magnitude = 0;
  bool after_digit = false;
  for (const char byte : word) {
    if (byte >= '0' && byte <= '9') {
      magnitude = magnitude * 10 + (byte - '0');
    } else if (byte != '_' || !after_digit) {
      return std::nullopt;
    }
    after_digit = byte != '_';
  }
  if (!after_digit) return std::nullopt;

  using limits = std::numeric_limits<int64_t>;
  if (magnitude >= 0x1p63) return negative ? limits::min() : limits::max();
  const auto value = static_cast<int64_t>(magnitude);
  return negative ? -value : value;
}

// The six words of a routing record, in the order in which they are written.
struct RoutingRecord {
  std::string_view source, source_input, source_fallback, target, target_group, target_fallback;
};

// Reads the next record off `rest`; nothing when fewer than six words are left.
std::optional<RoutingRecord> take_record(std::string_view& rest) {
  RoutingRecord record;
  for (std::string_view RoutingRecord::*word :
       {&RoutingRecord::source, &RoutingRecord::source_input, &RoutingRecord::source_fallback,
        &RoutingRecord::target, &RoutingRecord::target_group, &RoutingRecord::target_fallback}) {
    record.*word = take_word(rest);
    if ((record.*word).empty()) return std::nullopt;
  }
  return record;
}

std::optional<Route> source_route(std::string_view source, int64_t input, int64_t fallback) {
  if (source == "black") return Route{route_black, 0, 0};
  if (source == "white") return Route{route_white, 0, 0};
  if (input != 0 && input != 1) return std::nullopt;
  const int slot = shuffle_slot_of(source, fallback);
  if (slot < 0) return Route{route_black, 0, 0};
  return Route{route_input, static_cast<int32_t>(input), slot};
}

void apply(const RoutingRecord& record, std::span<Route, 8> routes) {
  // All four numbers must be readable, also those that the names make needless.
  const auto input = whole_number(record.source_input);
  const auto source_fallback = whole_number(record.source_fallback);
  const auto group = whole_number(record.target_group);
  const auto target_fallback = whole_number(record.target_fallback);
  if (!input || !source_fallback || !group || !target_fallback) return;

  if (*group != 0 && *group != 1) return;
  const int slot = shuffle_slot_of(record.target, *target_fallback);
  if (slot < 0) return;
  if (const auto route = source_route(record.source, *input, *source_fallback))
    routes[static_cast<size_t>(4 * *group + slot)] = *route;
}

int64_t shuffle_code(const Route& route, bool keep_allowed, bool first_present, bool second_present) {
  switch (route.kind) {
    case route_keep:
      return keep_allowed ? shuffle_keep : shuffle_zero;
    case route_black:
      return shuffle_zero;
    case route_input: {
      const bool second = route.input != 0;
      if (!(second ? second_present : first_present)) return shuffle_zero;
      return int64_t{second ? shuffle_second : shuffle_first} + route.channel;
    }
    default:
      return shuffle_one;
  }
}

}  // namespace

Chan common_parse_channel(std::string_view text) {
  text = strip(text);
  if (const int index = named_channel(code(text)); index >= 0) return {"rgba", index};
  if (auto chan = dotted_channel(text)) return *std::move(chan);
  return {std::string(text), text == "rgba" ? channel_alpha : channel_red};
}

std::optional<Chan> copy_parse_channel(std::string_view text) {
  return dotted_channel(strip(text));
}

Chan channelmerge_split(std::string_view text) {
  text = strip(text);
  while (!text.empty() && (text.front() == '{' || text.front() == '}')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == '{' || text.back() == '}')) text.remove_suffix(1);

  // White space that stood inside the braces is still there: the first word tells whether the
  // channel is absent, but the name below is the whole text.
  std::string_view rest = text;
  const std::string_view word = take_word(rest);
  const bool absent = word.empty() || word.front() == '-' || word == "none";

  while (text.starts_with('-')) text.remove_prefix(1);
  std::string_view layer = "rgba";
  std::string_view channel = text;
  if (const size_t dot = text.rfind('.'); dot != std::string_view::npos && dot > 0) {
    layer = text.substr(0, dot);
    channel = text.substr(dot + 1);
  }
  return {std::string(layer), absent ? int{channel_absent} : named_color(code<lowered>(channel))};
}

std::span<const std::string_view> channelmerge_operations() {
  return channel_merge_operations;
}

int channelmerge_op(std::string_view op) {
  const auto& names = channel_merge_operations;
  const auto row = std::find(names.begin(), names.end(), op);
  return row == names.end() ? -1 : static_cast<int>(row - names.begin());
}

int shuffle_slot_of(std::string_view text, int64_t fallback) {
  const size_t dot = text.rfind('.');
  if (dot != std::string_view::npos) {
    const uint64_t layer = code<lowered>(text.substr(0, dot));
    if (layer == code("depth") || layer == code("z")) return 0;
    text.remove_prefix(dot + 1);
  }
  const int slot = named_slot(code<lowered>(text));
  if (slot >= 0) return slot;
  return fallback >= 0 && fallback <= 3 ? static_cast<int>(fallback) : -1;
}

std::array<float, 4> shuffle_codes(std::span<const Route, 4> routes, bool keep_allowed, bool first_present,
                                   bool second_present) {
  std::array<float, 4> codes{};
  std::transform(routes.begin(), routes.end(), codes.begin(), [&](const Route& route) {
    return static_cast<float>(shuffle_code(route, keep_allowed, first_present, second_present));
  });
  return codes;
}

bool shuffle_routing(std::string_view text, std::span<Route, 8> routes) {
  std::fill(routes.begin(), routes.end(), Route{});
  const int64_t count = whole_number(take_word(text)).value_or(0);
  for (int64_t i = 0; i < count; ++i) {
    const auto record = take_record(text);
    if (!record) break;
    apply(*record, routes);
  }
  return true;
}

}  // namespace qv::nodes::merge
