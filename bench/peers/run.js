// Times a peer on a style sheet and prints the mean seconds per run.
//   node peers.js lightningcss|postcss FILE RUNS
// lightningcss: transform with minify. postcss: custom properties resolved
// and removed (preserve false), then calc() reduced: the nearest job to the
// library's process().
'use strict';
const fs = require('fs');

const [tool, file, runsText] = process.argv.slice(2);
const runs = Math.max(1, Number(runsText) || 1);
const source = fs.readFileSync(file);

let run;
if (tool === 'lightningcss') {
  const { transform } = require('lightningcss');
  run = () => transform({ filename: 'corpus.css', code: source, minify: true, errorRecovery: true }).code;
} else if (tool === 'postcss') {
  const postcss = require('postcss');
  const customProperties = require('postcss-custom-properties');
  const calc = require('postcss-calc');
  const pipeline = postcss([customProperties({ preserve: false }), calc()]);
  const text = source.toString('utf8');
  run = () => pipeline.process(text, { from: undefined }).css;
} else {
  console.error(`peers.js: unknown tool '${tool}'`);
  process.exit(2);
}

run();  // warm up the JIT and the module caches
const start = process.hrtime.bigint();
let bytes = 0;
for (let i = 0; i < runs; ++i) bytes += run().length;
const seconds = Number(process.hrtime.bigint() - start) / 1e9 / runs;
if (bytes === 0) {
  console.error('peers.js: the peer produced no output');
  process.exit(1);
}
console.log(seconds.toFixed(9));
