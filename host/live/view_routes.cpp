#include "host/live/pixels.h"
#include "host/live/server_state.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <initializer_list>

// What pages wish to see, and the streams on which it comes.

namespace host::live {
namespace {

using std::chrono::seconds;

constexpr size_t most_wishes = 256, longest_name = 64;
// A page that has gone is seen when something is sent to it or asked of its connection.
constexpr auto frames_look = seconds(5), events_look = seconds(15);
constexpr size_t slice_bytes = size_t{256} << 10;

template <class Value>
Value one_of(const Json& json, const char* name,
             std::initializer_list<std::pair<const char*, Value>> choices) {
  const auto given = json.at(name).get<std::string>();
  for (const auto& [word, value] : choices) {
    if (given == word) return value;
  }
  throw http::Error(400, std::string("\"") + name + "\": unknown \"" + given + "\"");
}

// At most what the server was started with.
double scale_of(const Json& json, double most) {
  const double scale = json.at("scale").get<double>();
  if (!(scale > 0 && scale <= 1))
    throw http::Error(400, "\"scale\": expected a number above 0 and at most 1");
  return std::min(scale, most);
}

session::Wish wish_of(const Json& json, double most_scale) {
  session::Wish wish;
  wish.id = json.at("id").get<uint64_t>();
  wish.slot = one_of<char>(json, "slot", {{"a", 'a'}, {"b", 'b'}});
  wish.version = json.at("version").get<int64_t>();
  wish.node = json.at("node").get<std::string>();
  wish.frame = json.at("frame").get<int64_t>();
  wish.scale = scale_of(json, most_scale);
  wish.area =
      one_of<draw::Area>(json, "area", {{"format", draw::Area::format}, {"window", draw::Area::window}});
  wish.pixels = one_of<session::Pixels>(json, "pixels",
                                        {{"rgba16f", session::Pixels::rgba16f},
                                         {"r11g11b10f", session::Pixels::r11g11b10f},
                                         {"rgba8", session::Pixels::rgba8}});
  return wish;
}

session::Ahead ahead_of(const Json& json, double most_scale) {
  session::Ahead ahead;
  ahead.node = json.at("node").get<std::string>();
  ahead.scale = scale_of(json, most_scale);
  ahead.first = json.at("first").get<int64_t>();
  ahead.last = json.at("last").get<int64_t>();
  ahead.frame = json.at("frame").get<int64_t>();
  ahead.direction = json.at("direction").get<int>() < 0 ? -1 : 1;
  return ahead;
}

std::string checked_name(std::string name) {
  if (name.empty() || name.size() > longest_name)
    throw http::Error(400, "\"client\": expected a name of at most 64 bytes");
  return name;
}

void append_word(std::string& to, size_t value) {
  for (unsigned shift = 0; shift < 32; shift += 8) to += static_cast<char>(value >> shift & 255U);
}

// Header and pixels, these packed and sent a few rows at a time: what was packed is still near the processor.
bool send_frame(const session::Drawn& drawn, const Format& full, http::Stream& stream) {
  const std::string header = dumped(frame_json(drawn, full));
  const draw::FrameImage& image = drawn.image;
  const bool has_pixels = drawn.error.empty() && image.pixels;
  const size_t count =
      has_pixels ? static_cast<size_t>(box_width(image.area)) * static_cast<size_t>(box_height(image.area))
                 : 0;
  const size_t bytes = pixel_bytes(drawn.wish.pixels);
  std::string front = "QVF1";
  append_word(front, header.size());
  append_word(front, count * bytes);
  if (!stream.write(front + header)) return false;
  const size_t slice = slice_bytes / bytes;
  std::vector<uint32_t> packed(std::min(slice, count) * bytes / sizeof(uint32_t));
  for (size_t begin = 0; begin < count; begin += slice) {
    const size_t n = std::min(slice, count - begin);
    pack_pixels(drawn.wish.pixels, image.pixels.get() + 4 * begin, n, packed.data());
    if (!stream.write({reinterpret_cast<const char*>(packed.data()), n * bytes})) return false;
  }
  return true;
}

// The format of a node's images at full size: the composition's, unless the node makes one of its own.
Format full_format(const Server::State& state, const session::Drawn& drawn) {
  const auto composition = state.document.composition(drawn.version);
  const Format& format = drawn.image.extent.format;
  const double scale = drawn.wish.scale;
  const Format own = composition ? composition->format : Format{};
  const auto side = [scale](int64_t full) {
    return std::max<int64_t>(1, std::llround(static_cast<double>(full) * scale));
  };
  const auto unscaled = [scale](int64_t of) { return std::llround(static_cast<double>(of) / scale); };
  const bool same = side(own.width) == format.width && side(own.height) == format.height;
  if (!drawn.error.empty() || same) return own;
  return {unscaled(format.width), unscaled(format.height), format.pixel_aspect};
}

void stream_frames(Server::State& state, const std::string& name, http::Stream& stream) {
  const auto client = state.clients.get(name);
  const uint64_t number = client->open(Client::Stream::frames);
  for (;;) {
    const auto next = client->next_frame(number, frames_look);
    if (next.ended) break;
    if (!next.what) {
      if (!stream.open()) break;
      continue;
    }
    const auto begin = Spans::Clock::now();
    if (!send_frame(*next.what, full_format(state, *next.what), stream)) break;
    state.session->spans().add(Work::encoding, next.what->node, begin, Spans::Clock::now());
  }
  if (client->close(Client::Stream::frames, number)) {
    state.session->leave(name);
    state.clients.remove(name);
  }
}

// What whoever comes is told first.
void tell_lasting(Server::State& state, Client& client) {
  const std::lock_guard lock(state.lasting_mutex);
  for (const auto& [event, text] : state.lasting) client.tell(event, "", text);
}

void stream_events(Server::State& state, const std::string& name, http::Stream& stream) {
  const auto client = state.clients.get(name);
  const uint64_t number = client->open(Client::Stream::events);
  tell_lasting(state, *client);
  for (;;) {
    const auto next = client->next_event(number, events_look);
    if (next.ended) break;
    const std::string text =
        next.what ? "event: " + next.what->name + "\ndata: " + next.what->data + "\n\n" : ": still here\n\n";
    if (!stream.write(text)) break;
  }
  if (client->close(Client::Stream::events, number)) {
    state.session->leave(name);
    state.clients.remove(name);
  }
}

http::Reply set_computing(Server::State& state, const Json& body) {
  const bool paused = body.at("paused").get<bool>();
  const std::lock_guard lock(state.changing);
  state.session->pause(paused);
  state.tell_all("computing", "", {{"paused", paused}});
  return {204, {}};
}

}  // namespace

View view_of(const Json& json, double most_scale) {
  View view;
  view.client = checked_name(json.at("client").get<std::string>());
  const Json& list = json.at("wishes");
  if (list.size() > most_wishes) throw http::Error(400, "\"wishes\": expected at most 256");
  for (const Json& each : list) {
    view.wishes.push_back(wish_of(each, most_scale));
    view.ids.insert(view.wishes.back().id);
  }
  if (json.contains("ahead") && !json["ahead"].is_null()) view.ahead = ahead_of(json["ahead"], most_scale);
  return view;
}

void Server::State::wish(View view) {
  clients.get(view.client)->set_wished(std::move(view.ids));
  session->wish(view.client, std::move(view.wishes), view.ahead);
}

void Server::State::add_view_routes() {
  http->post("/view", [this](const http::Request& request) {
    return with_json(request, [this](const Json& body) {
      wish(view_of(body, options.renderer.scale));
      return http::Reply{204, {}};
    });
  });
  http->post("/computing", [this](const http::Request& request) {
    return with_json(request, [this](const Json& body) { return set_computing(*this, body); });
  });
  const auto by_name = [this](void (*stream)(State&, const std::string&, http::Stream&)) {
    return [this, stream](const http::Request& request) {
      return [this, stream, name = checked_name(request.text("client"))](http::Stream& to) {
        stream(*this, name, to);
      };
    };
  };
  http->stream("/frames", "application/octet-stream", by_name(stream_frames));
  http->stream("/events", "text/event-stream", by_name(stream_events));
}

}  // namespace host::live
