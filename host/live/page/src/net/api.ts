// Requests to the server that this page came from. The token stands in the address, behind the #, and so never
// travels with a request for the page itself.
const token = location.hash.slice(1);

// What the server says where it refuses: the status, and its answer as JSON where it is one.
export class ApiError extends Error {
  readonly status: number; // 0: no answer
  readonly body: unknown;

  constructor(status: number, message: string, body: unknown) {
    super(message);
    this.status = status;
    this.body = body;
  }
}

// The answer to one request, its body still to be read. Throws ApiError, or AbortError where `signal` ends it.
export async function ask(method: string, path: string, body?: unknown, signal?: AbortSignal): Promise<Response> {
  const headers: Record<string, string> = { Authorization: `Bearer ${token}` };
  const options: RequestInit = { method, headers, cache: "no-store" };
  if (signal) options.signal = signal;
  if (body !== undefined) {
    headers["Content-Type"] = "application/json";
    options.body = JSON.stringify(body);
  }
  let response: Response;
  try {
    response = await fetch(path, options);
  } catch (error) {
    if (signal?.aborted) throw error;
    throw new ApiError(0, "The server does not answer.", null);
  }
  if (!response.ok) throw await refused(response);
  return response;
}

async function refused(response: Response): Promise<ApiError> {
  const text = await response.text().catch(() => "");
  let body: unknown = text;
  try {
    body = JSON.parse(text);
  } catch {
    // Not from the server itself: the text is all there is.
  }
  const message =
    typeof body === "object" && body !== null && "message" in body
      ? String(body.message)
      : text || `${response.status} ${response.statusText}`;
  return new ApiError(response.status, message, body);
}

async function answer<T>(response: Response): Promise<T> {
  if (response.status === 204) return undefined as T;
  const type = response.headers.get("Content-Type") ?? "";
  return (type.includes("json") ? await response.json() : await response.text()) as T;
}

export async function get<T>(path: string, signal?: AbortSignal): Promise<T> {
  return answer<T>(await ask("GET", path, undefined, signal));
}

export async function post<T = void>(path: string, body: unknown = {}): Promise<T> {
  return answer<T>(await ask("POST", path, body));
}

export async function put<T>(path: string, body: unknown): Promise<T> {
  return answer<T>(await ask("PUT", path, body));
}
