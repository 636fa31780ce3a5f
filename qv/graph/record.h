#pragma once

#include <qv/export.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace qv::graph {

// Where one parameter slot lies in a record: `components` words of 32 bits from word `offset` on; 0
// components or fewer mean one word. A host derives from it to add what it knows of the parameter.
struct SlotSpec {
  int32_t components = 0;
  uint32_t offset = 0;
};

// The parameters of one node as words, and the hash under which its result is cached. A host derives
// from it to add its own members. Specs are shared by all records of a node type.
// Externally synchronised; hashing one record from several threads at once is safe.
struct Record {
  std::shared_ptr<const std::vector<SlotSpec>> specs;
  // The values of all slots, four bytes a word.
  std::vector<uint32_t> data;
  // One byte a slot, in slot order; the words of slots of kind 1 take part in the hash.
  std::vector<uint8_t> kinds;

  // 64-bit FNV-1a (Fowler, Noll, Vo; prime 0x100000001b3) over all kinds and then the words of the
  // slots of kind 1, least significant byte first, started from 0x14650fb0739d0383 instead of the
  // usual basis: not comparable with plain FNV-1a. Allocates nothing. Throws std::out_of_range
  // ("invalid vector subscript") where a slot of kind 1 has no spec or reaches beyond data.
  QV_API uint64_t typed_hash() const;
};

}  // namespace qv::graph
