#!/usr/bin/env node
// korvane-vad FILE...: where somebody speaks in WAV files.
import { readFileSync } from "node:fs";
import { detect, readWav } from "./korvane-vad.js";

const HELP = `korvane-vad FILE...

Prints for each stretch of speech in WAV files when it begins, when it ends and how long it is, in seconds.
Several files: the name comes first.

  --json   one JSON object a line
  --help   this text`;

process.stdout.on("error", (error) => {
  if (error.code !== "EPIPE") { // then whoever reads has had enough
    console.error(`korvane-vad: ${error.message}`);
    process.exitCode = 1;
  }
  process.exit();
});

const words = process.argv.slice(2);
const options = words.filter((word) => word.startsWith("-"));
const files = words.filter((word) => !options.includes(word));
const unknown = options.find((word) => !["--json", "--help", "-h"].includes(word));
if (options.includes("--help") || options.includes("-h")) {
  console.log(HELP);
  process.exit();
}
if (unknown !== undefined || files.length === 0) {
  console.error(`korvane-vad: ${unknown === undefined ? "no file is named" : `there is no option ${unknown}`}; see --help`);
  process.exit(2);
}

for (const file of files) {
  try {
    for (const { start, end, open } of await detect(readWav(readFileSync(file)))) {
      const times = [start, end, end - start].map((seconds) => seconds.toFixed(3));
      console.log(options.includes("--json") ? JSON.stringify({ file, start, end, open }) :
        [...files.length > 1 ? [file] : [], ...times].join("\t"));
    }
  } catch (error) {
    console.error(`korvane-vad: ${file}: ${error.message}`);
    process.exitCode = 1;
  }
}
