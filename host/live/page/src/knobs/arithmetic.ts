// What somebody types into a number: "12", "1/3", "2*(3+4)", "-.5e2", or a change of what stood there: "+=2", "*=1.1".
// null: it is nothing of these.
export function calculate(text: string, now: number): number | null {
  const change = /^\s*([-+*/])=(.*)$/.exec(text);
  const value = change ? change_of(change[1] as string, now, calculate(change[2] ?? "", now)) : new Reader(text).all();
  return value !== null && Number.isFinite(value) ? value : null;
}

function change_of(sign: string, one: number, other: number | null): number | null {
  if (other === null) return null;
  return sign === "+" ? one + other : sign === "-" ? one - other : sign === "*" ? one * other : one / other;
}

class Reader {
  private at = 0;
  private readonly text: string;

  constructor(text: string) {
    this.text = text.replaceAll(/\s/g, "").replaceAll(",", ".");
  }

  all(): number | null {
    const value = this.sum();
    return this.at === this.text.length ? value : null;
  }

  private sum(): number | null {
    let value = this.product();
    for (let sign = this.take("+", "-"); sign !== ""; sign = this.take("+", "-")) value = apply(sign, value, this.product());
    return value;
  }

  private product(): number | null {
    let value = this.factor();
    for (let sign = this.take("*", "/"); sign !== ""; sign = this.take("*", "/")) value = apply(sign, value, this.factor());
    return value;
  }

  private factor(): number | null {
    const sign = this.take("-", "+");
    if (sign !== "") {
      const value = this.factor();
      return value === null ? null : sign === "-" ? -value : value;
    }
    if (this.take("(") !== "") {
      const value = this.sum();
      return this.take(")") === "" ? null : value;
    }
    const found = /^(\d+\.?\d*|\.\d+)(e[-+]?\d+)?/i.exec(this.text.slice(this.at));
    if (!found) return null;
    this.at += found[0].length;
    return Number(found[0]);
  }

  private take(...signs: string[]): string {
    const sign = this.text[this.at] ?? "";
    if (!signs.includes(sign)) return "";
    ++this.at;
    return sign;
  }
}

function apply(sign: string, one: number | null, other: number | null): number | null {
  return one === null ? null : change_of(sign, one, other);
}
