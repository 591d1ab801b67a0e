// The manager window in a real tray, as a person uses it: a second start brings it up on the
// showing bar, Ctrl+N adds a link through the editor and its icon appears, a drag puts a shortcut
// into a group and its icon leaves the tray, and each pane is photographed.
// Usage: node desktop_manager.mjs VANTOREL PREPARE_LIBRARY SCREENSHOT_FOLDER
import { execFileSync, spawnSync } from "node:child_process";
import { writeFileSync } from "node:fs";
import { join } from "node:path";
import assert from "node:assert/strict";
import { TraySession, requireTools, sleep, step } from "./tray_session.mjs";

const [vantorel, prepareLibrary, shots] = process.argv.slice(2);
requireTools();

const session = new TraySession("vantorel-manager-");
const { env } = session;
const until = (...args) => session.until(...args);
const x = (...args) => session.x(...args);
const iconsWhen = (count) => session.iconsWhen(count);
const notes = join(env.HOME, "notes.txt");
writeFileSync(notes, "shopping list\n");

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

try {
  await session.startDisplayAndTray("1280x800");

  execFileSync(prepareLibrary, [join(env.XDG_DATA_HOME, "Vantorel"), notes], { env });
  for (const [key, value] of [["welcomeShown", "true"], ["loginItemOffered", "true"]]) {
    execFileSync(vantorel, ["settings", "set", key, value], { env });
  }
  const app = await session.startApp(vantorel);
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
  const before = session.trayIcons().length;

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
  assert.equal(code, 0, session.log);
  step("quitting ended the app cleanly");
} finally {
  session.close();
}
