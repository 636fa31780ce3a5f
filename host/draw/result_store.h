#pragma once

#include <qv/graph/result_cache.h>
#include <qv/graph/schedule.h>

#include "host/node/image.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace host::draw {

// What a node gave, and the same with its pending transform applied, once somebody asked for it:
// all of it for nodes, and what lies in the format for files. Textures are null until made.
struct Result {
  Extent extent;  // as its node told it
  node::Image image;
  node::Image settled;
  node::Image in_format;
};

using ResultPtr = std::shared_ptr<Result>;

// The results of earlier evaluations, by key: the library's cache knows which to give up, this store
// owns what they are. Textures and decoded pixels are the buffers that results hold; one that several results
// share is counted once. Giving a result up frees its textures as soon as nobody else uses them.
// Externally synchronised; GL thread only, because textures come and go with results.
class ResultStore {
 public:
  // Plans an evaluation against what is stored. With `pin` it opens a touch cycle: what the evaluation uses
  // is pinned until the next cycle is closed.
  qv::graph::ScheduleResult plan(const qv::graph::Schedule& schedule, const std::vector<int64_t>& keys,
                                 bool pin = true);

  // Closes the touch cycle; what it did not use, and what is not among `beside`, counts as unpinned from now
  // on.
  void end_touch(const std::vector<int64_t>& beside = {});

  // Makes a stored result the most recent of those that are pinned, or of the others; nothing where it is
  // not stored.
  void prefer(int64_t key, bool pin);

  // The result of a slot that the plan named.
  const ResultPtr& at(int64_t slot) const;

  // The result of a key, or null; pins it, or leaves it as it is.
  ResultPtr find(int64_t key, bool pin = true);
  bool contains(int64_t key) const;

  // Stores a result, or stores it anew after it has been settled; one that is pinned stays so.
  void put(int64_t key, ResultPtr result, bool pin = true);

  // Gives up results until at most this many bytes are held, those that are not pinned first, or those
  // alone. Returns how many went.
  enum class GiveUp : uint8_t { any, unpinned };
  int64_t shrink(uint64_t most_bytes, GiveUp what = GiveUp::any);

  // Bytes of the textures and decoded pixels that stored results hold.
  uint64_t held() const;

 private:
  void free_slot(int64_t slot);

  qv::graph::ResultCache cache_;
  std::vector<ResultPtr> results_;  // by slot
  std::vector<int64_t> free_;
};

}  // namespace host::draw
