export function CurveEditor() {
  return <div />;
}
