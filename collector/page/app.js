// Asks the collector again and again, and has each part of the page shown.
import * as answers from './answers.js';
import * as chart from './chart.js';
import * as report from './report.js';
import { fill, time } from './table.js';

const part = (id) => document.getElementById(id);
const number = (title, text) => ({ title, text, className: 'number' });
const moment = (title, text) => ({ title, text: (row) => time(text(row)), className: 'whole' });
const words = (title, text) => ({ title, text });

async function ask(path, parameters) {
  const response = await fetch(`${path}?${new URLSearchParams(parameters)}`);
  if (!response.ok) {
    throw new Error(response.status === 503 ? 'the store is away' : `status ${response.status}`);
  }
  return response.json();
}

async function open({ uid }) {
  report.show(part('report'), part('report-parts'), (await ask('/report', { uid })).rows);
}

const uid = { title: 'uid', text: (row) => row.uid, open };

const REQUESTS = [
  number('#', (r) => r.number), moment('Time', (r) => r.time), words('Request', (r) => r.target),
  number('Bytes', (r) => r.bytes), number('Entries', (r) => r.entries), number('Status', (r) => r.status),
  words('Codes', (r) => r.codes), words('Client', (r) => r.client), words('Notes', (r) => r.notes.trim())];

const REPORTS = [
  moment('Arrived', (r) => r.arrived), uid, words('Device', (r) => r.duid), number('Module', (r) => r.module),
  number('Type', (r) => r.type), number('Count', (r) => r.count), number('Bytes', (r) => r.size),
  number('Again', (r) => r.repeats)];

const DEVICES = [
  words('Device', (r) => r.duid), moment('Last contact', (r) => r.last_contact), words('Client', (r) => r.client),
  words('Facts', ({ facts: { DUID, datetime, ...facts } }) =>
    Object.entries(facts).filter(([, value]) => value !== '').map((pair) => pair.join(': ')).join(' · '))];

const REPETITIONS = [
  number('Again', (r) => r.repeats), uid, words('Device', (r) => r.duid), moment('Arrived', (r) => r.arrived)];

let refusal = '';

async function showRequests() {
  const { rows, answers: lines } = await ask('/requests');
  fill(part('requests'), REQUESTS, rows);
  part('answers').hidden = lines === null;
  answers.tell(part('planned'), lines ?? [], refusal);
}

async function showStore() {
  const now = Math.floor(Date.now() / 1000);
  const since = now - part('period').value;
  const [hours, reports, devices, repetitions] = await Promise.all(
    ['/hours', '/reports', '/devices', '/repetitions'].map(async (path) => (await ask(path, { since })).rows));
  chart.show(part('hours'), hours, since, now);
  fill(part('reports'), REPORTS, reports);
  fill(part('devices'), DEVICES, devices.map((row) => ({ ...row, facts: JSON.parse(row.facts) })));
  fill(part('repetitions'), REPETITIONS, repetitions);
}

async function refresh() {
  let state = '';
  for (const show of [showRequests, showStore]) {
    await show().catch((error) => { state = error.message; });
  }
  part('state').textContent = state || `as of ${new Date().toLocaleTimeString('sv-SE')}`;
  part('state').classList.toggle('fault', state !== '');
}

/// A large store is asked less often: a tenth of the time at most goes to answers.
async function keepRefreshing() {
  const begin = performance.now();
  if (!document.hidden) {
    await refresh();
  }
  setTimeout(keepRefreshing, Math.max(2000, 9 * (performance.now() - begin)));
}

answers.listen(document.querySelector('#answers form'), part('usual'), (reason) => {
  refusal = reason;
  showRequests();
});
part('period').addEventListener('change', refresh);
chart.follow(part('hours'));
keepRefreshing();
