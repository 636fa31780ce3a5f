// Small floats as numbers: halves of 16 bits, and the packed ones of 11 and 10 bits that have no sign.

function small_float(bits: number, mantissa_bits: number): number {
  const steps = 2 ** mantissa_bits;
  const mantissa = bits % steps;
  const exponent = Math.floor(bits / steps) & 31;
  if (exponent === 31) return mantissa === 0 ? Infinity : NaN;
  if (exponent === 0) return (mantissa / steps) * 2 ** -14;
  return (1 + mantissa / steps) * 2 ** (exponent - 15);
}

function table(length: number, value: (bits: number) => number): Float32Array {
  const made = new Float32Array(length);
  for (let bits = 0; bits < length; ++bits) made[bits] = value(bits);
  return made;
}

let halves: Float32Array | null = null;

// Made when first used: all 65,536.
export function half_table(): Float32Array {
  halves ??= table(65536, (bits) => (bits & 0x8000 ? -1 : 1) * small_float(bits & 0x7fff, 10));
  return halves;
}

export const float11_table = table(2048, (bits) => small_float(bits, 6));
export const float10_table = table(1024, (bits) => small_float(bits, 5));
