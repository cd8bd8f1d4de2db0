// Looks end to end in Chromium: a saved picture carries its look (exiftool and `zorvex look` read it);
// picked from the library, it offers "Use this look", and the live feed then runs that look; "Copy
// link" makes a link that, opened, asks and then sets the same look.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { openApp, repo } from './browser.mjs';

let app, page;
const cli = process.env.ZORVEX_CLI ?? join(repo, 'build/zorvex');
const dir = mkdtempSync(join(tmpdir(), 'zorvex-e2e-look-'));
const waitForMode = (m) => page.waitForFunction((m) => window.zorvex.vc.mode === m, m, { timeout: 15000 });
const waitForInfo = (pattern) =>
  page.waitForFunction((p) => new RegExp(p).test(document.getElementById('info-label').textContent), pattern, { timeout: 30000 });
const currentLook = async () => JSON.parse((await app.ask({ type: 'currentLook', compact: false })).text);
// The parts of a look that the live feed runs.
const stackOf = ({ effects, seed, controls, blend, opacity }) => ({ effects, seed, controls, blend, opacity });
// The shutter, once the camera's frames flow.
async function takeStill() {
  await app.framesGoOn(2);
  await page.keyboard.press('Space');
  await waitForMode(1);
}

before(async () => {
  app = await openApp();
  page = app.page;
  await app.skipTours();
});

after(() => app?.close());

let saved, savedLook;

test('a saved picture carries its look, which other tools read', async () => {
  await page.keyboard.press('e');
  await takeStill();
  await page.locator('#blend').click();
  await page.locator('.blend-row', { hasText: 'Exclusion' }).click();
  await page.keyboard.press('Escape');
  await page.locator('#alpha-slider').fill('0.7');
  await page.keyboard.press('p');
  await page.waitForFunction(() => /^seed \d+$/.test(document.getElementById('look-seed').textContent));
  assert.equal(await page.locator('#look-seed').isVisible(), true, 'the seed shows in edit mode');
  assert.equal(await page.locator('#use-look').isVisible(), false, 'a still of the camera offers no look');
  await app.status();
  savedLook = await currentLook();
  assert.equal(`seed ${savedLook.seed}`, await page.locator('#look-seed').textContent());
  assert.deepEqual([savedLook.blend, savedLook.opacity, savedLook.effects.length], ['Exclusion', 0.7, 2]);

  const download = page.waitForEvent('download', { timeout: 30000 });
  await page.locator('#save').click();
  saved = join(dir, 'saved.jpg');
  writeFileSync(saved, readFileSync(await (await download).path()));
  await app.shot('look-01-saved');
  assert.deepEqual(JSON.parse(execFileSync(cli, ['look', saved]).toString()), savedLook);
  assert.deepEqual(JSON.parse(execFileSync('exiftool', ['-s3', '-XMP-zorvex:Look', saved]).toString()), savedLook);
});

test('the saved picture, picked from the library, offers its look, and the live feed takes it', async () => {
  await page.locator('#done').click();
  await waitForMode(0);
  await page.keyboard.press('e');
  await page.keyboard.press('p');
  await page.locator('#blend').click();
  await page.locator('.blend-row', { hasText: 'Normal' }).click();
  await page.keyboard.press('Escape');
  await app.status();
  assert.notDeepEqual(stackOf(await currentLook()), stackOf(savedLook));

  const chooser = page.waitForEvent('filechooser');
  await page.locator('#library').click();
  await (await chooser).setFiles(saved);
  await waitForInfo('^THIS PICTURE CARRIES A LOOK$');
  assert.equal(await page.locator('#use-look').isVisible(), true);
  await app.shot('look-02-offer');
  await page.locator('#use-look').click();
  await waitForMode(0);
  await waitForInfo('^LOOK APPLIED');
  await app.framesGoOn(3);
  await app.shot('look-03-live-feed-with-the-look');
  assert.deepEqual(stackOf(await currentLook()), stackOf(savedLook));
  assert.equal(await page.locator('#blend').textContent(), 'Blend:\nExclusion');
  assert.equal(Number(await page.locator('#alpha-slider').inputValue()), 0.7);
  const active = (await app.effects()).filter((r) => r.isActive);
  assert.ok(active.length >= 1, 'rows of the list run the look');
});

test('"Copy link" makes a link whose look is used after a question', async () => {
  await page.context().grantPermissions(['clipboard-read', 'clipboard-write']);
  await takeStill();
  await page.locator('#copy-link').click();
  await waitForInfo('^LINK COPIED$');
  const link = await page.evaluate(() => navigator.clipboard.readText());
  assert.match(link, /#look=[A-Za-z0-9_-]+$/);
  const linked = await currentLook();

  // Another look, then the link: it asks first.
  await page.locator('#done').click();
  await waitForMode(0);
  await page.keyboard.press('p');
  await app.status();
  await page.goto(link);
  await page.waitForFunction(
    () => document.querySelector('dialog.zorvex-alert[open] .zorvex-alert-heading')?.textContent === 'USE THIS LOOK?',
    null,
    { timeout: 20000 },
  );
  assert.match(await app.panel().locator('.zorvex-alert-body').textContent(), /^This link carries a look: .+; blend Exclusion at 70%\. Use it on the camera\?$/);
  assert.doesNotMatch(await page.evaluate(() => location.href), /#look=/, 'the fragment is dropped');
  await app.shot('look-04-link-question');
  await app.panel().locator('.zorvex-alert-button.action').click();
  await waitForInfo('^LOOK APPLIED');
  await app.framesGoOn(2);
  assert.deepEqual(stackOf(await currentLook()), stackOf(linked));
});
