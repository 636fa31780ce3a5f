#include "host/plates/headers.h"

#include <qv/io/decode.h>

#include "host/files/made.h"
#include "host/files/pattern.h"
#include "host/plates/contents.h"
#include "host/plates/open_file.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <sys/stat.h>

namespace host::plates {
namespace {

namespace fs = std::filesystem;

constexpr int most_subimages = 1000;
constexpr size_t most_headers = 4096;

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& each : result) each = static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
  return result;
}

// Readers call floats "Linear" without asking; whole numbers only where the file says so. A gamma
// stands for the curve of a screen, as PNG files give it.
std::string color_of(const OIIO::ImageSpec& spec) {
  const std::string note = spec.get_string_attribute("ImageDescription");
  if (note == files::color_note(true)) return "sRGB";
  if (note == files::color_note(false)) return "linear";
  std::string space = spec.get_string_attribute("oiio:ColorSpace");
  const bool profile =
      lower(spec.get_string_attribute("ICCProfile:profile_description")).find("linear") != std::string::npos;
  if (lower(space) == "linear" || (space.empty() && profile)) return "linear";
  if (space == "sRGB" || space.starts_with("Gamma")) return "sRGB";
  if (!space.empty()) return space;
  return spec.format.is_floating_point() ? "linear" : "sRGB";
}

Attributes ask(const std::string& path) {
  Attributes attributes;
  struct stat found = {};
  attributes.exists = ::stat(path.c_str(), &found) == 0;
  attributes.regular = attributes.exists && S_ISREG(found.st_mode);
  if (!attributes.regular) return attributes;
  attributes.size = found.st_size;
  attributes.mtime_ns = int64_t{found.st_mtim.tv_sec} * 1000000000 + found.st_mtim.tv_nsec;
  return attributes;
}

Header read_header(const std::string& path, const Attributes& attributes, OpenFile& file) {
  Header header;
  if (!attributes.regular) {
    header.error = path + (attributes.exists ? ": is no file" : ": no such file");
    return header;
  }
  file.input = OIIO::ImageInput::open(path);
  const auto& input = file.input;
  if (!input) {
    header.error = path + ": " + OIIO::geterror();
    return header;
  }
  header.color = color_of(input->spec());
  const bool exr = std::string_view(input->format_name()) == "openexr";
  int parts = 0;
  for (; parts < most_subimages && input->seek_subimage(parts, 0); ++parts) {
    add_part(input->spec(), parts, exr, header.contents);
  }
  (void)input->geterror();
  name_layers(parts, header.contents);
  if (header.contents.layers.empty()) header.error = path + ": has no channels";
  header.plain = parts == 1 && header.contents.layers.size() == 1 && input->seek_subimage(0, 0) &&
                 qv::io::is_plain(input->spec());
  return header;
}

// Eight bytes at a time, each step of which loses nothing: two files that differ in one word never agree.
class Mixer {
 public:
  void add(uint64_t word) {
    state_ = std::rotl((state_ ^ word) * 0x9e3779b97f4a7c15ULL, 29) * 0xbf58476d1ce4e5b9ULL;
  }
  int64_t result() const {
    return static_cast<int64_t>((state_ ^ (state_ >> 31)) >> 1);
  }

 private:
  uint64_t state_ = 0x94d049bb133111ebULL;
};

int64_t content_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::vector<char> block(size_t{1} << 20);
  Mixer mixer;
  uint64_t size = 0;
  while (stream.read(block.data(), static_cast<std::streamsize>(block.size())) || stream.gcount() > 0) {
    const auto count = static_cast<size_t>(stream.gcount());
    std::fill(block.begin() + static_cast<std::ptrdiff_t>(count), block.end(), '\0');
    for (size_t at = 0; at < count; at += sizeof(uint64_t)) {
      uint64_t word = 0;
      std::memcpy(&word, block.data() + at, sizeof word);
      mixer.add(word);
    }
    size += count;
  }
  mixer.add(size);
  return stream.bad() || size == 0 ? 0 : mixer.result();
}

// The frame number that turns the pattern into this file name.
std::optional<int64_t> frame_of(const std::string& pattern, const std::string& name) {
  // Every run of digits is a candidate; the one that leads back to the name is the frame.
  for (size_t begin = 0; begin < name.size(); ++begin) {
    const bool digit = name[begin] >= '0' && name[begin] <= '9';
    const bool starts = begin == 0 || name[begin - 1] < '0' || name[begin - 1] > '9';
    if (!(digit && starts) && name[begin] != '-') continue;
    int64_t frame = 0;
    const auto result = std::from_chars(name.data() + begin, name.data() + name.size(), frame);
    if (result.ec == std::errc() && files::frame_path(pattern, frame) == name) return frame;
  }
  return std::nullopt;
}

}  // namespace

