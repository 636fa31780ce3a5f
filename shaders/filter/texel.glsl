// Single texels by their place: (0.5, 0.5) is the centre of the first. A program multiplies places by
// texel_scale once and hands them to texel(); beyond the image lie the texels of its edge.
//
// A host that binds only samplers which take the nearest texel and clamp to the edge defines
// NEAREST_SAMPLERS: drivers that draw in software work out a mip level anew for each texelFetch, and
// none for such a sampler.

#ifdef NEAREST_SAMPLERS
vec2 texel_scale(sampler2D image) {
  return 1.0 / vec2(textureSize(image, 0));
}

vec4 texel(sampler2D image, vec2 scaled_place) {
  return textureLod(image, scaled_place, 0.0);
}
#else
vec2 texel_scale(sampler2D image) {
  return vec2(1.0);
}

vec4 texel(sampler2D image, vec2 scaled_place) {
  return texelFetch(image, clamp(ivec2(scaled_place), ivec2(0), textureSize(image, 0) - 1), 0);
}
#endif
