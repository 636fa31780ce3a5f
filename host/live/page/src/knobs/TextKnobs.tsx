import { useSignal } from "@preact/signals";
import { type ParseError, parse, printParseErrorCode } from "jsonc-parser";
import { set_knob } from "../document/actions";
import type { NodeText } from "../document/model";
import type { Json } from "../document/write";
import { write } from "../document/write";
import type { KnobSpec } from "../protocol";

interface Props {
  node: NodeText;
  spec: KnobSpec;
}

export function ChoiceKnob({ node, spec }: Props) {
  const value = node.knobs[spec.name] ?? spec.default_text;
  if (typeof value === "object") return <ObjectKnob node={node} spec={spec} />;
  const known = spec.choices.includes(String(value));
  return (
    <select
      aria-label={spec.name}
      value={String(value)}
      onChange={(event) => set_knob(node.name, spec.name, event.currentTarget.value)}
    >
      {!known && <option value={String(value)}>{String(value)}</option>}
      {spec.choices.map((choice) => (
        <option key={choice} value={choice}>
          {choice}
        </option>
      ))}
    </select>
  );
}

// Text that counts when the field is left, or by Enter.
export function TextKnob({ node, spec }: Props) {
  const value = node.knobs[spec.name] ?? spec.default_text;
  if (typeof value === "object") return <ObjectKnob node={node} spec={spec} />;
  const take = (text: string) => {
    if (text !== String(value)) set_knob(node.name, spec.name, text === spec.default_text ? undefined : text);
  };
  return (
    <input
      type="text"
      class={spec.kind === "file" ? "mono" : ""}
      spellcheck={false}
      autocomplete="off"
      aria-label={spec.name}
      placeholder={spec.kind === "file" ? "path, from the composition's folder" : ""}
      value={String(value)}
      onChange={(event) => take(event.currentTarget.value)}
      onKeyDown={(event) => {
        if (event.key === "Enter") take(event.currentTarget.value);
        if (event.key === "Escape") event.currentTarget.value = String(value);
      }}
    />
  );
}

// A list of texts, one a line.
export function TextsKnob({ node, spec }: Props) {
  const value = node.knobs[spec.name] ?? [];
  const lines = (Array.isArray(value) ? value : [value]).map(String);
  const take = (text: string) => {
    const list = text.split("\n").filter((line) => line.trim() !== "");
    if (list.join("\n") !== lines.join("\n")) set_knob(node.name, spec.name, list.length > 0 ? list : undefined);
  };
  return (
    <textarea
      rows={Math.max(1, lines.length)}
      spellcheck={false}
      aria-label={`${spec.name}, one a line`}
      placeholder="one a line"
      value={lines.join("\n")}
      onChange={(event) => take(event.currentTarget.value)}
    />
  );
}

// Names and values as JSON; what cannot be read is not taken, and said.
export function ObjectKnob({ node, spec }: Props) {
  const wrong = useSignal("");
  const value = node.knobs[spec.name];
  const text = value === undefined ? "" : laid_out(value);
  const take = (typed: string) => {
    if (typed.trim() === text.trim()) {
      wrong.value = "";
      return;
    }
    if (typed.trim() === "") {
      set_knob(node.name, spec.name, undefined);
      return;
    }
    const errors: ParseError[] = [];
    const read = parse(typed, errors) as Json;
    const [error] = errors;
    const line = error ? typed.slice(0, error.offset).split("\n").length : 0;
    wrong.value = error ? `line ${line}: ${printParseErrorCode(error.error)}` : "";
    if (!error) set_knob(node.name, spec.name, read);
  };
  return (
    <div class="object">
      <textarea
        class="mono"
        rows={Math.min(8, Math.max(2, text.split("\n").length))}
        spellcheck={false}
        aria-label={`${spec.name}, as JSON`}
        aria-invalid={wrong.value !== ""}
        placeholder='{"name": "value"}'
        value={text}
        onInput={() => (wrong.value = "")}
        onChange={(event) => take(event.currentTarget.value)}
      />
      {wrong.value !== "" && (
        <p class="problem" role="alert">
          {wrong.value}
        </p>
      )}
    </div>
  );
}

function laid_out(value: Json): string {
  if (value === null || typeof value !== "object" || Array.isArray(value)) return write(value);
  const entries = Object.entries(value).map(([key, each]) => `  ${JSON.stringify(key)}: ${write(each)}`);
  return entries.length === 0 ? "{}" : `{\n${entries.join(",\n")}\n}`;
}
