// Runs a WebAssembly program that asks for nothing but WASI: node run.mjs PROGRAM [ARGUMENT...]
import { readFileSync } from "node:fs";
import { WASI } from "node:wasi";

const wasi = new WASI({ version: "preview1", args: process.argv.slice(2) });
const module = await WebAssembly.compile(readFileSync(process.argv[2]));
// Not getImportObject(), which Node.js 18 has not.
const instance = await WebAssembly.instantiate(module, { wasi_snapshot_preview1: wasi.wasiImport });
process.exitCode = wasi.start(instance);