// The entry of a path under these attributes, made anew where it stood under others.
Headers::Entry& Headers::entry(const std::string& path, const Attributes& attributes) {
  if (const auto found = known_.find(path); found != known_.end()) {
    if (found->second.attributes != attributes) found->second = {attributes, nullptr, {}};
    return found->second;
  }
  if (order_.size() >= most_headers) {
    const auto half = order_.begin() + static_cast<std::ptrdiff_t>(most_headers / 2);
    for (auto oldest = order_.begin(); oldest != half; ++oldest) known_.erase(*oldest);
    order_.erase(order_.begin(), half);
  }
  order_.push_back(path);
  return known_[path] = {attributes, nullptr, {}};
}

Attributes Headers::attributes(const std::string& path) {
  const Attributes attributes = ask(path);
  const std::lock_guard lock(mutex_);
  entry(path, attributes);
  return attributes;
}

int64_t Headers::content(const std::string& path) {
  const Attributes now = attributes(path);
  if (!now.regular) return 0;
  {
    const std::lock_guard lock(mutex_);
    if (const auto& known = entry(path, now).content) return *known;
  }
  const int64_t content = content_of(path);
  const std::lock_guard lock(mutex_);
  entry(path, now).content = content;
  return content;
}

// As they were last asked for; asked for now where they never were.
Attributes Headers::expected(const std::string& path) {
  {
    const std::lock_guard lock(mutex_);
    if (const auto found = known_.find(path); found != known_.end()) return found->second.attributes;
  }
  return attributes(path);
}

HeaderPtr Headers::known(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  const auto found = known_.find(path);
  return found == known_.end() ? nullptr : found->second.header;
}

HeaderPtr Headers::read(const std::string& path, std::shared_ptr<OpenFile>* file) {
  if (HeaderPtr header = known(path)) return header;
  const Attributes attributes = expected(path);
  const auto opened = std::make_shared<OpenFile>();
  HeaderPtr header = std::make_shared<const Header>(read_header(path, attributes, *opened));
  if (file && opened->input) *file = opened;
  {
    const std::lock_guard lock(mutex_);
    // Others, asked for meanwhile, are those of a newer file.
    const auto found = known_.find(path);
    if (found == known_.end() || found->second.attributes == attributes) {
      entry(path, attributes).header = header;
    }
  }
  learned_.notify_all();
  return header;
}

HeaderPtr Headers::get(const std::string& path) {
  {
    std::unique_lock lock(mutex_);
    learned_.wait(lock, [&] {
      const auto found = known_.find(path);
      return (found != known_.end() && found->second.header) || promised_.count(path) == 0;
    });
  }
  return read(path);
}

std::shared_ptr<void> Headers::promise(const std::string& path) {
  const auto end = [this, path](void*) {
    {
      const std::lock_guard lock(mutex_);
      const auto found = promised_.find(path);
      if (--found->second == 0) promised_.erase(found);
    }
    learned_.notify_all();
  };
  {
    const std::lock_guard lock(mutex_);
    ++promised_[path];
  }
  return {this, end};
}

Layer Headers::layer(const Source& source, const Header& header) const {
  if (!header.error.empty()) throw std::runtime_error(header.error);
  try {
    Layer layer = select(header.contents, source.layer, source.channels);
    const int64_t width = box_width(layer.extent.window);
    const int64_t height = box_height(layer.extent.window);
    if (std::max(width, height) > most_side_) {
      throw std::runtime_error("an image of " + std::to_string(width) + " x " + std::to_string(height) +
                               " pixels is larger than the device's textures");
    }
    return layer;
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(source.path + ": " + error.what());
  }
}

std::optional<std::pair<int64_t, int64_t>> Headers::frames_on_disk(const std::string& pattern) {
  const std::lock_guard lock(ranges_mutex_);
  const auto [place, added] = ranges_.try_emplace(pattern);
  if (!added) return place->second;
  const fs::path whole(pattern);
  const std::string name_pattern = whole.filename().string();
  std::error_code error;
  const fs::path folder = whole.has_parent_path() ? whole.parent_path() : fs::path(".");
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    const auto frame = frame_of(name_pattern, at->path().filename().string());
    if (!frame) continue;
    if (!place->second) place->second.emplace(*frame, *frame);
    place->second->first = std::min(place->second->first, *frame);
    place->second->second = std::max(place->second->second, *frame);
  }
  return place->second;
}

}  // namespace host::plates
