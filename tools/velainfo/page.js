'use strict';
// One time axis in seconds for all pictures. Every picture is a canvas drawn from its panel's bytes: a map
// through an image of one pixel a column and row, the others straight from the values.
const gutter = 52, foot = 18, blank = 255;
const streams = JSON.parse(document.getElementById('data').textContent);
const main = document.getElementById('main'), readout = document.getElementById('readout');
const total = Math.max(...streams.map(s => s.seconds));
const shades = ['#440154', '#472d7b', '#3b528b', '#2c728e', '#21918c', '#28ae80', '#5ec962', '#addc30', '#fde725'];
const hues = ['#4e79a7', '#f28e2b', '#59a14f', '#b07aa1', '#9c755f', '#76b7b2', '#e15759', '#8a9099'];
const plots = [];
let view = [0, total];

const element = (name, parent, text = '') => {
  const made = document.createElement(name);
  made.textContent = text;
  return parent.appendChild(made);
};
const colour = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
const rgb = hex => [1, 3, 5].map(i => parseInt(hex.slice(i, i + 2), 16));
const ramp = x => {
  const at = Math.min(Math.max(x, 0), 1) * (shades.length - 1), i = Math.min(Math.floor(at), shades.length - 2);
  const a = rgb(shades[i]), b = rgb(shades[i + 1]);
  return a.map((v, k) => v + (b[k] - v) * (at - i));
};
const number = x => Math.abs(x - Math.round(x)) < 0.01 ? String(Math.round(x)) : x.toFixed(2).replace(/0$/, '');
const clock = (seconds, digits) => {
  // Rounded first: 59.96 is 1:00.0, not 0:60.0.
  const s = Number(seconds.toFixed(digits)), rest = (s % 60).toFixed(digits).padStart(digits ? digits + 3 : 2, '0');
  const minutes = Math.floor(s / 60);
  return s < 3600 ? `${minutes}:${rest}` : `${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, '0')}:${rest}`;
};

/// The bytes of a panel and what they mean. `which`: 0 mean, 1 least, 2 greatest.
class Values {
  constructor(panel) {
    this.bytes = Uint8Array.from(atob(panel.data), c => c.charCodeAt(0));
    this.panel = panel;
  }
  byte(row, column, which = 0) {
    const p = this.panel;
    return this.bytes[((p.stride === 1 ? 0 : which) * p.rows.length + row) * p.columns + column];
  }
  at(row, column, which = 0) {
    const byte = this.byte(row, column, which);
    return byte === blank ? NaN : this.panel.lowest + byte * this.panel.step;
  }
}

class Plot {
  constructor(stream, panel, parent) {
    Object.assign(this, {stream, panel, values: new Values(panel)});
    this.mapRows = panel.kind === 'map' ? this.usedRows() : 0;
    this.seconds = panel.stride * stream.frame_seconds; // of a column
    const figure = element('section', parent);
    const head = element('h3', figure, streams.length > 1 ? `${panel.title}: ${stream.name}` : panel.title);
    this.legend(element('span', head));
    this.box = element('div', figure);
    this.box.className = 'plot';
    this.box.tabIndex = 0;
    this.canvas = element('canvas', this.box);
    this.canvas.setAttribute('role', 'img');
    this.canvas.setAttribute('aria-label', `${panel.title} of ${stream.name} over time`);
    this.cursor = element('div', this.box);
    this.cursor.className = 'cursor';
    this.height = {map: 4 * this.mapRows * stream.channels + 6, lines: 90, stack: 110, marks: 30}[panel.kind] + foot;
    if (panel.kind === 'map') this.image = this.paint();
    listen(this);
  }

  /// Subbands that have a value anywhere.
  usedRows() {
    let used = 1;
    for (let row = 0; row < 64; ++row)
      for (let c = 0; c < this.panel.columns && used < row % 32 + 1; ++c)
        if (this.values.byte(row, c) !== blank) used = row % 32 + 1;
    return used;
  }

  legend(place) {
    const p = this.panel;
    place.className = 'legend';
    if (p.kind === 'map') {
      place.textContent = number(p.low);
      const scale = element('i', place);
      scale.className = 'scale';
      scale.style.background = `linear-gradient(90deg, ${shades.join()})`;
      place.append(`${number(p.high)} ${p.unit}`, this.stream.channels > 1 ? '; right channel above the left, kHz upwards' : '; kHz upwards');
      return;
    }
    if (p.rows.length === 1) place.textContent = p.unit;
    else this.shownRows().forEach((row, i) => {
      element('i', place).style.background = this.hue(i);
      place.append(row);
    });
  }

