import { readdirSync } from 'node:fs';
import { relative, resolve } from 'node:path';
import type { Plugin } from 'vite';
import { defineConfig } from 'vitest/config';

// Where the engine module is built (build-wasm/engine), unless ZORVEX_ENGINE_DIR says otherwise.
const engineDir = resolve(__dirname, process.env.ZORVEX_ENGINE_DIR ?? '../build-wasm/engine');

// The files copied as they are into the build (the manifest and the icons), by their paths in it.
function publicFiles(): string[] {
  const dir = resolve(__dirname, 'public');
  return readdirSync(dir, { recursive: true, withFileTypes: true })
    .filter((e) => e.isFile())
    .map((e) => relative(dir, resolve(e.parentPath, e.name)).split('\\').join('/'))
    .sort();
}

// The service worker is built as /sw.js, with the list of every file of the build written into it (the
// bundle and the files copied as they are), so that it can keep them for offline use and so that a new
// build changes the worker's own bytes.
function precacheList(): Plugin {
  return {
    name: 'zorvex-precache-list',
    apply: 'build',
    generateBundle(_options, bundle) {
      const built = Object.keys(bundle).filter((f) => f !== 'sw.js' && !f.endsWith('.map'));
      const files = [...built, ...publicFiles()];
      const sw = bundle['sw.js'];
      if (!sw || sw.type !== 'chunk') throw new Error('the service worker chunk is missing');
      sw.code = `self.__ZORVEX_PRECACHE__=${JSON.stringify(['./', ...files])};\n${sw.code}`;
    },
  };
}

export default defineConfig({
  base: './',
  resolve: { alias: { '@engine': engineDir } },
  worker: { format: 'es' },
  server: {
    fs: { allow: [__dirname, engineDir] },
    headers: { 'Cross-Origin-Opener-Policy': 'same-origin', 'Cross-Origin-Embedder-Policy': 'require-corp' },
  },
  build: {
    outDir: 'dist',
    emptyOutDir: true,
    target: 'es2022',
    rollupOptions: {
      input: { main: resolve(__dirname, 'index.html'), sw: resolve(__dirname, 'src/sw.ts') },
      output: { entryFileNames: (chunk) => (chunk.name === 'sw' ? 'sw.js' : 'assets/[name]-[hash].js') },
    },
  },
  plugins: [precacheList()],
  test: {
    include: ['tests/**/*.test.ts'],
    environment: 'node',
  },
});
