#include "host/files/whole.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ios>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace host::files {
namespace {

// Numbers of a file, in its order of bytes; after the first that is not there, nothing more is.
class Numbers {
 public:
  explicit Numbers(const std::string& path) : stream_(path, std::ios::binary) {}

  bool good() const {
    return static_cast<bool>(stream_);
  }
  void go_to(uint64_t place) {
    stream_.seekg(static_cast<std::streamoff>(place));
  }
  void order(bool little) {
    little_ = little;
  }
  uint64_t next(size_t bytes) {
    std::array<char, 8> read{};
    if (!stream_.read(read.data(), static_cast<std::streamsize>(bytes))) return 0;
    if (little_) std::reverse(read.begin(), read.begin() + static_cast<std::ptrdiff_t>(bytes));
    uint64_t number = 0;
    for (size_t i = 0; i < bytes; ++i) number = number << 8 | static_cast<unsigned char>(read.at(i));
    return number;
  }

 private:
  std::ifstream stream_;
  bool little_ = false;
};

bool jpeg_ends(const std::string& path, uint64_t size) {
  constexpr unsigned char mark = 0xff, end = 0xd9, first_alone = 0xd0, last_alone = 0xd8;
  std::vector<unsigned char> bytes(static_cast<size_t>(size));
  std::ifstream stream(path, std::ios::binary);
  if (!stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size))) return false;
  for (auto at = bytes.begin(); (at = std::find(at, bytes.end(), mark)) != bytes.end();) {
    at = std::find_if(at, bytes.end(), [](unsigned char byte) { return byte != mark; });
    if (at == bytes.end()) return false;
    const unsigned char kind = *at++;
    if (kind == end) return true;
    // A byte of the image's own, and marks that no length follows.
    if (kind <= 1 || (kind >= first_alone && kind <= last_alone)) continue;
    if (bytes.end() - at < 2) return false;
    at += std::min<std::ptrdiff_t>(bytes.end() - at, at[0] << 8 | at[1]);
  }
  return false;
}

// What of a TIFF file depends on which of the two kinds it is.
struct TiffSizes {
  size_t place, count, entry;
};

// A row of numbers that an entry of a TIFF directory stands for: its value, or where that lies.
struct Table {
  size_t bytes = 0;  // of a number
  uint64_t count = 0;
  uint64_t place = 0;

  std::vector<uint64_t> read(Numbers& file, uint64_t file_size) const {
    std::vector<uint64_t> numbers;
    if (bytes == 0 || count > file_size / bytes) return numbers;
    file.go_to(place);
    numbers.reserve(static_cast<size_t>(count));
    for (uint64_t i = 0; i < count && file.good(); ++i) numbers.push_back(file.next(bytes));
    return numbers;
  }
};

// The tables of where strips or tiles begin, and how many bytes each has.
struct Strips {
  Table places, bytes;
};

Strips strips_of(Numbers& file, const TiffSizes& sizes, uint64_t directory) {
  constexpr uint64_t strip_places = 273, strip_bytes = 279, tile_places = 324, tile_bytes = 325;
  Strips strips;
  file.go_to(directory);
  const uint64_t entries = file.next(sizes.entry == 12 ? 2 : 8);
  for (uint64_t i = 0, at = directory + (sizes.entry == 12 ? 2 : 8); i < entries && file.good();
       ++i, at += sizes.entry) {
    file.go_to(at);
    const uint64_t tag = file.next(2), type = file.next(2);
    const bool places = tag == strip_places || tag == tile_places;
    if (!places && tag != strip_bytes && tag != tile_bytes) continue;
    Table& table = places ? strips.places : strips.bytes;
    table.bytes = type == 3 ? 2 : type == 4 ? 4 : 8;
    table.count = file.next(sizes.count);
    const uint64_t value = at + 4 + sizes.count;
    table.place = table.count * table.bytes <= sizes.place ? value : file.next(sizes.place);
  }
  return strips;
}

// Where the directory of a part stands; nothing where there is none.
std::optional<uint64_t> directory_of(Numbers& file, const TiffSizes& sizes, int part) {
  uint64_t directory = file.next(sizes.place);
  for (int i = 0; i < part && directory != 0 && file.good(); ++i) {
    file.go_to(directory);
    const size_t head = sizes.entry == 12 ? 2 : 8;
    const uint64_t entries = file.next(head);
    file.go_to(directory + head + entries * sizes.entry);
    directory = file.next(sizes.place);
  }
  return file.good() && directory != 0 ? std::optional(directory) : std::nullopt;
}

bool tiff_ends(Numbers file, uint64_t file_size, int part) {
  file.order(file.next(2) == 0x4949);  // "II"
  const bool large = file.next(2) == 43;
  if (large) file.go_to(8);
  const TiffSizes sizes = large ? TiffSizes{8, 8, 20} : TiffSizes{4, 4, 12};
  const auto directory = directory_of(file, sizes, part);
  if (!directory) return false;
  const Strips strips = strips_of(file, sizes, *directory);
  const std::vector<uint64_t> places = strips.places.read(file, file_size);
  const std::vector<uint64_t> bytes = strips.bytes.read(file, file_size);
  if (!file.good()) return false;
  for (size_t i = 0; i < places.size(); ++i) {
    const uint64_t length = i < bytes.size() ? bytes[i] : 0;
    if (places[i] > file_size || length > file_size - places[i]) return false;
  }
  return true;
}

bool dpx_ends(Numbers file, uint64_t file_size) {
  file.order(file.next(4) == 0x58504453);  // "XPDS"
  file.go_to(16);
  const uint64_t told = file.next(4);
  return file.good() && (told == 0xffffffff || file_size >= told);
}

}  // namespace

bool ends_whole(const std::string& path, std::string_view format, int part) {
  std::error_code error;
  const uint64_t size = std::filesystem::file_size(path, error);
  if (error) return false;
  if (format == "jpeg") return jpeg_ends(path, size);
  if (format == "tiff") return tiff_ends(Numbers(path), size, part);
  return format != "dpx" || dpx_ends(Numbers(path), size);
}

}  // namespace host::files
