import { commands } from "../commands";
import { key_name } from "../app/keys";
import { Dialog } from "./Dialog";
import { key_list_open } from "./open";

export function KeyList() {
  if (!key_list_open.value) return null;
  const with_keys = commands.value.filter((command) => (command.keys?.length ?? 0) > 0);
  const groups = [...new Set(with_keys.map((command) => command.group))];
  return (
    <Dialog open={key_list_open} label="Keys" wide>
      <div class="key-list">
        {groups.map((group) => (
          <section key={group}>
            <h2>{group}</h2>
            <dl>
              {with_keys
                .filter((command) => command.group === group)
                .map((command) => (
                  <div key={command.id}>
                    <dt>
                      {command.keys?.map((key) => (
                        <kbd key={key}>{key_name(key)}</kbd>
                      ))}
                    </dt>
                    <dd>{command.title}</dd>
                  </div>
                ))}
            </dl>
          </section>
        ))}
      </div>
    </Dialog>
  );
}
