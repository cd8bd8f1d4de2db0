// The server message and the alert panel: every rule of the message document, the fetch and what
// goes wrong with it, the once-only memory, the action's link, and panels stacking and closing in any
// order.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import { PageDefaults } from '../src/platform/defaults';
import { MemoryStorage } from '../src/platform/storage';
import { ZorvexAlertVC, type AlertPanelContent, type AlertPanelView } from '../src/screens/alert-panel';
import { readMessageDocument, ServerMessageLoader, type MessageResponse } from '../src/screens/server-message';

class FakePanelView implements AlertPanelView {
  content: AlertPanelContent | null = null;
  handlers: { cancel: () => void; action: () => void } | null = null;
  finishDismiss: (() => void) | null = null;
  show(content: AlertPanelContent, handlers: { cancel: () => void; action: () => void }): void {
    this.content = content;
    this.handlers = handlers;
  }
  dismiss(done: () => void): void {
    this.finishDismiss = done;
  }
}

let defaults: PageDefaults;
let views: FakePanelView[];
let lines: string[];
let opened: string[];

const shown = () => ZorvexAlertVC.alerts.map((a) => a.content.body);
// Ends every dismissal under way, as the animations would.
const finishDismissals = () => views.forEach((v) => v.finishDismiss?.());

beforeEach(() => {
  defaults = new PageDefaults(new MemoryStorage());
  views = [];
  lines = [];
  opened = [];
  ZorvexAlertVC.configure({ defaults, makeView: () => (views.push(new FakePanelView()), views.at(-1)!) });
});

afterEach(() => {
  finishDismissals();
  ZorvexAlertVC.alerts.length = 0;
  ZorvexAlertVC.configure(null);
});

function loader(answer: () => Promise<MessageResponse>, urls: string[] = []) {
  return new ServerMessageLoader({
    origin: 'https://example.test',
    fetch: (url) => (urls.push(url), answer()),
    random: () => 4023233417,
    open: (url) => opened.push(url),
    log: (line) => lines.push(line),
  });
}
const answering = (status: number, text: string) => async () => ({ ok: status >= 200 && status < 300, status, text: async () => text });

describe('the message document', () => {
  it('is read by the rules: title and message required, the link only with both strings', () => {
    const cases: [string, unknown, number][] = [
      ['{"title":"Hi","message":"News"}', { title: 'Hi', message: 'News', link: null }, 1],
      [
        '{"title":"Hi","message":"News","actionButtonURL":"https://x.test/","actionButtonLabel":"See"}',
        { title: 'Hi', message: 'News', link: { url: 'https://x.test/', label: 'See' } },
        1,
      ],
      ['{"title":"Hi","message":"News","actionButtonURL":"https://x.test/","actionButtonLabel":7}', { title: 'Hi', message: 'News', link: null }, 1],
      ['{"title":"Hi","message":"News","actionButtonLabel":"See"}', { title: 'Hi', message: 'News', link: null }, 1],
      ['{"message":"News"}', null, 1],
      ['{"title":"Hi"}', null, 1],
      ['{"title":"Hi","message":42}', null, 1],
      ['{"title":null,"message":"News"}', null, 1],
    ];
    for (const [text, expected, lineCount] of cases) {
      lines = [];
      expect(readMessageDocument(text, (l) => lines.push(l)), text).toEqual(expected);
      expect(lines, text).toHaveLength(lineCount);
    }
  });

  it('shows nothing for what is no dictionary, and says so', () => {
    for (const text of ['<html>Not found</html>', '{"title":', '[{"title":"Hi","message":"News"}]', '"just text"', '12', 'null']) {
      lines = [];
      expect(readMessageDocument(text, (l) => lines.push(l)), text).toBeNull();
      expect(lines.at(-1), text).toBe('No dict - nothing to show');
    }
    lines = [];
    readMessageDocument('not json', (l) => lines.push(l));
    expect(lines).toHaveLength(2); // the parser's complaint, then the line above
  });
});

