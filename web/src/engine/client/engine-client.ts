// The page's side of the engine: sends requests to the Worker and resolves their replies, hands the
// Worker's defaults and analytics to the page, and when the Worker dies (a fatal error in the core)
// starts a new one with the stored defaults and carries on. Requests that were under way then fail
// with EngineRestarted; the caller decides what to do again.
import type { AnalyticsSink } from '../../platform/analytics';
import type { PageDefaults } from '../../platform/defaults';
import type {
  EngineRequest,
  EngineRequestType,
  PageMessage,
  Replies,
  WorkerMessage,
} from '../shared/protocol';

export interface WorkerLike {
  postMessage(message: PageMessage, transfer: Transferable[]): void;
  terminate(): void;
  onmessage: ((event: MessageEvent<WorkerMessage>) => void) | null;
  onerror: ((event: ErrorEvent) => void) | null;
}

export class EngineRestarted extends Error {
  constructor() {
    super('the engine stopped and was started again');
    this.name = 'EngineRestarted';
  }
}

type RequestOf<T extends EngineRequestType> = Extract<EngineRequest, { type: T }>;

interface Pending {
  resolve: (value: never) => void;
  reject: (error: Error) => void;
}

export class EngineClient {
  private worker: WorkerLike | null = null;
  private nextId = 1;
  private pending = new Map<number, Pending>();
  private started: Promise<Replies['init']> | null = null;
  private generation = 0;
  // Told after a new Worker has taken over from one that died, before any request is sent to it.
  onRestarted: (() => void) | null = null;
  restarts = 0;

  constructor(
    private readonly createWorker: () => WorkerLike,
    private readonly defaults: PageDefaults,
    private readonly analytics: AnalyticsSink,
    private readonly scale: number,
  ) {
    defaults.send = (write) => {
      if (this.worker) void this.request({ type: 'setDefault', ...write }).catch(() => undefined);
    };
  }

  // Starts the Worker: it gets the stored defaults and counts this launch.
  start(): Promise<Replies['init']> {
    if (!this.started) this.started = this.boot(true);
    return this.started;
  }

  async request<T extends EngineRequestType>(request: RequestOf<T>, transfer: Transferable[] = []): Promise<Replies[T]> {
    if (request.type !== 'init') await this.started;
    const worker = this.worker;
    if (!worker) throw new EngineRestarted();
    const id = this.nextId++;
    return new Promise<Replies[T]>((resolve, reject) => {
      this.pending.set(id, { resolve: resolve as (value: never) => void, reject });
      worker.postMessage({ ...request, id } as PageMessage, transfer);
    });
  }

  private async boot(countLaunch: boolean): Promise<Replies['init']> {
    const generation = ++this.generation;
    const worker = this.createWorker();
    this.worker = worker;
    worker.onmessage = (event) => {
      if (generation === this.generation) this.receive(event.data);
    };
    worker.onerror = (event) => {
      event.preventDefault?.();
      if (generation === this.generation) this.died(event.message || 'the engine Worker failed');
    };
    const bytes = this.defaults.storedBytes();
    const init = await this.request({
      type: 'init',
      defaults: bytes ? (bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength) as ArrayBuffer) : null,
      scale: this.scale,
      countLaunch,
      seq: this.defaults.includedSeq(),
    });
    if (init.unreadableDefaults) this.defaults.keepAside('not a property-list dictionary');
    // The engine has put the built-in list in place of the stored one: the bytes as they were are
    // kept before its version replaces them.
    if (init.replacedList !== null) this.defaults.keepBackup(`the stored effect list can't be used: ${init.replacedList}`);
    this.defaults.applySnapshot(init.defaults);
    for (const write of this.defaults.pendingWrites()) void this.request({ type: 'setDefault', ...write });
    return init;
  }

  private receive(message: WorkerMessage): void {
    switch (message.type) {
      case 'reply': {
        const p = this.pending.get(message.id);
        this.pending.delete(message.id);
        p?.resolve(message.result as never);
        break;
      }
      case 'defaults':
        this.defaults.applySnapshot(message.snapshot);
        break;
      case 'analytics':
        this.analytics.logEvent(message.name, message.parameters);
        break;
      case 'fatal':
        this.died(message.message);
        break;
    }
  }

  private died(reason: string): void {
    console.log(`Engine stopped (${reason}); starting a new one`);
    this.worker?.terminate();
    this.worker = null;
    const failed = [...this.pending.values()];
    this.pending.clear();
    this.restarts += 1;
    const booted = this.boot(false);
    this.started = booted;
    void booted.then(() => this.onRestarted?.()).catch((error) => console.log(`Engine restart failed: ${error}`));
    for (const p of failed) p.reject(new EngineRestarted());
  }
}
