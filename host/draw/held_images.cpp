#include "host/draw/held_images.h"

#include <iterator>

namespace host::draw {
namespace {

constexpr size_t most_named = 20;

std::string name_of(const HeldImage& image) {
  return "node \"" + image.node + "\": frame " + std::to_string(image.frame);
}

std::string budget_text(const HeldImage& wanted, uint64_t most, const std::list<HeldImage>& held) {
  std::string text = name_of(wanted) + ": its image of " + std::to_string(wanted.bytes) +
                     " bytes has no room in the memory budget of " + std::to_string(most) + " bytes";
  if (held.empty()) return text;
  text += "; held are";
  size_t named = 0;
  for (const HeldImage& image : held) {
    if (++named > most_named) return text + "\n  and " + std::to_string(held.size() - most_named) + " more";
    text += "\n  " + name_of(image) + ": " + std::to_string(image.bytes) + " bytes";
  }
  return text;
}

}  // namespace

std::shared_ptr<void> HeldImages::hold(const HeldImage& image) {
  State& state = *state_;
  std::unique_lock lock(state.mutex);
  if (image.bytes > state.most || state.bytes > state.most - image.bytes)
    throw MemoryBudget(budget_text(image, state.most, state.images));
  state.images.push_back(image);
  state.bytes += image.bytes;
  const auto place = std::prev(state.images.end());
  lock.unlock();
  const auto let_go = [kept = state_, place](void*) {
    const std::lock_guard held(kept->mutex);
    kept->bytes -= place->bytes;
    kept->images.erase(place);
  };
  return {nullptr, let_go};
}

bool HeldImages::room(uint64_t bytes) const {
  const std::lock_guard lock(state_->mutex);
  return bytes <= state_->most && state_->bytes <= state_->most - bytes;
}

std::vector<HeldImage> HeldImages::list() const {
  const std::lock_guard lock(state_->mutex);
  return {state_->images.begin(), state_->images.end()};
}

}  // namespace host::draw
