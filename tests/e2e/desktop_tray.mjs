// The desktop app in a real tray, as a person meets it: a display and a tray host are started, a
// prepared library shows its icons in order, a file shortcut opens through the default handler,
// a group pops its menu, and a bar chosen from the application's menu replaces the icons.
// Usage: node desktop_tray.mjs VANTOREL PREPARE_LIBRARY SCREENSHOT
import { execFileSync, spawn, spawnSync } from "node:child_process";
import { chmodSync, existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import assert from "node:assert/strict";

const [vantorel, prepareLibrary, screenshot] = process.argv.slice(2);
const needed = ["Xvfb", "trayer", "xdotool", "xwininfo", "import"];
const missing = needed.filter((tool) => spawnSync("sh", ["-c", `command -v ${tool}`]).status !== 0);
if (missing.length > 0) {
  // CTest reads 77 as skipped: scripts/deps.sh test installs these.
  console.log(`skipped: ${missing.join(", ")} not installed`);
  process.exit(77);
}

const root = mkdtempSync(join(tmpdir(), "vantorel-desktop-"));
const runtime = join(root, "run");
mkdirSync(runtime, { mode: 0o700 });
// Xvfb picks a free display itself and says which (-displayfd), so a run never meets another's.
let display = "";
const env = {
  PATH: process.env.PATH ?? "/usr/bin:/bin",
  HOME: join(root, "home"),
  XDG_RUNTIME_DIR: runtime,
  XDG_CONFIG_HOME: join(root, "config"),
  XDG_DATA_HOME: join(root, "data"),
  XDG_CACHE_HOME: join(root, "cache"),
  XDG_DATA_DIRS: "/usr/local/share:/usr/share",
  // No session bus: icons go to the XEmbed host started here.
  DBUS_SESSION_BUS_ADDRESS: "disabled:",
  QTWEBENGINE_DISABLE_SANDBOX: "1",
};
for (const folder of [env.HOME, env.XDG_CONFIG_HOME, env.XDG_DATA_HOME, env.XDG_CACHE_HOME]) {
  mkdirSync(folder, { recursive: true });
}

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

const step = (text) => console.log(`- ${text}`);
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
const until = async (test, what, limit = 10000) => {
  const start = Date.now();
  for (;;) {
    const value = test();
    if (value) return value;
    if (Date.now() - start > limit) throw new Error(`timed out: ${what}\n${log}`);
    await sleep(50);
  }
};
const x = (tool, ...args) => execFileSync(tool, args, { env, encoding: "utf8" });

// The window tree; empty when a window went away mid-query (icons come and go), to be asked again.
const tree = () => {
  const result = spawnSync("xwininfo", ["-root", "-tree"], { env, encoding: "utf8" });
  return result.status === 0 ? result.stdout : "";
};
// The icons docked in trayer's panel, left to right: its grandchildren that belong to the app.
const trayIcons = () => {
  const lines = tree().split("\n");
  const panel = lines.findIndex((line) => line.includes('("panel" "trayer")'));
  if (panel < 0) return [];
  const depth = (line) => line.length - line.trimStart().length;
  const icons = [];
  for (const line of lines.slice(panel + 1)) {
    if (line.trim() !== "" && depth(line) <= depth(lines[panel])) break;
    const found = line.match(/^\s*(0x[0-9a-f]+) "Vantorel".*\+(-?\d+)\+(-?\d+)\s*$/);
    if (found) icons.push({ id: found[1], x: Number(found[2]) });
  }
  return icons.sort((a, b) => a.x - b.x);
};
// Windows showing on the screen other than the tray's, to see a menu appear.
const popups = () =>
  spawnSync("xdotool", ["search", "--onlyvisible", "--class", "vantorel"], { env, encoding: "utf8" })
    .stdout.split("\n")
    .filter(Boolean);
const click = (icon, button) => x("xdotool", "mousemove", "--window", icon.id, "5", "5", "click", String(button));

const children = [];
const start = (command, args, extra = {}) => {
  const child = spawn(command, args, { env: { ...env, ...extra }, stdio: ["ignore", "pipe", "pipe"] });
  children.push(child);
  return child;
};

let log = "";
let app;
try {
  const xvfb = spawn("Xvfb", ["-displayfd", "3", "-screen", "0", "1024x600x24", "-nolisten", "tcp"],
                     { stdio: ["ignore", "ignore", "pipe", "pipe"] });
  children.push(xvfb);
  let number = "";
  xvfb.stdio[3].on("data", (chunk) => (number += chunk));
  await until(() => number.includes("\n"), "the display");
  display = `:${number.trim()}`;
  env.DISPLAY = display;
  start("trayer", ["--edge", "top", "--align", "right", "--widthtype", "request", "--height", "24",
                   "--transparent", "false", "--tint", "0x333333"]);
  await until(() => tree().includes('("panel" "trayer")'), "the tray");

  execFileSync(prepareLibrary, [join(env.XDG_DATA_HOME, "Vantorel"), notes], { env });
  // Past the first-launch offers, so nothing covers the tray.
  for (const [key, value] of [["welcomeShown", "true"], ["loginItemOffered", "true"]]) {
    execFileSync(vantorel, ["settings", "set", key, value], { env });
  }

  app = start(vantorel, []);
  app.stdout.on("data", (chunk) => (log += chunk));
  app.stderr.on("data", (chunk) => (log += chunk));
  await until(() => log.includes("Vantorel started"), "the app to start");

  // Three shortcuts and the application's own icon; the first shortcut stands leftmost.
  const iconsWhen = (count) => () => {
    const icons = trayIcons();
    return icons.length === count ? icons : null;
  };
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
  assert.equal(code, 0, log);
  assert.ok(!existsSync(join(runtime, "vantorel.sock")), "no socket left behind");
  step("quitting ended the app cleanly");
} finally {
  // Asked to end rather than killed, so Xvfb takes its lock file with it.
  for (const child of children.reverse()) {
    if (child.exitCode === null) child.kill("SIGTERM");
  }
  rmSync(root, { recursive: true, force: true });
}
