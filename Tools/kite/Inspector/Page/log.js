// The rows of a list, newest first. Both ends grow by appending, so that nothing is ever moved: what arrives is put behind
// the newer ones, what is read back behind the older ones. While the list is held, what arrives waits unseen.

/** More than these are not kept; the oldest go. */
const MOST_ROWS = 1_000_000;

/** Where `seq` stands in rising rows, or -1. */
function place(rows, seq, isRising) {
  let low = 0;
  let high = rows.length - 1;
  while (low <= high) {
    const middle = (low + high) >> 1;
    const found = rows[middle].seq;
    if (found === seq) return middle;
    if (found < seq === isRising) low = middle + 1;
    else high = middle - 1;
  }
  return -1;
}

/** @template {{seq: number}} T */
export class Log {
  /** @type {T[]} */ #newer = [];
  /** @type {T[]} */ #older = [];
  #shown = 0;
  #held = false;

  get length() {
    return this.#shown + this.#older.length;
  }

  /** How many wait. */
  get waiting() {
    return this.#newer.length - this.#shown;
  }

  get newest() {
    return this.#newer.at(-1)?.seq ?? this.#older[0]?.seq ?? 0;
  }

  set held(held) {
    this.#held = held;
    if (!held) this.#shown = this.#newer.length;
  }

  /** @param {number} index 0 is the newest that is shown @returns {T} */
  at(index) {
    return index < this.#shown ? this.#newer[this.#shown - 1 - index] : this.#older[index - this.#shown];
  }

  /** Adds rows that arrived, in rising order; those that are there already are left out. */
  add(rows) {
    let newest = this.newest;
    for (const row of rows) {
      if (row.seq <= newest) continue;
      this.#newer.push(row);
      newest = row.seq;
    }
    if (this.#newer.length > MOST_ROWS) this.#forget();
    if (!this.#held) this.#shown = this.#newer.length;
  }

  /** Adds rows that are older than all, in falling order. */
  addOlder(rows) {
    if (this.length + rows.length <= MOST_ROWS) this.#older.push(...rows);
  }

  /** @returns {T|undefined} */
  find(seq) {
    const newer = place(this.#newer, seq, true);
    return newer >= 0 ? this.#newer[newer] : this.#older[place(this.#older, seq, false)];
  }

  /** @returns {number} where the row is shown, or -1 */
  indexOf(seq) {
    const newer = place(this.#newer, seq, true);
    if (newer >= 0) return newer < this.#shown ? this.#shown - 1 - newer : -1;
    const older = place(this.#older, seq, false);
    return older < 0 ? -1 : older + this.#shown;
  }

  clear() {
    this.#newer = [];
    this.#older = [];
    this.#shown = 0;
  }

  #forget() {
    const gone = this.#newer.length - MOST_ROWS * 0.9;
    this.#newer = this.#newer.slice(gone);
    this.#older = [];
    this.#shown = Math.max(0, this.#shown - gone);
  }
}
