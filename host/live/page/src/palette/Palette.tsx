export function Palette() {
  return <div />;
}
