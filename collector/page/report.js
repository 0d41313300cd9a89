// One report with its content: as text where it is text, else byte for byte.
import { element, time, visible } from './table.js';

const MOST_BYTES = 65536;

async function decoded(base64) {
  const deflated = Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));
  const plain = new Blob([deflated]).stream().pipeThrough(new DecompressionStream('deflate'));
  return new Uint8Array(await new Response(plain).arrayBuffer());
}

/// Null where the bytes are no text: not UTF-8, or with controls other than tabs and line ends.
function textOf(bytes) {
  try {
    const text = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true }).decode(bytes);
    return /[^\P{Cc}\t\n\r]/u.test(text) ? null : text;
  } catch {
    return null;
  }
}

function dump(bytes) {
  const lines = [];
  for (let at = 0; at < bytes.length; at += 16) {
    const part = [...bytes.subarray(at, at + 16)];
    const digits = part.map((byte) => byte.toString(16).padStart(2, '0')).join(' ').padEnd(47);
    const letters = part.map((byte) => (byte > 31 && byte < 127 ? String.fromCharCode(byte) : '.')).join('');
    lines.push(`${at.toString(16).padStart(6, '0')}  ${digits}  ${letters}`);
  }
  return lines.join('\n');
}

function contentOf(bytes) {
  const text = textOf(bytes);
  const some = bytes.subarray(0, MOST_BYTES);
  const title = text === null ? `Content, ${bytes.length} bytes` : `Content, ${bytes.length} bytes of text`;
  const lines = text === null ? dump(some) : text.slice(0, MOST_BYTES).replace(/[^\t\n]+/g, visible);
  const cut = (text ?? bytes).length > MOST_BYTES ? ', the beginning' : '';
  return [element('h2', title + cut), element('pre', lines, text === null ? 'bytes' : '')];
}

async function partsOf(row) {
  const list = element('dl');
  for (const [name, value] of Object.entries(row)) {
    if (name !== 'content' && value !== null) {
      const isTime = ['arrived', 'first_time', 'last_time'].includes(name);
      list.append(element('dt', name), element('dd', visible(isTime ? time(value) : String(value))));
    }
  }
  return [list, ...contentOf(await decoded(row.content))];
}

/// The rows are those of /report: more than one where a store was copied.
export async function show(dialog, place, rows) {
  const parts = await Promise.all(rows.map(partsOf));
  place.replaceChildren(...(rows.length ? parts.flat() : [element('p', 'no longer here', 'none')]));
  dialog.showModal();
}
