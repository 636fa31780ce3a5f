export function Scopes() {
  return <div />;
}
