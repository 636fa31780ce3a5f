// How values are written.

function signed(text: string): string {
  return text.replaceAll("-", "−");
}

// A few letters, to stand on a pixel.
export function short_value(value: number): string {
  if (Number.isNaN(value)) return "NaN";
  if (!Number.isFinite(value)) return value < 0 ? "−inf" : "inf";
  const size = Math.abs(value);
  if (size !== 0 && (size < 1e-3 || size >= 1e4)) return signed(value.toExponential(1));
  return signed(value.toFixed(size >= 100 ? 1 : size >= 10 ? 2 : 3));
}

// As the probe writes it: five places, so that columns stay where they are.
export function long_value(value: number): string {
  if (!Number.isFinite(value)) return short_value(value);
  const size = Math.abs(value);
  if (size !== 0 && (size < 1e-4 || size >= 1e5)) return signed(value.toExponential(3));
  return signed(value.toFixed(5));
}

export function stops_words(stops: number): string {
  return `${stops > 0 ? "+" : ""}${signed(String(Math.round(stops * 100) / 100))}`;
}
