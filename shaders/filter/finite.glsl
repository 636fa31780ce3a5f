// Samples as the disc blur counts them: what is not finite is 0 (a comparison with NaN is false).

vec4 finite(vec4 sample_value) {
  return mix(vec4(0.0), sample_value, lessThanEqual(abs(sample_value), vec4(3.4028235e38)));
}
