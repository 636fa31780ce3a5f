// The choices of a list of nodes.
export function NodeOptions({ names }: { names: string[] }) {
  return names.map((name) => (
    <option key={name} value={name}>
      {name}
    </option>
  ));
}
