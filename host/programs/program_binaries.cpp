#include "host/programs/program_binaries.h"

#include <qv/version.h>

#include "host/files/atomic_file.h"
#include "host/gpu/gl_functions.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

namespace host::programs {
namespace {

namespace fs = std::filesystem;
using gpu::gl;
using Bytes = std::vector<unsigned char>;

constexpr size_t most_entries = 512;
constexpr uint64_t most_bytes = uint64_t{64} << 20;
constexpr uint64_t largest_entry = uint64_t{16} << 20;

// What an entry begins with; the identity and the binary follow it, and nothing follows them.
struct Head {
  std::array<char, 8> magic = {'q', 'v', 'p', 'r', 'o', 'g', '0', '1'};
  uint64_t identity_size = 0;
  uint64_t binary_size = 0;
  uint64_t check = 0;  // of both
  uint64_t format = 0;
};
static_assert(sizeof(Head) == 40);

// FNV-1a: a name for a text, and a check against decay. Texts are compared as well.
uint64_t hash_of(std::string_view text, uint64_t hash = 0xcbf29ce484222325U) {
  for (const char each : text) {
    hash ^= static_cast<unsigned char>(each);
    hash *= 0x100000001b3U;
  }
  return hash;
}

std::string_view text_of(const Bytes& bytes, size_t at, size_t size) {
  return {reinterpret_cast<const char*>(bytes.data()) + at, size};
}

fs::path entry_path(const fs::path& folder, std::string_view identity) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string name;
  const uint64_t hash = hash_of(identity);
  for (int shift = 60; shift >= 0; shift -= 4) name += digits[(hash >> shift) & 15];
  return folder / (name + ".bin");
}

Bytes read_bytes(const fs::path& path) {
  std::error_code error;
  const uint64_t size = fs::file_size(path, error);
  if (error || size > largest_entry) return {};
  Bytes bytes(static_cast<size_t>(size));
  std::ifstream stream(path, std::ios::binary);
  stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return stream ? bytes : Bytes();
}

// The head of a whole entry of this identity.
std::optional<Head> head_of(const Bytes& entry, std::string_view identity) {
  Head head;
  const auto magic = head.magic;
  if (entry.size() < sizeof head) return std::nullopt;
  std::memcpy(&head, entry.data(), sizeof head);
  const size_t rest = entry.size() - sizeof head;
  if (head.magic != magic || head.identity_size != identity.size() || rest < identity.size() ||
      head.binary_size != rest - identity.size() || head.binary_size == 0 ||
      text_of(entry, sizeof head, identity.size()) != identity ||
      hash_of(text_of(entry, sizeof head, rest)) != head.check)
    return std::nullopt;
  return head;
}

// An entry that is used stays; its time need not be exact.
void note_use(const fs::path& path) {
  std::error_code error;
  const auto now = fs::file_time_type::clock::now();
  const auto used = fs::last_write_time(path, error);
  if (!error && used < now - std::chrono::hours(24)) fs::last_write_time(path, now, error);
}

struct Entry {
  fs::file_time_type used;
  uint64_t bytes = 0;
  fs::path path;
};

std::vector<Entry> entries_of(const fs::path& folder) {
  std::vector<Entry> entries;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    if (at->path().extension() != ".bin") continue;
    std::error_code gone;  // another process may have removed it
    Entry entry{at->last_write_time(gone), 0, at->path()};
    if (!gone) entry.bytes = at->file_size(gone);
    if (!gone) entries.push_back(std::move(entry));
  }
  return entries;
}

void remove_least_used(const fs::path& folder) {
  std::vector<Entry> entries = entries_of(folder);
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.used > b.used; });
  uint64_t bytes = 0;
  for (size_t i = 0; i < entries.size(); ++i) {
    bytes += entries[i].bytes;
    std::error_code ignored;
    if (i >= most_entries || bytes > most_bytes) fs::remove(entries[i].path, ignored);
  }
}

std::string gl_text(int name) {
  const auto* const text = reinterpret_cast<const char*>(gl.GetString(static_cast<GLenum>(name)));
  return text ? text : "";
}

