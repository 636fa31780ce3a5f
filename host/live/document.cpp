#include "host/live/document.h"

#include "host/files/atomic_file.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace host::live {
namespace {

std::optional<std::string> content(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return std::nullopt;
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (stream.bad()) return std::nullopt;
  return text;
}

std::string read(const std::filesystem::path& file) {
  errno = 0;
  if (auto text = content(file)) return std::move(*text);
  throw shot::CompositionError(file.string() + ": cannot be read: " + std::generic_category().message(errno));
}

}  // namespace

Document::Document(const std::filesystem::path& file, const std::optional<Kept>& kept)
    : file_(file), known_(kept ? kept->known : read(file)) {
  if (kept) {
    take(kept->text, kept->version);
    look();
  } else {
    disk_ = known_;
    take(known_, 1);
  }
}

Document::State Document::now() const {
  const std::lock_guard lock(mutex_);
  return state();
}

Document::Kept Document::kept() const {
  const std::lock_guard lock(mutex_);
  return {versions_.back().number, *text_, known_};
}

Document::CompositionPtr Document::composition(int64_t version) const {
  const std::lock_guard lock(mutex_);
  if (version == 0) return versions_.back().composition;
  for (const Version& each : versions_) {
    if (each.number == version) return each.composition;
  }
  return nullptr;
}

Document::State Document::edit(int64_t base, std::string text) {
  const std::lock_guard lock(mutex_);
  if (base != versions_.back().number) throw Outdated("there is a newer version of the composition");
  if (text != *text_) take(std::move(text));
  return state();
}

std::optional<std::string> Document::save(int64_t version, bool force) {
  const std::lock_guard lock(mutex_);
  if (version != versions_.back().number) throw Outdated("there is a newer version of the composition");
  disk_ = content(file_);
  if (!force && changed()) return disk_;
  files::write_whole(file_, {reinterpret_cast<const unsigned char*>(text_->data()), text_->size()});
  known_ = *text_;
  disk_ = known_;
  return std::nullopt;
}

Document::State Document::reload() {
  const std::lock_guard lock(mutex_);
  std::string text = read(file_);
  disk_ = text;
  if (text != *text_) take(text);
  known_ = std::move(text);
  return state();
}

std::string Document::look() {
  const std::lock_guard lock(mutex_);
  disk_ = content(file_);
  // An editor that empties a file before it writes it, or moves it away, has not finished.
  if (!disk_ || disk_->empty() || !changed() || known_ != *text_) return "";
  try {
    take(*disk_);
    known_ = *disk_;
    return "";
  } catch (const shot::CompositionError& error) {
    return error.what();
  }
}

bool Document::changed() const {
  return disk_ && !disk_->empty() && *disk_ != known_ && *disk_ != *text_;
}

Document::State Document::state() const {
  const Version& newest = versions_.back();
  return {newest.number, text_, newest.composition, disk_ && *disk_ == *text_, changed()};
}

void Document::take(std::string text) {
  take(std::move(text), versions_.back().number + 1);
}

void Document::take(std::string text, int64_t number) {
  auto composition = std::make_shared<const shot::Composition>(shot::parse_composition(text, file_));
  versions_.push_back({number, std::move(composition)});
  if (versions_.size() > kept_versions) versions_.pop_front();
  text_ = std::make_shared<const std::string>(std::move(text));
}

}  // namespace host::live
