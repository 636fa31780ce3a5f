import { signal } from "@preact/signals";

export const palette_open = signal(false);
export const key_list_open = signal(false);
