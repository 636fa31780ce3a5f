// Small drawings on buttons, 16 by 16, in the colour of the text. The button itself says what it does.
const paths = {
  play: "M4 2.5v11l9-5.5z",
  back: "M12 2.5v11L3 8z",
  stop: "M4 3h3v10H4zM9 3h3v10H9z",
  first: "M3 3h2v10H3zM13 3v10L6 8z",
  last: "M11 3h2v10h-2zM3 3v10l7-5z",
  previous: "M11 3v10L5 8z",
  next: "M5 3v10l6-5z",
  undo: "M6 3 2 7l4 4V8.5h4a2 2 0 0 1 0 4H7V14h3a3.5 3.5 0 0 0 0-7H6z",
  redo: "m10 3 4 4-4 4V8.5H6a2 2 0 0 0 0 4h3V14H6a3.5 3.5 0 0 1 0-7h4z",
  close: "m4 3 4 4 4-4 1 1-4 4 4 4-1 1-4-4-4 4-1-1 4-4-4-4z",
  theme: "M8 2a6 6 0 1 0 0 12A6 6 0 0 0 8 2m0 1.5v9a4.5 4.5 0 0 1 0-9",
} as const;

export type IconName = keyof typeof paths;

export function Icon({ name }: { name: IconName }) {
  return (
    <svg class="icon" width="14" height="14" viewBox="0 0 16 16" aria-hidden="true">
      <path d={paths[name]} fill="currentColor" />
    </svg>
  );
}
