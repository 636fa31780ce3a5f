// How well `letters` are found in this order in `text`, larger is better; null: they are not. Counts for it that
// letters stand together and at the beginnings of words, and against it what is passed over.
export function score(letters: string, text: string): number | null {
  const wanted = letters.toLowerCase().replaceAll(" ", "");
  const lower = text.toLowerCase();
  let best: number | null = wanted === "" ? 0 : null;
  // Each place at which the first letter stands may begin the best find.
  for (let start = lower.indexOf(wanted[0] ?? ""); wanted !== "" && start >= 0; start = lower.indexOf(wanted[0] ?? "", start + 1)) {
    const found = from(start, wanted, lower);
    if (found !== null && (best === null || found > best)) best = found;
  }
  return best;
}

function from(start: number, wanted: string, lower: string): number | null {
  let points = 0;
  let at = start - 1;
  for (const letter of wanted) {
    const next = lower.indexOf(letter, at + 1);
    if (next < 0) return null;
    const begins = next === 0 || !/[\p{L}\p{N}]/u.test(lower[next - 1] ?? "");
    points += (next === at + 1 && next > start ? 3 : 0) + (begins ? 4 : 0) - Math.min(3, next - at - 1) * 0.5;
    at = next;
  }
  return points - lower.length * 0.02;
}
