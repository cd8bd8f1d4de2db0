// The menu end to end in Chromium: opened by tap, key and closed by its button, Escape and a swipe;
// its pages (settings, links, about, mailing list) at phone and desktop sizes; the frame quality taking
// effect on the way back; the tutorials' reset; the usage data; and the server message from
// `zorvex serve --message FILE`, shown from the second launch on.
import assert from 'node:assert/strict';
import { mkdtempSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { openApp } from './browser.mjs';

const messageFile = join(mkdtempSync(join(tmpdir(), 'zorvex-message-')), 'message.json');
const contest = {
  title: 'Glitch contest',
  message: 'Post your best picture with #ZORVEX this month and win a print.',
  actionButtonURL: 'https://zorvex.app/contest',
  actionButtonLabel: 'Enter',
};
writeFileSync(messageFile, JSON.stringify(contest));

let app, page;
const messageRequests = [];
const menuShown = () => page.evaluate(() => window.zorvex.menu.isOpen && !document.getElementById('menu').hidden);
const gateOpen = () => page.evaluate(() => window.zorvex.vc.camera.useFrameProcessingCallbacks);
const panelHeadings = () => page.locator('dialog.zorvex-alert .zorvex-alert-heading').allTextContents();

async function openMenu() {
  await page.locator('#menu-button').click();
  await page.waitForFunction(() => document.getElementById('menu').classList.contains('shown'));
  await page.waitForTimeout(150); // the slide ends
}
async function closedMenu() {
  await page.waitForFunction(() => document.getElementById('menu').hidden, null, { timeout: 5000 });
}
async function tab(name) {
  await page.locator('.menu-tab', { hasText: name }).click();
}

// A finger put down at `from` and moved in `steps` steps of `by`.
async function swipe(from, by, steps) {
  const touch = await page.context().newCDPSession(page);
  const at = (i) => [{ x: from.x + i * by.x, y: from.y + i * by.y, id: 1 }];
  await touch.send('Input.dispatchTouchEvent', { type: 'touchStart', touchPoints: at(0) });
  for (let i = 1; i <= steps; ++i) await touch.send('Input.dispatchTouchEvent', { type: 'touchMove', touchPoints: at(i) });
  await touch.send('Input.dispatchTouchEvent', { type: 'touchEnd', touchPoints: [] });
}

// A page that opens in a new tab, answered here so that nothing leaves the machine.
async function opensTab(click) {
  const opened = page.context().waitForEvent('page', { timeout: 10000 });
  await click();
  const tabPage = await opened;
  const url = tabPage.url() === 'about:blank' ? (await tabPage.waitForEvent('framenavigated')).url() : tabPage.url();
  await tabPage.close();
  return url;
}

before(async () => {
  app = await openApp({ message: messageFile });
  page = app.page;
  page.on('request', (r) => r.url().includes('/zorvex/messageJSON.php') && messageRequests.push(r.url()));
  await page.context().route(/^https:\/\/(zorvex\.app|www\.instagram\.com)\//, (route) =>
    route.fulfill({ contentType: 'text/html', body: '<title>elsewhere</title>' }),
  );
});

after(() => app?.close());

test('the first launch greets and fetches no server message', async () => {
  await page.waitForTimeout(1000);
  assert.deepEqual(await panelHeadings(), ['WELCOME TO ZORVEX']);
  assert.deepEqual(messageRequests, []);
  await app.skipTours();
  await app.framesGoOn();
});

test('the menu opens by tap and by M, closes by its button, Escape and a swipe, and stops the frames meanwhile', async () => {
  await openMenu();
  assert.equal(await menuShown(), true);
  assert.equal(await gateOpen(), false);
  const frames = await page.evaluate(() => window.zorvex.canvas.framesShown);
  await page.waitForTimeout(400);
  assert.ok((await page.evaluate(() => window.zorvex.canvas.framesShown)) <= frames + 1, 'no live frames under the menu');
  await page.locator('#menu-back').click();
  await closedMenu();
  assert.equal(await gateOpen(), true);
  await app.framesGoOn();

  await page.keyboard.press('m');
  await page.waitForFunction(() => window.zorvex.menu.isOpen);
  await page.keyboard.press('Escape');
  await closedMenu();

  await openMenu();
  await swipe({ x: 320, y: 400 }, { x: -24, y: 1 }, 10);
  await closedMenu();
  assert.equal(await gateOpen(), true);
  // Over a page of its own too.
  await openMenu();
  await tab('About');
  await page.frameLocator('#about-frame').locator('h1').waitFor();
  await swipe({ x: 340, y: 300 }, { x: -24, y: -1 }, 10);
  await closedMenu();
  const events = await page.evaluate(() => window.zorvex.analytics.events().map((e) => e.name));
  assert.equal(events.filter((e) => e === 'button_about').length, 4);
  await openMenu();
  await tab('Settings');
  await page.locator('#menu-back').click();
  await closedMenu();
});

test('the pages, each at phone and desktop sizes', async () => {
  await openMenu();
  for (const [size, viewport] of [['phone', { width: 390, height: 844 }], ['desktop', { width: 1280, height: 800 }]]) {
    await page.setViewportSize(viewport);
    await tab('Settings');
    assert.match(await page.locator('#version-label').textContent(), /^v\d+\.\d+\.\d+\.\d+$/);
    await app.shot(`menu-settings-${size}`);
    await tab('Links');
    await app.shot(`menu-links-${size}`);
    await tab('About');
    const about = page.frameLocator('#about-frame');
    await about.locator('h1').waitFor();
    assert.equal(await about.locator('.tagline').textContent(), 'A glitch-art camera');
    await app.shot(`menu-about-${size}`);
  }
  await page.setViewportSize({ width: 390, height: 844 });
});

test('the links open in a new tab that cannot reach back', async () => {
  await tab('Links');
  const cells = page.locator('.link-cell');
  assert.equal(await cells.count(), 3);
  for (let i = 0; i < 3; ++i) {
    assert.equal(await cells.nth(i).getAttribute('target'), '_blank');
    assert.equal(await cells.nth(i).getAttribute('rel'), 'noopener');
  }
  assert.equal(await cells.nth(1).locator('.link-title').textContent(), '#ZORVEX');
  assert.equal(await opensTab(() => cells.nth(1).click()), 'https://www.instagram.com/explore/tags/zorvex/');
  assert.equal(await opensTab(() => cells.nth(0).click()), 'https://zorvex.app/motion/');
});

test('the mailing list shows its sign-up page, and a message in its place when it cannot', async () => {
  // `zorvex serve` has no sign-up page: the page says it can't be reached.
  await tab('Mailing List');
  const failure = page.locator('#mailing-failure');
  await failure.waitFor();
  assert.match(await failure.textContent(), /can't be reached/);
  await app.shot('menu-mailing-list-unreachable');

  await page.context().setOffline(true);
  await page.locator('#mailing-retry').click();
  await page.waitForFunction(() => /offline/.test(document.getElementById('mailing-failure-text').textContent));
  await page.context().setOffline(false);

  await page.route('**/zorvex/mailing-list.html', (route) =>
    route.fulfill({
      contentType: 'text/html',
      headers: { 'Cross-Origin-Embedder-Policy': 'require-corp', 'Cross-Origin-Resource-Policy': 'same-origin' },
      body: '<body style="background:#fff;font:16px sans-serif;padding:24px"><h1>Join the list</h1><input placeholder="you@example.com"></body>',
    }),
  );
  await page.locator('#mailing-retry').click();
  await page.frameLocator('#mailing-frame').locator('h1').waitFor();
  await page.waitForFunction(() => document.getElementById('mailing-busy').hidden);
  assert.equal(await failure.isHidden(), true);
  await app.shot('menu-mailing-list');
  await page.setViewportSize({ width: 1280, height: 800 });
  await app.shot('menu-mailing-list-desktop');
  await page.setViewportSize({ width: 390, height: 844 });
  await page.unroute('**/zorvex/mailing-list.html');
  await page.locator('#menu-back').click();
  await closedMenu();
});

test('frame quality Low gives smaller live frames after the way back', async () => {
  await app.framesGoOn();
  assert.equal((await app.status()).originalWidth, 480);
  await openMenu();
  await tab('Settings');
  await page.locator('label', { hasText: 'Low' }).click();
  assert.equal(await gateOpen(), false, 'nothing starts under the menu');
  await page.locator('#menu-back').click();
  await closedMenu();
  await app.framesGoOn(5);
  const low = await app.status();
  assert.deepEqual([low.originalWidth, low.originalHeight], [192, 144]);
});

test('from the second launch on the server message shows, once when it has a link, and its button opens it', async () => {
  messageRequests.length = 0;
  await app.load(); // the second launch
  const panel = app.panel();
  await panel.waitFor();
  assert.equal(messageRequests.length, 1);
  assert.match(messageRequests[0], /\/zorvex\/messageJSON\.php\?\d+$/);
  assert.equal(await panel.locator('.zorvex-alert-heading').textContent(), contest.title);
  assert.equal(await panel.locator('.zorvex-alert-body').textContent(), contest.message);
  assert.deepEqual(await panel.locator('.zorvex-alert-button').allTextContents(), ['ENTER', 'OK']);
  await page.waitForTimeout(800); // the entrance ends
  await app.shot('server-message');
  assert.equal(await opensTab(() => panel.locator('.zorvex-alert-button.action').click()), contest.actionButtonURL);
  await app.panelsGone();

  // The frame quality chosen before the reload is still chosen.
  await openMenu();
  assert.equal(await page.locator('input[name="frameQualitySwitch"][value="1"]').isChecked(), true);
  await page.locator('label', { hasText: 'Normal' }).click();
  await page.locator('#menu-back').click();
  await closedMenu();
  await app.framesGoOn(5);
  assert.equal((await app.status()).originalWidth, 480);

  await app.load(); // shown once: not again
  await page.waitForTimeout(1000);
  assert.deepEqual(await panelHeadings(), []);

  // Without a link it comes back each time; a broken document shows nothing and breaks nothing.
  writeFileSync(messageFile, JSON.stringify({ title: 'Maintenance', message: 'Saving may be slow tonight.' }));
  for (let launch = 0; launch < 2; ++launch) {
    await app.load();
    await app.panel().waitFor();
    assert.deepEqual(await panelHeadings(), ['Maintenance']);
    await app.panel().locator('.zorvex-alert-button').click();
    await app.panelsGone();
  }
  for (const broken of ['{"message":"no title"}', '<html>oops</html>', '']) {
    writeFileSync(messageFile, broken);
    await app.load();
    await page.waitForTimeout(800);
    assert.deepEqual(await panelHeadings(), [], broken);
    await app.framesGoOn();
  }
});

test('reset tutorials brings the tours back and says so until the page appears again; usage data is shown and cleared', async () => {
  await openMenu();
  await tab('Settings');
  const reset = page.locator('#reset-tutorials');
  assert.equal(await reset.textContent(), 'Reset Tutorials');
  await reset.click();
  assert.equal(await reset.textContent(), '☑️ DONE!');
  const flags = await page.evaluate(() => {
    const s = window.zorvex.settings;
    return [s.hasShownIntro(), s.hasShownEditControls(), s.hasShownArrangeTutorial()];
  });
  assert.deepEqual(flags, [false, false, false]);
  await tab('Links');
  await tab('Settings');
  assert.equal(await reset.textContent(), 'Reset Tutorials');

  assert.match(await page.locator('#usage-count').textContent(), /^\d+ events are kept on this device/);
  await page.locator('#usage-show').click();
  assert.ok((await page.locator('#usage-list li').count()) > 0);
  assert.ok((await page.locator('#usage-list .usage-name').allTextContents()).includes('button_about'));
  await app.shot('menu-usage-data');
  await page.locator('#usage-clear').click();
  await app.panel().locator('.zorvex-alert-button.action').click();
  await app.panelsGone();
  assert.match(await page.locator('#usage-count').textContent(), /^No events/);
  assert.equal(await page.evaluate(() => window.zorvex.analytics.events().length), 0);
  await page.keyboard.press('Escape');
  await closedMenu();

  // Back on the camera the main screen greets again.
  await app.panel().waitFor();
  assert.deepEqual(await panelHeadings(), ['WELCOME TO ZORVEX']);
  await page.waitForTimeout(800);
  await app.shot('welcome-panel');
  await app.skipTours();
});
