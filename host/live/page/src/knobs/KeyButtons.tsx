import { slow_playhead } from "../curves/samples";
import { is_curve } from "../document/keys";
import { edited_curve } from "../state";
import { go_to_key, key_at, open_curve, type Subject, toggle_key } from "./keying";

interface Props {
  subject: Subject;
  component: number;
  value: number; // at the playhead
  label: string;
}

// Of a curve: to the key before, key here, to the key behind, the curve itself. Of a constant: its first key.
export function KeyButtons({ subject, component, value, label }: Props) {
  const part = subject.given.parts[component];
  const { node, spec } = subject;
  if (!is_curve(part))
    return (
      <span class="keys">
        <button
          class="quiet key"
          data-make-keyed={spec.name}
          title="Make it keyed: a key at the playhead"
          aria-label={`Make ${label} keyed`}
          onClick={() => toggle_key(subject, component, value)}
        >
          ◇
        </button>
      </span>
    );
  const here = key_at(part, slow_playhead.value);
  const edited = edited_curve.value;
  const open = edited?.node === node.name && edited.knob === spec.name && edited.component === component;
  return (
    <span class="keys">
      <button class="quiet" title="To the key before" aria-label={`To the key of ${label} before`} onClick={() => go_to_key(part, -1)}>
        ‹
      </button>
      <button
        class="quiet key"
        data-key={spec.name}
        aria-pressed={here}
        title={here ? "Remove the key at the playhead" : "Set a key at the playhead"}
        aria-label={here ? `Remove the key of ${label} at the playhead` : `Set a key of ${label} at the playhead`}
        onClick={() => toggle_key(subject, component, value)}
      >
        {here ? "◆" : "◈"}
      </button>
      <button class="quiet" title="To the key behind" aria-label={`To the key of ${label} behind`} onClick={() => go_to_key(part, 1)}>
        ›
      </button>
      <button
        class="quiet"
        data-curve={spec.name}
        aria-pressed={open}
        title="Open the curve"
        aria-label={`Open the curve of ${label}`}
        onClick={() => open_curve(node.name, spec.name, component)}
      >
        <svg width="14" height="14" viewBox="0 0 14 14" aria-hidden="true">
          <path d="M1 12C7 12 7 2 13 2" fill="none" stroke="currentColor" stroke-width="1.5" />
        </svg>
      </button>
    </span>
  );
}
