// The browser benchmark of the web app (make bench-web): frames per second of the live feed, with
// Chromium's fake camera playing a 480x360 card, for the default stack and for the three slowest
// pairs of effects; and the time of a 12-megapixel final render with the default stack. Not a test:
// it prints figures.
import { mkdtempSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

import { launch, serve } from './browser.mjs';
import { writeY4m } from './fixtures.mjs';

// The default stack, and the three slowest pairs at the live size by `zorvex bench` (MXLHXLLXND,
// ARECIBO and POLYBOMB are the three slowest kernels at 360x480).
const stacks = [
  ['VETH', 'AGENCY'],
  ['MXLHXLLXND', 'ARECIBO'],
  ['MXLHXLLXND', 'POLYBOMB'],
  ['ARECIBO', 'POLYBOMB'],
];
const seconds = Number(process.env.BENCH_SECONDS ?? 6);

const work = mkdtempSync(join(tmpdir(), 'zorvex-bench-'));
const y4m = join(work, 'card.y4m');
writeY4m(y4m, 480, 360, 30);
const server = await serve();
const browser = await launch({ y4m });
const page = browser.context.pages()[0] ?? (await browser.context.newPage());
try {
  await page.goto(server.url);
  await page.waitForFunction(() => window.zorvex !== undefined, null, { timeout: 20000 });
  const welcome = page.locator('dialog.zorvex-alert .zorvex-alert-button.action');
  if (await welcome.count()) await welcome.click();
  await page.evaluate(() => window.zorvex.walkthrough.end());
  await page.waitForFunction(() => window.zorvex.canvas.framesShown > 5, null, { timeout: 20000 });
  const canvas = await page.evaluate(() => [window.zorvex.canvas.canvas.width, window.zorvex.canvas.canvas.height]);
  console.log(`Live feed: 480x360 frames from the fake camera (30 per second at most), canvas ${canvas[0]}x${canvas[1]} device pixels`);
  for (const names of stacks) {
    await page.evaluate((n) => window.zorvex.engine.request({ type: 'setActiveEffects', names: n }), names);
    await page.waitForTimeout(1500);
    const frames = await page.evaluate(async (s) => {
      const startFrames = window.zorvex.canvas.framesShown;
      const start = performance.now();
      await new Promise((r) => setTimeout(r, s * 1000));
      return (window.zorvex.canvas.framesShown - startFrames) / ((performance.now() - start) / 1000);
    }, seconds);
    console.log(`  ${names.join(' + ').padEnd(26)} ${frames.toFixed(1)} frames per second`);
  }

  // The final render of a 12-megapixel still with the default stack, encoded as JPEG in the Worker.
  await page.evaluate(() => window.zorvex.engine.request({ type: 'setActiveEffects', names: ['VETH', 'AGENCY'] }));
  await page.evaluate(() => (window.zorvex.vc.camera.useFrameProcessingCallbacks = false));
  const times = await page.evaluate(async () => {
    const w = 4032, h = 3024;
    const data = new Uint8Array(w * h * 4);
    for (let y = 0; y < h; y++)
      for (let x = 0; x < w; x++) data.set([(x >> 4) & 255, (y >> 4) & 255, (x ^ y) & 255, 255], (y * w + x) * 4);
    const { engine, imageView } = window.zorvex;
    await engine.request({ type: 'setOriginal', picture: { width: w, height: h, data: data.buffer }, orientation: 0, correct: true }, [data.buffer]);
    const out = [];
    for (let i = 0; i < 3; i++) {
      const start = performance.now();
      const reply = await engine.request({ type: 'renderFinal', state: imageView.state(), mimeType: 'image/jpeg', quality: 0.92 });
      out.push([performance.now() - start, reply.file?.size ?? 0]);
    }
    return out;
  });
  const median = times.map((t) => t[0]).sort((a, b) => a - b)[1];
  console.log(`Final render, 4032x3024, default stack, composed and encoded as JPEG: ${(median / 1000).toFixed(2)} s (median of 3)`);
} finally {
  await browser.close();
  server.stop();
}
