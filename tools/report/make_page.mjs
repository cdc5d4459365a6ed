// Puts the page together and writes it as C++:  node make_page.mjs NODE_MODULES OUT.cpp
//
// Script and style go into the page whole, and its policy lets the browser run just these, by their
// digests: nothing that gets into the page through its data could run.
import { createHash } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";

const [modules, output] = process.argv.slice(2);
const here = dirname(fileURLToPath(import.meta.url));
const own = (name) => readFileSync(join(here, name), "utf8").trim();
const uplot = (name) => readFileSync(join(modules, "uplot", name), "utf8").trim();

const SCRIPTS = ["data.js", "time.js", "colours.js", "panels.js", "view.js", "player.js", "lists.js", "page.js"];

const licence = uplot("LICENSE");
const script = [
  `/* uPlot\n${licence}\n*/`,
  uplot("dist/uPlot.iife.min.js"),
  `(() => {\n"use strict";\n${SCRIPTS.map(own).join("\n\n")}\n})();`,
].join("\n");
const style = [uplot("dist/uPlot.min.css"), own("page.css")].join("\n");

for (const [name, text] of Object.entries({ script, style })) {
  if (/<\/|<!--|\r/.test(text)) {
    throw new Error(`the ${name} holds something that would end or change its element`);
  }
}
const digest = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;
const escape = (text) => text.replace(/&/g, "&amp;").replace(/</g, "&lt;");
const parts = {
  policy: `default-src 'none'; script-src ${digest(script)}; style-src ${digest(style)}; ` +
    "img-src data:; media-src blob:; base-uri 'none'; form-action 'none'",
  script,
  style,
  licence: escape(licence),
  uplot: JSON.parse(uplot("package.json")).version,
};
const page = own("page.html").replace(/@(policy|script|style|licence|uplot)@/g, (_, name) => parts[name]);
const [head, tail, ...more] = page.split("@data@");
if (tail === undefined || more.length > 0) {
  throw new Error("page.html must have one place for the data");
}

const array = (name, text) => {
  // As characters: whether char has a sign differs from machine to machine.
  const bytes = [...Buffer.from(text)].map((byte) => `'\\x${byte.toString(16)}'`);
  const lines = [];
  for (let i = 0; i < bytes.length; i += 16) {
    lines.push(bytes.slice(i, i + 16).join(","));
  }
  return `static const char ${name}Bytes[] = {\n${lines.join(",\n")}};\n` +
    `const std::string_view ${name}(${name}Bytes, sizeof(${name}Bytes));\n`;
};
writeFileSync(output, `// Made by make_page.mjs.
#include "tools/report/page_text.h"

namespace korvane::tool::report {
${array("kPageHead", head)}${array("kPageTail", `${tail}\n`)}}  // namespace korvane::tool::report
`);
