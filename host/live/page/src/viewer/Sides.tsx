import { compare, picture_a, picture_b } from "../state";
import { set_compare } from "./comparing";

// Which side is which, and the handle of the wipe.
export function Sides() {
  const { mode } = compare.value;
  if (mode === "off") return null;
  const a = picture_a.value?.header;
  const b = picture_b.value?.header;
  const waiting = b ? "" : " is being drawn";
  const version = compare.value.version;
  const name_b = `B ${b?.node ?? compare.value.node}${version ? ` · version ${version}` : ""}${waiting}`;
  return (
    <>
      {mode === "wipe" && <WipeHandle />}
      <div class={`viewer-sides viewer-sides-${mode}`}>
        <span>A {a?.node}</span>
        {mode === "difference" && <span>|A − B| × {compare.value.gain}</span>}
        <span>{name_b}</span>
      </div>
    </>
  );
}

function WipeHandle() {
  const { wipe } = compare.value;
  const move = (event: PointerEvent): void => {
    const handle = event.currentTarget as HTMLElement;
    if (!handle.hasPointerCapture(event.pointerId)) return;
    const box = handle.parentElement?.getBoundingClientRect();
    if (box) set_compare({ wipe: Math.min(1, Math.max(0, (event.clientX - box.left) / box.width)) });
  };
  const step = (event: KeyboardEvent): void => {
    const by = { ArrowLeft: -0.01, ArrowRight: 0.01, PageDown: -0.1, PageUp: 0.1 }[event.key];
    if (by === undefined || event.ctrlKey) return;
    event.preventDefault();
    event.stopPropagation(); // elsewhere the arrows step through the frames
    set_compare({ wipe: Math.min(1, Math.max(0, wipe + by)) });
  };
  return (
    <div
      class="viewer-wipe"
      data-part="wipe"
      role="slider"
      tabIndex={0}
      aria-label="Wipe between A and B"
      aria-valuemin={0}
      aria-valuemax={100}
      aria-valuenow={Math.round(wipe * 100)}
      style={{ left: `${wipe * 100}%` }}
      onPointerDown={(event) => event.currentTarget.setPointerCapture(event.pointerId)}
      onPointerMove={move}
      onKeyDown={step}
      onDblClick={() => set_compare({ wipe: 0.5 })}
    />
  );
}
