#version 420 core
// Covers the target with one triangle, without attributes: indices 0, 1, 2 give the corners
// (-1, -1), (3, -1), (-1, 3). Draw with GL_TRIANGLES and three indices.

void main() {
  vec2 corner = vec2((gl_VertexID & 1) << 2, (gl_VertexID & 2) << 1);
  gl_Position = vec4(corner - 1.0, 0.0, 1.0);
}
