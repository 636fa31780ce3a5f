// Behind a program whose main() is called operation() here: what it made, in the channels that it was to
// change (u_around_channels 1) and as far as mix and mask let it be seen, and the image that it was given
// for the rest. u_around_follow 1: colour, premultiplied by the image's alpha, is so by the new one; light
// where nothing covers stays as it is. BASE is the image's sampler; with MASK_CHANNEL a mask counts, with
// MASK_COVERS one that has pixels wherever the target has.
uniform float u_around_mix;
uniform vec4 u_around_channels;
uniform float u_around_follow;
#ifdef MASK_CHANNEL
uniform sampler2D u_around_mask;
uniform vec4 u_around_mask_window;
uniform float u_around_invert;

float around_amount() {
#ifdef MASK_COVERS
  float mask = texelFetch(u_around_mask, ivec2(gl_FragCoord.xy + u_around_mask_window.xy), 0)[MASK_CHANNEL];
#else
  float mask = read_image(u_around_mask, u_around_mask_window)[MASK_CHANNEL];
#endif
  mask = mask > 0.0 ? min(mask, 1.0) : 0.0;
  return u_around_mix * (u_around_invert > 0.5 ? 1.0 - mask : mask);
}
#else
float around_amount() {
  return u_around_mix;
}
#endif

void main() {
  operation();
  vec4 image = read_image(BASE, BASE_WINDOW);
  vec4 made = o_color;
  if (u_around_follow > 0.5) made.rgb = image.a > 0.0 ? image.rgb * (made.a / image.a) : image.rgb;
  float amount = around_amount();
  // Equal values stay what they are, however they are rounded or if they are infinite.
  vec4 mixed = mix(image * (1.0 - amount) + made * amount, made, bvec4(amount == 1.0));
  mixed = mix(mixed, image, equal(image, made));
  o_color = mix(image, mixed, bvec4(amount > 0.0 ? u_around_channels : vec4(0.0)));
}
