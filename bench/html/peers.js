// Times htmlparser2's streaming parser on a file, with callbacks that count
// the elements, and prints the mean seconds per run.
//   node peers.js FILE RUNS
'use strict';
const fs = require('fs');
const { Parser } = require('htmlparser2');

const [file, runsText] = process.argv.slice(2);
const runs = Math.max(1, Number(runsText) || 1);
const text = fs.readFileSync(file).toString('utf8');

function run() {
  let elements = 0;
  const count = () => { ++elements; };
  const parser = new Parser({
    onopentag: count, onclosetag: count, ontext: count, oncomment: count,
    onprocessinginstruction: count,
  });
  parser.write(text);
  parser.end();
  return elements;
}

run();  // warm up the JIT
const start = process.hrtime.bigint();
let elements = 0;
for (let i = 0; i < runs; ++i) elements += run();
const seconds = Number(process.hrtime.bigint() - start) / 1e9 / runs;
if (elements === 0) {
  console.error('peers.js: no elements seen');
  process.exit(1);
}
console.log(seconds.toFixed(9));
