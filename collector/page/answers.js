// Plans the next answers, by the lines that the collector's option --answer takes.

function lineOf(number, form) {
  const settings = ['status', 'codes', 'delay', 'cut']
    .filter((name) => form.get(name).trim() !== '')
    .map((name) => `${name}='${form.get(name).trim()}'`);
  return `${number} ${form.get('endpoint')} ${settings.join(' ')}`;
}

function linesOf(form) {
  const times = form.get('times');
  const numbers = times === '*' ? ['*'] : Array.from({ length: Number(times) }, (_, i) => i + 1);
  return numbers.map((number) => lineOf(number, form));
}

/// `after` is called once the collector has answered, with the reason why it refused, or ''.
async function send(lines, after) {
  const response = await fetch('/answers', {
    method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify({ lines }),
  });
  after(response.ok ? '' : (await response.json()).reason);
}

export function listen(form, usual, after) {
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    send(linesOf(new FormData(form)), after);
  });
  usual.addEventListener('click', () => send([], after));
}

/// `lines` are those of /requests.
export function tell(place, lines, reason) {
  place.classList.toggle('fault', reason !== '');
  place.textContent = reason || (lines.length ? `Set, counted from then on: ${lines.join(' · ')}` : '');
}
