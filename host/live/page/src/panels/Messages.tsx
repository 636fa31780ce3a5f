import type { Problem } from "../protocol";
import { frame_problem, notices, problems, selected_node } from "../state";

export function Messages() {
  const wrong = [...problems.value, ...(frame_problem.value ? [frame_problem.value] : [])];
  const said = notices.value;
  return (
    <div class="panel messages">
      {wrong.length + said.length === 0 && <p class="dim">Nothing to tell.</p>}
      {wrong.length > 0 && (
        <ul aria-label="Errors">
          {wrong.map((problem, at) => (
            <Wrong key={at} problem={problem} />
          ))}
        </ul>
      )}
      {said.length > 0 && (
        <>
          <div class="panel-head">
            <span class="dim">Notices</span>
            <span class="gap" />
            <button onClick={() => (notices.value = [])}>Clear</button>
          </div>
          <ul aria-label="Notices">
            {said
              .map((notice, at) => <li key={at}>{notice}</li>)
              .reverse()}
          </ul>
        </>
      )}
    </div>
  );
}

function Wrong({ problem }: { problem: Problem }) {
  const { node, knob, message, suggestion } = problem;
  return (
    <li class="error">
      {node !== "" && (
        <button class="quiet" onClick={() => (selected_node.value = node)}>
          {node}
          {knob !== "" && `.${knob}`}
        </button>
      )}
      <span>{message}</span>
      {suggestion !== "" && <span class="dim"> {suggestion}</span>}
    </li>
  );
}
