import { useEffect, useMemo, useRef, useState } from "preact/hooks";
import { Dialog } from "./Dialog";
import { type Entry, find } from "./entries";
import { palette_open } from "./open";

export function Palette() {
  return palette_open.value ? (
    <Dialog open={palette_open} label="Find a command, node or knob">
      <Finder />
    </Dialog>
  ) : null;
}

function Finder() {
  const [letters, set_letters] = useState("");
  const [at, set_at] = useState(0);
  const found = useMemo(() => find(letters), [letters]);
  const list = useRef<HTMLUListElement>(null);
  useEffect(() => {
    list.current?.children[at]?.scrollIntoView({ block: "nearest" });
  }, [at]);

  const run = (entry: Entry | undefined) => {
    // Gives back the focus, so that a command can take it.
    list.current?.closest("dialog")?.close();
    entry?.run();
  };
  const key = (event: KeyboardEvent) => {
    const by = event.key === "ArrowDown" ? 1 : event.key === "ArrowUp" ? -1 : 0;
    if (by !== 0) set_at(Math.min(found.length - 1, Math.max(0, at + by)));
    else if (event.key === "Enter") run(found[at]);
    else return;
    event.preventDefault();
  };
  return (
    <>
      <input
        type="text"
        class="finder"
        role="combobox"
        aria-label="A few letters of a command, node or knob"
        aria-expanded="true"
        aria-controls="found"
        aria-activedescendant={found[at] ? `found-${at}` : undefined}
        placeholder="A few letters of a command, node or knob"
        autocomplete="off"
        spellcheck={false}
        autofocus
        value={letters}
        onInput={(event) => {
          set_letters(event.currentTarget.value);
          set_at(0);
        }}
        onKeyDown={key}
      />
      <ul ref={list} id="found" role="listbox" aria-label="Found" class="found">
        {found.map((entry, index) => (
          <li
            key={entry.id}
            id={`found-${index}`}
            role="option"
            aria-selected={index === at}
            onPointerMove={(event) => (event.movementX !== 0 || event.movementY !== 0) && set_at(index)}
            onClick={() => run(entry)}
          >
            <span class={`kind kind-${entry.kind}`}>{entry.kind}</span>
            <span class="what">{entry.title}</span>
            {entry.hint !== "" && <span class="hint">{entry.hint}</span>}
          </li>
        ))}
        {found.length === 0 && <li class="none">Nothing has these letters.</li>}
      </ul>
    </>
  );
}
