#include <qv/graph/record.h>

#include <stdexcept>

namespace qv::graph {

namespace {

constexpr uint64_t seed = 0x14650fb0739d0383;
constexpr uint64_t prime = 0x100000001b3;

uint64_t add_byte(uint64_t hash, uint32_t byte) {
  return (hash ^ (byte & 0xff)) * prime;
}

}  // namespace

uint64_t Record::typed_hash() const {
  uint64_t hash = seed;
  for (const uint8_t kind : kinds) hash = add_byte(hash, kind);
  for (size_t k = 0; k < kinds.size(); ++k) {
    if (kinds[k] != 1) continue;
    if (!specs || k >= specs->size()) throw std::out_of_range("invalid vector subscript");
    const SlotSpec& spec = (*specs)[k];
    const size_t words = spec.components > 0 ? static_cast<size_t>(spec.components) : 1;
    if (data.size() < words || data.size() - words < spec.offset)
      throw std::out_of_range("invalid vector subscript");
    for (size_t w = spec.offset; w < spec.offset + words; ++w)
      for (uint32_t shift = 0; shift < 32; shift += 8) hash = add_byte(hash, data[w] >> shift);
  }
  return hash;
}

}  // namespace qv::graph
