#include "host/live/client.h"

#include "host/live/http/server.h"

#include <algorithm>

namespace host::live {
namespace {

constexpr size_t unwished_kept = 2;  // of a slot: so that scrubbing shows something
constexpr size_t most_events = 256;

}  // namespace

uint64_t Client::open(Stream stream) {
  const std::lock_guard lock(mutex_);
  open_[stream] = ++last_number_;
  if (stream == Stream::events) events_.clear();
  changed_.notify_all();
  return last_number_;
}

bool Client::close(Stream stream, uint64_t number) {
  const std::lock_guard lock(mutex_);
  const auto found = open_.find(stream);
  if (found != open_.end() && found->second == number) open_.erase(found);
  return open_.empty();
}

void Client::end() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

bool Client::is_open(Stream stream) const {
  const std::lock_guard lock(mutex_);
  return open_.count(stream) > 0;
}

void Client::set_wished(std::set<uint64_t> ids) {
  const std::lock_guard lock(mutex_);
  wished_ = std::move(ids);
  for (const char slot : {'a', 'b'}) drop_unwished(slot);
}

void Client::push(session::Drawn drawn) {
  const std::lock_guard lock(mutex_);
  const char slot = drawn.wish.slot;
  frames_.push_back(std::move(drawn));
  drop_unwished(slot);
  changed_.notify_all();
}

// The oldest go.
void Client::drop_unwished(char slot) {
  const auto unwished = [&](const session::Drawn& each) {
    return each.wish.slot == slot && wished_.count(each.wish.id) == 0;
  };
  auto extra = static_cast<size_t>(std::count_if(frames_.begin(), frames_.end(), unwished));
  for (auto at = frames_.begin(); extra > unwished_kept;) {
    at = std::find_if(at, frames_.end(), unwished);
    at = frames_.erase(at);
    --extra;
  }
}

void Client::tell(const std::string& name, const std::string& key, std::string data) {
  const std::lock_guard lock(mutex_);
  if (open_.count(Stream::events) == 0) return;
  const auto same = [&](const Told& each) { return each.name == name && each.key == key; };
  std::erase_if(events_, same);
  if (events_.size() == most_events) events_.pop_front();
  events_.push_back({name, key, std::move(data)});
  changed_.notify_all();
}

bool Client::goes_on(Stream stream, uint64_t number) const {
  const auto found = open_.find(stream);
  return !ended_ && found != open_.end() && found->second == number;
}

Client::Next<session::Drawn> Client::next_frame(uint64_t number, Wait wait) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, wait, [&] { return !goes_on(Stream::frames, number) || !frames_.empty(); });
  if (!goes_on(Stream::frames, number)) return {true, {}};
  if (frames_.empty()) return {};
  Next<session::Drawn> next{false, std::move(frames_.front())};
  frames_.pop_front();
  return next;
}

Client::Next<Client::Event> Client::next_event(uint64_t number, Wait wait) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, wait, [&] { return !goes_on(Stream::events, number) || !events_.empty(); });
  if (!goes_on(Stream::events, number)) return {true, {}};
  if (events_.empty()) return {};
  Next<Event> next{false, Event{std::move(events_.front().name), std::move(events_.front().data)}};
  events_.pop_front();
  return next;
}

std::shared_ptr<Client> Clients::get(const std::string& name) {
  const std::lock_guard lock(mutex_);
  auto& client = clients_[name];
  if (client) return client;
  client = std::make_shared<Client>();
  if (ended_) client->end();
  if (clients_.size() <= most) return client;
  // One that asked and never listened.
  const auto silent = std::find_if(clients_.begin(), clients_.end(), [&](const auto& each) {
    return each.first != name && !each.second->is_open(Client::Stream::frames) &&
           !each.second->is_open(Client::Stream::events);
  });
  if (silent == clients_.end()) {
    clients_.erase(name);
    throw http::Error(503, "too many pages are open");
  }
  auto made = client;
  clients_.erase(silent);
  return made;
}

std::shared_ptr<Client> Clients::find(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  const auto found = clients_.find(name);
  return found == clients_.end() ? nullptr : found->second;
}

void Clients::remove(const std::string& name) {
  const std::lock_guard lock(mutex_);
  clients_.erase(name);
}

void Clients::tell_all(const std::string& name, const std::string& key, const std::string& data) const {
  const std::lock_guard lock(mutex_);
  for (const auto& each : clients_) each.second->tell(name, key, data);
}

void Clients::end_all() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  for (const auto& each : clients_) each.second->end();
}

}  // namespace host::live
