// Analytics: every event is named "button_" or "event_" and a name, as the core's helper names them,
// and the latest 1000 are kept in the browser's storage.
import type { KeyValueStorage } from './storage';

export type AnalyticsParameters = Record<string, string>;

export interface AnalyticsSink {
  logEvent(name: string, parameters: AnalyticsParameters | null): void;
}

export interface StoredEvent {
  time: string;
  name: string;
  parameters: AnalyticsParameters | null;
}

export const kAnalyticsStorageKey = 'zorvex.analytics';
export const kAnalyticsLimit = 1000;

export class StoredAnalytics implements AnalyticsSink {
  constructor(
    private readonly storage: KeyValueStorage,
    private readonly clock: () => Date = () => new Date(),
  ) {}

  events(): StoredEvent[] {
    try {
      const parsed: unknown = JSON.parse(this.storage.getItem(kAnalyticsStorageKey) ?? '[]');
      return Array.isArray(parsed) ? (parsed as StoredEvent[]) : [];
    } catch {
      return [];
    }
  }

  logEvent(name: string, parameters: AnalyticsParameters | null): void {
    const events = this.events();
    events.push({ time: this.clock().toISOString(), name, parameters });
    try {
      this.storage.setItem(kAnalyticsStorageKey, JSON.stringify(events.slice(-kAnalyticsLimit)));
    } catch {
      // A full storage loses the event, never the app.
    }
  }

  clear(): void {
    this.storage.setItem(kAnalyticsStorageKey, '[]');
  }
}

let sink: AnalyticsSink | null = null;

export function setAnalyticsSink(s: AnalyticsSink | null): void {
  sink = s;
}

export const AnalyticsHelper = {
  logButton(name: string): void {
    sink?.logEvent(`button_${name}`, null);
  },
  logEvent(name: string, parameters: AnalyticsParameters | null = null): void {
    sink?.logEvent(`event_${name}`, parameters);
  },
};
