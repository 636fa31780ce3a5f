import "./transport.css";
import "./commands";
import { Strip } from "./Strip";
import { TransportRow } from "./TransportRow";

export function Timeline() {
  return (
    <section class="timeline" aria-label="Timeline">
      <TransportRow />
      <Strip />
    </section>
  );
}
