#version 420 core
// How far a pixel is out of focus, as a level: 0 is sharp, u_levels the largest disc, and the radius grows
// with its square; what is in front of the focus is negative. u_channel: which of u_depth's; u_focus: the
// depth that is sharp, u_slack how far around it. u_lens 1: as a lens draws, (d - focus) / d of the largest
// disc, else what lies u_distance beyond the slack has it. No number is sharp.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_depth;
uniform vec4 u_depth_window;
uniform float u_channel;
uniform float u_focus;
uniform float u_slack;
uniform float u_distance;
uniform float u_lens;
uniform float u_levels;

void main() {
  float depth = read_image_repeat(u_depth, u_depth_window)[int(u_channel + 0.5)];
  float beside = depth - u_focus;
  float far = max(abs(beside) - u_slack, 0.0);
  float size = u_lens > 0.5 ? (depth > 0.0 ? far / depth : 1.0) : u_distance > 0.0 ? far / u_distance : sign(far);
  if (abs(depth) > 3.4028235e38) size = 1.0;  // the sky
  float level = sqrt(min(size, 1.0)) * u_levels;
  o_color = vec4(level >= 0.0 ? (beside < 0.0 ? -level : level) : 0.0);
}
