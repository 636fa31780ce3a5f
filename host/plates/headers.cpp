#include "host/plates/headers.h"

#include "host/plates/contents.h"
#include "host/plates/open_file.h"
#include "host/plates/sequence.h"
#include "host/writer/exr/attributes.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace host::plates {
namespace {

constexpr int most_subimages = 1000;
constexpr size_t most_headers = 4096;
constexpr uint64_t most_metadata = uint64_t{64} << 20;  // bytes

int64_t nanoseconds(const timespec& time) {
  return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

Attributes ask(const std::string& path) {
  Attributes attributes;
  struct stat found = {};
  attributes.exists = ::stat(path.c_str(), &found) == 0;
  attributes.regular = attributes.exists && S_ISREG(found.st_mode);
  if (!attributes.regular) return attributes;
  attributes.size = found.st_size;
  attributes.mtime_ns = nanoseconds(found.st_mtim);
  return attributes;
}

files::MetadataPtr shared(files::Metadata metadata) {
  return metadata.all().empty() ? nullptr : std::make_shared<const files::Metadata>(std::move(metadata));
}

uint64_t metadata_bytes(const HeaderPtr& header) {
  uint64_t sum = 0;
  if (!header) return sum;
  for (const PartInfo& part : header->parts) sum += part.metadata ? part.metadata->bytes() : 0;
  return sum;
}

// EXR's metadata with the types that it has there.
void add_metadata(const std::string& path, std::vector<PartInfo>& parts) {
  std::vector<files::Metadata> read = writer::exr::read_metadata(path);
  for (size_t i = 0; i < std::min(read.size(), parts.size()); ++i)
    parts[i].metadata = shared(std::move(read[i]));
}

bool is_of_halves(const PartInfo& part) {
  return std::all_of(part.channels.begin(), part.channels.end(),
                     [](const PartInfo::Channel& channel) { return channel.type == "half"; });
}

Header header_of(const std::string& path, FileTold told) {
  Header header;
  const bool exr = told.format == "openexr";
  if (exr) add_metadata(path, told.parts);
  const auto parts = static_cast<int>(told.parts.size());
  for (int i = 0; i < parts; ++i) add_part(told.parts[static_cast<size_t>(i)], i, exr, header.contents);
  name_layers(parts, header.contents);
  if (header.contents.layers.empty()) header.error = path + ": has no channels";
  header.format = std::move(told.format);
  header.plain = told.plain && header.contents.layers.size() == 1;
  header.color = std::move(told.color);
  header.parts = std::move(told.parts);
  return header;
}

Header read_header(const std::string& path, const Attributes& attributes, std::shared_ptr<OpenFile>& file) {
  Header header;
  if (!attributes.regular) {
    header.error = path + (attributes.exists ? ": is no file" : ": no such file");
    return header;
  }
  try {
    file = open_file(path);
  } catch (const std::runtime_error& failure) {
    header.error = failure.what();
    return header;
  }
  header = header_of(path, file->told(most_subimages));
  if (header.plain && file->exr && is_of_halves(header.parts[0])) header.contents.layers[0].half = true;
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

// Where folders tell their changes by the second, one may hold more than was read of it until this is over.
constexpr int64_t coarsest_clock_ns = 2'000'000'000;

// When a pattern's folder last changed, and whether what is read of it from now on stays true until it does.
std::pair<int64_t, bool> last_change(const std::string& pattern) {
  struct stat found = {};
  if (::stat(folder_of(pattern).c_str(), &found) != 0) return {0, false};
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const int64_t changed = nanoseconds(found.st_mtim);
  return {changed, nanoseconds(now) - changed > coarsest_clock_ns};
}

}  // namespace

// The entry of a path under these attributes, made anew where it stood under others.
Headers::Entry& Headers::entry(const std::string& path, const Attributes& attributes) {
  if (const auto found = known_.find(path); found != known_.end()) {
    if (found->second.attributes != attributes) {
      metadata_bytes_ -= metadata_bytes(found->second.header);
      found->second = {attributes, nullptr, {}, nullptr};
    }
    return found->second;
  }
  if (order_.size() >= most_headers || metadata_bytes_ > most_metadata) {
    const auto half = order_.begin() + static_cast<std::ptrdiff_t>((order_.size() + 1) / 2);
    for (auto oldest = order_.begin(); oldest != half; ++oldest) {
      const auto gone = known_.find(*oldest);
      metadata_bytes_ -= metadata_bytes(gone->second.header);
      known_.erase(gone);
    }
    order_.erase(order_.begin(), half);
  }
  order_.push_back(path);
  return known_[path] = {attributes, nullptr, {}, nullptr};
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
Attributes Headers::last_attributes(const std::string& path) {
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
  const Attributes attributes = last_attributes(path);
  std::shared_ptr<OpenFile> opened;
  HeaderPtr header = std::make_shared<const Header>(read_header(path, attributes, opened));
  if (file && opened) *file = opened;
  {
    const std::lock_guard lock(mutex_);
    // Others, asked for meanwhile, are those of a newer file.
    const auto found = known_.find(path);
    if (found == known_.end() || found->second.attributes == attributes) {
      HeaderPtr& place = entry(path, attributes).header;
      metadata_bytes_ += metadata_bytes(header);
      metadata_bytes_ -= metadata_bytes(place);
      place = header;
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

files::MetadataPtr Headers::metadata(const Source& source) {
  const HeaderPtr header = get(source.path);
  const auto part = static_cast<size_t>(layer(source, *header).subimage);
  return part < header->parts.size() ? header->parts[part].metadata : nullptr;
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

// `anew`: a folder that has changed is read again.
Headers::Listing& Headers::listing(const std::string& pattern, bool anew) {
  const auto [place, added] = listings_.try_emplace(pattern);
  Listing& listing = place->second;
  if (!added && !anew) return listing;
  const auto [changed, settled] = last_change(pattern);
  if (!added && listing.settled && listing.changed == changed) return listing;
  listing.changed = changed;
  listing.settled = settled;
  listing.frames = std::make_shared<const std::vector<int64_t>>(plates::frames_on_disk(pattern));
  return listing;
}

Headers::Range Headers::frames_on_disk(const std::string& pattern) {
  const std::lock_guard lock(listings_mutex_);
  return listing(pattern, false).range();
}

Headers::Range Headers::look_at_range(const std::string& pattern, int64_t frame) {
  const std::lock_guard lock(listings_mutex_);
  Listing& found = listing(pattern, true);
  if (found.ranges.size() >= most_headers) found.ranges.clear();
  return found.ranges[frame] = found.range();
}

Headers::Range Headers::range_at(const std::string& pattern, int64_t frame) {
  const std::lock_guard lock(listings_mutex_);
  Listing& found = listing(pattern, false);
  const auto known = found.ranges.find(frame);
  return known != found.ranges.end() ? known->second : found.range();
}

FramesPtr Headers::frames_beside(const std::string& path, const std::string& pattern) {
  {
    const std::lock_guard lock(mutex_);
    const auto found = known_.find(path);
    if (found != known_.end() && (found->second.attributes.exists || found->second.beside))
      return found->second.beside;
  }
  return look_beside(path, pattern);
}

FramesPtr Headers::look_beside(const std::string& path, const std::string& pattern) {
  const Attributes file = attributes(path);
  if (file.exists) return nullptr;
  FramesPtr beside;
  {
    const std::lock_guard lock(listings_mutex_);
    beside = listing(pattern, true).frames;
  }
  const std::lock_guard lock(mutex_);
  entry(path, file).beside = beside;
  return beside;
}

}  // namespace host::plates
