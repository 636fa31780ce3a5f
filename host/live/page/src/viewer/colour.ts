import { short_value } from "./numbers";

// Sums over colours that the probe shows. Scene-linear, Rec. 709.

export function luminance_of(r: number, g: number, b: number): number {
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
}

// Hue in degrees, saturation and value; null where a value is not finite.
export function hsv_of(r: number, g: number, b: number): [number, number, number] | null {
  const most = Math.max(r, g, b);
  const span = most - Math.min(r, g, b);
  if (!Number.isFinite(most) || !Number.isFinite(span)) return null;
  if (span === 0) return [0, 0, most];
  const sector = most === r ? (g - b) / span : most === g ? 2 + (b - r) / span : 4 + (r - g) / span;
  return [((sector * 60) % 360 + 360) % 360, most > 0 ? span / most : 0, most];
}

// The plain curve of a screen, of a value at the given exposure.
function screen_value(value: number, stops: number): number {
  const linear = Number.isNaN(value) ? 0 : Math.min(1, Math.max(0, value * 2 ** stops));
  return linear <= 0.0031308 ? linear * 12.92 : 1.055 * linear ** (1 / 2.4) - 0.055;
}

export function swatch_of(r: number, g: number, b: number, stops: number): string {
  const octet = (value: number): number => Math.round(255 * screen_value(value, stops));
  return `rgb(${octet(r)}, ${octet(g)}, ${octet(b)})`;
}

export function hsv_words(r: number, g: number, b: number): string {
  const hsv = hsv_of(r, g, b);
  if (!hsv) return "–";
  return `${hsv[0].toFixed(0)}° ${(hsv[1] * 100).toFixed(0)} % ${short_value(hsv[2])}`;
}
