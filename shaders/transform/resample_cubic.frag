#version 420 core
// The sixteen texels around, by Catmull-Rom's weights: sharp, and texels that are met stay as they are.
#include "resample.glsl"

void main() {
  vec3 place = mapped(gl_FragCoord.xy);
  show(cubic(place.xy), place.z);
}
