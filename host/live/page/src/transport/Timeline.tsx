export function Timeline() {
  return <div />;
}
