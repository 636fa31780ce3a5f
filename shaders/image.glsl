// What the programs of nodes share. Images are premultiplied and lie at different places: for every
// sampler u_x the host sets u_x_window = (dx, dy, width, height), so that the texel under this pixel
// is this pixel + (dx, dy). Outside its size an image is transparent black.

// (x0, y1, width, height) of the window that is drawn: left and upper edge, y up.
uniform vec4 u_target;

// This pixel's centre in knob coordinates: y up, origin at the lower left of the format.
vec2 knob_position() {
  return vec2(u_target.x + gl_FragCoord.x, u_target.y - gl_FragCoord.y);
}

// The image under this pixel. Without a branch, so that a pixel that is asked for twice is read once.
vec4 read_image(sampler2D image, vec4 window) {
  ivec2 texel = ivec2(gl_FragCoord.xy) + ivec2(window.xy);
  ivec2 inside = clamp(texel, ivec2(0), max(ivec2(window.zw) - 1, ivec2(0)));
  return mix(texelFetch(image, inside, 0), vec4(0.0), bvec4(texel != inside));
}

// The image under this pixel, beyond its edges its edge pixels.
vec4 read_image_repeat(sampler2D image, vec4 window) {
  ivec2 texel = ivec2(gl_FragCoord.xy) + ivec2(window.xy);
  return texelFetch(image, clamp(texel, ivec2(0), ivec2(window.zw) - 1), 0);
}
