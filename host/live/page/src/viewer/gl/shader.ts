// The program that shows one or two pictures. Lengths are device pixels from the canvas's left top.

export const modes = { off: 0, wipe: 1, side: 2, difference: 3 } as const;
export const channel_numbers = { rgb: 0, r: 1, g: 2, b: 3, a: 4, luminance: 5, matte: 6 } as const;
// The nearest pixel; the mean of the pixels under one of the screen; or a blend of four, which a software driver
// makes in half the time.
export const samplings = { nearest: 0, mean: 1, blend: 2 } as const;

// Loud colours, as values of the screen; the legend shows them too.
export const loud_colours = {
  nan: [255, 0, 220],
  infinite: [255, 212, 0],
  negative: [0, 200, 255],
} as const;

export const vertex_text = `#version 300 es
void main() { // one triangle that covers the canvas
  gl_Position = vec4(gl_VertexID == 1 ? 3.0 : -1.0, gl_VertexID == 2 ? 3.0 : -1.0, 0.0, 1.0);
}
`;

const plain_display = `
vec4 display_convert(vec4 colour) {
  vec3 c = max(colour.rgb, 0.0);
  return vec4(mix(1.055 * pow(c, vec3(1.0 / 2.4)) - 0.055, c * 12.92, lessThanEqual(c, vec3(0.0031308))), colour.a);
}
`;

const head = `#version 300 es
precision highp float;
precision highp int;
precision highp sampler2D;
precision highp sampler3D;
`;

