// The user's guide, made at build time: the page's text comes from src/guide/userguide.html, and its
// pictures (the sample picture, each blend mode over it, each of the 34 effects on it) are rendered by
// our own engine, the `zorvex` command of the native build, then emitted with the app's other files,
// so that the guide works offline like the rest of the app. The page reaches the app as the module
// "virtual:userguide", whose default export is the page's HTML with the pictures' addresses filled in.
import { execFile } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { promisify } from 'node:util';
import type { Plugin } from 'vite';

const run = promisify(execFile);

// The effects by family, each with a line on what it does; the build checks that these are exactly
// the engine's effects.
export const kEffectFamilies: readonly { title: string; effects: readonly (readonly [string, string])[] }[] = [
  {
    title: 'Row smear and scan bars',
    effects: [
      ['AGENCY', 'Takes one row of pixels and smears it down over a band of rows.'],
      ['INTERFACE', 'Lays evenly spaced black bars across the picture.'],
    ],
  },
  {
    title: 'Rectangle copies and mirrored strips',
    effects: [
      ['GRABOID', 'Copies five rectangles of the picture to other places.'],
      ['VETH', 'Mirrors bands or columns and drops each beside where it came from.'],
      ['FOLD4RAP5', 'Folds the left edge over itself again and again, then mirrors the left half over the right.'],
    ],
  },
  {
    title: 'Tile grids',
    effects: [
      ['BUNKER', 'A grid of mismatched panes, each pulled towards the centre, as if zoomed.'],
      ['FINGERBLIB', 'Scales each tile by the brightness at its corner.'],
      ['KOMPLIANCE', 'Turns every tile by the same number of quarter turns.'],
    ],
  },
  {
    title: 'Band and column stretching',
    effects: [
      ['M0T0R', 'Cuts the picture into bands, each a little wider or narrower than the one above.'],
      ['XEXOX', 'Stretches single columns of pixels sideways up to the next one.'],
    ],
  },
  {
    title: 'Wave warps',
    effects: [
      ['PRECOG1', 'Bends the picture along cosine waves.'],
      ['L225', 'Folds the picture along straight creases of a triangle wave.'],
    ],
  },
  {
    title: 'Blended pixel blocks',
    effects: [
      ['CHIP13h', 'Stacks the picture at four coarse resolutions under a blend mode.'],
      ['BLITBOMB', 'Paints a grid of flat squares sampled from the picture.'],
    ],
  },
  {
    title: 'JPEG byte corruption',
    effects: [
      ['2600++', 'Shrinks the picture, saves it as the worst JPEG, damages five bytes and draws back what still decodes.'],
      ['SIGSTOP', 'Saves the picture as a JPEG at full size and damages up to ten runs of its bytes.'],
    ],
  },
  {
    title: 'Band and pixel sorting',
    effects: [
      ['VAN STROKE', 'Cuts the picture into bands and lays them out again in order of brightness.'],
      ['YUBARI', 'Sorts the pixels of rows and weaves the sorted colours into strips.'],
    ],
  },
  {
    title: 'Triangle mesh and image filters',
    effects: [
      ['POLYBOMB', 'Redraws the picture as a mesh of flat cells: triangles, hexagons or crystals.'],
      ['KAL1D0', 'Folds the picture into a triangle kaleidoscope.'],
    ],
  },
  {
    title: 'Scan-line smear and echoes',
    effects: [
      ['B∑AMRID∑R', 'Smears each band to the right from its sharpest edge.'],
      ['DOCTOR OCULAR', 'Adds three tinted, shifted copies of the picture.'],
      ['BRAINFEED3R', 'Stacks seven copies that grow and turn.'],
    ],
  },
  {
    title: 'Columns, palettes and masks',
    effects: [
      ['ISAM', 'Stretches slices by the brightness of their column, like the bars of a level meter.'],
      ['01RECTINE', 'Maps the colours through a cosine palette.'],
      ['ARECIBO', 'Cuts out the bright parts and stacks tinted, turned copies inside them.'],
    ],
  },
  {
    title: 'Displaced pieces and echoes',
    effects: [
      ['MXLHXLLXND', 'Repeats a shape of the picture on its way back to where it belongs.'],
      ['DROPFRAME', 'Tears the picture into strips and shifts them, like a frame that slipped.'],
      ['§P∆Iƒ', 'Fades rectangles away along a line.'],
      ['5HR00M', 'Pulls the halves of bands away from the centre line.'],
    ],
  },
  {
    title: 'Ordered dither and character cells',
    effects: [
      ['BITBOY', 'A one-bit picture, 320 pixels wide, dithered like an old handheld.'],
      ['TI994X', 'Rebuilds the picture from coloured character cells, like an old home computer.'],
    ],
  },
  {
    title: 'Nearest-seed cells',
    effects: [
      ['VORTRON', 'A diamond-edged mosaic of cells around scattered seeds.'],
      ['GLASSDAGGER', 'Long splinters around scattered seeds.'],
    ],
  },
];

// The stack that shows the blend modes, and the one look every picture shares.
export const kBlendStack = 'VAN STROKE,GRABOID';
export const kGuideSeed = '2600';
export const kGuideWidth = 200;

const virtualId = 'virtual:userguide';
const resolvedId = `\0${virtualId}`;

