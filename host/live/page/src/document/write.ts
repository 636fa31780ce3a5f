// What may stand in a composition.
export type Json = null | boolean | number | string | Json[] | { [key: string]: Json };

// A number as a person would write it: 15 digits are more than a hand chooses and hide the rounding of sums.
export function written(value: number): string {
  if (!Number.isFinite(value)) throw new RangeError(`${value} is no number that a composition can hold`);
  return String(Number(value.toPrecision(15)) + 0);
}

// One line, with spaces as in the documentation: {"keys": [[1, 0, "smooth"]]}.
export function write(value: Json): string {
  if (typeof value === "number") return written(value);
  if (Array.isArray(value)) return `[${value.map(write).join(", ")}]`;
  if (value === null || typeof value !== "object") return JSON.stringify(value);
  const entries = Object.entries(value).map(([key, each]) => `${JSON.stringify(key)}: ${write(each)}`);
  return `{${entries.join(", ")}}`;
}

// With numbers as they will be written.
export function rounded(value: Json): Json {
  if (typeof value === "number") return Number(written(value));
  if (Array.isArray(value)) return value.map(rounded);
  if (value === null || typeof value !== "object") return value;
  return Object.fromEntries(Object.entries(value).map(([key, each]) => [key, rounded(each)]));
}

export function same(one: Json | undefined, other: Json | undefined): boolean {
  if (one === other) return true;
  if (typeof one !== "object" || typeof other !== "object" || one === null || other === null) return false;
  if (Array.isArray(one) !== Array.isArray(other)) return false;
  const keys = Object.keys(one);
  return (
    keys.length === Object.keys(other).length &&
    keys.every((key) => same((one as Record<string, Json>)[key], (other as Record<string, Json>)[key]))
  );
}
