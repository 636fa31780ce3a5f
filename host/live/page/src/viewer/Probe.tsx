import type { Picture } from "../state";
import { compare, exposure, picture_a, picture_b } from "../state";
import { hsv_words, luminance_of, swatch_of } from "./colour";
import { long_value } from "./numbers";
import "./probe.css";
import { number_of, probed_a, probed_b, type Probed } from "./probing";

const letters = ["R", "G", "B", "A"];

function ProbeRow(props: { name: string; probed: Probed | null; picture: Picture | null }) {
  const { probed } = props;
  const floats = probed?.value.map(number_of) ?? [];
  const [r = NaN, g = NaN, b = NaN] = floats;
  const swatch = probed ? { background: swatch_of(r, g, b, exposure.value) } : {};
  return (
    <div
      class="probe-row"
      data-part={`probe-${props.name.toLowerCase()}`}
      data-x={probed?.x}
      data-y={probed?.y}
      data-exact={probed ? String(probed.exact) : undefined}
      data-values={probed?.value.join(" ")}
    >
      <b title={props.picture?.header.node}>
        {props.name} {props.picture?.header.node}
      </b>
      <i class="probe-swatch" style={swatch} />
      <span class="probe-place" title="Pixel of the format, from its left bottom">
        {probed ? `${probed.x}, ${probed.y}` : "–"}
      </span>
      {letters.map((letter, index) => (
        <span key={letter} class="probe-value" title={probed ? String(probed.value[index]) : ""}>
          <em class={`channel-${letter.toLowerCase()}`}>{letter}</em>
          {probed ? long_value(floats[index] ?? NaN) : "–"}
        </span>
      ))}
      <span class="probe-value" title="Luminance, Rec. 709">
        <em>Y</em>
        {probed ? long_value(luminance_of(r, g, b)) : "–"}
      </span>
      <span class="probe-hsv" title="Hue, saturation, value">
        <em>HSV</em>
        {probed ? hsv_words(r, g, b) : "–"}
      </span>
      <span class="probe-exact">{probed && !probed.exact ? "shown" : ""}</span>
      <Source picture={props.picture} />
    </div>
  );
}

const pixel_words = { rgba16f: "half", r11g11b10f: "packed", rgba8: "8 bits" } as const;

function scale_words(scale: number): string {
  return scale >= 1 ? "full size" : `${Math.round(scale * 100)} %`;
}

function Source({ picture }: { picture: Picture | null }) {
  const header = picture?.header;
  if (!header) return <span class="probe-source" />;
  const time = header.cached ? "cached" : `${header.ms < 10 ? header.ms.toFixed(1) : Math.round(header.ms)} ms`;
  const words = `${scale_words(header.scale)} · ${pixel_words[header.pixels]} · ${time}`;
  return (
    <span class="probe-source" title={words}>
      {words}
    </span>
  );
}

// The pixel under the pointer, as the node computed it.
export function Probe() {
  const two = compare.value.mode !== "off";
  return (
    <div class={two ? "probe probe-two" : "probe"} role="group" aria-label="Pixel under the pointer">
      <ProbeRow name="A" probed={probed_a.value} picture={picture_a.value} />
      {two && <ProbeRow name="B" probed={probed_b.value} picture={picture_b.value} />}
    </div>
  );
}