  /// Rows of both channels for a stream that has two.
  shownRows() {
    const {rows, name} = this.panel;
    return name === 'level' && this.stream.channels === 1 ? ['the channel'] : rows;
  }

  hue(i) {
    return this.panel.kind === 'marks' ? [colour('--good'), colour('--bad'), '#f28e2b'][i] : hues[i];
  }

  /// The map as an image; the lowest subband is the lowest line, the right channel above the left.
  paint() {
    const {panel, mapRows, values} = this, channels = this.stream.channels;
    const image = new ImageData(panel.columns, mapRows * channels);
    for (let ch = 0; ch < channels; ++ch)
      for (let sb = 0; sb < mapRows; ++sb)
        for (let c = 0; c < panel.columns; ++c) {
          const value = values.at(32 * ch + sb, c);
          if (Number.isNaN(value)) continue;
          const line = (channels - ch) * mapRows - 1 - sb;
          image.data.set([...ramp((value - panel.low) / (panel.high - panel.low)), 255], 4 * (line * panel.columns + c));
        }
    const canvas = document.createElement('canvas');
    canvas.width = panel.columns;
    canvas.height = mapRows * channels;
    canvas.getContext('2d').putImageData(image, 0, 0);
    return canvas;
  }

  x(seconds) { return gutter + (seconds - view[0]) / (view[1] - view[0]) * this.width; }
  y(value) {
    const p = this.panel;
    return this.base - (Math.min(Math.max(value, p.low), p.high) - p.low) / (p.high - p.low) * (this.base - 4);
  }

  draw() {
    // Paper has a width of its own, which only the printer knows: the style sheet fits the picture into it.
    const printed = document.documentElement.classList.contains('printed');
    const ratio = printed ? 2 : window.devicePixelRatio || 1, whole = printed ? 740 : this.box.clientWidth;
    this.width = whole - gutter - 4;
    this.base = this.height - foot;
    this.canvas.width = Math.round(whole * ratio);
    this.canvas.height = Math.round(this.height * ratio);
    this.canvas.style.height = `${this.height}px`;
    const g = this.g = this.canvas.getContext('2d');
    g.scale(ratio, ratio);
    g.font = '11px system-ui, sans-serif';
    g.fillStyle = colour('--blank');
    g.fillRect(gutter, 0, this.width, this.base);
    g.save();
    g.beginPath();
    g.rect(gutter, 0, this.width, this.base);
    g.clip();
    this[this.panel.kind]();
    this.events();
    g.restore();
    this.axes();
  }

  map() {
    const g = this.g, channels = this.stream.channels, lines = this.mapRows, gap = channels > 1 ? 6 : 0;
    const left = this.x(0), right = this.x(this.panel.columns * this.seconds);
    g.imageSmoothingEnabled = this.panel.columns / (right - left) > 1.5;
    const each = (this.base - gap) / channels;
    for (let ch = 0; ch < channels; ++ch)
      g.drawImage(this.image, 0, (channels - 1 - ch) * lines, this.panel.columns, lines,
        left, (channels - 1 - ch) * (each + gap), right - left, each);
  }

  /// For every column in view: its left and right edge.
  columns(body) {
    const first = Math.max(Math.floor(view[0] / this.seconds), 0);
    const last = Math.min(Math.ceil(view[1] / this.seconds), this.panel.columns);
    for (let c = first; c < last; ++c)
      body(c, this.x(c * this.seconds), Math.max(this.x((c + 1) * this.seconds), this.x(c * this.seconds) + 0.6));
  }

  lines() {
    const g = this.g;
    this.panel.rows.forEach((_, row) => {
      g.fillStyle = this.hue(row);
      this.columns((c, left, right) => {
        if (this.values.byte(row, c) === blank) return;
        const high = this.y(this.values.at(row, c, 2)), low = this.y(this.values.at(row, c, 1));
        g.globalAlpha = 0.3;
        g.fillRect(left, high, right - left, Math.max(low - high, 1));
        g.globalAlpha = 1;
        g.fillRect(left, this.y(this.values.at(row, c)) - 1, right - left, 2);
      });
    });
  }

