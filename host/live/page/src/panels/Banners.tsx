export function Banners() {
  return <div />;
}
