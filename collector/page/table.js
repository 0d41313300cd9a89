// Whatever a report holds reaches the page as text, by this file only.

/// Controls, and what turns or hides other characters, as \u{...}.
export function visible(text) {
  return text.replace(/[\p{Cc}\p{Cf}\p{Zl}\p{Zp}]/gu, (c) => `\\u{${c.codePointAt(0).toString(16)}}`);
}

/// An element with text as it is; `visible` is for the caller.
export function element(name, text = '', className = '') {
  const made = document.createElement(name);
  made.textContent = text;
  made.className = className;
  return made;
}

/// Seconds since 1970 in local time; a number where that is no date.
export function time(seconds) {
  const date = new Date(seconds * 1000);
  if (Number.isNaN(date.getTime()) || Math.abs(date.getFullYear()) > 9999) {
    return String(seconds);
  }
  return date.toLocaleString('sv-SE');
}

function cell(column, row) {
  const text = visible(String(column.text(row) ?? ''));
  const made = element('td', column.open ? '' : text, column.className);
  made.dataset.title = column.title;
  if (column.open) {
    const button = element('button', text, 'link');
    button.type = 'button';
    button.addEventListener('click', () => column.open(row));
    made.append(button);
  }
  return made;
}

const shown = new WeakMap();

/// Columns are {title, text(row), className, open(row)}. Does nothing where the rows are as before.
export function fill(table, columns, rows) {
  const state = JSON.stringify(rows);
  if (shown.get(table) === state) {
    return;
  }
  shown.set(table, state);
  const head = element('thead');
  const body = element('tbody');
  head.append(element('tr'));
  head.firstChild.append(...columns.map((column) => element('th', column.title, column.className)));
  for (const row of rows) {
    const line = element('tr');
    line.append(...columns.map((column) => cell(column, row)));
    body.append(line);
  }
  table.replaceChildren(...(rows.length ? [head, body] : [element('caption', 'none yet', 'none')]));
}