const body = `
uniform sampler2D picture_a;
uniform vec4 map_a;      // column and row of the picture at the left top, columns and rows a device pixel
uniform vec2 canvas;
uniform vec4 format_box; // left, top, right, bottom
uniform float exposure;  // a factor
uniform vec3 surround;
#if MODE != 0
uniform sampler2D picture_b;
uniform vec4 map_b;
uniform float border;    // from the left: where B begins
uniform float gain;
#endif
#if GAMMA
uniform float gamma;     // the power
#endif
#if CHECKER
uniform float checker_size;
#endif
#if LOUD
uniform vec3 loud_nan;
uniform vec3 loud_infinite;
uniform vec3 loud_negative;
#endif
out vec4 screen;

const uint infinity_bits = 0x7f800000u;
const uint has_nan = 1u;
const uint has_infinite = 2u;
const uint has_negative = 4u;

uint faults = 0u;

#if LOUD
// By the bits: compilers may take isnan for false.
void note_faults(vec4 value) {
  uvec4 bits = floatBitsToUint(value);
  uvec4 magnitude = bits & 0x7fffffffu;
  if (any(greaterThan(magnitude, uvec4(infinity_bits)))) faults |= has_nan;
  if (any(equal(magnitude, uvec4(infinity_bits)))) faults |= has_infinite;
  if (any(lessThan(value, vec4(0.0)))) faults |= has_negative;
}
#endif

vec4 texel(sampler2D picture, ivec2 at) {
  vec4 value = texelFetch(picture, at, 0);
#if LOUD
  note_faults(value);
#endif
  return value;
}

// NaN is shown as 0, what is infinite as the largest half.
vec4 tame(vec4 value) {
  bvec4 nan = greaterThan(floatBitsToUint(value) & 0x7fffffffu, uvec4(infinity_bits));
  return clamp(mix(value, vec4(0.0), nan), -65504.0, 65504.0);
}

#if SAMPLING == 1
// The mean of what a device pixel covers; the nearest pixel in a direction in which pixels are not made smaller.
vec4 sampled(sampler2D picture, vec4 map, vec2 at) {
  vec2 middle = map.xy + at * map.zw;
  bvec2 smaller = greaterThan(map.zw, vec2(1.0001));
  vec2 low = mix(floor(middle), middle - 0.5 * map.zw, smaller);
  vec2 high = mix(floor(middle) + 1.0, middle + 0.5 * map.zw, smaller);
  // What rounding alone lets in at an edge is left out.
  vec2 first = max(floor(low + 1e-3), 0.0);
  vec2 last = min(ceil(high - 1e-3), vec2(textureSize(picture, 0)));
  vec2 steps = max(ceil(map.zw / 24.0), 1.0); // far away some pixels are skipped
  vec4 sum = vec4(0.0);
  for (float y = first.y; y < last.y; y += steps.y) {
    float height = min(high.y, y + steps.y) - max(low.y, y);
    for (float x = first.x; x < last.x; x += steps.x) {
      float width = min(high.x, x + steps.x) - max(low.x, x);
      sum += (width * height) * texel(picture, ivec2(x, y));
    }
  }
  vec2 whole = high - low;
  return tame(sum * (1.0 / (whole.x * whole.y)));
}
#elif SAMPLING == 2
vec4 sampled(sampler2D picture, vec4 map, vec2 at) {
  vec2 size = vec2(textureSize(picture, 0));
  vec2 place = map.xy + at * map.zw;
  bool outside = any(lessThan(place, vec2(0.0))) || any(greaterThanEqual(place, size));
  return outside ? vec4(0.0) : tame(textureLod(picture, place / size, 0.0));
}
#else
vec4 sampled(sampler2D picture, vec4 map, vec2 at) {
  ivec2 place = ivec2(floor(map.xy + at * map.zw));
  bool outside = any(lessThan(place, ivec2(0))) || any(greaterThanEqual(place, textureSize(picture, 0)));
  return outside ? vec4(0.0) : tame(texel(picture, place));
}
#endif

vec3 displayed(vec3 linear) {
  vec3 value = max(display_convert(vec4(linear, 1.0)).rgb, 0.0);
#if GAMMA
  value = pow(value, vec3(gamma));
#endif
  return value;
}

vec3 shown(vec4 value, vec2 at) {
  vec3 c = value.rgb * exposure;
#if CHANNELS == 1
  return displayed(c.rrr);
#elif CHANNELS == 2
  return displayed(c.ggg);
#elif CHANNELS == 3
  return displayed(c.bbb);
#elif CHANNELS == 4
#if GAMMA
  return vec3(pow(max(value.a * exposure, 0.0), gamma));
#else
  return vec3(value.a * exposure);
#endif
#elif CHANNELS == 5
  return displayed(vec3(dot(c, vec3(0.2126, 0.7152, 0.0722))));
#else
#if CHECKER
  vec2 square = floor(at / checker_size);
  float ground = mod(square.x + square.y, 2.0) == 0.0 ? 0.09 : 0.2;
  c += ground * (1.0 - clamp(value.a, 0.0, 1.0));
#endif
#if CHANNELS == 6
  return mix(min(displayed(c), 1.0), vec3(1.0, 0.1, 0.05), 0.6 * clamp(value.a, 0.0, 1.0));
#else
  return displayed(c);
#endif
#endif
}

#if DITHER
// Triangular, from a gradient pattern that puts unlike values side by side; grey stays grey. What is at an end of
// the range or beyond it stays as it is.
vec3 dithered(vec3 value) {
  float even = 2.0 * fract(52.9829189 * fract(dot(gl_FragCoord.xy, vec2(0.06711056, 0.00583715)))) - 1.0;
  float noise = sign(even) * (1.0 - sqrt(1.0 - abs(even)));
  vec3 moved = floor(value * 255.0 + (0.5 + noise)) * (1.0 / 255.0);
  return mix(moved, value, equal(abs(value - 0.5), vec3(0.5)));
}
#endif

void main() {
  vec2 at = vec2(gl_FragCoord.x, canvas.y - gl_FragCoord.y);
#if MODE == 0
  vec4 value = sampled(picture_a, map_a, at);
#elif MODE == 3
  vec4 value = gain * abs(sampled(picture_a, map_a, at) - sampled(picture_b, map_b, at));
#else
  vec4 value;
  if (at.x >= border) {
#if MODE == 2
    at.x -= border;
#endif
    value = sampled(picture_b, map_b, at);
  } else {
    value = sampled(picture_a, map_a, at);
  }
#endif

#if LOUD
  if (faults != 0u) {
    vec3 loud = (faults & has_infinite) != 0u ? loud_infinite : loud_negative;
    screen = vec4((faults & has_nan) != 0u ? loud_nan : loud, 1.0);
    return;
  }
#endif
  bool inside = all(greaterThanEqual(at, format_box.xy)) && all(lessThan(at, format_box.zw));
  if (!inside && value == vec4(0.0)) {
    screen = vec4(surround, 1.0);
    return;
  }
  vec3 colour = clamp(shown(value, at), 0.0, 1.0);
#if DITHER
  colour = dithered(colour);
#endif
  screen = vec4(colour, 1.0);
}
`;

// What a program is made for. Each is a program of its own: software drivers pay for every path that could be taken.
export interface Variant {
  mode: keyof typeof modes;
  channels: keyof typeof channel_numbers;
  sampling: keyof typeof samplings;
  gamma: boolean;
  checker: boolean;
  loud: boolean;
  dither: boolean;
}

// `display` defines vec4 display_convert(vec4); "" means the plain sRGB curve.
export function fragment_text(display: string, variant: Variant): string {
  const defined = {
    MODE: modes[variant.mode],
    CHANNELS: channel_numbers[variant.channels],
    SAMPLING: samplings[variant.sampling],
    GAMMA: Number(variant.gamma),
    CHECKER: Number(variant.checker),
    LOUD: Number(variant.loud),
    DITHER: Number(variant.dither),
  };
  const lines = Object.entries(defined).map(([name, value]) => `#define ${name} ${value}\n`);
  return head + lines.join("") + (display || plain_display) + body;
}
