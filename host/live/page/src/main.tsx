import { render } from "preact";
import { App } from "./app/App";
import { start_session } from "./net/session";

const page = document.getElementById("page");
if (page) render(<App />, page);
start_session();
