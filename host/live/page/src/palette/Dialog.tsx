import "./palette.css";
import type { Signal } from "@preact/signals";
import type { ComponentChildren } from "preact";
import { useLayoutEffect, useRef } from "preact/hooks";

// Stands above the page until it is left by Escape, or by a click beside it. The focus goes back to where it was.
export function Dialog({ open, label, wide, children }: {
  open: Signal<boolean>;
  label: string;
  wide?: boolean;
  children: ComponentChildren;
}) {
  const element = useRef<HTMLDialogElement>(null);
  // At once, so that what is typed right behind the key goes here.
  useLayoutEffect(() => {
    if (!element.current?.open) element.current?.showModal();
  }, []);
  return (
    <dialog
      ref={element}
      class={`dialog${wide ? " wide" : ""}`}
      aria-label={label}
      onClose={() => (open.value = false)}
      onClick={(event) => event.target === element.current && element.current?.close()}
    >
      {children}
    </dialog>
  );
}