const escapeHtml = (s: string) => s.replace(/&/g, '&amp;').replace(/</g, '&lt;').replace(/>/g, '&gt;').replace(/"/g, '&quot;');

const figure = (key: string, caption: string, alt: string, about = '') =>
  `<figure><img src="{{picture:${key}}}" alt="${escapeHtml(alt)}" width="${kGuideWidth}" height="${(kGuideWidth * 4) / 3}" />` +
  `<figcaption>${escapeHtml(caption)}${about ? `<span>${escapeHtml(about)}</span>` : ''}</figcaption></figure>`;

// The page with its generated parts: the blend modes' grid and the effects by family.
export function guidePage(template: string, blendLabels: readonly string[]): string {
  const blends = `<div class="grid">${blendLabels.map((label, i) => figure(`blend-${i}`, label, `The sample picture blended by ${label}`)).join('')}</div>`;
  let index = 0;
  const effects = kEffectFamilies
    .map(
      (family) =>
        `<h3>${escapeHtml(family.title)}</h3><div class="grid">${family.effects
          .map(([name, about]) => figure(`effect-${index++}`, name, `The sample picture through ${name}`, about))
          .join('')}</div>`,
    )
    .join('\n');
  for (const marker of ['<!--blend-modes-->', '<!--effects-->']) if (!template.includes(marker)) throw new Error(`the guide's page has no ${marker}`);
  return template.replace('<!--blend-modes-->', blends).replace('<!--effects-->', effects);
}

// The effect names `zorvex help` lists.
async function engineEffects(cli: string): Promise<string[]> {
  const { stdout } = await run(cli, ['help']);
  const list = stdout.split('\neffects:\n')[1];
  if (!list) throw new Error(`${cli} help lists no effects`);
  return list
    .split('\n')
    .map((line) => line.trim().replace(/ \(also .*\)$/, ''))
    .filter((line) => line !== '');
}

// Every picture of the guide as JPEG bytes, by key.
async function renderPictures(cli: string, blendLabels: readonly string[]): Promise<Map<string, Buffer>> {
  const names = await engineEffects(cli);
  const guided = kEffectFamilies.flatMap((f) => f.effects.map(([name]) => name));
  const missing = names.filter((n) => !guided.includes(n));
  const unknown = guided.filter((n) => !names.includes(n));
  if (missing.length || unknown.length || guided.length !== names.length)
    throw new Error(`the guide's effects differ from the engine's: missing ${missing.join(', ') || 'none'}, unknown ${unknown.join(', ') || 'none'}`);

  const dir = mkdtempSync(join(tmpdir(), 'zorvex-guide-'));
  try {
    const jobs: [string, string[]][] = [
      ['sample', ['--effects', '', '--blend', 'Normal']],
      ...blendLabels.map((label, i): [string, string[]] => [`blend-${i}`, ['--effects', kBlendStack, '--blend', label]]),
      ...guided.map((name, i): [string, string[]] => [`effect-${i}`, ['--effects', name, '--effected-only']]),
    ];
    const pictures = new Map<string, Buffer>();
    const render = async ([key, args]: [string, string[]]) => {
      const out = join(dir, `${key}.jpg`);
      const common = ['--sample', '--seed', kGuideSeed, '--width', String(kGuideWidth), '--defaults', join(dir, `${key}.plist`), '-q'];
      await run(cli, ['render', ...common, ...args, '-o', out]);
      pictures.set(key, readFileSync(out));
    };
    // A few at a time: each is a short process.
    for (let i = 0; i < jobs.length; i += 4) await Promise.all(jobs.slice(i, i + 4).map(render));
    return pictures;
  } finally {
    rmSync(dir, { recursive: true, force: true });
  }
}

export function userGuidePlugin(options: { cli: string; template: string; blendLabels: readonly string[] }): Plugin {
  let serving = false;
  return {
    name: 'zorvex-userguide',
    configResolved(config) {
      serving = config.command === 'serve';
    },
    resolveId(source) {
      return source === virtualId ? resolvedId : null;
    },
    async load(id) {
      if (id !== resolvedId) return null;
      if (!existsSync(options.cli))
        throw new Error(`the user's guide is rendered by ${options.cli}, which is missing: build it with "make native" (or set ZORVEX_CLI)`);
      this.addWatchFile(options.template);
      const page = guidePage(readFileSync(options.template, 'utf8'), options.blendLabels);
      const pictures = await renderPictures(options.cli, options.blendLabels);
      const entries = [...pictures].map(([key, bytes]) => {
        if (serving) return `${JSON.stringify(key)}: ${JSON.stringify(`data:image/jpeg;base64,${bytes.toString('base64')}`)}`;
        const ref = this.emitFile({ type: 'asset', name: `guide-${key}.jpg`, source: bytes });
        return `${JSON.stringify(key)}: import.meta.ROLLUP_FILE_URL_${ref}`;
      });
      return [
        `const pictures = {${entries.join(',\n')}};`,
        `const page = ${JSON.stringify(page)};`,
        `export default page.replace(/\\{\\{picture:([^}]+)\\}\\}/g, (_, key) => pictures[key]);`,
        `export const pictureCount = ${pictures.size};`,
      ].join('\n');
    },
  };
}
