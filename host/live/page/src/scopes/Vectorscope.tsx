import { useEffect, useRef } from "preact/hooks";
import { chroma_of, type Counts, levels, vector_gain, vector_place, vector_span } from "./counts";

const gains = [1, 2, 4];
const size = 200; // of the graticule's own units

const targets = [
  { name: "R", rgb: [1, 0, 0] },
  { name: "Yl", rgb: [1, 1, 0] },
  { name: "G", rgb: [0, 1, 0] },
  { name: "Cy", rgb: [0, 1, 1] },
  { name: "B", rgb: [0, 0, 1] },
  { name: "Mg", rgb: [1, 0, 1] },
] as const;

function place(rgb: readonly [number, number, number], strength: number): { x: number; y: number } {
  const { cb, cr } = chroma_of(rgb[0] * strength, rgb[1] * strength, rgb[2] * strength);
  return { x: vector_place(cb) * size, y: (1 - vector_place(cr)) * size };
}

// The hue of skin of every kind: 33 degrees left of the vertical.
const skin = { x: size / 2 - Math.sin(0.576) * size * 0.46, y: size / 2 - Math.cos(0.576) * size * 0.46 };

// Each spot in the colour of its hue.
function paint(context: CanvasRenderingContext2D, counts: Counts): void {
  const image = context.createImageData(levels, levels);
  const expected = Math.max(0.5, counts.samples / 9000);
  for (let y = 0; y < levels; ++y) {
    for (let x = 0; x < levels; ++x) {
      const at = y * levels + x;
      const found = counts.vectors[at]!;
      if (found === 0) continue;
      image.data[at * 4 + 3] = 255;
      const light = 0.35 + 0.65 * (1 - Math.exp(-found / expected));
      const cb = ((x + 0.5) / levels - 0.5) * vector_span;
      const cr = (0.5 - (y + 0.5) / levels) * vector_span;
      const grey = 0.62;
      const b = grey + 1.8556 * cb;
      const r = grey + 1.5748 * cr;
      const g = (grey - 0.2126 * r - 0.0722 * b) / 0.7152;
      for (const [channel, value] of [r, g, b].entries()) {
        image.data[at * 4 + channel] = 255 * light * Math.min(1, Math.max(0.12, value));
      }
    }
  }
  context.putImageData(image, 0, 0);
}

// Which hues the picture has, and how strong they are: the further out, the stronger.
export function Vectorscope({ counts }: { counts: Counts }) {
  const canvas = useRef<HTMLCanvasElement>(null);
  useEffect(() => {
    const context = canvas.current?.getContext("2d");
    if (context) paint(context, counts);
  }, [counts]);
  const ring = (strength: number): string =>
    targets.map(({ rgb }) => place(rgb, strength)).map(({ x, y }) => `${x.toFixed(1)},${y.toFixed(1)}`).join(" ");
  return (
    <figure class="scope scope-square" data-part="vectorscope">
      <figcaption>
        <span>Vectorscope</span>
        <span class="scope-choice" role="group" aria-label="Enlarged">
          {gains.map((each) => (
            <button key={each} type="button" class="quiet" aria-pressed={vector_gain.value === each} onClick={() => (vector_gain.value = each)}>
              {each}×
            </button>
          ))}
        </span>
      </figcaption>
      <div class="scope-field">
        <div class="scope-box">
          <canvas ref={canvas} class="scope-fill" width={levels} height={levels} role="img" aria-label="Vectorscope" />
          <svg class="scope-fill" viewBox={`0 0 ${size} ${size}`} aria-hidden="true">
            <g class="graticule">
              <path d={`M${size / 2} 4V${size - 4}M4 ${size / 2}H${size - 4}`} />
              <polygon points={ring(0.75)} />
              <polygon points={ring(1)} class="graticule-far" />
              <polygon points={ring(0.25)} class="graticule-far" />
              <path d={`M${size / 2} ${size / 2}L${skin.x} ${skin.y}`} class="graticule-skin" />
              {targets.map(({ name, rgb }) => {
                const { x, y } = place(rgb, 0.75);
                return <rect key={name} x={x - 4} y={y - 4} width={8} height={8} />;
              })}
            </g>
            {targets.map(({ name, rgb }) => {
              const { x, y } = place(rgb, 0.75);
              const out = x < size / 2 ? -8 : 8;
              return (
                <text key={name} x={x + out} y={y + 3.5} text-anchor={x < size / 2 ? "end" : "start"}>
                  {name}
                </text>
              );
            })}
          </svg>
        </div>
      </div>
    </figure>
  );
}
