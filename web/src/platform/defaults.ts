// The user defaults on the page's side. The engine Worker owns the dictionary (the same binary
// property list as the command line's defaults file); the page stores each version it is sent, in
// base64 under one key of the browser's storage, and keeps the simple values for reading at once.
// Writes from the page take effect here at once and go on to the Worker; a version from the Worker
// replaces the values only when it includes the page's latest write.
import type { DefaultsSnapshot } from '../engine/shared/protocol';
import { base64ToBytes, bytesToBase64, type KeyValueStorage } from './storage';

export const kDefaultsStorageKey = 'zorvex.defaults';
// The list of kept backups: JSON, an array of KeptBackup without `bytes`.
export const kBackupsStorageKey = 'zorvex.defaults.backups';
// The page's writes that no version from the engine includes yet, as JSON [{key, value}], so that a
// reload in that moment loses none: the next start sends them again.
export const kUnsavedStorageKey = 'zorvex.defaults.unsaved';

// Stored defaults that could not be used, kept under a key of their own before anything replaced
// them: `key` holds the stored text as it was (base64 of the property list), so nothing is lost.
export interface KeptBackup {
  key: string;
  time: string; // ISO 8601
  reason: string;
  bytes: number; // the length of the kept text
}

// The backups kept so far, oldest first; those whose key is gone from storage are left out.
export function listKeptBackups(storage: KeyValueStorage): KeptBackup[] {
  const out: KeptBackup[] = [];
  for (const entry of readBackupIndex(storage)) {
    const text = storage.getItem(entry.key);
    if (text !== null) out.push({ ...entry, bytes: text.length });
  }
  return out;
}

// The bytes kept under `key`: the property list the base64 text stood for, or the text itself when it
// was no base64; null when the key is gone.
export function keptBackupBytes(storage: KeyValueStorage, key: string): Uint8Array | null {
  const text = storage.getItem(key);
  if (text === null) return null;
  return base64ToBytes(text) ?? new TextEncoder().encode(text);
}

function readBackupIndex(storage: KeyValueStorage): Omit<KeptBackup, 'bytes'>[] {
  try {
    const parsed: unknown = JSON.parse(storage.getItem(kBackupsStorageKey) ?? '[]');
    if (!Array.isArray(parsed)) return [];
    return parsed.filter(
      (e): e is Omit<KeptBackup, 'bytes'> =>
        typeof e === 'object' && e !== null && typeof e.key === 'string' && typeof e.time === 'string' && typeof e.reason === 'string',
    );
  } catch {
    return [];
  }
}

export interface PendingWrite {
  seq: number;
  key: string;
  value: number | boolean;
}

export class PageDefaults {
  private values: Record<string, number | boolean | string> = {};
  private seq = 0;
  private pending: PendingWrite[] = [];
  // Where a write goes after it took effect here: the engine.
  send: ((write: PendingWrite) => void) | null = null;

  constructor(private readonly storage: KeyValueStorage) {
    for (const { key, value } of readUnsaved(storage)) {
      this.values[key] = value;
      this.pending.push({ seq: ++this.seq, key, value });
    }
  }

  // The stored dictionary's bytes, or null when there are none (or they are not base64, in which case
  // they are kept aside under another key and the defaults start empty).
  storedBytes(): Uint8Array | null {
    const text = this.storage.getItem(kDefaultsStorageKey);
    if (text === null || text === '') return null;
    const bytes = base64ToBytes(text);
    if (!bytes) this.keepAside(`not base64`);
    return bytes;
  }

  // The engine could not read the stored bytes: they are kept under another key before anything
  // overwrites them, and the defaults start empty.
  keepAside(reason: string): void {
    if (this.keepBackup(`the stored defaults can't be read: ${reason}`) === null) return;
    this.storage.setItem(kDefaultsStorageKey, '');
  }

  // Keeps the stored text as it is now under a new key, and notes it in the list of backups; gives
  // the key, or null when nothing is stored.
  keepBackup(reason: string): string | null {
    const text = this.storage.getItem(kDefaultsStorageKey);
    if (text === null || text === '') return null;
    const time = new Date().toISOString();
    let key = `${kDefaultsStorageKey}.unreadable-${time}`;
    for (let n = 2; this.storage.getItem(key) !== null; n++) key = `${kDefaultsStorageKey}.unreadable-${time}-${n}`;
    this.storage.setItem(key, text);
    this.storage.setItem(kBackupsStorageKey, JSON.stringify([...readBackupIndex(this.storage), { key, time, reason }]));
    console.log(`Kept the stored defaults under ${key}: ${reason}`);
    return key;
  }

  // A version of the dictionary from the engine.
  applySnapshot(snapshot: DefaultsSnapshot): void {
    this.storage.setItem(kDefaultsStorageKey, bytesToBase64(new Uint8Array(snapshot.bytes)));
    this.pending = this.pending.filter((w) => w.seq > snapshot.seq);
    // The engine's values, with the writes it has not taken yet on top.
    this.values = { ...snapshot.values };
    for (const w of this.pending) this.values[w.key] = w.value;
    this.keepUnsaved();
  }

  // Writes not yet in a version from the engine, oldest first: a new engine gets them again.
  pendingWrites(): readonly PendingWrite[] {
    return this.pending;
  }

  // The sequence number of the latest write that the stored bytes include.
  includedSeq(): number {
    return this.pending.length > 0 ? this.pending[0]!.seq - 1 : this.seq;
  }

  integerForKey(key: string): number {
    const v = this.values[key];
    if (typeof v === 'number') return Math.trunc(v);
    if (typeof v === 'boolean') return v ? 1 : 0;
    if (typeof v === 'string') {
      const n = Number.parseInt(v, 10);
      return Number.isFinite(n) ? n : 0;
    }
    return 0;
  }

  boolForKey(key: string): boolean {
    const v = this.values[key];
    if (typeof v === 'boolean') return v;
    if (typeof v === 'number') return v !== 0;
    if (typeof v === 'string') return /^\s*[+-]?0*[YyTt1-9]/.test(v);
    return false;
  }

  setInteger(value: number, key: string): void {
    this.write(key, Math.trunc(value));
  }

  setBool(value: boolean, key: string): void {
    this.write(key, value);
  }

  private write(key: string, value: number | boolean): void {
    this.values[key] = value;
    const write = { seq: ++this.seq, key, value };
    this.pending.push(write);
    this.keepUnsaved();
    this.send?.(write);
  }

  private keepUnsaved(): void {
    this.storage.setItem(kUnsavedStorageKey, JSON.stringify(this.pending.map(({ key, value }) => ({ key, value }))));
  }
}

function readUnsaved(storage: KeyValueStorage): { key: string; value: number | boolean }[] {
  try {
    const parsed: unknown = JSON.parse(storage.getItem(kUnsavedStorageKey) ?? '[]');
    if (!Array.isArray(parsed)) return [];
    return parsed.filter(
      (e): e is { key: string; value: number | boolean } =>
        typeof e === 'object' && e !== null && typeof e.key === 'string' && (typeof e.value === 'number' || typeof e.value === 'boolean'),
    );
  } catch {
    return [];
  }
}
