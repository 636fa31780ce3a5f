export function Knobs() {
  return <div />;
}
