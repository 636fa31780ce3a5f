import { render } from "preact";
import { App } from "./app/App";
import { listen_to_keys } from "./app/keys";
import { start_session } from "./net/session";

const page = document.getElementById("page");
if (page) render(<App />, page);
listen_to_keys();
start_session();
