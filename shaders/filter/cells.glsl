// The coarse image of a large blur. Its texel (i, j) stands for the u_factor.x by u_factor.y pixels
// from (u_cell + (i, j)) * u_factor on. u_bbox is the full image's window (x0, y0, x1, y1) in
// pixels; the full image's texel (0, 0) is pixel (x0, y0). In floats throughout: a factor may be as
// large as the host likes.

uniform vec2 u_factor;
uniform vec4 u_bbox;
uniform vec2 u_cell;
