// The box's own search site, opened by voice: "search ..." and "weather ..."
// come to search.html, "map ..." to maps.html, and "launch browser" to the
// start page (index.html; the other two are links to it). The box has no network, so the answers are made up here from
// the words asked; what matters is that the question arrives intact.
import { joinBox } from '../../lib/box-page.mjs';

const query = new URLSearchParams(location.search).get('q')?.trim() ?? '';
const page = location.pathname.split('/').pop().replace(/\.html$/, '');
const $ = (id) => document.getElementById(id);

// A stable number from the words, so one question always gets one answer.
function digest(text) {
  let value = 7;
  for (const c of text) value = (value * 31 + c.codePointAt(0)) % 100003;
  return value;
}

function answer() {
  const words = query.split(/\s+/).filter(Boolean);
  if (page === 'maps') {
    const place = query.replace(/^of\s+/i, ''); // "map of paris" comes as "of paris"
    return { title: `Map of ${place}`, lines: [`Centred on ${place}`] };
  }
  if (words[0] === 'weather') {
    const place = words.slice(1).join(' ') || 'here';
    const n = digest(place);
    return {
      title: `Weather in ${place}`,
      lines: [`${4 + (n % 22)} °C, ${['clear', 'cloudy', 'light rain', 'windy', 'fog'][n % 5]}`,
        `Tomorrow ${2 + (n % 20)} °C`],
    };
  }
  return {
    title: query ? `Results for “${query}”` : 'Search the box',
    lines: query ? [`About ${digest(query)} results (offline)`, `${query} — a page of the box`, `More about ${query}`]
      : ['Say “search …”, “weather …” or “map …” to the remote.'],
  };
}

const { title, lines } = answer();
$('query').textContent = query || '—';
$('title').textContent = title;
$('lines').replaceChildren(...lines.map((text) => Object.assign(document.createElement('li'), { textContent: text })));
document.title = title;
document.body.dataset.page = page;
if (page === 'maps') {
  $('site').textContent = 'Maps';
  $('hint').textContent = 'Up/Down: zoom · Back: leave';
}

let zoom = 1;
function onKey(key) {
  if (page !== 'maps' || (key !== 'Up' && key !== 'Down')) return false;
  zoom = Math.max(1, Math.min(4, zoom + (key === 'Up' ? 1 : -1)));
  document.body.style.setProperty('--zoom', zoom);
  return true;
}
await joinBox({ name: page === 'maps' ? 'Maps' : 'Search', onKey });
