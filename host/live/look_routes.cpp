#include "host/base/suggest.h"
#include "host/draw/held_images.h"
#include "host/frame/frame_error.h"
#include "host/live/display.h"
#include "host/live/server_state.h"
#include "host/node/knob.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string_view>

// What is asked of pixels, curves and displays.

namespace host::live {
namespace {

constexpr size_t most_values = 100'000;

// A node as the composition's nodes call it: where it depends on a view, that of the first one. Throws
// http::Error 404.
std::string node_name(const shot::Composition& composition, const std::string& given) {
  if (given.empty() || composition.find(given) >= 0) return given;
  for (const std::string& view : composition.views) {
    std::string of_view = given;
    of_view.append(".").append(view);
    if (composition.find(of_view) >= 0) return of_view;
  }
  std::vector<std::string> names;
  for (const shot::WrittenNode& node : composition.written) names.push_back(node.name);
  throw http::Error(404, "there is no node \"" + given + "\"" + did_you_mean(given, names));
}

// What a request is about, checked.
struct Asked {
  int64_t version = 0;
  std::string node;
  int64_t frame = 0;

  Asked(const Server::State& state, const http::Request& request)
      : version(whole_number(request, "version")),
        node(node_name(*state.composition(version), request.text("node"))),
        frame(whole_number(request, "frame")) {}
};

// What the session throws as answers.
template <class Work>
http::Reply asked_of_session(Server::State& state, Work&& work) {
  try {
    return work([&state] { return state.ending.load(); });
  } catch (const session::Unknown& error) {
    throw http::Error(404, error.what());
  } catch (const frame::Interrupted&) {
    throw http::Error(503, "interrupted");
  } catch (const draw::MemoryBudget& error) {
    throw http::Error(507, error.what());
  } catch (const frame::FrameError& error) {
    throw http::Error(422, error.what());
  }
}

const float* pixel_at(const draw::FrameImage& image, int64_t x, int64_t y) {
  const Box& area = image.area;
  if (!image.pixels || x < area[0] || x >= area[2] || y < area[1] || y >= area[3]) return nullptr;
  const int64_t row = area[3] - 1 - y;
  return image.pixels.get() + 4 * (row * box_width(area) + (x - area[0]));
}

bool contains(const Box& outer, const Box& inner) {
  return intersection(outer, inner) == inner;
}

// The pixels of a box: of the format, unless the box reaches beyond it.
draw::FrameImage pixels_of(Server::State& state, const Asked& asked, const Box& box,
                           const session::Session::GiveUp& give_up) {
  const auto floats = [&](draw::Area area) {
    return state.session->floats(asked.version, asked.node, asked.frame, give_up, area);
  };
  draw::FrameImage image = floats(draw::Area::format);
  return contains(image.area, box) ? image : floats(draw::Area::window);
}

// Of a pixel or of a corner, far within what can be counted.
int64_t coordinate(const http::Request& request, const std::string& name) {
  constexpr int64_t most = int64_t{1} << 32;
  return std::clamp(whole_number(request, name), -most, most);
}

http::Reply pixel(Server::State& state, const http::Request& request) {
  const Asked asked(state, request);
  const int64_t x = coordinate(request, "x"), y = coordinate(request, "y");
  return asked_of_session(state, [&](const session::Session::GiveUp& give_up) {
    const draw::FrameImage image = pixels_of(state, asked, {x, y, x + 1, y + 1}, give_up);
    const float* const found = pixel_at(image, x, y);
    Json value = Json::array();
    for (int i = 0; i < 4; ++i) value.push_back(found ? value_json(static_cast<double>(found[i])) : Json(0));
    return reply({{"value", std::move(value)}});
  });
}

// What is told of a rectangle's pixels.
class Sampled {
 public:
  void add(const float* pixel) {
    bool nan = false, infinite = false, negative = false;
    for (size_t i = 0; i < 4; ++i) {
      const auto value = static_cast<double>(pixel[i]);
      Channel& channel = channels_.at(i);
      nan |= std::isnan(value);
      infinite |= std::isinf(value);
      negative |= value < 0;
      if (std::isnan(value)) continue;
      channel.least = std::min(channel.least, value);
      channel.largest = std::max(channel.largest, value);
      if (std::isinf(value)) continue;
      channel.sum += value;
      channel.finite += 1;
    }
    nan_ += nan ? 1 : 0;
    infinite_ += infinite ? 1 : 0;
    negative_ += negative ? 1 : 0;
    ++pixels_;
  }

  Json json() const {
    Json least = Json::array(), largest = Json::array(), mean = Json::array();
    for (const Channel& each : channels_) {
      const bool any = each.least <= each.largest;
      const double none = pixels_ == 0 ? 0 : std::numeric_limits<double>::quiet_NaN();
      least.push_back(value_json(any ? each.least : none));
      largest.push_back(value_json(any ? each.largest : none));
      mean.push_back(value_json(each.finite > 0 ? each.sum / each.finite : none));
    }
    return {{"least", std::move(least)}, {"largest", std::move(largest)},
            {"mean", std::move(mean)},   {"nan", nan_},
            {"infinite", infinite_},     {"negative", negative_}};
  }

