export function ViewerBar() {
  return <div />;
}
