export function Graph() {
  return <div />;
}
