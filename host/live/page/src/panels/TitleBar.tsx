export function TitleBar() {
  return <div />;
}
