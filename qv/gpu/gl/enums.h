#pragma once

// The values of the GL enumerants that the library passes, since it includes no GL header.
namespace qv::gpu::gl {

inline constexpr unsigned MAP_READ_BIT = 0x0001;
inline constexpr unsigned MAP_PERSISTENT_BIT = 0x0040;
inline constexpr unsigned MAP_COHERENT_BIT = 0x0080;
inline constexpr unsigned CLIENT_STORAGE_BIT = 0x0200;
inline constexpr unsigned TEXTURE_2D = 0x0DE1;
inline constexpr unsigned UNSIGNED_INT = 0x1405;
inline constexpr unsigned FLOAT = 0x1406;
inline constexpr unsigned RGBA = 0x1908;
inline constexpr int NEAREST = 0x2600;
inline constexpr unsigned TEXTURE_MIN_FILTER = 0x2801;
inline constexpr unsigned TEXTURE_BASE_LEVEL = 0x813C;
inline constexpr unsigned TEXTURE_MAX_LEVEL = 0x813D;
inline constexpr unsigned RG = 0x8227;
inline constexpr unsigned TEXTURE0 = 0x84C0;
inline constexpr int RGBA32F = 0x8814;
inline constexpr unsigned PIXEL_PACK_BUFFER = 0x88EB;
inline constexpr unsigned READ_FRAMEBUFFER = 0x8CA8;
inline constexpr unsigned COLOR_ATTACHMENT0 = 0x8CE0;
inline constexpr unsigned FRAMEBUFFER = 0x8D40;

}  // namespace qv::gpu::gl
