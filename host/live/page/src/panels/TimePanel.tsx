export function TimePanel() {
  return <div />;
}
