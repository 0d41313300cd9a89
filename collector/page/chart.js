// Reports per module and hour, as stacked bars.
import { element, time } from './table.js';

const HOUR = 3600;
const COLOURS = ['#3f86d0', '#e08a1e', '#3fa45b', '#d1495b', '#8e6bbf', '#2aa5a0', '#c9a227', '#8a8f98'];

let chart = null;
let shown = '';

const sum = (counts) => counts.reduce((a, b) => a + b, 0);

/// The modules with most reports, as {name, counts}; the last takes what is left where there are too many.
function seriesOf(rows, hours) {
  const byModule = new Map();
  for (const { module, hour, reports } of rows) {
    const counts = byModule.get(module) ?? new Array(hours.length).fill(0);
    counts[hours.indexOf(hour)] += reports;
    byModule.set(module, counts);
  }
  const all = [...byModule].map(([module, counts]) => ({ name: `module ${module}`, counts }))
    .sort((a, b) => sum(b.counts) - sum(a.counts));
  const rest = all.splice(all.length > COLOURS.length ? COLOURS.length - 1 : all.length);
  if (rest.length) {
    const counts = hours.map((_, i) => sum(rest.map((each) => each.counts[i])));
    all.push({ name: `${rest.length} others`, counts });
  }
  return all;
}

/// Each bar stands on those before it, and is drawn before them, so that they cover its foot.
function stacked(series) {
  let below = null;
  return series.map(({ counts }) => (below = counts.map((count, i) => count + (below?.[i] ?? 0)))).reverse();
}

const colour = (name) => () => getComputedStyle(document.documentElement).getPropertyValue(name);

/// The hour, or the day at its beginning.
function tick(seconds) {
  const [day, hour] = time(seconds).split(' ');
  return hour === '00:00:00' ? day.slice(5) : hour.slice(0, 5);
}

function axis(more) {
  const line = { stroke: colour('--line'), width: 1 };
  return { stroke: colour('--dim'), grid: line, ticks: line, ...more };
}

function optionsFor(series, hours, width) {
  const { bars } = uPlot.paths;
  return {
    width,
    height: 240,
    scales: {
      x: { range: [hours[0], hours[hours.length - 1] + HOUR] },
      y: { range: (_, least, most) => [0, Math.max(most * 1.05, 1)] },
    },
    axes: [
      axis({ values: (_, times) => times.map(tick) }),
      axis({ values: (_, counts) => counts.map((count) => (Number.isInteger(count) ? count : '')) })],
    cursor: { drag: { x: false, y: false }, points: { show: false } },
    series: [{
      label: 'hour',
      value: (_, value, place, at) => (at == null ? 'all' : time(hours[at]).slice(0, 16)),
    }, ...series.map(({ name, counts }, i) => ({
      label: name,
      fill: COLOURS[i],
      width: 0,
      paths: bars({ size: [0.8, 60], align: 1 }),
      points: { show: false },
      value: (_, value, place, at) => (at == null ? sum(counts) : counts[at]),
    })).reverse()],
  };
}

/// The rows are those of /hours. Shows each hour from `since` to `now`, in seconds.
export function show(place, rows, since, now) {
  const first = Math.floor(since / HOUR) * HOUR;
  const hours = [];
  for (let hour = first; hour <= now; hour += HOUR) {
    hours.push(hour);
  }
  const state = JSON.stringify([hours, rows]);
  if (state === shown) {
    return;
  }
  shown = state;
  chart?.destroy();
  chart = null;
  if (!rows.length) {
    place.replaceChildren(element('p', 'none yet', 'none'));
    return;
  }
  const series = seriesOf(rows.filter(({ hour }) => hours.includes(hour)), hours);
  place.replaceChildren();
  chart = new uPlot(optionsFor(series, hours, place.clientWidth), [hours, ...stacked(series)], place);
}

/// Keeps the chart as wide as its place, and in the colours of the day or the night.
export function follow(place) {
  new ResizeObserver(() => chart?.setSize({ width: place.clientWidth, height: 240 })).observe(place);
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => chart?.redraw(false, true));
}
