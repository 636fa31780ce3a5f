// What every filter program shares: the source, the pixel being drawn and reads held to an image.
// Pixels are premultiplied RGBA; texel row 0 is the image's first row; an image goes on beyond its
// border with its edge pixels. Loops end with their condition: hardware that masks instead of jumping
// would otherwise go once more through the body, with all its reads, only to find the end.

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;

ivec2 here() {
  return ivec2(gl_FragCoord.xy);
}

ivec2 last(sampler2D image) {
  return textureSize(image, 0) - 1;
}

vec4 read(sampler2D image, ivec2 at) {
  return texelFetch(image, clamp(at, ivec2(0), last(image)), 0);
}

// The whole number in a uniform, held to 0 .. most; what is no number is 0.
int whole(float value, int most) {
  return value >= 1.0 ? int(min(value, float(most))) : 0;
}

// The unit step along axis 0 (x) or 1 (y).
ivec2 along(float axis) {
  return axis > 0.5 ? ivec2(0, 1) : ivec2(1, 0);
}