 private:
  struct Channel {
    double least = std::numeric_limits<double>::infinity();
    double largest = -std::numeric_limits<double>::infinity();
    double sum = 0, finite = 0;
  };
  std::array<Channel, 4> channels_;
  int64_t pixels_ = 0, nan_ = 0, infinite_ = 0, negative_ = 0;
};

http::Reply region(Server::State& state, const http::Request& request) {
  const Asked asked(state, request);
  const Box box = {coordinate(request, "x0"), coordinate(request, "y0"), coordinate(request, "x1"),
                   coordinate(request, "y1")};
  return asked_of_session(state, [&](const session::Session::GiveUp& give_up) {
    const draw::FrameImage image = pixels_of(state, asked, box, give_up);
    const Box seen = intersection(box, image.area);
    Sampled sampled;
    for (int64_t y = seen[3] - 1; y >= seen[1]; --y) {
      for (int64_t x = seen[0]; x < seen[2]; ++x) {
        if (const float* const found = pixel_at(image, x, y)) sampled.add(found);
      }
    }
    return reply(sampled.json());
  });
}

http::Reply find(Server::State& state, const http::Request& request) {
  const Asked asked(state, request);
  constexpr std::array<std::string_view, 3> names = {"nan", "infinite", "negative"};
  const auto* const kind = std::find(names.begin(), names.end(), request.text("kind"));
  if (kind == names.end()) throw http::Error(400, R"("kind": expected "nan", "infinite" or "negative")");
  return asked_of_session(state, [&](const session::Session::GiveUp& give_up) {
    const auto found = state.session->find(static_cast<session::Kind>(kind - names.begin()), asked.version,
                                           asked.node, asked.frame, give_up);
    return reply({{"found", found.found}, {"x", found.x}, {"y", found.y}, {"made_by", found.made_by}});
  });
}

http::Reply curve(const Server::State& state, const http::Request& request) {
  const auto composition = state.composition(0);
  const std::string name = node_name(*composition, request.text("node"));
  const int at = composition->find(name);
  if (at < 0) throw http::Error(404, "a node is to be named");
  const node::Node& node = composition->nodes[static_cast<size_t>(at)];
  const auto& specs = node.type->knobs;
  const std::string& knob = request.text("knob");
  const auto spec =
      std::find_if(specs.begin(), specs.end(), [&](const auto& each) { return each.name == knob; });
  if (spec == specs.end()) throw http::Error(404, "node \"" + name + "\" has no knob \"" + knob + "\"");
  const auto place = static_cast<size_t>(spec - specs.begin());
  const int64_t component = whole_number(request, "component");
  if (component < 0 || static_cast<size_t>(component) >= node.knobs[place].components.size())
    throw http::Error(404, "knob \"" + knob + "\" has no such component");
  const double first = real_number(request, "first"), last = real_number(request, "last");
  const double step = real_number(request, "step");
  const double steps = std::floor((last - first) / step);
  if (!(step > 0) || !(steps < static_cast<double>(most_values)))
    throw http::Error(400, "\"step\": expected a number above 0 that leaves at most 100,000 values");
  Json values = Json::array();
  // Counted: a step may be too small beside the numbers to lead anywhere.
  const auto count = steps < 0 ? 0 : static_cast<size_t>(steps) + 1;
  for (size_t i = 0; i < count; ++i) {
    const node::Knobs knobs(specs, node.knobs, first + static_cast<double>(i) * step, 1);
    values.push_back(value_json(knobs.value(place, static_cast<size_t>(component))));
  }
  return reply({{"first", first}, {"step", step}, {"values", std::move(values)}});
}

std::string base64(const std::vector<float>& values) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto* const bytes = reinterpret_cast<const unsigned char*>(values.data());
  const size_t size = values.size() * sizeof(float);
  std::string text;
  text.reserve((size + 2) / 3 * 4);
  for (size_t i = 0; i < size; i += 3) {
    const size_t n = std::min<size_t>(3, size - i);
    const uint32_t word = static_cast<uint32_t>(bytes[i]) << 16 |
                          (n > 1 ? static_cast<uint32_t>(bytes[i + 1]) << 8 : 0U) |
                          (n > 2 ? static_cast<uint32_t>(bytes[i + 2]) : 0U);
    for (size_t digit = 0; digit < 4; ++digit)
      text += digit <= n ? digits[word >> (18 - 6 * digit) & 63U] : '=';
  }
  return text;
}

http::Reply display(const Server::State& state) {
  const Displays all = read_displays(display_config(*state.composition(0)));
  Json displays = Json::array();
  for (const Displays::Display& each : all.displays)
    displays.push_back({{"name", each.name}, {"views", each.views}});
  return reply({{"config", all.config}, {"displays", std::move(displays)}});
}

http::Reply shader(const Server::State& state, const http::Request& request) {
  const std::string config = display_config(*state.composition(0));
  try {
    const auto conversion = display_shader(config, request.text("display"), request.text("view"));
    Json tables = Json::array();
    for (const auto& table : conversion.tables) {
      tables.push_back({{"sampler", table.sampler},
                        {"width", table.width},
                        {"height", table.height},
                        {"depth", table.depth},
                        {"rgba", base64(table.rgba)}});
    }
    return reply({{"shader", conversion.generated}, {"tables", std::move(tables)}});
  } catch (const http::Error&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw http::Error(404, error.what());
  }
}

}  // namespace

void Server::State::add_look_routes() {
  http->get("/pixel", [this](const http::Request& request) { return pixel(*this, request); });
  http->get("/region", [this](const http::Request& request) { return region(*this, request); });
  http->get("/find", [this](const http::Request& request) { return find(*this, request); });
  http->get("/curve", [this](const http::Request& request) { return curve(*this, request); });
  http->get("/display", [this](const http::Request&) { return display(*this); });
  http->get("/display/shader", [this](const http::Request& request) { return shader(*this, request); });
  http->get("/trace", [this](const http::Request& request) {
    const double seconds = real_number(request, "seconds");
    if (!(seconds >= 0 && seconds <= 3600))
      throw http::Error(400, "\"seconds\": expected a number from 0 to 3600");
    return http::Reply{200, session->trace(seconds)};
  });
}

}  // namespace host::live
