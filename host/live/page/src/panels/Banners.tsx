import type { ComponentChildren } from "preact";
import { offer } from "../document/document";
import { device_lost, refusal } from "../net/session";
import { connected, info, notices, problems } from "../state";

function Banner({ kind, late, children }: { kind: "warn" | "error"; late?: boolean; children: ComponentChildren }) {
  return (
    <div class={`banner banner-${kind}${late ? " banner-late" : ""}`} role="alert">
      {children}
    </div>
  );
}

// What keeps the page from being what it seems, above everything.
export function Banners() {
  if (refusal.value !== "") return <Refused />;
  return (
    <div class="banners">
      <div class="unseen" role="status">
        {problems.value[0]?.message ?? notices.value.at(-1) ?? ""}
      </div>
      {info.value !== null && !connected.value && (
        <Banner kind="error" late>
          The server does not answer. What you see stays; the page asks again until it is back.
        </Banner>
      )}
      {device_lost.value !== "" && <Banner kind="error">The graphics device was lost: {device_lost.value}</Banner>}
      <Choice />
    </div>
  );
}

// Two texts that say something else: somebody has to say which of them counts.
function Choice() {
  if (offer.value === null) return null;
  const { message, choices } = offer.value;
  return (
    <Banner kind="warn">
      <span>{message}</span>
      {choices.map(({ title, run }) => (
        <button key={title} onClick={run}>
          {title}
        </button>
      ))}
    </Banner>
  );
}

function Refused() {
  return (
    <div class="refused" role="alert">
      <h2>This page may not talk to the server</h2>
      <p>
        Its address has another key than the server that runs now. Open the address that <code>quorvel live</code> printed
        when it was started.
      </p>
      <p class="dim mono">{refusal.value}</p>
    </div>
  );
}
