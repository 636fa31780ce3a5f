#version 420 core
// One texel a pixel, whatever the scale.
#include "resample.glsl"

void main() {
  vec3 place = mapped(gl_FragCoord.xy);
  show(nearest(place.xy), place.z);
}
