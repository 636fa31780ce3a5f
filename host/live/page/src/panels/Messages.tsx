export function Messages() {
  return <div />;
}
