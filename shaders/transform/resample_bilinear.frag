#version 420 core
// The four texels around, by their distance.
#include "resample.glsl"

void main() {
  vec3 place = mapped(gl_FragCoord.xy);
  show(bilinear(place.xy), place.z);
}
