// The live view: reads the binary frames of /api/stream, draws the trace,
// the waterfall, the persistence image and the markers, and sends the
// controls' settings to /api/settings. The page's state is window.qorView.
'use strict';

(function () {
  const token = new URLSearchParams(location.search).get('token') || '';
  const DIVISIONS = 10;
  const WATERFALL_ROWS = 300;
  const COLORS = {
    grid: '#26303c', axis: '#56657a', text: '#9aa6b6', label: '#d5dbe3',
    max: '#f2c94c', band: 'rgba(242, 201, 76, 0.13)',
    peak: '#ff5d8f', next: '#ff9f43', mouse: '#4fd1c5', delta: '#a78bfa', sweep: '#ffffff',
  };

  // What the page knows; tests read it too.
  const view = window.qorView = {
    frames: 0, completeSweeps: 0, sequence: 0, generation: -1, skipped: 0,
    state: null, frame: null, peak: null, nextPeak: null, mouse: null, delta: null,
    error: '', sweepsPerSecond: 0, keep: [],
  };

  const $ = (id) => document.getElementById(id);
  const traceCanvas = $('trace');
  const waterfallCanvas = $('waterfall');

  // ---- numbers as people type and read them --------------------------------

  function parseHz(text) {
    const m = /^\s*([-+]?\d*\.?\d+(?:e[-+]?\d+)?)\s*([kKmMgG]?)\s*(?:hz)?\s*$/i.exec(text);
    if (!m) return NaN;
    const scale = { '': 1, k: 1e3, m: 1e6, g: 1e9 }[m[2].toLowerCase()];
    return parseFloat(m[1]) * scale;
  }

  function formatHz(hz, digits) {
    const a = Math.abs(hz);
    const [div, unit] = a >= 1e9 ? [1e9, 'GHz'] : a >= 1e6 ? [1e6, 'MHz'] : a >= 1e3 ? [1e3, 'kHz'] : [1, 'Hz'];
    return `${(hz / div).toFixed(digits === undefined ? 3 : digits)} ${unit}`;
  }

  // Short form for the inputs: 100M, 2.4G, 30k.
  function shortHz(hz) {
    const a = Math.abs(hz);
    const [div, unit] = a >= 1e9 ? [1e9, 'G'] : a >= 1e6 ? [1e6, 'M'] : a >= 1e3 ? [1e3, 'k'] : [1, ''];
    return `${parseFloat((hz / div).toPrecision(10))}${unit}`;
  }

  // ---- perceptual colour map (inferno), 256 entries -------------------------

  const PALETTE = (function () {
    const c = [
      [0.0002189403691192265, 0.001651004631001012, -0.01948089843709184],
      [0.1065134194856116, 0.5639564367884091, 3.932712388889277],
      [11.60249308247187, -3.972853965665698, -15.9423941062914],
      [-41.70399613139459, 17.43639888205313, 44.35414519872813],
      [77.162935699427, -33.40235894210092, -81.80730925738993],
      [-71.31942824499214, 32.62606426397723, 73.20951985803202],
      [25.13112622477341, -12.24266895238567, -23.07032500287172],
    ];
    const table = new Uint8ClampedArray(256 * 3);
    for (let i = 0; i < 256; i++) {
      const t = i / 255;
      for (let k = 0; k < 3; k++) {
        let v = 0;
        for (let p = 6; p >= 0; p--) v = v * t + c[p][k];
        table[i * 3 + k] = Math.round(255 * Math.min(1, Math.max(0, v)));
      }
    }
    return table;
  })();

  // ---- server ---------------------------------------------------------------

  async function api(path, body) {
    const init = { headers: { 'X-Qor-Token': token } };
    if (body !== undefined) {
      init.method = 'POST';
      init.headers['Content-Type'] = 'application/json';
      init.body = JSON.stringify(body);
    }
    return fetch(path, init);
  }

  // `full`: also the controls and the texts next to them, as after a change.
  async function refreshState(full) {
    const response = await api('/api/state');
    if (!response.ok) {
      view.error = response.status === 401 ? 'This page needs the token the tool printed (…/?token=…).'
                                           : `state: HTTP ${response.status}`;
      showStatus();
      return;
    }
    takeState(await response.json(), full);
  }

  function takeState(state, full) {
    view.state = state;
    view.error = state.error || '';
    if (full) {
      fillControls(state.settings);
      showTexts(state.refused, state.notes);
    }
    const units = $('serial');
    if (units.options.length !== state.units.length) {
      units.innerHTML = '';
      for (const serial of state.units) {
        const option = document.createElement('option');
        option.value = String(serial);
        option.textContent = String(serial).padStart(8, '0');
        units.appendChild(option);
      }
    }
    units.value = String(state.settings.serial);
    showStatus();
  }

  // Sends one control's change; the measurement restarts with it, or the
  // library's refusal stands next to the control.
  async function change(group, patch) {
    let response;
    try {
      response = await api('/api/settings', patch);
    } catch (e) {
      showTexts({ [group]: 'the tool does not answer' }, {});
      return;
    }
    if (response.status === 400) {
      showTexts({ [group]: await response.text() }, {});
      return;
    }
    if (!response.ok && response.status !== 422) {
      showTexts({ [group]: `HTTP ${response.status}: ${await response.text()}` }, {});
      return;
    }
    // A refused group keeps what was typed, so the text next to it reads against it.
    const state = await response.json();
    view.keep = Object.keys(state.refused);
    takeState(state, true);
  }

  function showTexts(refused, notes) {
    for (const el of document.querySelectorAll('.refusal')) {
      const group = el.dataset.for;
      const text = (refused && refused[group]) || (notes && notes[group]) || '';
      el.textContent = text;
      el.classList.toggle('note', !(refused && refused[group]) && !!text);
    }
  }

  // ---- controls ---------------------------------------------------------------

  const GROUP_OF = { center: 'frequency', span: 'frequency', start: 'frequency', stop: 'frequency',
                     rbw: 'rbw', vbw: 'rbw', reject: 'rbw', ref: 'ref', detector: 'detector', mode: 'mode' };

  function fillControls(s) {
    const skip = (id) => view.keep.includes(GROUP_OF[id]);
    const set = (id, value) => { if (!skip(id)) $(id).value = value; };
    set('center', shortHz(s.center));
    set('span', shortHz(s.span));
    set('start', shortHz(s.center - s.span / 2));
    set('stop', shortHz(s.center + s.span / 2));
    set('rbw', shortHz(s.rbw));
    set('vbw', shortHz(s.vbw));
    if (!skip('reject')) $('reject').checked = s.reject;
    set('ref', String(s.ref));
    set('detector', s.detector);
    set('mode', s.mode);
  }

  function frequencyInput(id) {
    const hz = parseHz($(id).value);
    if (!Number.isFinite(hz)) {
      showTexts({ frequency: `${id}: not a frequency: ${$(id).value}` }, {});
      return null;
    }
    return hz;
  }

  function wireControls() {
    for (const radio of document.querySelectorAll('input[name=edges]')) {
      radio.addEventListener('change', () => {
        const byEdges = radio.value === 'start' && radio.checked;
        $('by-center').hidden = byEdges;
        $('by-edges').hidden = !byEdges;
      });
    }
    const byCenter = () => {
      const center = frequencyInput('center'), span = frequencyInput('span');
      if (center !== null && span !== null) change('frequency', { center, span });
    };
    const byEdges = () => {
      const start = frequencyInput('start'), stop = frequencyInput('stop');
      if (start !== null && stop !== null) change('frequency', { start, stop });
    };
    for (const id of ['center', 'span']) $(id).addEventListener('change', byCenter);
    for (const id of ['start', 'stop']) $(id).addEventListener('change', byEdges);
    const bandwidth = (id) => {
      const hz = parseHz($(id).value);
      if (!Number.isFinite(hz)) return showTexts({ rbw: `${id}: not a bandwidth: ${$(id).value}` }, {});
      const patch = { [id]: hz };
      // VBW follows the RBW while the two are coupled.
      const s = view.state && view.state.settings;
      if (id === 'rbw' && s && s.vbw === s.rbw) patch.vbw = hz;
      change('rbw', patch);
    };
    $('rbw').addEventListener('change', () => bandwidth('rbw'));
    $('vbw').addEventListener('change', () => bandwidth('vbw'));
    $('reject').addEventListener('change', () => change('rbw', { reject: $('reject').checked }));
    $('ref').addEventListener('change', () => {
      const ref = parseFloat($('ref').value);
      if (Number.isFinite(ref)) change('ref', { ref });
    });
    $('detector').addEventListener('change', () => change('detector', { detector: $('detector').value }));
    $('mode').addEventListener('change', () => change('mode', { mode: $('mode').value }));
    $('serial').addEventListener('change', () => change('serial', { serial: parseInt($('serial').value, 10) }));
  }

  // ---- the stream -------------------------------------------------------------

  function parseFrame(buffer) {
    const d = new DataView(buffer);
    if (d.getUint32(0, true) !== 0x56524f51) throw new Error('not a frame of the live view');
    const bins = d.getUint32(24, true);
    const width = d.getUint32(48, true), height = d.getUint32(52, true);
    const peakOf = (f, l) => (Number.isNaN(f) ? null : { frequency: f, level: l });
    return {
      sequence: d.getUint32(8, true),
      generation: d.getUint32(12, true),
      status: d.getInt32(16, true),
      realTime: d.getUint32(20, true) === 1,
      bins,
      filled: d.getUint32(28, true),
      startFreq: d.getFloat64(32, true),
      binSize: d.getFloat64(40, true),
      width, height,
      peak: peakOf(d.getFloat64(56, true), d.getFloat32(72, true)),
      nextPeak: peakOf(d.getFloat64(64, true), d.getFloat32(76, true)),
      min: new Float32Array(buffer, 80, bins),
      max: new Float32Array(buffer, 80 + 4 * bins, bins),
      image: new Uint8Array(buffer, 80 + 8 * bins, width * height),
    };
  }

  let sweepTimes = [];

  function takeFrame(frame) {
    if (view.sequence && frame.sequence > view.sequence + 1) view.skipped += frame.sequence - view.sequence - 1;
    view.sequence = frame.sequence;
    view.frames++;
    if (frame.generation !== view.generation) {
      view.generation = frame.generation;
      clearWaterfall();
      sweepTimes = [];
      refreshState(true);
    }
    view.frame = frame;
    view.peak = frame.peak;
    view.nextPeak = frame.nextPeak;
    if (frame.filled >= frame.bins) {
      view.completeSweeps++;
      addWaterfallRow(frame);
      const now = performance.now();
      sweepTimes.push(now);
      while (sweepTimes.length > 1 && now - sweepTimes[0] > 2000) sweepTimes.shift();
      view.sweepsPerSecond = sweepTimes.length > 1 ? (sweepTimes.length - 1) * 1000 / (now - sweepTimes[0]) : 0;
    }
    scheduleDraw();
  }

  async function stream() {
    for (;;) {
      try {
        const response = await api('/api/stream');
        if (!response.ok) throw new Error(`stream: HTTP ${response.status}`);
        const reader = response.body.getReader();
        let pending = new Uint8Array(0);
        for (;;) {
          const { value, done } = await reader.read();
          if (done) break;
          const joined = new Uint8Array(pending.length + value.length);
          joined.set(pending);
          joined.set(value, pending.length);
          pending = joined;
          while (pending.length >= 8) {
            const size = new DataView(pending.buffer, pending.byteOffset).getUint32(4, true);
            if (pending.length < size) break;
            takeFrame(parseFrame(pending.slice(0, size).buffer));
            pending = pending.subarray(size);
          }
        }
      } catch (e) {
        view.error = String(e.message || e);
        showStatus();
      }
      await new Promise((resolve) => setTimeout(resolve, 1000));
    }
  }

  // ---- drawing ------------------------------------------------------------------

  let drawPending = false;
  function scheduleDraw() {
    if (drawPending) return;
    drawPending = true;
    requestAnimationFrame(() => { drawPending = false; draw(); });
  }

  // Sizes a canvas to its box in device pixels; returns the context in CSS pixels.
  function context(canvas) {
    const ratio = window.devicePixelRatio || 1;
    const w = Math.max(1, Math.round(canvas.clientWidth * ratio));
    const h = Math.max(1, Math.round(canvas.clientHeight * ratio));
    if (canvas.width !== w || canvas.height !== h) { canvas.width = w; canvas.height = h; }
    const ctx = canvas.getContext('2d');
    ctx.setTransform(ratio, 0, 0, ratio, 0, 0);
    return { ctx, width: canvas.clientWidth, height: canvas.clientHeight };
  }

  // The plot area and scales of the trace canvas.
  function geometry(width, height) {
    const s = view.state ? view.state.settings : { center: 0, span: 1, ref: 0 };
    const f = view.frame;
    const plot = { left: 64, top: 30, right: width - 14, bottom: height - 46 };
    const start = f ? f.startFreq : s.center - s.span / 2;
    const stop = f ? f.startFreq + f.binSize * Math.max(1, f.bins) : s.center + s.span / 2;
    const top = s.ref, bottom = s.ref - (view.state ? view.state.frameScale : 100);
    return {
      plot, start, stop, top, bottom,
      x: (hz) => plot.left + (hz - start) / (stop - start) * (plot.right - plot.left),
      y: (db) => plot.top + (top - db) / (top - bottom) * (plot.bottom - plot.top),
      hz: (x) => start + (x - plot.left) / (plot.right - plot.left) * (stop - start),
    };
  }

  function draw() {
    drawTrace();
    drawWaterfall();
    showMarkers();
    showStatus();
  }

  function drawTrace() {
    const { ctx, width, height } = context(traceCanvas);
    const g = geometry(width, height);
    const p = g.plot;
    ctx.fillStyle = '#07090d';
    ctx.fillRect(0, 0, width, height);

    // Graticule with level and frequency labels.
    ctx.lineWidth = 1;
    ctx.font = '11px "DejaVu Sans Mono", monospace';
    for (let i = 0; i <= DIVISIONS; i++) {
      const y = Math.round(p.top + i * (p.bottom - p.top) / DIVISIONS) + 0.5;
      const x = Math.round(p.left + i * (p.right - p.left) / DIVISIONS) + 0.5;
      ctx.strokeStyle = i === 0 || i === DIVISIONS ? COLORS.axis : COLORS.grid;
      ctx.beginPath(); ctx.moveTo(p.left, y); ctx.lineTo(p.right, y); ctx.stroke();
      ctx.beginPath(); ctx.moveTo(x, p.top); ctx.lineTo(x, p.bottom); ctx.stroke();
      ctx.fillStyle = COLORS.text;
      ctx.textAlign = 'right'; ctx.textBaseline = 'middle';
      ctx.fillText((g.top - i * (g.top - g.bottom) / DIVISIONS).toFixed(0), p.left - 6, y);
      if (i % 2 === 0) {
        ctx.textAlign = i === 0 ? 'left' : i === DIVISIONS ? 'right' : 'center';
        ctx.textBaseline = 'top';
        ctx.fillText(formatHz(g.start + i * (g.stop - g.start) / DIVISIONS, 3), x, p.bottom + 5);
      }
    }
    ctx.save();
    ctx.translate(14, (p.top + p.bottom) / 2);
    ctx.rotate(-Math.PI / 2);
    ctx.textAlign = 'center'; ctx.textBaseline = 'middle';
    ctx.fillText('dBm', 0, 0);
    ctx.restore();

    annotate(ctx, g, width, height);
    const f = view.frame;
    if (!f || f.bins === 0) return;
    ctx.save();
    ctx.beginPath(); ctx.rect(p.left, p.top, p.right - p.left, p.bottom - p.top); ctx.clip();
    if (f.realTime && f.width > 0) drawPersistence(ctx, f, p);
    drawTraces(ctx, g, f);
    if (f.filled < f.bins) {
      // Where the sweep stands now.
      const x = g.x(f.startFreq + f.binSize * f.filled);
      ctx.strokeStyle = COLORS.sweep; ctx.globalAlpha = 0.5;
      ctx.beginPath(); ctx.moveTo(x, p.top); ctx.lineTo(x, p.bottom); ctx.stroke();
      ctx.globalAlpha = 1;
    }
    if (view.delta) marker(ctx, g, view.delta, COLORS.delta, 'D');
    if (view.nextPeak) marker(ctx, g, view.nextPeak, COLORS.next, '2');
    if (view.peak) marker(ctx, g, view.peak, COLORS.peak, '1');
    if (view.mouse) {
      ctx.strokeStyle = COLORS.mouse; ctx.setLineDash([3, 4]); ctx.globalAlpha = 0.6;
      const x = g.x(view.mouse.frequency);
      ctx.beginPath(); ctx.moveTo(x, p.top); ctx.lineTo(x, p.bottom); ctx.stroke();
      ctx.setLineDash([]); ctx.globalAlpha = 1;
      marker(ctx, g, view.mouse, COLORS.mouse, 'M');
    }
    ctx.restore();
  }

  // Settings around the graticule, as an instrument's screen shows them.
  function annotate(ctx, g, width, height) {
    const s = view.state && view.state.settings;
    if (!s) return;
    const p = g.plot;
    ctx.font = '12px "DejaVu Sans Mono", monospace';
    ctx.fillStyle = COLORS.label;
    ctx.textBaseline = 'bottom';
    ctx.textAlign = 'left';
    const perDiv = (g.top - g.bottom) / DIVISIONS;
    ctx.fillText(`Ref ${s.ref.toFixed(1)} dBm   ${perDiv.toFixed(0)} dB/div   ${s.detector === 'average' ? 'Average' : 'Min/max'}`
                 + `   ${s.reject ? 'Image rej on' : 'Image rej off'}`, p.left, p.top - 8);
    ctx.textAlign = 'right';
    ctx.fillText(`Unit ${String(s.serial).padStart(8, '0')}   ${s.mode === 'realtime' ? 'Real time' : 'Sweep'}`,
                 p.right, p.top - 8);
    ctx.textBaseline = 'bottom';
    ctx.textAlign = 'left';
    ctx.fillText(`Center ${formatHz(s.center, 6)}   RBW ${formatHz(s.rbw, 1)}   VBW ${formatHz(s.vbw, 1)}`,
                 p.left, height - 4);
    ctx.textAlign = 'right';
    const rate = view.sweepsPerSecond > 0 ? `   ${view.sweepsPerSecond.toFixed(1)} ${s.mode === 'realtime' ? 'frames' : 'sweeps'}/s` : '';
    ctx.fillText(`Span ${formatHz(s.span, 3)}${rate}`, p.right, height - 4);
  }

  // Per pixel column of the plot, the highest bin of `high` and the lowest of
  // `low`: a trace of more bins than pixels keeps every peak.
  function envelope(g, f, high, low) {
    const p = g.plot;
    const columns = Math.max(1, Math.round(p.right - p.left));
    const xs = [], his = [], los = [];
    if (f.bins <= columns) {
      for (let i = 0; i < f.bins; i++) {
        xs.push(g.x(f.startFreq + f.binSize * i)); his.push(high[i]); los.push(low[i]);
      }
      return { xs, his, los };
    }
    for (let c = 0; c < columns; c++) {
      const from = Math.floor(c * f.bins / columns), to = Math.floor((c + 1) * f.bins / columns);
      let hi = -Infinity, lo = Infinity;
      for (let i = from; i < to; i++) { hi = Math.max(hi, high[i]); lo = Math.min(lo, low[i]); }
      xs.push(p.left + c + 0.5); his.push(hi); los.push(lo);
    }
    return { xs, his, los };
  }

  // The band between the minimum and the maximum trace, and the maximum as a line.
  function drawTraces(ctx, g, f) {
    const e = envelope(g, f, f.max, f.realTime ? f.max : f.min);
    if (!f.realTime) {
      ctx.beginPath();
      for (let i = 0; i < e.xs.length; i++) ctx.lineTo(e.xs[i], g.y(e.his[i]));
      for (let i = e.xs.length - 1; i >= 0; i--) ctx.lineTo(e.xs[i], g.y(e.los[i]));
      ctx.closePath();
      ctx.fillStyle = COLORS.band;
      ctx.fill();
    }
    ctx.beginPath();
    for (let i = 0; i < e.xs.length; i++) ctx.lineTo(e.xs[i], g.y(e.his[i]));
    ctx.strokeStyle = COLORS.max;
    ctx.lineWidth = 1.25;
    ctx.stroke();
  }

  const persistence = document.createElement('canvas');
  function drawPersistence(ctx, f, p) {
    if (persistence.width !== f.width || persistence.height !== f.height) {
      persistence.width = f.width; persistence.height = f.height;
    }
    const pctx = persistence.getContext('2d');
    const image = pctx.createImageData(f.width, f.height);
    for (let row = 0; row < f.height; row++) {
      // Row 0 of the frame is the lowest level: the bottom of the picture.
      const source = row * f.width, target = (f.height - 1 - row) * f.width;
      for (let c = 0; c < f.width; c++) {
        const code = f.image[source + c];
        const o = 4 * (target + c);
        if (code === 0) continue;
        image.data[o] = PALETTE[code * 3]; image.data[o + 1] = PALETTE[code * 3 + 1];
        image.data[o + 2] = PALETTE[code * 3 + 2]; image.data[o + 3] = 255;
      }
    }
    pctx.putImageData(image, 0, 0);
    ctx.imageSmoothingEnabled = false;
    ctx.drawImage(persistence, p.left, p.top, p.right - p.left, p.bottom - p.top);
  }

  function marker(ctx, g, m, color, label) {
    const x = g.x(m.frequency), y = g.y(m.level);
    ctx.fillStyle = color;
    ctx.beginPath();
    ctx.moveTo(x, y - 2); ctx.lineTo(x - 6, y - 12); ctx.lineTo(x + 6, y - 12); ctx.closePath();
    ctx.fill();
    ctx.font = 'bold 11px "DejaVu Sans", sans-serif';
    ctx.textAlign = 'center'; ctx.textBaseline = 'bottom';
    ctx.fillText(label, x, y - 13);
  }

  // ---- waterfall ------------------------------------------------------------------

  const history = document.createElement('canvas');
  history.height = WATERFALL_ROWS;
  history.width = 1024;

  function clearWaterfall() {
    const hctx = history.getContext('2d');
    hctx.fillStyle = '#000004';
    hctx.fillRect(0, 0, history.width, history.height);
  }

  // The newest sweep becomes the top row; each column holds its strongest bin.
  function addWaterfallRow(f) {
    if (!view.state || f.bins === 0) return;
    const hctx = history.getContext('2d');
    hctx.drawImage(history, 0, 1);
    const row = hctx.createImageData(history.width, 1);
    const top = view.state.settings.ref, range = view.state.frameScale;
    for (let c = 0; c < history.width; c++) {
      const from = Math.floor(c * f.bins / history.width);
      const to = Math.max(from + 1, Math.floor((c + 1) * f.bins / history.width));
      let hi = -Infinity;
      for (let i = from; i < to; i++) hi = Math.max(hi, f.max[i]);
      const t = Math.min(255, Math.max(0, Math.round(255 * (hi - (top - range)) / range)));
      row.data[4 * c] = PALETTE[3 * t]; row.data[4 * c + 1] = PALETTE[3 * t + 1];
      row.data[4 * c + 2] = PALETTE[3 * t + 2]; row.data[4 * c + 3] = 255;
    }
    hctx.putImageData(row, 0, 0);
  }

  function drawWaterfall() {
    const { ctx, width, height } = context(waterfallCanvas);
    const g = geometry(width, height + 76);
    const p = g.plot;
    ctx.fillStyle = '#07090d';
    ctx.fillRect(0, 0, width, height);
    ctx.imageSmoothingEnabled = true;
    ctx.drawImage(history, p.left, 0, p.right - p.left, height - 16);
    ctx.strokeStyle = COLORS.axis;
    ctx.strokeRect(p.left + 0.5, 0.5, p.right - p.left - 1, height - 17);
    ctx.font = '11px "DejaVu Sans Mono", monospace';
    ctx.fillStyle = COLORS.text;
    ctx.textAlign = 'right'; ctx.textBaseline = 'top';
    ctx.fillText('now', p.left - 6, 2);
    ctx.textBaseline = 'bottom';
    ctx.fillText(`-${WATERFALL_ROWS}`, p.left - 6, height - 16);
    // The colour scale, from the bottom of the screen to the reference level.
    const barX = p.left, barW = 160, barY = height - 11;
    for (let i = 0; i < barW; i++) {
      const t = Math.round(255 * i / (barW - 1));
      ctx.fillStyle = `rgb(${PALETTE[3 * t]},${PALETTE[3 * t + 1]},${PALETTE[3 * t + 2]})`;
      ctx.fillRect(barX + i, barY, 1, 8);
    }
    if (view.state) {
      ctx.fillStyle = COLORS.text;
      ctx.textAlign = 'left'; ctx.textBaseline = 'bottom';
      const rows = view.state.settings.mode === 'realtime' ? 'frames' : 'sweeps';
      ctx.fillText(`${(g.bottom).toFixed(0)} … ${(g.top).toFixed(0)} dBm   last ${WATERFALL_ROWS} ${rows}`,
                   barX + barW + 8, height);
    }
  }

  // ---- markers -------------------------------------------------------------------

  // The marker on the maximum trace nearest to frequency `hz`.
  function onTrace(hz) {
    const f = view.frame;
    if (!f || f.bins === 0) return null;
    const i = Math.min(f.bins - 1, Math.max(0, Math.round((hz - f.startFreq) / f.binSize)));
    return { frequency: f.startFreq + f.binSize * i, level: f.max[i] };
  }

  function showMarkers() {
    const put = (id, m) => {
      $(`${id}-f`).textContent = m ? formatHz(m.frequency, 6) : '-';
      $(`${id}-l`).textContent = m ? m.level.toFixed(2) : '-';
    };
    if (view.mouse) view.mouse = onTrace(view.mouse.frequency);
    if (view.delta) view.delta = onTrace(view.delta.frequency);
    put('peak', view.peak);
    put('next', view.nextPeak);
    put('mouse', view.mouse);
    put('delta', view.delta);
    if (view.delta && view.peak) {
      const df = view.delta.frequency - view.peak.frequency;
      $('offset-f').textContent = `${df >= 0 ? '+' : '-'}${formatHz(Math.abs(df), 6)}`;
      $('offset-l').textContent = `${(view.delta.level - view.peak.level).toFixed(2)} dB`;
    } else {
      put('offset', null);
    }
  }

  function wireMarkers() {
    const at = (event) => {
      const rect = traceCanvas.getBoundingClientRect();
      const g = geometry(rect.width, rect.height);
      const x = event.clientX - rect.left;
      return x >= g.plot.left && x <= g.plot.right ? onTrace(g.hz(x)) : null;
    };
    traceCanvas.addEventListener('mousemove', (e) => { view.mouse = at(e); scheduleDraw(); });
    traceCanvas.addEventListener('mouseleave', () => { view.mouse = null; scheduleDraw(); });
    traceCanvas.addEventListener('click', (e) => { view.delta = at(e); scheduleDraw(); });
    traceCanvas.addEventListener('dblclick', () => { view.delta = null; scheduleDraw(); });
  }

  // ---- status line ---------------------------------------------------------------

  function showStatus() {
    const status = $('status');
    const parts = [];
    if (view.error) parts.push(`<span class="warn">${escapeHtml(view.error)}</span>`);
    if (view.frame && view.frame.status === 2 && view.state) {
      parts.push(`<span class="warn">${escapeHtml(view.state.compression)}</span>`);
    }
    if (view.frame) parts.push(`${view.frame.bins} bins`);
    status.innerHTML = parts.join('   ');
  }

  function escapeHtml(text) {
    return text.replace(/[&<>"']/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', "'": '&#39;' }[c]));
  }

  wireControls();
  wireMarkers();
  clearWaterfall();
  window.addEventListener('resize', scheduleDraw);
  refreshState(true).then(scheduleDraw);
  setInterval(() => refreshState(false), 2000);
  stream();
})();
