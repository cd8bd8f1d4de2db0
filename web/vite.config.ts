import { execFileSync } from 'node:child_process';
import { readdirSync, readFileSync } from 'node:fs';
import { relative, resolve } from 'node:path';
import type { Plugin } from 'vite';
import { defineConfig } from 'vitest/config';

import { blendModeLabels } from './src/engine/shared/blend-modes';
import { userGuidePlugin } from './tools/userguide-plugin';

// Where the engine module is built (build-wasm/engine), unless ZORVEX_ENGINE_DIR says otherwise.
const engineDir = resolve(__dirname, process.env.ZORVEX_ENGINE_DIR ?? '../build-wasm/engine');

// The version shown on the settings page: package.json's, and a build number, ZORVEX_BUILD_NUMBER or
// else the number of commits on the branch (0 outside a git checkout).
const version = (JSON.parse(readFileSync(resolve(__dirname, 'package.json'), 'utf8')) as { version: string }).version;
function buildNumber(): string {
  if (process.env.ZORVEX_BUILD_NUMBER) return process.env.ZORVEX_BUILD_NUMBER;
  try {
    return execFileSync('git', ['rev-list', '--count', 'HEAD'], { cwd: __dirname, stdio: ['ignore', 'pipe', 'ignore'] }).toString().trim();
  } catch {
    return '0';
  }
}

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
  define: { __ZORVEX_VERSION__: JSON.stringify(version), __ZORVEX_BUILD__: JSON.stringify(buildNumber()) },
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
  plugins: [
    // The guide's pictures come from the native build's zorvex command, unless ZORVEX_CLI names another.
    userGuidePlugin({
      cli: process.env.ZORVEX_CLI ?? resolve(__dirname, '../build/zorvex'),
      template: resolve(__dirname, 'src/guide/userguide.html'),
      blendLabels: blendModeLabels,
    }),
    precacheList(),
  ],
  test: {
    include: ['tests/**/*.test.ts'],
    environment: 'node',
  },
});
