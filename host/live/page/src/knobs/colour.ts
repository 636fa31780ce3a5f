// Colours as a picker sees them: hue 0..6, saturation and brightness 0..1 of what a screen shows, times an intensity
// of at least 1 that the screen cannot.
export interface Hsv {
  hue: number;
  saturation: number;
  brightness: number;
  intensity: number;
}

export function to_screen(linear: number): number {
  const held = Math.min(1, Math.max(0, linear));
  return held <= 0.0031308 ? 12.92 * held : 1.055 * held ** (1 / 2.4) - 0.055;
}

export function to_linear(screen: number): number {
  return screen <= 0.04045 ? screen / 12.92 : ((screen + 0.055) / 1.055) ** 2.4;
}

export function hsv_of(colour: number[]): Hsv {
  const intensity = Math.max(1, ...colour.slice(0, 3));
  const [r = 0, g = 0, b = 0] = colour.slice(0, 3).map((each) => to_screen(each / intensity));
  const most = Math.max(r, g, b);
  const span = most - Math.min(r, g, b);
  const hue = span === 0 ? 0 : most === r ? ((g - b) / span + 6) % 6 : most === g ? (b - r) / span + 2 : (r - g) / span + 4;
  return { hue, saturation: most === 0 ? 0 : span / most, brightness: most, intensity };
}

export function screen_of({ hue, saturation, brightness }: Hsv): [number, number, number] {
  const part = (offset: number) => {
    const at = (hue + offset) % 6;
    return brightness * (1 - saturation * Math.max(0, Math.min(at, 4 - at, 1)));
  };
  return [part(5), part(3), part(1)];
}

// Four digits are as fine as a pointer is.
export function colour_of(hsv: Hsv): number[] {
  return screen_of(hsv).map((each) => Number((to_linear(each) * hsv.intensity).toPrecision(4)));
}

export function css_of(colour: number[]): string {
  const [r = 0, g = 0, b = 0] = colour.map((each) => Math.round(255 * to_screen(each)));
  return `rgb(${r} ${g} ${b})`;
}