  stack() {
    this.columns((c, left, right) => {
      let below = 0;
      this.panel.rows.forEach((_, row) => {
        const share = this.values.at(row, c);
        if (!(share > 0)) return;
        this.g.fillStyle = this.hue(row);
        this.g.fillRect(left, this.y(below + share), right - left + 0.5, this.y(below) - this.y(below + share));
        below += share;
      });
    });
  }

  marks() {
    const each = this.base / this.panel.rows.length;
    this.panel.rows.forEach((_, row) => this.columns((c, left, right) => {
      if (!(this.values.at(row, c, 2) > 0)) return;
      this.g.fillStyle = this.hue(row);
      this.g.fillRect(left, row * each + 1, Math.max(right - left + 0.5, row > 0 ? 3 : 0), each - 2);
    }));
  }

  /// Places of damage, across all pictures.
  events() {
    this.g.fillStyle = colour('--bad');
    for (const event of this.stream.events)
      if (event.damage) this.g.fillRect(this.x(event.seconds) - 0.5, 0, 1, this.base);
  }

  axes() {
    const g = this.g, p = this.panel, span = view[1] - view[0];
    const steps = [.01, .02, .05, .1, .2, .5, 1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1200, 1800, 3600, 7200];
    const step = steps.find(s => span / s * 60 <= this.width) || 14400;
    g.fillStyle = colour('--soft');
    g.textAlign = 'center';
    for (let t = Math.ceil(view[0] / step) * step; t <= view[1]; t += step) {
      const text = clock(t, step < .1 ? 2 : step < 1 ? 1 : 0), half = g.measureText(text).width / 2;
      g.fillRect(this.x(t), this.base, 1, 4);
      g.fillText(text, Math.min(this.x(t), gutter + this.width - half), this.height - 3);
    }
    g.textAlign = 'left';
    g.fillText('time', 0, this.height - 3);
    g.textAlign = 'right';
    const label = (text, y) => g.fillText(text, gutter - 4, y);
    const each = p.kind === 'map' ? this.base / this.stream.channels : this.base;
    if (p.kind === 'map')
      for (let ch = 0; ch < this.stream.channels; ++ch) {
        const bottom = this.base - ch * each, top = this.mapRows * this.stream.rate / 64000;
        label('0', bottom - 1);
        label(number(Math.round(top * 10) / 10), bottom - each + 12);
        if (this.stream.channels > 1) label('LR'[ch], bottom - each / 2 + 4);
      }
    else if (p.kind !== 'marks') {
      label(number(p.low), this.base - 1);
      label(number(p.high), 11);
    }
    // What goes upwards, along the axis.
    const name = {map: each < 80 ? 'kHz' : 'frequency, kHz', stack: 'share, %', lines: `${p.rows.length > 1 ? 'level' : p.rows[0]}, ${p.unit}`}[p.kind];
    g.textAlign = 'center';
    for (let middle = each / 2; name && middle < this.base; middle += each) {
      g.save();
      g.translate(10, middle);
      g.rotate(-Math.PI / 2);
      g.fillText(name, 0, 0, each);
      g.restore();
    }
  }

  /// Channel and subband at a height of a map.
  place(y) {
    const each = this.base / this.stream.channels, last = this.stream.channels - 1;
    const sb = Math.floor((each - y % each) / each * this.mapRows);
    return {ch: last - Math.min(Math.floor(y / each), last), sb: Math.min(Math.max(sb, 0), this.mapRows - 1)};
  }

  /// Of a map with its frequencies; "left" only where there is a right.
  rowName(row) {
    if (this.panel.kind !== 'map') return this.shownRows()[row];
    const width = this.stream.rate / 64000, sb = row % 32, khz = i => (i * width).toFixed(1);
    const side = this.stream.channels === 1 ? '' : row < 32 ? 'left, ' : 'right, ';
    return `${side}subband ${sb} (${khz(sb)} to ${khz(sb + 1)} kHz)`;
  }

