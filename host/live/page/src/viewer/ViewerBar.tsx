import { type Channels, channels, compare, display_view, displays, exposure, gamma, loud, show_outlines, zoom } from "../state";
import { CompareBar } from "./CompareBar";
import { set_mode } from "./comparing";
import { Adjust, NumberField, Toggle } from "./controls";
import { fit, set_zoom, step_zoom } from "./navigate";
import { stops_words } from "./numbers";
import { view } from "./scene";
import { background } from "./settings";
import "./bar.css";

const channel_buttons: { channels: Channels; name: string; title: string }[] = [
  { channels: "rgb", name: "RGB", title: "Colour" },
  { channels: "r", name: "R", title: "Red alone (R)" },
  { channels: "g", name: "G", title: "Green alone (G)" },
  { channels: "b", name: "B", title: "Blue alone (B)" },
  { channels: "a", name: "A", title: "Alpha alone (A)" },
  { channels: "luminance", name: "Y", title: "Luminance (Y)" },
  { channels: "matte", name: "M", title: "Alpha in red over the colour (M)" },
];

function ChannelButtons() {
  return (
    <span class="segments" role="group" aria-label="Channels" data-part="channels" data-value={channels.value}>
      {channel_buttons.map((each) => (
        <Toggle
          key={each.channels}
          on={channels.value === each.channels}
          title={each.title}
          kind={`channel-${each.channels}`}
          set={() => (channels.value = each.channels)}
        >
          {each.name}
        </Toggle>
      ))}
    </span>
  );
}

const separator = "\n";

function DisplayChoice() {
  const { displays: known } = displays.value;
  if (known.length === 0) {
    return (
      <span class="bar-note" title="The composition names no colour configuration: the plain sRGB curve">
        sRGB
      </span>
    );
  }
  const now = display_view.value;
  return (
    <select
      class="bar-display"
      aria-label="Display and view"
      title={now ? `${now.view} on ${now.display}` : "Display and view"}
      data-part="display"
      value={now ? now.display + separator + now.view : ""}
      onChange={(event) => {
        const [display, name] = event.currentTarget.value.split(separator);
        display_view.value = display && name ? { display, view: name } : null;
      }}
    >
      <option value="">plain sRGB</option>
      {known.map((display) => (
        <optgroup key={display.name} label={display.name}>
          {display.views.map((name) => (
            <option key={name} value={display.name + separator + name}>
              {name}
            </option>
          ))}
        </optgroup>
      ))}
    </select>
  );
}

function ZoomControls() {
  const percent = view.value.down * 100;
  const words = `${percent >= 10 ? Math.round(percent) : percent.toFixed(1)} %`;
  return (
    <span class="segments" role="group" aria-label="Zoom">
      <Toggle on={zoom.value === "fit"} title="Fit into the viewer (F)" kind="" part="fit" set={fit}>
        Fit
      </Toggle>
      <Toggle on={zoom.value === 1} title="One pixel on one of the screen (1)" kind="" part="one-to-one" set={() => set_zoom(1)}>
        1:1
      </Toggle>
      <NumberField
        value={percent}
        words={words}
        label="Zoom in percent (+ and -)"
        least={1.6}
        most={51200}
        width={56}
        part="zoom"
        step={(direction) => step_zoom(direction)}
        set={(value) => set_zoom(value / 100)}
      />
    </span>
  );
}

function Switches() {
  return (
    <span class="segments" role="group" aria-label="Shown beside the picture">
      <Toggle
        on={background.value === "checker"}
        title="Checkerboard behind what is transparent (C)"
        kind="glyph"
        part="checker"
        set={(on) => (background.value = on ? "checker" : "black")}
      >
        <svg viewBox="0 0 12 12" aria-hidden="true">
          <path d="M1 1h5v5h5v5H6V6H1z" fill="currentColor" />
          <rect x="1" y="1" width="10" height="10" fill="none" stroke="currentColor" />
        </svg>
      </Toggle>
      <Toggle
        on={show_outlines.value}
        title="Outlines of format and data window (E)"
        kind="glyph"
        part="outlines"
        set={(on) => (show_outlines.value = on)}
      >
        <svg viewBox="0 0 12 12" aria-hidden="true" fill="none" stroke="currentColor">
          <rect x="0.5" y="2.5" width="11" height="8" />
          <rect x="3.5" y="0.5" width="6" height="7" stroke-dasharray="2 1" />
        </svg>
      </Toggle>
      <Toggle
        on={loud.value}
        title="NaN, infinite and negative pixels in loud colours (X)"
        kind="glyph"
        part="loud"
        set={(on) => (loud.value = on)}
      >
        <svg viewBox="0 0 12 12" aria-hidden="true">
          <path d="M6 1 11.5 11H.5z" fill="none" stroke="currentColor" />
          <path d="M6 4.5v3M6 8.7v1" stroke="currentColor" />
        </svg>
      </Toggle>
    </span>
  );
}

const modes = [
  { mode: "off", name: "A", title: "A alone" },
  { mode: "wipe", name: "Wipe", title: "Wipe between A and B (W)" },
  { mode: "side", name: "Side", title: "A and B side by side (Shift+W)" },
  { mode: "difference", name: "Diff", title: "Difference of A and B (D)" },
] as const;

function CompareModes() {
  return (
    <span class="segments" role="group" aria-label="Compare" data-part="compare" data-value={compare.value.mode}>
      {modes.map((each) => (
        <Toggle key={each.mode} on={compare.value.mode === each.mode} title={each.title} kind="" set={() => set_mode(each.mode)}>
          {each.name}
        </Toggle>
      ))}
    </span>
  );
}

// How the picture is looked at. Nothing of it changes the data.
export function ViewerBar() {
  return (
    <div class="viewer-bar" data-part="viewer-bar" role="toolbar" aria-label="Viewer">
      <div class="viewer-bar-row">
        <ChannelButtons />
        <Adjust
          name="EV"
          label="Exposure in stops"
          value={exposure.value}
          words={stops_words(exposure.value)}
          initial={0}
          least={-8}
          most={8}
          step={0.1}
          slider
          limits={[-32, 32]}
          part="exposure"
          set={(value) => (exposure.value = value)}
        />
        <Adjust
          name="γ"
          label="Gamma"
          value={gamma.value}
          words={gamma.value.toFixed(2)}
          initial={1}
          least={0.2}
          most={4}
          step={0.02}
          limits={[0.05, 20]}
          part="gamma"
          set={(value) => (gamma.value = value)}
        />
        <DisplayChoice />
        <span class="bar-space" />
        <Switches />
        <CompareModes />
        <ZoomControls />
      </div>
      {compare.value.mode !== "off" && <CompareBar />}
    </div>
  );
}
