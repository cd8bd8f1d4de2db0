// Launching Debian's Chromium through playwright-core, with a fake camera, and serving the built app
// with `zorvex serve`. Shared by the end-to-end run and the browser benchmark.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { chromium } from 'playwright-core';

import { writeY4m } from './fixtures.mjs';

export const repo = new URL('../..', import.meta.url).pathname;

// Starts `zorvex serve` on a free port; resolves with its address and a stop function.
export function serve({ message } = {}) {
  const cli = process.env.ZORVEX_CLI ?? join(repo, 'build/zorvex');
  const args = ['serve', '--port', '0', '--root', join(repo, 'web/dist')];
  if (message) args.push('--message', message);
  const child = spawn(cli, args, { stdio: ['ignore', 'pipe', 'inherit'] });
  return new Promise((resolve, reject) => {
    let out = '';
    child.stdout.on('data', (chunk) => {
      out += chunk;
      const m = out.match(/http:\/\/localhost:(\d+)\//);
      if (m) resolve({ url: m[0], stop: () => child.kill('SIGTERM') });
    });
    child.on('exit', (code) => reject(new Error(`zorvex serve ended (${code}): ${out}`)));
  });
}

// Chromium with a fake camera: a moving test pattern, or the y4m file given; with `refuseCamera`, the
// page is refused the camera as a person who said no.
export async function launch({ y4m, refuseCamera = false, viewport = { width: 390, height: 844 } } = {}) {
  const profile = mkdtempSync(join(tmpdir(), 'zorvex-chromium-'));
  const args = [
    '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync',
    refuseCamera ? '--deny-permission-prompts' : '--use-fake-ui-for-media-stream', '--use-fake-device-for-media-stream',
    '--autoplay-policy=no-user-gesture-required',
  ];
  if (y4m) args.push(`--use-file-for-fake-video-capture=${y4m}`);
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    headless: true,
    args,
    acceptDownloads: true,
    viewport,
    deviceScaleFactor: 2,
    permissions: refuseCamera ? [] : ['camera'],
  });
  return {
    context,
    close: async () => {
      await context.close();
      rmSync(profile, { recursive: true, force: true });
    },
  };
}

// The app served and open in a new Chromium whose camera plays the test card (or is refused), with what
// the end-to-end files ask of it; `message` is the server message file. Screenshots go to
// ZORVEX_SCREENSHOTS, else build/e2e-screenshots; `close` fails when the page threw. With `open` false
// the page is left blank, for the caller to open it at `url` as it wants.
export async function openApp({ refuseCamera = false, viewport, open = true, message } = {}) {
  const shots = process.env.ZORVEX_SCREENSHOTS ?? join(repo, 'build/e2e-screenshots');
  mkdirSync(shots, { recursive: true });
  console.log(`Screenshots: ${shots}`);
  const y4m = join(mkdtempSync(join(tmpdir(), 'zorvex-e2e-')), 'card.y4m');
  writeY4m(y4m, 480, 360);
  const server = await serve({ message });
  const browser = await launch({ y4m, refuseCamera, viewport });
  const page = browser.context.pages()[0] ?? (await browser.context.newPage());
  const errors = [];
  page.on('pageerror', (e) => errors.push(e.message));
  const app = {
    page,
    url: server.url,
    async load() {
      await page.goto(server.url);
      await page.waitForFunction(() => window.zorvex !== undefined, null, { timeout: 20000 });
      // A fixed look: what the checks compare must not hang on the roll the app made at start (a few
      // rolls change the test picture too little for a fingerprint to see). Requests run in order,
      // so this comes after that roll.
      await page.evaluate(() => window.zorvex.engine.request({ type: 'setControlSeed', seed: '2026' }));
    },
    shot: (name) => page.screenshot({ path: join(shots, `${name}.png`) }),
    // The alert panel on top, and the wait until none is left.
    panel: () => page.locator('dialog.zorvex-alert[open]').last(),
    panelsGone: () => page.waitForFunction(() => !document.querySelector('dialog.zorvex-alert'), null, { timeout: 5000 }),
    // For the runs about something else: the welcome's "Ok", the tour it starts ended, and the other
    // two tours marked as shown.
    async skipTours() {
      await app.panel().locator('.zorvex-alert-button.action').click();
      await app.panelsGone();
      await page.evaluate(() => {
        const s = window.zorvex.settings;
        s.setHasShownEditControls();
        s.setHasShownArrangeTutorial();
        window.zorvex.walkthrough.end();
      });
      await app.status(); // the flags are stored
    },
    ask: (request) => page.evaluate((r) => window.zorvex.engine.request(r), request),
    status: () => app.ask({ type: 'status' }),
    effects: async () => (await app.ask({ type: 'effects' })).rows,
    // A fingerprint of what the canvas shows.
    canvasPrint: () =>
      page.evaluate(() => {
        const c = document.getElementById('picture');
        const d = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;
        let h = 0;
        for (let i = 0; i < d.length; i += 97) h = (h * 31 + d[i]) >>> 0;
        return h;
      }),
    async framesGoOn(more = 3) {
      const start = await page.evaluate(() => window.zorvex.canvas.framesShown);
      await page.waitForFunction((n) => window.zorvex.canvas.framesShown >= n, start + more, { timeout: 15000 });
    },
    async close() {
      await browser.close();
      server.stop();
      assert.deepEqual(errors, [], 'the page threw');
    },
  };
  if (open) await app.load();
  return app;
}