  /// Values at a time: of one place of a map, of all rows of the others.
  describe(seconds, place) {
    const c = Math.floor(seconds / this.seconds);
    if (c < 0 || c >= this.panel.columns) return '';
    let rows = this.panel.rows.map((_, i) => i);
    if (this.panel.kind === 'map') {
      if (!place || place.ch >= this.stream.channels) return '';
      rows = [32 * place.ch + place.sb];
    }
    return rows.map(row => {
      const value = this.values.at(row, c);
      if (Number.isNaN(value) || (this.panel.kind !== 'map' && this.panel.rows.length > 2 && value === 0)) return '';
      const range = this.panel.stride > 1
        ? ` (${number(this.values.at(row, c, 1))} to ${number(this.values.at(row, c, 2))})` : '';
      const shown = this.panel.kind === 'marks' ? '' : ` <b>${number(value)}</b>${range} ${this.panel.unit}`;
      return `<span>${this.rowName(row)}${shown}</span>`;
    }).join('');
  }
}

/// Values of the stream that the pointer is at, and of the picture's row in all maps of the page.
function hover(plot, seconds, y) {
  for (const p of plots) {
    p.cursor.style.visibility = seconds >= view[0] && seconds <= view[1] ? 'visible' : 'hidden';
    p.cursor.style.transform = `translateX(${p.x(seconds)}px)`;
  }
  const {stride} = plot.panel, s = plot.stream, place = plot.panel.kind === 'map' ? plot.place(y) : null;
  const first = Math.floor(seconds / plot.seconds) * stride;
  const last = Math.min(first + stride, s.frames) - 1;
  const plain = text => element('i', document.createElement('p'), text).innerHTML;
  let text = `<span><b>${clock(seconds, 3)}</b></span><span>frame <b>${first}${last > first ? `&ndash;${last}` : ''}</b></span>`;
  if (streams.length > 1) text += `<span>${plain(s.name)}</span>`;
  for (const p of plots) {
    if (p.stream !== s && p.panel.name !== plot.panel.name) continue;
    const values = p.describe(seconds, place);
    if (values) text += `<span>${p.panel.title}:</span>${values}`;
  }
  for (const event of s.events)
    if (Math.abs(plot.x(event.seconds) - plot.x(seconds)) < 4) text += `<span><b>${plain(event.text)}</b></span>`;
  readout.innerHTML = text;
}

let waiting = 0;
function show(from, to) {
  const least = Math.min(0.05, total), span = Math.min(Math.max(to - from, least), total);
  from = Math.min(Math.max(from, 0), total - span);
  view = [from, from + span];
  document.getElementById('range').textContent = `${clock(view[0], 2)} to ${clock(view[1], 2)} of ${clock(total, 2)}`;
  for (const p of plots) p.cursor.style.visibility = 'hidden';
  if (!waiting) waiting = requestAnimationFrame(drawAll);
}
function drawAll() {
  waiting = 0;
  for (const p of plots) p.draw();
}
function zoom(factor, around = (view[0] + view[1]) / 2) {
  show(around - (around - view[0]) * factor, around + (view[1] - around) * factor);
}

/// The cursor of the keyboard: columns and, in maps, subbands further; its values are read out.
const at = {seconds: 0, row: 0};
function point(plot, columns, rows) {
  const step = Math.max(plot.seconds, (view[1] - view[0]) / Math.max(plot.width, 1));
  at.seconds = Math.min(Math.max(at.seconds + columns * step, 0), plot.stream.seconds - plot.seconds / 2);
  const span = view[1] - view[0];
  if (at.seconds < view[0] || at.seconds > view[1]) show(at.seconds - span / 2, at.seconds + span / 2);
  const all = Math.max(plot.mapRows * plot.stream.channels, 1);
  at.row = Math.min(Math.max(at.row + rows, 0), all - 1);
  readout.setAttribute('aria-live', 'polite');
  hover(plot, at.seconds, plot.base - (at.row + 0.5) * plot.base / all);
}