std::vector<int> taken_formats() {
  int count = 0;
  gl.GetIntegerv(GL_NUM_PROGRAM_BINARY_FORMATS, &count);
  std::vector<int> formats(static_cast<size_t>(std::max(0, count)));
  if (!formats.empty()) gl.GetIntegerv(GL_PROGRAM_BINARY_FORMATS, formats.data());
  return formats;
}

}  // namespace

ProgramBinaries::ProgramBinaries(fs::path folder) : folder_(std::move(folder)) {
  if (folder_.empty()) return;
  formats_ = taken_formats();
  for (const int each : {GL_VENDOR, GL_RENDERER, GL_VERSION}) driver_ += gl_text(each) + "\n";
}

ProgramBinaries::~ProgramBinaries() {
  if (!added_) return;
  try {
    remove_least_used(folder_);
    files::remove_leftovers(folder_);
  } catch (const std::exception&) {
    return;  // the next to add an entry tries again
  }
}

fs::path ProgramBinaries::default_folder() {
  const char* const cache = std::getenv("XDG_CACHE_HOME");
  if (cache && fs::path(cache).is_absolute()) return fs::path(cache) / "quorvel" / "programs";
  const char* const home = std::getenv("HOME");
  if (!home || !fs::path(home).is_absolute()) return {};
  return fs::path(home) / ".cache" / "quorvel" / "programs";
}

// Everything that a binary depends on. No text holds a zero.
std::string ProgramBinaries::identity(std::string_view vertex, std::string_view fragment) const {
  std::string text = driver_;
  text.append(qv::core_version()).append(1, '\0').append(vertex).append(1, '\0').append(fragment);
  return text;
}

bool ProgramBinaries::restore(uint32_t program, std::string_view vertex, std::string_view fragment) {
  if (formats_.empty()) return false;
  const std::string wanted = identity(vertex, fragment);
  const fs::path path = entry_path(folder_, wanted);
  const Bytes entry = read_bytes(path);
  const auto head = head_of(entry, wanted);
  if (!head) return false;
  const auto takes = [&](int format) { return static_cast<uint64_t>(format) == head->format; };
  if (std::none_of(formats_.begin(), formats_.end(), takes)) return false;
  gl.ProgramBinary(program, static_cast<GLenum>(head->format), entry.data() + sizeof(Head) + wanted.size(),
                   static_cast<int>(head->binary_size));
  int good = 0;
  gl.GetProgramiv(program, GL_LINK_STATUS, &good);
  if (good) note_use(path);
  return good != 0;
}

void ProgramBinaries::announce(uint32_t program) const {
  if (!formats_.empty()) gl.ProgramParameteri(program, GL_PROGRAM_BINARY_RETRIEVABLE_HINT, 1);
}

void ProgramBinaries::keep(uint32_t program, std::string_view vertex, std::string_view fragment) {
  int size = 0;
  if (!formats_.empty()) gl.GetProgramiv(program, GL_PROGRAM_BINARY_LENGTH, &size);
  if (size <= 0) return;
  const std::string made_of = identity(vertex, fragment);
  Bytes entry(sizeof(Head) + made_of.size() + static_cast<size_t>(size));
  GLenum format = 0;
  int written = 0;
  gl.GetProgramBinary(program, size, &written, &format, entry.data() + sizeof(Head) + made_of.size());
  if (written <= 0 || entry.size() > largest_entry) return;
  entry.resize(sizeof(Head) + made_of.size() + static_cast<size_t>(written));
  std::copy(made_of.begin(), made_of.end(), entry.begin() + sizeof(Head));
  Head head;
  head.identity_size = made_of.size();
  head.binary_size = static_cast<uint64_t>(written);
  head.check = hash_of(text_of(entry, sizeof head, entry.size() - sizeof head));
  head.format = format;
  std::memcpy(entry.data(), &head, sizeof head);
  try {
    files::write_whole(entry_path(folder_, made_of), entry);
    added_ = true;
  } catch (const std::exception&) {
    formats_.clear();  // a folder that takes one entry no better than the next
  }
}

}  // namespace host::programs
