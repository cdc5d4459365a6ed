// Puts the demo together: node make_page.mjs SCRIPT OUT.html
//
// Script and style go into the page whole. Its policy lets the browser run these by their digests, and fetch nothing.
import { createHash } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";

const [from, output] = process.argv.slice(2);
const own = (name) => readFileSync(new URL(name, import.meta.url), "utf8").trim();
const script = readFileSync(from, "utf8").trim();
const style = own("page.css");
for (const [name, text] of Object.entries({ script, style })) {
  if (/<\/|<!--|\r/.test(text)) {
    throw new Error(`the ${name} holds something that would end or change its element`);
  }
}
const digest = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;
const parts = {
  policy: `default-src 'none'; script-src ${digest(script)} 'wasm-unsafe-eval' blob: data:; style-src ${digest(style)}; ` +
    "img-src data:; media-src blob:; base-uri 'none'; form-action 'none'",
  script,
  style,
};
writeFileSync(output, `${own("page.html").replace(/@(policy|script|style)@/g, (_, name) => parts[name])}\n`);
