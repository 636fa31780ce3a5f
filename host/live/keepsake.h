#pragma once

#include "host/live/document.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace host::live {

// What a server leaves to another one that is started in its place when its process has crashed: where it was
// reached, and the document with what was not saved. Lies in memory that a process shares with those that it
// forks, so make it before that. A process that ends in the middle of writing leaves what was there before.
// Texts of up to 16 MiB, the most that a page can send; of longer ones nothing is left but their file.
// Written by one process at a time; there thread-safe but for `keep`, which is externally synchronised.
class Keepsake {
 public:
  struct Address {
    int port = 0;
    std::string token;
  };

  // Throws std::system_error where there is no memory.
  Keepsake();
  ~Keepsake();
  Keepsake(const Keepsake&) = delete;
  Keepsake& operator=(const Keepsake&) = delete;

  void keep(const Address& address);          // once
  void keep(const Document::Kept& document);  // where memory has run out, the one before stays

  // Whether an image was given since the last `forget_image`.
  void note_image();
  void forget_image();
  bool gave_image() const;

  // Nothing where none was kept.
  std::optional<Address> address() const;
  std::optional<Document::Kept> document() const;

 private:
  struct Shared;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::live
