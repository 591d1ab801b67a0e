// The desktop app in a real tray, as a person meets it: a display and a tray host are started, a
// prepared library shows its icons in order, a file shortcut opens through the default handler,
// a group pops its menu, the pointer on a page's icon starts the web engine, and a bar chosen
// from the application's menu replaces the icons.
// Usage: node desktop_tray.mjs VANTOREL PREPARE_LIBRARY SCREENSHOT
import { execFileSync, spawnSync } from "node:child_process";
import { chmodSync, existsSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import assert from "node:assert/strict";
import { TraySession, requireTools, step } from "./tray_session.mjs";

const [vantorel, prepareLibrary, screenshot] = process.argv.slice(2);
requireTools();

const session = new TraySession("vantorel-desktop-");
const { env, root } = session;
const until = (...args) => session.until(...args);
const x = (...args) => session.x(...args);
const iconsWhen = (count) => session.iconsWhen(count);

// The default handler of plain text in this home writes a marker saying what it was asked to open.
const marker = join(root, "opened.txt");
const notes = join(env.HOME, "notes.txt");
writeFileSync(notes, "shopping list\n");
const handler = join(root, "handler.sh");
writeFileSync(handler, `#!/bin/sh\nprintf '%s' "$1" > '${marker}'\n`);
chmodSync(handler, 0o755);
mkdirSync(join(env.XDG_DATA_HOME, "applications"), { recursive: true });
writeFileSync(
  join(env.XDG_DATA_HOME, "applications", "marker-handler.desktop"),
  `[Desktop Entry]\nType=Application\nName=Marker\nExec=${handler} %f\nMimeType=text/plain;\n`,
);
writeFileSync(
  join(env.XDG_CONFIG_HOME, "mimeapps.list"),
  "[Default Applications]\ntext/plain=marker-handler.desktop\n",
);

// Windows showing on the screen other than the tray's, to see a menu appear.
const popups = () =>
  spawnSync("xdotool", ["search", "--onlyvisible", "--class", "vantorel"], { env, encoding: "utf8" })
    .stdout.split("\n")
    .filter(Boolean);
const click = (icon, button) => x("xdotool", "mousemove", "--window", icon.id, "5", "5", "click", String(button));

let app;
try {
  await session.startDisplayAndTray("1024x600");

  execFileSync(prepareLibrary, [join(env.XDG_DATA_HOME, "Vantorel"), notes], { env });
  // Past the first-launch offers, so nothing covers the tray.
  for (const [key, value] of [["welcomeShown", "true"], ["loginItemOffered", "true"]]) {
    execFileSync(vantorel, ["settings", "set", key, value], { env });
  }

  app = await session.startApp(vantorel);

  // Three shortcuts and the application's own icon; the first shortcut stands leftmost.
  let icons = await until(iconsWhen(4), "four icons");
  step(`four icons in the tray at x = ${icons.map((icon) => icon.x).join(", ")}`);

  click(icons[0], 1);
  await until(() => existsSync(marker), "the file to open");
  assert.equal(readFileSync(marker, "utf8"), notes);
  step("the leftmost icon, Notes, opened its file through the default handler");

  const before = popups().length;
  click(icons[1], 1);
  await until(() => popups().length > before, "the group's menu");
  step("the second icon, Reading, popped its menu");
  x("xdotool", "key", "Escape");
  await until(() => popups().length === before, "the menu to close");

  // A pointer resting on a page's icon starts the web engine, so the click that follows is quick;
  // nothing is loaded until that click. The file's and the group's icons, visited above, did not.
  assert.ok(!session.log.includes("web engine loaded"), "the engine started for a file or a group");
  x("xdotool", "mousemove", "--window", icons[2].id, "5", "5");
  await until(() => session.log.includes("web engine loaded"), "the engine to start on hover", 60000);
  assert.ok(!session.log.includes("first page loaded"), "no page loads on hover");
  x("xdotool", "mousemove", "0", "300");
  step("resting the pointer on Search started the web engine and loaded no page");

  x("import", "-window", "root", screenshot);
  step(`screenshot saved to ${screenshot}`);

  // The application's icon stands right of the shortcuts; its menu starts with the bars.
  click(icons[3], 1);
  await until(() => popups().length > before, "the application menu");
  x("xdotool", "key", "Down", "Down", "Return");
  icons = await until(iconsWhen(3), "the Home bar's icons");
  step("choosing Home in the application menu left its two icons and the application's");

  app.kill("SIGTERM");
  const code = await new Promise((resolve) => app.on("exit", (c) => resolve(c)));
  assert.equal(code, 0, session.log);
  assert.ok(!existsSync(join(env.XDG_RUNTIME_DIR, "vantorel.sock")), "no socket left behind");
  step("quitting ended the app cleanly");
} finally {
  session.close();
}
