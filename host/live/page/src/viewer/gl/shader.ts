// The program that shows one or two pictures. Lengths are device pixels from the canvas's left top.

export const modes = { off: 0, wipe: 1, side: 2, difference: 3 } as const;
export const channel_numbers = { rgb: 0, r: 1, g: 2, b: 3, a: 4, luminance: 5, matte: 6 } as const;

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
uniform sampler2D picture_b;
uniform vec4 map_a;      // column and row of the picture at the left top, columns and rows a device pixel
uniform vec4 map_b;
uniform vec2 canvas;
uniform vec4 format_box; // left, top, right, bottom
uniform int mode;
uniform float wipe;      // from the left
uniform float panel;     // width of one picture
uniform float gain;
uniform float exposure;  // a factor
uniform float gamma;     // the power
uniform int channels;
uniform bool point;      // nearest, also where the picture is made smaller
uniform bool checker;
uniform float checker_size;
uniform bool loud;
uniform vec3 loud_nan;
uniform vec3 loud_infinite;
uniform vec3 loud_negative;
uniform bool dither;
uniform vec3 surround;
out vec4 screen;

const uint infinity_bits = 0x7f800000u;
const uint has_nan = 1u;
const uint has_infinite = 2u;
const uint has_negative = 4u;

// By the bits: compilers may take isnan for false.
uint faults_of(vec4 value) {
  uvec4 bits = floatBitsToUint(value);
  uvec4 magnitude = bits & 0x7fffffffu;
  uint found = 0u;
  for (int i = 0; i < 4; ++i) {
    if (magnitude[i] > infinity_bits) found |= has_nan;
    else if (magnitude[i] == infinity_bits) found |= has_infinite;
    else if (bits[i] > 0x80000000u) found |= has_negative;
  }
  return found;
}

vec4 tame(vec4 value) {
  uvec4 magnitude = floatBitsToUint(value) & 0x7fffffffu;
  vec4 finite = mix(clamp(value, -65504.0, 65504.0), vec4(0.0), greaterThan(magnitude, uvec4(infinity_bits)));
  return finite;
}

// The mean of what a device pixel covers; the nearest pixel in a direction in which pixels are not made smaller.
vec4 sampled(sampler2D picture, vec4 map, vec2 at, inout uint faults) {
  ivec2 size = textureSize(picture, 0);
  vec2 middle = map.xy + at * map.zw;
  bvec2 smaller = point ? bvec2(false) : greaterThan(map.zw, vec2(1.0001));
  vec2 low = mix(floor(middle), middle - 0.5 * map.zw, smaller);
  vec2 high = mix(floor(middle) + 1.0, middle + 0.5 * map.zw, smaller);
  ivec2 first = max(ivec2(floor(low)), ivec2(0));
  ivec2 last = min(ivec2(ceil(high)), size);
  if (any(greaterThanEqual(first, last))) return vec4(0.0);
  if (!any(smaller)) {
    vec4 value = texelFetch(picture, first, 0);
    faults |= faults_of(value);
    return tame(value);
  }
  vec2 steps = max(ceil((high - low) / 24.0), 1.0); // far away some pixels are skipped
  vec4 sum = vec4(0.0);
  float weights = 0.0;
  for (int y = first.y; y < last.y; y += int(steps.y)) {
    float height = min(high.y, float(y + 1)) - max(low.y, float(y));
    for (int x = first.x; x < last.x; x += int(steps.x)) {
      float weight = height * (min(high.x, float(x + 1)) - max(low.x, float(x)));
      vec4 value = texelFetch(picture, ivec2(x, y), 0);
      faults |= faults_of(value);
      sum += weight * tame(value);
      weights += weight;
    }
  }
  vec2 covered = min(high, vec2(size)) - max(low, vec2(0.0));
  vec2 whole = high - low;
  return weights > 0.0 ? sum / weights * (covered.x * covered.y / (whole.x * whole.y)) : vec4(0.0);
}

vec3 displayed(vec3 linear) {
  vec3 value = max(display_convert(vec4(linear, 1.0)).rgb, 0.0);
  return gamma == 1.0 ? value : pow(value, vec3(gamma));
}

float luminance(vec3 c) { return dot(c, vec3(0.2126, 0.7152, 0.0722)); }

vec3 shown(vec4 value, float ground) {
  vec3 c = value.rgb * exposure;
  if (channels == 1) return displayed(c.rrr);
  if (channels == 2) return displayed(c.ggg);
  if (channels == 3) return displayed(c.bbb);
  if (channels == 4) return vec3(pow(max(value.a * exposure, 0.0), gamma));
  if (channels == 5) return displayed(vec3(luminance(c)));
  vec3 over = displayed(c + ground * (1.0 - clamp(value.a, 0.0, 1.0)));
  if (channels == 6) return mix(over, vec3(1.0, 0.1, 0.05), 0.6 * clamp(value.a, 0.0, 1.0));
  return over;
}

// Triangular, from a gradient pattern that puts unlike values side by side; grey stays grey. Whole values and
// what is beyond the range stay as they are.
vec3 dithered(vec3 value) {
  float even = 2.0 * fract(52.9829189 * fract(dot(gl_FragCoord.xy, vec2(0.06711056, 0.00583715)))) - 1.0;
  float noise = sign(even) * (1.0 - sqrt(1.0 - abs(even)));
  vec3 moved = floor(value * 255.0 + 0.5 + noise) / 255.0;
  return mix(moved, value, lessThanEqual(min(value, 1.0 - value), vec3(0.0)));
}

void main() {
  vec2 at = vec2(gl_FragCoord.x, canvas.y - gl_FragCoord.y);
  bool second = mode == 1 ? at.x >= wipe : mode == 2 && at.x >= panel;
  if (mode == 2 && second) at.x -= panel;

  uint faults = 0u;
  vec4 value;
  if (mode == 3) value = gain * abs(sampled(picture_a, map_a, at, faults) - sampled(picture_b, map_b, at, faults));
  else if (second) value = sampled(picture_b, map_b, at, faults);
  else value = sampled(picture_a, map_a, at, faults);

  if (loud && faults != 0u) {
    vec3 colour = loud_negative;
    if ((faults & has_infinite) != 0u) colour = loud_infinite;
    if ((faults & has_nan) != 0u) colour = loud_nan;
    screen = vec4(colour, 1.0);
    return;
  }
  bool inside = all(greaterThanEqual(at, format_box.xy)) && all(lessThan(at, format_box.zw));
  bool empty = value == vec4(0.0);
  if (!inside && empty) {
    screen = vec4(surround, 1.0);
    return;
  }
  float ground = 0.0;
  if (checker && mode != 3) {
    vec2 square = floor(at / checker_size);
    ground = mod(square.x + square.y, 2.0) == 0.0 ? 0.09 : 0.2;
  }
  vec3 colour = clamp(shown(value, ground), 0.0, 1.0);
  if (dither) colour = dithered(colour);
  screen = vec4(colour, 1.0);
}
`;

// `display` defines vec4 display_convert(vec4); "" means the plain sRGB curve.
export function fragment_text(display: string): string {
  return head + (display || plain_display) + body;
}
