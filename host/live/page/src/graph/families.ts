// A quiet colour for each family of node types, of one lightness, so that none calls louder than another.
const hues: Record<string, number> = {
  "in and out": 250,
  merge: 30,
  key: 140,
  filter: 200,
  transform: 300,
  time: 60,
  colour: 350,
};

export function family_hue(family: string): number {
  const known = hues[family];
  if (known !== undefined) return known;
  let sum = 0;
  for (const letter of family) sum = (sum * 31 + (letter.codePointAt(0) ?? 0)) % 360;
  return sum;
}
