// One request under way at a time: what is asked meanwhile waits, and only the newest of it is sent.
export class Latest<Query, Reply> {
  private waiting: Query | null = null;
  private busy = false;

  constructor(
    private readonly ask: (query: Query) => Promise<Reply>,
    private readonly take: (query: Query, reply: Reply | null) => void, // null: no answer was to be had
  ) {}

  want(query: Query): void {
    this.waiting = query;
    if (!this.busy) void this.work();
  }

  forget(): void {
    this.waiting = null;
  }

  private async work(): Promise<void> {
    this.busy = true;
    for (let query = this.waiting; query !== null; query = this.waiting) {
      this.waiting = null;
      let reply: Reply | null = null;
      try {
        reply = await this.ask(query);
      } catch {
        // The version or the node is gone, or the server: there is nothing to show.
      }
      this.take(query, reply);
    }
    this.busy = false;
  }
}
