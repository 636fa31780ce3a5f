// Which pixels a colour operation divides, and by what.

// What colour is divided by before it is worked on and multiplied by afterwards, where `divides` is 1
// and alpha is coverage. Colour where nothing covers is light, a flame for one, and is worked on as it
// is; transparent black is no colour at all and stays so, which 0 says.
float divisor(vec4 image, float divides) {
  if (divides < 0.5) return 1.0;
  if (image.a > 0.0) return image.a;
  return image == vec4(0.0) ? 0.0 : 1.0;
}
