export function RenderPanel() {
  return <div />;
}