describe('loading the message', () => {
  it('asks for the path with one fresh number as the whole query, and shows the message', async () => {
    const urls: string[] = [];
    await loader(answering(200, '{"title":"Hello","message":"A new version is out."}'), urls).loadServerMessage();
    expect(urls).toEqual(['https://example.test/zorvex/messageJSON.php?4023233417']);
    expect(views[0]?.content).toEqual({ heading: 'Hello', body: 'A new version is out.', cancelTitle: 'OK', actionTitle: null });
  });

  it('shows nothing and leaves one line for no network, a server error and an empty answer', async () => {
    const failures: (() => Promise<MessageResponse>)[] = [
      () => Promise.reject(new TypeError('Failed to fetch')),
      answering(404, 'Not found'),
      answering(500, ''),
      answering(200, ''),
      answering(200, '  \n'),
    ];
    for (const answer of failures) {
      lines = [];
      await loader(answer).loadServerMessage();
      expect(lines).toHaveLength(1);
    }
    expect(views).toHaveLength(0);
  });

  it('shows a message with a link once ever, and one without a link at every start', async () => {
    const withLink = '{"title":"Contest","message":"Win a print","actionButtonURL":"https://x.test/c","actionButtonLabel":"Enter"}';
    const plain = '{"title":"Note","message":"Servers down tonight"}';
    for (let start = 0; start < 2; ++start) {
      await loader(answering(200, withLink)).loadServerMessage();
      await loader(answering(200, plain)).loadServerMessage();
      ZorvexAlertVC.alerts.forEach((a) => a.cancelTapped());
      finishDismissals();
    }
    expect(views.map((v) => v.content?.body)).toEqual(['Win a print', 'Servers down tonight', 'Servers down tonight']);
    expect(defaults.boolForKey('Win a print-defaultsKey')).toBe(true);
    expect(defaults.boolForKey('Servers down tonight-defaultsKey')).toBe(false);
  });

  it('does not double a panel still on show when the screen appears again', async () => {
    const plain = loader(answering(200, '{"title":"Note","message":"Twice?"}'));
    await plain.loadServerMessage();
    await plain.loadServerMessage();
    expect(shown()).toEqual(['Twice?']);
  });

  it('opens the link from the action button at once, and refuses a link that is no web address', async () => {
    await loader(answering(200, '{"title":"T","message":"M","actionButtonURL":"https://x.test/a b","actionButtonLabel":"Go"}')).loadServerMessage();
    expect(views[0]?.content?.actionTitle).toBe('GO');
    views[0]!.handlers!.action();
    expect(opened).toEqual(['https://x.test/a%20b']);
    await Promise.resolve();
    expect(views[0]?.finishDismiss).not.toBeNull();

    const l = loader(answering(200, '{}'));
    for (const bad of ['not a url', 'javascript:alert(1)']) l.openURL(bad);
    expect(opened).toHaveLength(1);
    expect(lines.slice(-2)).toEqual(['Cant make URL fro not a url', 'Cant make URL fro javascript:alert(1)']);
  });
});

describe('the alert panel', () => {
  it('puts button titles in capitals always, heading and body only when asked', () => {
    ZorvexAlertVC.present('Saved', 'All done', 'Ok', null, false, null, false);
    ZorvexAlertVC.present('Saved', 'All done', null, 'Open it', false, null, true);
    expect(views.map((v) => v.content)).toEqual([
      { heading: 'Saved', body: 'All done', cancelTitle: 'OK', actionTitle: null },
      { heading: 'SAVED', body: 'ALL DONE', cancelTitle: null, actionTitle: 'OPEN IT' },
    ]);
  });

  it('stacks panels and lets them close in any order, each leaving when its dismissal ends', () => {
    const [a, b, c] = ['one', 'two', 'three'].map((body) => ZorvexAlertVC.present('T', body, 'Ok', null, false, null, false)!);
    const dismissed: string[] = [];
    for (const p of [a, b, c]) p!.onDismissed = () => dismissed.push(p!.content.body);
    b!.cancelTapped();
    expect(shown()).toEqual(['one', 'two', 'three']);
    views[1]!.finishDismiss!();
    expect(shown()).toEqual(['one', 'three']);
    c!.cancelTapped();
    a!.cancelTapped();
    a!.cancelTapped();
    views[0]!.finishDismiss!();
    views[2]!.finishDismiss!();
    expect(shown()).toEqual([]);
    expect(dismissed).toEqual(['two', 'one', 'three']);
  });

  it('runs the action once however often it is tapped', async () => {
    const action = vi.fn();
    ZorvexAlertVC.present('FLATTEN', 'Sure?', 'Cancel', 'Flatten', false, action, false);
    views[0]!.handlers!.action();
    views[0]!.handlers!.action();
    await Promise.resolve();
    views[0]!.handlers!.cancel();
    expect(action).toHaveBeenCalledTimes(1);
  });
});
