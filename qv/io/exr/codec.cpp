#include <qv/io/exr/codec.h>

#include <cstring>
#include <new>

#include <libdeflate.h>

#if defined(__x86_64__)
#define QV_IO_VECTOR_PATH 1
#include <immintrin.h>
#endif

namespace qv::io::exr {

namespace {

uint8_t undo_by_byte(uint8_t* bytes, size_t n, uint8_t sum) {
  for (size_t i = 0; i < n; ++i) bytes[i] = sum = static_cast<uint8_t>(sum + bytes[i] + 128);
  return sum;
}

uint8_t sum_by_byte(const uint8_t* bytes, size_t n, uint8_t sum) {
  for (size_t i = 0; i < n; ++i) sum = static_cast<uint8_t>(sum + bytes[i] + 128);
  return sum;
}

#if QV_IO_VECTOR_PATH

bool has_wide_integers() {
  static const bool result = __builtin_cpu_supports("avx2") != 0;
  return result;
}

// Sums of ever longer runs within 16 bytes, then across them. The sum of all before reaches the next
// 32 bytes by one addition, so that the rest of their work need not wait for it.
__attribute__((target("avx2"))) uint8_t undo_by_block(uint8_t* bytes, size_t n, uint8_t sum) {
  const __m256i half = _mm256_set1_epi8(-128), last = _mm256_set1_epi8(15);
  __m256i before = _mm256_set1_epi8(static_cast<char>(sum));
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    auto* const at = reinterpret_cast<__m256i*>(bytes + i);
    __m256i x = _mm256_add_epi8(_mm256_loadu_si256(at), half);
    x = _mm256_add_epi8(x, _mm256_slli_si256(x, 1));
    x = _mm256_add_epi8(x, _mm256_slli_si256(x, 2));
    x = _mm256_add_epi8(x, _mm256_slli_si256(x, 4));
    x = _mm256_add_epi8(x, _mm256_slli_si256(x, 8));
    const __m256i totals = _mm256_shuffle_epi8(x, last);
    const __m256i low = _mm256_permute2x128_si256(totals, totals, 0x08);
    const __m256i high = _mm256_permute2x128_si256(totals, totals, 0x11);
    const __m256i both = _mm256_add_epi8(_mm256_permute2x128_si256(totals, totals, 0x00), high);
    _mm256_storeu_si256(at, _mm256_add_epi8(_mm256_add_epi8(x, low), before));
    before = _mm256_add_epi8(before, both);
  }
  sum = static_cast<uint8_t>(_mm256_extract_epi8(before, 0));
  return undo_by_byte(bytes + i, n - i, sum);
}

__attribute__((target("avx2"))) uint8_t sum_by_block(const uint8_t* bytes, size_t n, uint8_t sum) {
  __m256i totals = _mm256_setzero_si256();
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + i));
    totals = _mm256_add_epi64(totals, _mm256_sad_epu8(x, _mm256_setzero_si256()));
  }
  alignas(32) uint64_t each[4];
  _mm256_store_si256(reinterpret_cast<__m256i*>(each), totals);
  // An even number of 128s is nothing.
  sum = static_cast<uint8_t>(sum + each[0] + each[1] + each[2] + each[3]);
  return sum_by_byte(bytes + i, n - i, sum);
}

#else

bool has_wide_integers() {
  return false;
}
uint8_t undo_by_block(uint8_t* bytes, size_t n, uint8_t sum) {
  return undo_by_byte(bytes, n, sum);
}
uint8_t sum_by_block(const uint8_t* bytes, size_t n, uint8_t sum) {
  return sum_by_byte(bytes, n, sum);
}

#endif

// A count below 0 is followed by so many bytes, any other by the one that stands for it and one more.
bool expand_runs(std::span<const uint8_t> from, std::span<uint8_t> to) {
  size_t at = 0, done = 0;
  while (at < from.size()) {
    const auto count = static_cast<int8_t>(from[at++]);
    const size_t n = count < 0 ? static_cast<size_t>(-int{count}) : size_t{1} + static_cast<size_t>(count);
    const size_t taken = count < 0 ? n : 1;
    if (taken > from.size() - at || n > to.size() - done) return false;
    if (count < 0) {
      std::memcpy(&to[done], &from[at], n);
    } else {
      std::memset(&to[done], from[at], n);
    }
    at += taken;
    done += n;
  }
  return done == to.size();
}

// Undoes the differences of one plane, whose rows are half as long as the chunk's.
uint8_t undo_plane(uint8_t* plane, size_t size, const Wanted& wanted, uint8_t sum) {
  size_t at = 0;
  for (size_t row = wanted.first; row < wanted.last; ++row) {
    for (const Stretch& stretch : wanted.stretches) {
      const size_t begin = (row * wanted.row_bytes + stretch.begin) / 2;
      const size_t end = (row * wanted.row_bytes + stretch.end) / 2;
      sum = sum_differences(plane + at, begin - at, sum);
      sum = undo_differences(plane + begin, end - begin, sum);
      at = end;
    }
  }
  return sum_differences(plane + at, size - at, sum);
}

}  // namespace

uint8_t undo_differences(uint8_t* bytes, size_t n, uint8_t sum) {
  return has_wide_integers() ? undo_by_block(bytes, n, sum) : undo_by_byte(bytes, n, sum);
}

uint8_t sum_differences(const uint8_t* bytes, size_t n, uint8_t sum) {
  return has_wide_integers() ? sum_by_block(bytes, n, sum) : sum_by_byte(bytes, n, sum);
}

void Unpacker::Free::operator()(libdeflate_decompressor* inflater) const {
  libdeflate_free_decompressor(inflater);
}

Unpacker::Unpacker() : inflater_(libdeflate_alloc_decompressor()) {
  if (!inflater_) throw std::bad_alloc();
}

bool Unpacker::expand(Codec codec, std::span<const uint8_t> packed, std::span<uint8_t> to) {
  if (codec == Codec::rle) return expand_runs(packed, to);
  // Without a place for the size it is an error that it differs.
  return libdeflate_zlib_decompress(inflater_.get(), packed.data(), packed.size(), to.data(), to.size(),
                                    nullptr) == LIBDEFLATE_SUCCESS;
}

Planes Unpacker::unpack(Codec codec, std::span<const uint8_t> packed, size_t size, const Wanted& wanted) {
  // What packing would have made larger is stored as it is.
  if (packed.size() == size) return {packed.data(), nullptr};
  // No codec makes more than 1,032 bytes of one: a size that lies is not even allocated.
  if (codec == Codec::none || packed.size() > size || size / 1032 > packed.size()) return {};
  uint8_t* const bytes = bytes_.fit(size);
  if (!expand(codec, packed, {bytes, size})) return {};
  // The first byte is no difference, which starting at 128 makes up for.
  const size_t half = size / 2;
  const uint8_t sum = undo_plane(bytes, half, wanted, 128);
  undo_plane(bytes + half, half, wanted, sum);
  return {bytes, bytes + half};
}

}  // namespace qv::io::exr
