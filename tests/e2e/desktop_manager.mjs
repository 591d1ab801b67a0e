// The manager window in a real tray, as a person uses it: a second start brings it up on the
// showing bar, Ctrl+N adds a link through the editor and its icon appears, a drag puts a shortcut
// into a group and its icon leaves the tray, and each pane is photographed.
// Usage: node desktop_manager.mjs VANTOREL PREPARE_LIBRARY SCREENSHOT_FOLDER
import { execFileSync, spawn, spawnSync } from "node:child_process";
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import assert from "node:assert/strict";

const [vantorel, prepareLibrary, shots] = process.argv.slice(2);
const needed = ["Xvfb", "trayer", "xdotool", "xwininfo", "import"];
const missing = needed.filter((tool) => spawnSync("sh", ["-c", `command -v ${tool}`]).status !== 0);
if (missing.length > 0) {
  console.log(`skipped: ${missing.join(", ")} not installed`);
  process.exit(77);
}

const root = mkdtempSync(join(tmpdir(), "vantorel-manager-"));
const runtime = join(root, "run");
mkdirSync(runtime, { mode: 0o700 });
const env = {
  PATH: process.env.PATH ?? "/usr/bin:/bin",
  HOME: join(root, "home"),
  XDG_RUNTIME_DIR: runtime,
  XDG_CONFIG_HOME: join(root, "config"),
  XDG_DATA_HOME: join(root, "data"),
  XDG_CACHE_HOME: join(root, "cache"),
  XDG_DATA_DIRS: "/usr/local/share:/usr/share",
  DBUS_SESSION_BUS_ADDRESS: "disabled:",
  QTWEBENGINE_DISABLE_SANDBOX: "1",
};
for (const folder of [env.HOME, env.XDG_CONFIG_HOME, env.XDG_DATA_HOME, env.XDG_CACHE_HOME]) {
  mkdirSync(folder, { recursive: true });
}
const notes = join(env.HOME, "notes.txt");
writeFileSync(notes, "shopping list\n");

const step = (text) => console.log(`- ${text}`);
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
let log = "";
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
const tree = () => {
  const result = spawnSync("xwininfo", ["-root", "-tree"], { env, encoding: "utf8" });
  return result.status === 0 ? result.stdout : "";
};
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
const iconsWhen = (count) => () => {
  const icons = trayIcons();
  return icons.length === count ? icons : null;
};
// A visible top-level window of ours by its exact title, and where it stands.
const windowNamed = (title) => {
  const found = spawnSync("xdotool", ["search", "--onlyvisible", "--name", `^${title}$`], {
    env,
    encoding: "utf8",
  }).stdout.split("\n").filter(Boolean);
  if (found.length === 0) return null;
  const shell = x("xdotool", "getwindowgeometry", "--shell", found[0]);
  const value = (key) => Number(shell.match(new RegExp(`${key}=(-?\\d+)`))[1]);
  return { id: found[0], x: value("X"), y: value("Y"), width: value("WIDTH") };
};
const shoot = (name) => {
  const file = join(shots, name);
  x("import", "-window", "root", file);
  step(`screenshot ${file}`);
};

const children = [];
const start = (command, args) => {
  const child = spawn(command, args, { env, stdio: ["ignore", "pipe", "pipe"] });
  children.push(child);
  return child;
};

try {
  const xvfb = spawn("Xvfb", ["-displayfd", "3", "-screen", "0", "1280x800x24", "-nolisten", "tcp"],
                     { stdio: ["ignore", "ignore", "pipe", "pipe"] });
  children.push(xvfb);
  let number = "";
  xvfb.stdio[3].on("data", (chunk) => (number += chunk));
  await until(() => number.includes("\n"), "the display");
  env.DISPLAY = `:${number.trim()}`;
  start("trayer", ["--edge", "top", "--align", "right", "--widthtype", "request", "--height", "24",
                   "--transparent", "false", "--tint", "0x333333"]);
  await until(() => tree().includes('("panel" "trayer")'), "the tray");

  execFileSync(prepareLibrary, [join(env.XDG_DATA_HOME, "Vantorel"), notes], { env });
  for (const [key, value] of [["welcomeShown", "true"], ["loginItemOffered", "true"]]) {
    execFileSync(vantorel, ["settings", "set", key, value], { env });
  }
  const app = start(vantorel, []);
  app.stdout.on("data", (chunk) => (log += chunk));
  app.stderr.on("data", (chunk) => (log += chunk));
  await until(() => log.includes("Vantorel started"), "the app to start");
  await until(iconsWhen(4), "four icons");
  step("Notes, Reading, Search and the application's icon are in the tray");

  // A second start hands over to the running one, which shows the manager.
  assert.equal(spawnSync(vantorel, [], { env }).status, 0);
  const manager = await until(() => windowNamed("Vantorel"), "the manager window");
  step(`a second start brought up the manager at ${manager.x},${manager.y}`);
  await sleep(300);
  shoot("manager_bar.png");

  // Rows of the outline, from the window's corner: Notes, Reading, Search.
  const row = (n) => ({ x: manager.x + 300, y: manager.y + 114 + 18 * n });

  // Ctrl+N adds a link through the editor; saving puts its icon in the tray.
  x("xdotool", "mousemove", String(row(0).x), String(row(0).y), "click", "1");
  x("xdotool", "key", "ctrl+n");
  await until(() => windowNamed("New .*"), "the editor", 5000);
  await sleep(300);
  // The name has the focus; the address is two fields on.
  x("xdotool", "type", "--delay", "20", "News");
  x("xdotool", "key", "Tab", "Tab");
  x("xdotool", "type", "--delay", "20", "https://news.example.org/");
  await sleep(300);
  shoot("manager_editor.png");
  x("xdotool", "key", "Return");
  await until(iconsWhen(5), "the new link's icon");
  step("the editor added News and its icon appeared in the tray");
  const before = trayIcons().length;

  // Search dragged onto Reading goes into the group, and its icon leaves the tray.
  const from = row(2);
  const onto = row(1);
  x("xdotool", "mousemove", String(from.x), String(from.y), "mousedown", "1");
  for (const dy of [-4, -10, -16, -18]) {
    await sleep(150);
    x("xdotool", "mousemove", String(from.x + 4), String(from.y + dy));
  }
  await sleep(300);
  x("xdotool", "mousemove", String(onto.x + 5), String(onto.y));
  await sleep(300);
  x("xdotool", "mouseup", "1");
  await until(iconsWhen(before - 1), "Search to leave the tray");
  step("dragging Search onto Reading put it in the group and took its icon out of the tray");
  await sleep(300);
  shoot("manager_dragged.png");

  // Each pane, chosen in the sidebar below the two bars.
  for (const [name, y] of [["sessions", 82], ["proposals", 110], ["settings", 138], ["about", 166]]) {
    x("xdotool", "mousemove", String(manager.x + 60), String(manager.y + y), "click", "1");
    await sleep(400);
    shoot(`manager_${name}.png`);
  }

  app.kill("SIGTERM");
  const code = await new Promise((resolve) => app.on("exit", (c) => resolve(c)));
  assert.equal(code, 0, log);
  step("quitting ended the app cleanly");
} finally {
  for (const child of children.reverse()) {
    if (child.exitCode === null) child.kill("SIGTERM");
  }
  rmSync(root, { recursive: true, force: true });
}
