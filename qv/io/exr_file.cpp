#include <qv/io/band_limit.h>
#include <qv/io/claim.h>
#include <qv/io/decode_request.h>
#include <qv/io/exr/layout.h>
#include <qv/io/exr/order.h>
#include <qv/io/exr_file.h>
#include <qv/io/file_attributes.h>
#include <qv/io/pixel_memory.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

namespace qv::io {

namespace {

ExrType type_of(exr::Type type) {
  return type == exr::Type::uint   ? ExrType::uint32
         : type == exr::Type::half ? ExrType::half
                                   : ExrType::float32;
}

ExrPart part_of(const exr::Subimage& subimage) {
  const exr::Part& part = subimage.part;
  ExrPart result{part.name,
                 part.x,
                 part.y,
                 part.width,
                 part.height,
                 part.display_x,
                 part.display_y,
                 part.display_width,
                 part.display_height,
                 part.pixel_aspect,
                 std::string(part.compression),
                 part.tiled ? part.chunk_width : 0,
                 part.tiled ? part.chunk_height : 0,
                 {}};
  for (const int index : subimage.channels) {
    const exr::Channel& channel = part.channels[static_cast<size_t>(index)];
    result.channels.push_back({channel.name, type_of(channel.type)});
  }
  return result;
}

// R, G, B, A over the whole of the display window.
bool fills_display(const ExrPart& part) {
  constexpr std::array<std::string_view, 4> names = {"R", "G", "B", "A"};
  return std::equal(
             part.channels.begin(), part.channels.end(), names.begin(), names.end(),
             [](const ExrPart::Channel& channel, std::string_view name) { return channel.name == name; }) &&
         part.x == part.display_x && part.y == part.display_y && part.width == part.display_width &&
         part.height == part.display_height;
}

int thread_count(int threads) {
  return std::max(1, threads > 0 ? threads : static_cast<int>(std::thread::hardware_concurrency()));
}

}  // namespace

struct ExrFile::State {
  FileAttributes attributes;
  double stat_s = 0;
  std::unique_ptr<exr::File> file;
  exr::Subimages subimages;
  std::vector<ExrPart> parts;

  bool add_part(int index) {
    std::optional<exr::Part> part = file->part(index);
    // A file that is cut there is one of which to say so before anything is begun with it.
    if (!part || part->display_width == 0 || !file->has_last_chunk(*part)) return false;
    std::vector<int> order = exr::listed_order(part->channels);
    parts.push_back(
        part_of(subimages.emplace(index, exr::Subimage{*std::move(part), std::move(order)}).first->second));
    return true;
  }

  // Whether its pixels, as floats, are not more than what memory or the file can hold.
  bool believable(const exr::Part& part) const {
    const auto row_bytes = static_cast<uint64_t>(part.width) * static_cast<uint64_t>(part.pixel_bytes);
    const Claim claim{part.width, part.height, static_cast<int64_t>(part.channels.size()), row_bytes,
                      exr_ratio(part.compression)};
    return refusal(claim, attributes).empty();
  }

  bool is_plain() const {
    return parts.size() == 1 && fills_display(parts[0]);
  }

  // How many values a plain image has; nothing for any other.
  std::optional<size_t> plain_values() const {
    const exr::Part& part = subimages.at(0).part;
    if (!is_plain() || !believable(part)) return std::nullopt;
    return float_count(part.width, part.height, 4);
  }

  bool fits(const Read& read) const {
    const auto found = subimages.find(read.subimage);
    return found != subimages.end() && exr::fits(read, found->second);
  }
};

ExrFile::ExrFile(std::unique_ptr<State> state) : state_(std::move(state)) {}

ExrFile::~ExrFile() = default;

std::unique_ptr<ExrFile> ExrFile::open(const std::string& path) {
  auto state = std::make_unique<State>();
  const DecodeClock::time_point asking = DecodeClock::now();
  state->attributes = file_attributes(path);
  state->stat_s = ms_since(asking) * 1e-3;
  if (!state->attributes.found || state->attributes.endless) return nullptr;
  state->file = exr::File::open(path);
  if (!state->file) return nullptr;
  const int parts = state->file->parts();
  for (int i = 0; i < parts; ++i)
    if (!state->add_part(i)) return nullptr;
  return parts > 0 ? std::unique_ptr<ExrFile>(new ExrFile(std::move(state))) : nullptr;
}

const std::vector<ExrPart>& ExrFile::parts() const {
  return state_->parts;
}

bool ExrFile::is_plain() const {
  return state_->is_plain();
}

std::string ExrFile::text(int part, const std::string& attribute) const {
  return state_->file->text(part, attribute);
}

void ExrFile::decode_plain(int threads, DecodeResult& out) const {
  const DecodeClock::time_point start = DecodeClock::now();
  out = {};
  out.has_mtime = state_->attributes.found;
  out.mtime_ns = state_->attributes.mtime_ns;
  out.stat_s = state_->stat_s;
  out.status = decode_other;
  try {
    const exr::Subimage& subimage = state_->subimages.at(0);
    const exr::Part& part = subimage.part;
    const std::optional<size_t> count = state_->plain_values();
    if (!count) return;
    auto pixels = uninitialised<float>(*count);
    double placing_ms = 0;
    if (!exr::decode(*state_->file, subimage, thread_count(threads), pixels.get(), placing_ms)) return;
    const bool half = std::all_of(part.channels.begin(), part.channels.end(),
                                  [](const exr::Channel& each) { return each.type == exr::Type::half; });
    out.convert_ms = half ? placing_ms : 0;
    out.read_ms = ms_since(start) - out.convert_ms;
    out.pixels = std::move(pixels);
    out.width = part.width;
    out.height = part.height;
    out.status = decode_done;
  } catch (const std::exception&) {
    out.status = decode_other;
  }
}

std::unique_ptr<uint16_t[]> ExrFile::decode_halves(int threads) const {
  try {
    const std::optional<size_t> count = state_->plain_values();
    if (!count) return nullptr;
    auto pixels = uninitialised<uint16_t>(*count);
    const bool whole =
        exr::decode_halves(*state_->file, state_->subimages.at(0), thread_count(threads), pixels.get());
    return whole ? std::move(pixels) : nullptr;
  } catch (const std::exception&) {
    return nullptr;
  }
}

bool ExrFile::load_layers(const std::vector<Read>& reads, const std::vector<std::array<Slot, 4>>& slots,
                          int width, int height, int threads, const std::vector<float*>& outs,
                          Stats* stats) const {
  const DecodeClock::time_point start = DecodeClock::now();
  const LayerPlan plan{reads, slots, width, height, threads, outs};
  double placing_ms = 0;
  try {
    const bool whole =
        plan_error(plan).empty() &&
        std::all_of(reads.begin(), reads.end(), [&](const Read& read) { return state_->fits(read); });
    const int workers = std::max(1, band_limit(thread_count(threads)));
    if (!whole || !exr::load(*state_->file, state_->subimages, plan, workers, placing_ms)) return false;
  } catch (const std::exception&) {
    return false;
  }
  if (stats) *stats = {0, ms_since(start) - placing_ms, placing_ms};
  return true;
}

}  // namespace qv::io
