// Launching Debian's Chromium through playwright-core, with a fake camera, and serving the built app
// with `zorvex serve`. Shared by the end-to-end run and the browser benchmark.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { chromium } from 'playwright-core';

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

// Chromium with a fake camera: a moving test pattern, or the y4m file given.
export async function launch({ y4m } = {}) {
  const profile = mkdtempSync(join(tmpdir(), 'zorvex-chromium-'));
  const args = [
    '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync',
    '--use-fake-ui-for-media-stream', '--use-fake-device-for-media-stream',
    '--autoplay-policy=no-user-gesture-required',
  ];
  if (y4m) args.push(`--use-file-for-fake-video-capture=${y4m}`);
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    headless: true,
    args,
    acceptDownloads: true,
    viewport: { width: 390, height: 844 },
    deviceScaleFactor: 2,
    permissions: ['camera'],
  });
  return {
    context,
    close: async () => {
      await context.close();
      rmSync(profile, { recursive: true, force: true });
    },
  };
}
