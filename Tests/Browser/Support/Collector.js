// Real processes: `kite collect` with its inspector, and `kite host`.

import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { Agent, request } from 'node:https';
import { tmpdir } from 'node:os';
import { basename, dirname, join } from 'node:path';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

import { aRequest, KEY } from './Events.js';

export const ROOT = join(dirname(fileURLToPath(import.meta.url)), '../../..');
const KITE = process.env.KITE_TOOL ?? join(ROOT, 'build/demo/kite');

/** The line that has a host deliver what it recorded. */
export const DRAIN = { op: 'drain', deliverWithin: 5 };

/** The first line of the process's output that fits. */
async function lineOf(child, fits) {
  const lines = createInterface({ input: child.stdout });
  for await (const text of lines) {
    const line = JSON.parse(text);
    if (fits(line)) return line;
  }
  throw new Error('kite collect ended before it listened');
}

/** A database of its own for each folder: a file in it, or one of the server whose address with_postgres.sh gives. */
function databaseOf(folder) {
  const server = process.env.KITE_POSTGRES;
  if (!server) return join(folder, 'events.db');
  const name = basename(folder);
  spawnSync('psql', ['-Xq', `${server}/postgres`, '-c', `CREATE DATABASE "${name}"`], { stdio: 'ignore' }); // it may be there
  execFileSync(KITE, ['collect', 'migrate', '--db', `${server}/${name}`], { stdio: ['ignore', 'ignore', 'inherit'] });
  return `${server}/${name}`;
}

export class Collector {
  /** @param {{folder?: string, inspect?: string, options?: string[]}} choices the folder is a new one unless it is given */
  static async start({ folder = mkdtempSync(join(tmpdir(), 'kite-browser-')), inspect = '127.0.0.1:0', options = [] } = {}) {
    const collector = new Collector();
    collector.folder = folder;
    collector.process = spawn(KITE, [
      'collect', '--listen', '127.0.0.1:0', '--key', KEY, '--db', databaseOf(folder), '--self-signed', join(folder, 'tls'),
      '--inspect', inspect, ...options,
    ], { stdio: ['ignore', 'pipe', 'inherit'] });
    const found = {};
    await lineOf(collector.process, (line) => {
      found[line.event] = line;
      return found.listening && found.inspector;
    });
    collector.process.stdout.resume();
    collector.url = found.listening.url;
    collector.ca = join(folder, 'tls/ca.pem');
    collector.page = found.inspector.url;
    collector.agent = new Agent({ ca: readFileSync(collector.ca), keepAlive: true, maxSockets: 1 });
    return collector;
  }

  /** Sends a batch; @returns {Promise<{status: number, body: any}>} */
  send(events, options) {
    return this.sendRequest(aRequest(this, events, options));
  }

  sendRequest({ body, headers }) {
    return new Promise((resolve, reject) => {
      const sent = request(this.url, { method: 'POST', agent: this.agent, headers: { ...headers, 'Content-Length': body.length } }, async (answer) => {
        let text = '';
        for await (const part of answer) text += part;
        resolve({ status: answer.statusCode, body: text ? JSON.parse(text) : null });
      });
      sent.on('error', reject);
      sent.end(body);
    });
  }

  /** Asks the inspector's API as a program does. */
  async ask(path, options = {}) {
    const { origin, searchParams } = new URL(this.page);
    const answer = await fetch(origin + path, { ...options, headers: { Authorization: `Bearer ${searchParams.get('token')}`, ...options.headers } });
    if (!answer.ok) throw new Error(`${path}: ${answer.status} ${await answer.text()}`);
    return answer.json();
  }

  /** Runs `kite host` over these lines and waits until it has ended. */
  async host(lines, options = []) {
    const child = spawn(KITE, [
      'host', '--state', join(this.folder, 'host'), '--key', KEY, '--endpoint', this.url, '--ca-file', this.ca, ...options,
    ], { stdio: ['pipe', 'ignore', 'ignore'] });
    child.stdin.end(lines.map((line) => `${JSON.stringify(line)}\n`).join(''));
    await once(child, 'exit');
  }

  async stop() {
    this.agent.destroy();
    if (this.process.exitCode === null) {
      this.process.kill('SIGTERM');
      await once(this.process, 'exit');
    }
  }

  async end() {
    await this.stop();
    rmSync(this.folder, { recursive: true, force: true });
  }
}