/// Hover, drag, wheel and two fingers on a picture.
function listen(plot) {
  const fingers = new Map(), box = plot.box;
  const place = e => e.clientX - box.getBoundingClientRect().left;
  const time = x => view[0] + (x - gutter) / plot.width * (view[1] - view[0]);
  // The wheel alone scrolls the page.
  box.addEventListener('wheel', e => {
    if (e.ctrlKey) zoom(Math.exp(e.deltaY / 300), time(place(e)));
    else if (Math.abs(e.deltaX) > Math.abs(e.deltaY)) {
      const move = e.deltaX / plot.width * (view[1] - view[0]);
      show(view[0] + move, view[1] + move);
    } else return;
    e.preventDefault();
  }, {passive: false});
  box.addEventListener('focus', () => point(plot, 0, 0));
  box.addEventListener('keydown', e => {
    const moves = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], PageUp: [-10, 0], PageDown: [10, 0], ArrowUp: [0, 1], ArrowDown: [0, -1]};
    if (!moves[e.key] || e.ctrlKey || e.metaKey || e.altKey || (plot.panel.kind !== 'map' && moves[e.key][1])) return;
    e.preventDefault();
    e.stopPropagation();
    point(plot, ...moves[e.key]);
  });
  box.addEventListener('pointerdown', e => fingers.set(e.pointerId, place(e)));
  for (const end of ['pointerup', 'pointercancel', 'pointerleave'])
    box.addEventListener(end, e => fingers.delete(e.pointerId));
  box.addEventListener('pointermove', e => {
    const x = place(e), before = fingers.get(e.pointerId);
    if (before !== undefined) {
      const others = [...fingers].filter(([id]) => id !== e.pointerId).map(([, at]) => at);
      fingers.set(e.pointerId, x);
      if (others.length === 0) {
        const move = (before - x) / plot.width * (view[1] - view[0]);
        show(view[0] + move, view[1] + move);
      } else zoom(Math.abs(before - others[0]) / Math.max(Math.abs(x - others[0]), 1), time(others[0]));
    }
    hover(plot, time(x), e.clientY - box.getBoundingClientRect().top);
  });
  box.addEventListener('dblclick', () => show(0, total));
}

/// The verdict in one line, what is wrong as places to go to, the report, and the pictures of all streams panel by panel.
const plural = (n, what) => `${n} ${what}${n === 1 ? '' : 's'}`;
for (const stream of streams) {
  element('h2', main, stream.name);
  const bad = stream.damage_count > 0, unfit = stream.violations.length > 0;
  element('p', main, (bad ? `Damaged: ${plural(stream.damage_count, 'place')}, ${plural(stream.damaged_frames, 'frame')}`
    : 'Sound: no damage') + (unfit ? `; ${plural(stream.violations.length, 'rule')} broken` : '')
    + `; ${clock(stream.seconds, 3)}`).className = bad || unfit ? 'verdict bad' : 'verdict good';
  const list = element('ul', main);
  for (const {seconds, text} of [...stream.violations, ...stream.events.filter(e => e.damage)]) {
    const button = element('button', element('li', list), `${clock(seconds, 3)} ${text}`);
    button.onclick = () => {
      const span = Math.min(view[1] - view[0], Math.max(total / 20, 1));
      show(seconds - span / 2, seconds + span / 2);
      at.seconds = seconds;
    };
  }
  if (!list.children.length) list.remove();
  const details = element('details', main);
  element('summary', details, 'Report');
  element('pre', details, stream.text);
}
document.title = `${streams.map(s => s.name).join(', ')} - velainfo`;
const names = [...new Set(streams.flatMap(s => s.panels.map(p => p.name)))];
const says = panel => new Values(panel).bytes.some(panel.kind === 'marks' ? b => b !== blank && b > 0 : b => b !== blank);
for (const name of names)
  for (const stream of streams)
    for (const panel of stream.panels)
      if (panel.name === name && says(panel)) plots.push(new Plot(stream, panel, main));
for (const [event, on] of [['beforeprint', true], ['afterprint', false]])
  addEventListener(event, () => {
    document.documentElement.classList.toggle('printed', on);
    drawAll();
  });
document.getElementById('in').onclick = () => zoom(0.5);
document.getElementById('out').onclick = () => zoom(2);
document.getElementById('all').onclick = () => show(0, total);
document.addEventListener('keydown', e => {
  const move = (view[1] - view[0]) / 5;
  const keys = {'+': () => zoom(0.5), '-': () => zoom(2), 0: () => show(0, total),
    ArrowLeft: () => show(view[0] - move, view[1] - move), ArrowRight: () => show(view[0] + move, view[1] + move)};
  if (keys[e.key] && !e.ctrlKey && !e.metaKey) keys[e.key]();
});
addEventListener('resize', drawAll);
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', drawAll);
show(0, total);
