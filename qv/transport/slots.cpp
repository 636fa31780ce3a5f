#include <qv/gpu/gl/enums.h>
#include <qv/transport/slots.h>

namespace qv::transport {

namespace gl = gpu::gl;

Slot* choose_slot(std::vector<Slot>& slots, uint64_t bytes) {
  Slot* first_free = nullptr;
  for (Slot& slot : slots) {
    if (slot.busy) continue;
    if (slot.capacity >= bytes) return &slot;
    if (!first_free) first_free = &slot;
  }
  return first_free;
}

uint64_t slot_capacity(uint64_t bytes) {
  constexpr uint64_t step = 1048576;
  return (bytes + step - 1) / step * step;
}

bool replace_buffer(const Driver& driver, Slot& slot, uint64_t capacity) {
  constexpr unsigned access = gl::MAP_READ_BIT | gl::MAP_PERSISTENT_BIT | gl::MAP_COHERENT_BIT;
  const auto size = static_cast<ptrdiff_t>(capacity);

  if (slot.buffer != 0) delete_buffer(driver, slot);
  driver.gen_buffers(1, &slot.buffer);
  driver.bind_buffer(gl::PIXEL_PACK_BUFFER, slot.buffer);
  driver.buffer_storage(gl::PIXEL_PACK_BUFFER, size, nullptr, access | gl::CLIENT_STORAGE_BIT);
  slot.mapped = driver.map_buffer_range(gl::PIXEL_PACK_BUFFER, 0, size, access);
  driver.bind_buffer(gl::PIXEL_PACK_BUFFER, 0);
  if (slot.mapped) {
    slot.capacity = capacity;
    return true;
  }
  driver.delete_buffers(1, &slot.buffer);
  slot.buffer = 0;
  return false;
}

void delete_buffer(const Driver& driver, Slot& slot) {
  driver.bind_buffer(gl::PIXEL_PACK_BUFFER, slot.buffer);
  driver.unmap_buffer(gl::PIXEL_PACK_BUFFER);
  driver.bind_buffer(gl::PIXEL_PACK_BUFFER, 0);
  driver.delete_buffers(1, &slot.buffer);
  slot.buffer = 0;
  slot.mapped = nullptr;
  slot.capacity = 0;
}

}  // namespace qv::transport
