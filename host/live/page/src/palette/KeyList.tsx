export function KeyList() {
  return <div />;
}
