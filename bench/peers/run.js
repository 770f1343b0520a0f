// Times one node peer on a file and prints the mean seconds per run, which
// css_bench and html_bench read back through bench/node_peer.h.
//   node run.js TOOL FILE RUNS
// lightningcss: a style sheet transformed with minify. postcss: custom
// properties resolved and removed (preserve false), then calc() reduced, the
// nearest job to the library's process(). htmlparser2: the streaming parser
// with callbacks that count the elements.
'use strict';
const fs = require('fs');

const [tool, file, runsText] = process.argv.slice(2);
const runs = Math.max(1, Number(runsText) || 1);
const source = fs.readFileSync(file);

// Each maker returns a run() whose result is non-zero when the peer did work.
const tools = {
  lightningcss() {
    const { transform } = require('lightningcss');
    return () =>
      transform({ filename: 'corpus.css', code: source, minify: true, errorRecovery: true }).code
        .length;
  },
  postcss() {
    const postcss = require('postcss');
    const customProperties = require('postcss-custom-properties');
    const calc = require('postcss-calc');
    const pipeline = postcss([customProperties({ preserve: false }), calc()]);
    const text = source.toString('utf8');
    return () => pipeline.process(text, { from: undefined }).css.length;
  },
  htmlparser2() {
    const { Parser } = require('htmlparser2');
    const text = source.toString('utf8');
    return () => {
      let elements = 0;
      const count = () => { ++elements; };
      const parser = new Parser({
        onopentag: count, onclosetag: count, ontext: count, oncomment: count,
        onprocessinginstruction: count,
      });
      parser.write(text);
      parser.end();
      return elements;
    };
  },
};

if (!Object.hasOwn(tools, tool)) {
  console.error(`run.js: unknown tool '${tool}' (${Object.keys(tools).join(', ')})`);
  process.exit(2);
}
const run = tools[tool]();

run();  // warm up the JIT and the module caches
const start = process.hrtime.bigint();
let work = 0;
for (let i = 0; i < runs; ++i) work += run();
const seconds = Number(process.hrtime.bigint() - start) / 1e9 / runs;
if (work === 0) {
  console.error(`run.js: ${tool} did no work`);
  process.exit(1);
}
console.log(seconds.toFixed(9));
