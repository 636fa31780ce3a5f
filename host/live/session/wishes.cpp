#include "host/live/session/wishes.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace host::live::session {
namespace {

int64_t resolved(int64_t version, int64_t newest) {
  return version == 0 ? newest : version;
}

}  // namespace

// Whether an image under way that is not listed any more is still worth telling of. `client` holds the new
// list. Another frame, or the same one at another size, is what scrubbing asks for; anything else is another
// picture.
bool Wishes::outlives(const Entry& entry, const Client& client, int64_t newest, Clock::time_point now) const {
  const auto instead = std::find_if(client.entries.begin(), client.entries.end(), [&](const Entry& each) {
    return each.listed && each.wish.slot == entry.wish.slot;
  });
  if (instead == client.entries.end()) return false;
  const Wish& wish = instead->wish;
  const bool same_picture = resolved(wish.version, newest) == entry.version && wish.node == entry.wish.node &&
                            wish.area == entry.wish.area;
  if (!same_picture) return false;
  return entry.stage == Stage::on_its_way || now - client.given > patience || client.took <= quick;
}

bool Wishes::set(const std::string& client_name, std::vector<Wish> wishes, int64_t newest,
                 Clock::time_point now) {
  Client& client = clients_[client_name];
  client.gone = false;
  ++client.lists;
  std::vector<Entry> before = std::exchange(client.entries, {});
  for (Wish& wish : wishes) {
    const auto same_id = [&wish](const Entry& each) { return each.wish.id == wish.id; };
    if (std::any_of(client.entries.begin(), client.entries.end(), same_id)) continue;
    const auto known = std::find_if(before.begin(), before.end(), same_id);
    if (known == before.end()) {
      client.entries.push_back({std::move(wish), now, {}, Stage::wished, true, true, 0, client.lists});
      continue;
    }
    known->listed = known->told = true;
    known->list = client.lists;
    client.entries.push_back(std::move(*known));
    before.erase(known);
  }
  bool ends = false;
  for (Entry& entry : before) {
    if (entry.stage != Stage::in_hand && entry.stage != Stage::on_its_way) continue;
    entry.listed = false;
    entry.told = entry.told && outlives(entry, client, newest, now);
    ends = ends || (entry.stage == Stage::in_hand && !entry.told);
    client.entries.push_back(std::move(entry));
  }
  return ends;
}

bool Wishes::leave(const std::string& client_name) {
  const auto client = clients_.find(client_name);
  if (client == clients_.end()) return false;
  client->second.gone = true;
  bool ends = false;
  for (Entry& entry : client->second.entries) {
    entry.listed = entry.told = false;
    ends = ends || entry.stage == Stage::in_hand;
  }
  tidy();
  return ends;
}

bool Wishes::pending() const {
  for (const auto& [name, client] : clients_) {
    for (const Entry& entry : client.entries) {
      if (entry.listed && entry.stage == Stage::wished) return true;
    }
  }
  return false;
}

std::optional<Wishes::Job> Wishes::take(int64_t newest, Clock::time_point now) {
  // From the client behind the last one, round to that.
  const auto after = clients_.upper_bound(last_);
  std::vector<std::map<std::string, Client>::iterator> order;
  for (auto at = after; at != clients_.end(); ++at) order.push_back(at);
  for (auto at = clients_.begin(); at != after; ++at) order.push_back(at);
  for (const auto& at : order) {
    std::optional<Job> job;
    for (Entry& entry : at->second.entries) {
      if (!entry.listed || entry.stage != Stage::wished) continue;
      const Wish& wish = entry.wish;
      if (!job) {
        entry.stage = Stage::in_hand;
        entry.taken = now;
        entry.version = resolved(wish.version, newest);
        job = {at->first, wish, entry.asked, {}};
      } else if (wish.node == job->wish.node && wish.version == job->wish.version &&
                 wish.scale == job->wish.scale) {
        job->later.push_back(wish.frame);
      }
    }
    if (!job) continue;
    last_ = at->first;
    return job;
  }
  return std::nullopt;
}

Wishes::Entry* Wishes::in_hand(Client** of) {
  for (auto& [name, client] : clients_) {
    for (Entry& entry : client.entries) {
      if (entry.stage != Stage::in_hand) continue;
      if (of) *of = &client;
      return &entry;
    }
  }
  return nullptr;
}

void Wishes::drawn() {
  if (Entry* const entry = in_hand()) entry->stage = Stage::on_its_way;
}

void Wishes::again() {
  for (auto& [name, client] : clients_) {
    for (Entry& entry : client.entries) {
      if (entry.stage == Stage::in_hand || entry.stage == Stage::on_its_way) entry.stage = Stage::wished;
    }
  }
  tidy();
}

void Wishes::stopped() {
  if (Entry* const entry = in_hand()) entry->stage = Stage::wished;
  tidy();
}

void Wishes::put_off() {
  if (Entry* const entry = in_hand()) entry->stage = Stage::put_off;
  tidy();
}

void Wishes::resume() {
  for (auto& [name, client] : clients_) {
    for (Entry& entry : client.entries) {
      if (entry.stage == Stage::put_off) entry.stage = Stage::wished;
    }
  }
}

bool Wishes::arrived(const std::string& client_name, uint64_t id, Clock::time_point now) {
  const auto client = clients_.find(client_name);
  if (client == clients_.end()) return false;
  bool told = false;
  for (Entry& entry : client->second.entries) {
    if (entry.wish.id != id || (entry.stage != Stage::on_its_way && entry.stage != Stage::in_hand)) continue;
    // Nothing old follows on something newer.
    told = entry.told && entry.list >= client->second.told;
    entry.stage = Stage::answered;
    if (!told) continue;
    client->second.told = entry.list;
    client->second.given = now;
    client->second.took = now - entry.taken;
  }
  tidy();
  return told;
}

int Wishes::on_their_way() const {
  int count = 0;
  for (const auto& [name, client] : clients_) {
    for (const Entry& entry : client.entries) count += entry.stage == Stage::on_its_way ? 1 : 0;
  }
  return count;
}

// Forgets what is neither listed nor under way, and clients that are gone with it.
void Wishes::tidy() {
  for (auto at = clients_.begin(); at != clients_.end();) {
    std::erase_if(at->second.entries, [](const Entry& entry) {
      return !entry.listed && entry.stage != Stage::in_hand && entry.stage != Stage::on_its_way;
    });
    const bool over = at->second.gone && at->second.entries.empty();
    at = over ? clients_.erase(at) : std::next(at);
  }
}

}  // namespace host::live::session
