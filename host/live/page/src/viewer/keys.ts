import { add_commands, type Command } from "../commands";
import { type Channels, channels, exposure, gamma, loud, sample, show_outlines } from "../state";
import { next_bad_pixel } from "./bad_pixels";
import { pin_node, pin_now, set_mode, toggle_mode } from "./comparing";
import { fit, pan_step, probe_step, sample_around, set_zoom, step_zoom } from "./navigate";
import { background, marked } from "./settings";

const stop_step = 0.5;

function show_channels(wanted: Channels): void {
  channels.value = channels.value === wanted ? "rgb" : wanted;
}

function change_exposure(stops: number): void {
  exposure.value = Math.round((exposure.value + stops) * 100) / 100;
}

function command(id: string, title: string, keys: string[], run: () => void): Command {
  return { id: `viewer.${id}`, title, group: "Viewer", keys, run };
}

add_commands(
  command("fit", "Fit the picture into the viewer", ["f"], fit),
  command("one_to_one", "Show one pixel on one pixel of the screen", ["1"], () => set_zoom(1)),
  command("zoom_in", "Zoom in", ["+", "="], () => step_zoom(1)),
  command("zoom_out", "Zoom out", ["-"], () => step_zoom(-1)),
  command("pan_left", "Look further left", ["Ctrl+ArrowLeft"], () => pan_step(-1, 0)),
  command("pan_right", "Look further right", ["Ctrl+ArrowRight"], () => pan_step(1, 0)),
  command("pan_up", "Look further up", ["Ctrl+ArrowUp"], () => pan_step(0, 1)),
  command("pan_down", "Look further down", ["Ctrl+ArrowDown"], () => pan_step(0, -1)),
  command("probe_left", "Probe the pixel on the left", ["Alt+ArrowLeft"], () => probe_step(-1, 0)),
  command("probe_right", "Probe the pixel on the right", ["Alt+ArrowRight"], () => probe_step(1, 0)),
  command("probe_up", "Probe the pixel above", ["Alt+ArrowUp"], () => probe_step(0, 1)),
  command("probe_down", "Probe the pixel below", ["Alt+ArrowDown"], () => probe_step(0, -1)),
  command("sample", "Sample 17 by 17 pixels around the probed one", ["s"], () => sample_around(8)),
  command("red", "Red alone", ["r"], () => show_channels("r")),
  command("green", "Green alone", ["g"], () => show_channels("g")),
  command("blue", "Blue alone", ["b"], () => show_channels("b")),
  command("alpha", "Alpha alone", ["a"], () => show_channels("a")),
  command("luminance", "Luminance", ["y"], () => show_channels("luminance")),
  command("matte", "Alpha in red over the colour", ["m"], () => show_channels("matte")),
  command("darker", "Exposure half a stop down", [","], () => change_exposure(-stop_step)),
  command("brighter", "Exposure half a stop up", ["."], () => change_exposure(stop_step)),
  command("plain", "Exposure 0 and gamma 1", ["0"], () => {
    exposure.value = 0;
    gamma.value = 1;
  }),
  command("background", "Checkerboard behind what is transparent", ["c"], () => {
    background.value = background.value === "checker" ? "black" : "checker";
  }),
  command("outlines", "Outlines of format and data window", ["e"], () => {
    show_outlines.value = !show_outlines.value;
  }),
  command("loud", "NaN, infinite and negative pixels in loud colours", ["x"], () => {
    loud.value = !loud.value;
  }),
  command("next_bad_pixel", "Go to the next NaN, infinite or negative pixel", ["n"], () => void next_bad_pixel()),
  command("clear_sample", "Forget the sampled rectangle", ["Shift+s"], () => {
    sample.value = null;
    marked.value = null;
  }),
  command("wipe", "Wipe between A and B", ["w"], () => toggle_mode("wipe")),
  command("side_by_side", "A and B side by side", ["Shift+w"], () => toggle_mode("side")),
  command("difference", "Difference of A and B", ["d"], () => toggle_mode("difference")),
  command("compare_off", "A alone", [], () => set_mode("off")),
  command("pin_now", "Pin the shown node as it is now as B", ["p"], pin_now),
  command("pin_node", "Pin the shown node as B", ["Shift+b"], pin_node),
);
