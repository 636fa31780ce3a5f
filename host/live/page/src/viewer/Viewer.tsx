export function Viewer() {
  return <div />;
}
