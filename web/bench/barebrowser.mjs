// Chromium by a pipe and nothing else: what looks into every request and frame, as a testing tool does, takes from the page what is measured.
import { spawn } from 'node:child_process';
import { existsSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

/**
 * The browsers that there are. The shell has nothing but the page; the other one, without a window too, draws its own frame and
 * keeps the processes for it, as a person's browser does, which on two processors takes from the page's time.
 */
export const programs = ['/usr/bin/chromium-headless-shell', process.env.CHROMIUM ?? '/usr/bin/chromium'].filter((path) => existsSync(path));

const width = 1366;
const height = 768;

export class BareBrowser {
  #child;
  #folder = mkdtempSync(join(tmpdir(), 'vintak-chromium-'));
  #waiting = new Map();
  #last = 0;
  #received = '';

  constructor(program) {
    this.#child = spawn(program, ['--headless', '--no-sandbox', '--enable-unsafe-swiftshader', '--no-first-run', '--disable-extensions',
      '--disable-background-networking', '--remote-debugging-pipe', `--window-size=${width},${height}`, `--user-data-dir=${this.#folder}`],
    { stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'] });
    this.#child.stdio[4].setEncoding('utf8').on('data', (text) => this.#take(text));
  }

  /** The answer to a command of the DevTools protocol; rejects with its error. */
  send(method, params = {}, sessionId = undefined) {
    const id = ++this.#last;
    this.#child.stdio[3].write(`${JSON.stringify({ id, method, params, sessionId })}\0`);
    return new Promise((resolve, reject) => this.#waiting.set(id, { resolve, reject, method }));
  }

  /** An empty page with a cache and a storage of its own: { evaluate, go, close }; `network` as Network.emulateNetworkConditions takes it. */
  async newPage(network = undefined) {
    const { browserContextId } = await this.send('Target.createBrowserContext');
    const { targetId } = await this.send('Target.createTarget', { url: 'about:blank', browserContextId, width, height });
    const { sessionId } = await this.send('Target.attachToTarget', { targetId, flatten: true });
    if (network) {
      await this.send('Network.enable', {}, sessionId);
      await this.send('Network.emulateNetworkConditions', network, sessionId);
    }
    // A tab is open for a while before somebody gives it an address.
    await new Promise((resolve) => setTimeout(resolve, 300));
    return {
      go: (url) => this.send('Page.navigate', { url }, sessionId),
      evaluate: async (task) => {
        const { result, exceptionDetails } = await this.send('Runtime.evaluate', { expression: `(${task})()`, returnByValue: true, awaitPromise: true }, sessionId);
        if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
        return result.value;
      },
      close: () => this.send('Target.disposeBrowserContext', { browserContextId }),
    };
  }

  async close() {
    const ended = new Promise((resolve) => this.#child.once('exit', resolve));
    await this.send('Browser.close');
    await ended;
    rmSync(this.#folder, { recursive: true, force: true, maxRetries: 5 });
  }

  #take(text) {
    const messages = (this.#received + text).split('\0');
    this.#received = messages.pop();
    for (const message of messages) {
      const { id, result, error } = JSON.parse(message);
      const asked = this.#waiting.get(id);
      this.#waiting.delete(id);
      if (error) asked?.reject(new Error(`${asked.method}: ${error.message}`));
      else asked?.resolve(result);
    }
  }
}
