// The message from the authors' server: a small JSON document fetched at start, from the second
// launch on. A document with a title and a message is shown in an alert panel; with a link (both
// `actionButtonURL` and `actionButtonLabel` strings) it gets an action button that opens the link and
// is shown once ever, without one it comes back each time for as long as the server offers it.
// Anything else shows nothing: the console gets a line and the app goes on untouched.
import { kServerMessagePath } from '../config';
import { ZorvexAlertVC } from './alert-panel';

export interface ServerMessage {
  title: string;
  message: string;
  link: { url: string; label: string } | null;
}

export interface MessageResponse {
  ok: boolean;
  status: number;
  text(): Promise<string>;
}

export interface ServerMessageParts {
  // The server's origin, scheme and host.
  origin: string;
  fetch: (url: string) => Promise<MessageResponse>;
  // A fresh unsigned 32-bit number, the whole query, so that no cache answers.
  random: () => number;
  // Opens a link in a new tab.
  open: (url: string) => void;
  present?: typeof ZorvexAlertVC.present;
  log?: (line: string) => void;
}

// What the document asks to show, or null. The console gets what the document was read as.
export function readMessageDocument(text: string, log: (line: string) => void): ServerMessage | null {
  let parsed: unknown;
  try {
    parsed = JSON.parse(text);
  } catch (error) {
    log(error instanceof Error ? error.message : String(error));
    parsed = undefined;
  }
  if (typeof parsed !== 'object' || parsed === null || Array.isArray(parsed)) {
    log('No dict - nothing to show');
    return null;
  }
  log(JSON.stringify(parsed));
  const doc = parsed as Record<string, unknown>;
  const { title, message, actionButtonURL: url, actionButtonLabel: label } = doc;
  if (typeof title !== 'string' || typeof message !== 'string') return null;
  return { title, message, link: typeof url === 'string' && typeof label === 'string' ? { url, label } : null };
}

// The link as a URL the app will open in a new tab (a web page or a mail), else null.
export function linkURL(text: string): string | null {
  try {
    const url = new URL(text);
    return ['http:', 'https:', 'mailto:'].includes(url.protocol) ? url.href : null;
  } catch {
    return null;
  }
}

export class ServerMessageLoader {
  private readonly present: typeof ZorvexAlertVC.present;
  private readonly log: (line: string) => void;

  constructor(private readonly parts: ServerMessageParts) {
    this.present = parts.present ?? ZorvexAlertVC.present;
    this.log = parts.log ?? ((line) => console.log(line));
  }

  url(): string {
    return `${this.parts.origin}${kServerMessagePath}?${this.parts.random() >>> 0}`;
  }

  // Fetches the document and shows what it holds. Never throws.
  async loadServerMessage(): Promise<void> {
    let text: string;
    try {
      const response = await this.parts.fetch(this.url());
      if (!response.ok) {
        this.log(`No server message: the server answered ${response.status}`);
        return;
      }
      text = await response.text();
    } catch (error) {
      this.log(`No server message: ${error instanceof Error ? error.message : String(error)}`);
      return;
    }
    if (text.trim() === '') {
      this.log('No server message: the answer is empty');
      return;
    }
    const message = readMessageDocument(text, this.log);
    if (message) this.show(message);
  }

  show({ title, message, link }: ServerMessage): void {
    // A panel with these words still on show (the main screen appeared again meanwhile) is not doubled.
    if (ZorvexAlertVC.alerts.some((a) => a.content.heading === title && a.content.body === message)) return;
    if (link) this.present(title, message, 'Ok', link.label, true, () => this.openURL(link.url), false);
    else this.present(title, message, 'Ok', null, false, null, false);
  }

  openURL(text: string): void {
    const url = linkURL(text);
    if (url === null) this.log(`Cant make URL fro ${text}`);
    else this.parts.open(url);
  }
}
