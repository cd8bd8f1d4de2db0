// The service worker: keeps every file of the build so that the app opens offline. Pages come from
// the network when it answers and from the cache when it doesn't; the build's other files, whose
// names carry their content's hash, from the cache first.
/// <reference lib="webworker" />
const worker = self as unknown as ServiceWorkerGlobalScope;

// The build puts the list of its files in front of this script.
const files: string[] = (worker as unknown as { __ZORVEX_PRECACHE__?: string[] }).__ZORVEX_PRECACHE__ ?? [];
const cacheName = `zorvex-${files.join('|').length}-${hash(files.join('|'))}`;

function hash(text: string): string {
  let h = 5381;
  for (let i = 0; i < text.length; ++i) h = ((h * 33) ^ text.charCodeAt(i)) >>> 0;
  return h.toString(36);
}

worker.addEventListener('install', (event) => {
  event.waitUntil(
    caches
      .open(cacheName)
      .then((cache) => cache.addAll(files))
      .then(() => worker.skipWaiting()),
  );
});

worker.addEventListener('activate', (event) => {
  event.waitUntil(
    caches
      .keys()
      .then((keys) => Promise.all(keys.filter((k) => k.startsWith('zorvex-') && k !== cacheName).map((k) => caches.delete(k))))
      .then(() => worker.clients.claim()),
  );
});

worker.addEventListener('fetch', (event) => {
  const request = event.request;
  const url = new URL(request.url);
  if (request.method !== 'GET' || url.origin !== worker.location.origin || url.pathname.includes('/zorvex/')) return;
  if (request.mode === 'navigate') {
    event.respondWith(
      fetch(request).catch(async () => (await caches.match(request, { ignoreSearch: true })) ?? (await caches.match('./')) ?? Response.error()),
    );
    return;
  }
  event.respondWith(caches.match(request).then((hit) => hit ?? fetch(request)));
});
