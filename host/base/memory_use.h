#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace host {

// Who holds the memory of a render's images.
enum class Owner : uint8_t {
  device,    // textures in use, kept for later and between the passes of a filter
  decoded,   // sources on their way from files, and on to other files where nobody draws with them
  ring,      // buffers of the transfer ring
  sent,      // images on their way to files
  encoders,  // what files are made in
};
constexpr size_t owner_count = 5;

// Bytes of each.
struct Holdings {
  std::array<uint64_t, owner_count> bytes{};

  uint64_t of(Owner owner) const {
    return bytes[static_cast<size_t>(owner)];
  }
  uint64_t sum() const;
};

// The one account of a render's memory: what --memory is held against, what --stats tells and what a
// prediction is made of. A handle: copies keep the same account. Thread-safe.
class MemoryUse {
 public:
  // device_apart: textures lie in a memory of their own, and count for nothing in at_most().
  explicit MemoryUse(bool device_apart = false);

  Holdings now() const;
  Holdings peaks() const;    // the most that each has had
  Holdings at_most() const;  // what each had when all together had most

 private:
  friend class Account;
  struct State;
  std::shared_ptr<State> state_;
};

// What one holder adds to the account; given back when it goes. Externally synchronised.
class Account {
 public:
  Account(MemoryUse use, Owner owner) : use_(std::move(use)), owner_(owner) {}
  ~Account() {
    set(0);
  }
  Account(const Account&) = delete;
  Account& operator=(const Account&) = delete;

  void set(uint64_t bytes);
  uint64_t bytes() const {
    return bytes_;
  }

 private:
  MemoryUse use_;
  Owner owner_;
  uint64_t bytes_ = 0;
};

// Bytes of the process that are in memory now; 0 where the system does not say.
uint64_t resident_bytes();

}  // namespace host
