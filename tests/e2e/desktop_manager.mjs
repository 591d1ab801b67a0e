// The manager window in a real tray, as a person uses it: a second start brings it up on the
// showing bar, Ctrl+N adds a link through the editor and its icon appears, a drag puts a shortcut
// into a group and its icon leaves the tray, and each pane is photographed. Widgets are found as a
// screen reader finds them (AT-SPI: role and name) and every step waits for what it caused.
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

const widget = (role, name) => session.widget(role, name);
const cell = (name) => () => widget("table cell", name);
// A visible top-level window of ours by its exact title.
const windowNamed = (title) =>
  spawnSync("xdotool", ["search", "--onlyvisible", "--name", `^${title}$`], { env, encoding: "utf8" })
    .stdout.split("\n").filter(Boolean)[0] ?? null;
const shoot = (name) => {
  const file = join(shots, name);
  x("import", "-window", "root", file);
  step(`screenshot ${file}`);
};

try {
  await session.startDisplayAndTray("1280x800");
  session.enableAccessibility();

  execFileSync(prepareLibrary, [join(env.XDG_DATA_HOME, "Vantorel"), notes], { env });
  for (const [key, value] of [["welcomeShown", "true"], ["loginItemOffered", "true"]]) {
    execFileSync(vantorel, ["settings", "set", key, value], { env });
  }
  const app = await session.startApp(vantorel);
  await until(iconsWhen(4), "four icons");
  step("Notes, Reading, Search and the application's icon are in the tray");

  // A second start hands over to the running one, which shows the manager.
  assert.equal(spawnSync(vantorel, [], { env }).status, 0);
  await until(() => windowNamed("Vantorel"), "the manager window");
  await until(cell("Search"), "the showing bar's outline");
  step("a second start brought up the manager on the showing bar");
  shoot("manager_bar.png");

  // Ctrl+N adds a link through the editor; saving puts its icon in the tray.
  session.click(await until(cell("Notes"), "the outline's first row"));
  await until(() => widget("table cell", "Notes")?.selected, "Notes to be selected");
  x("xdotool", "key", "ctrl+n");
  await until(() => windowNamed("New .*"), "the editor", 5000);
  // The name has the focus; the address is two fields on.
  await until(() => session.accessible().find((w) => w.role === "text" && w.focused), "the name field's focus");
  x("xdotool", "type", "--delay", "20", "News");
  x("xdotool", "key", "Tab", "Tab");
  x("xdotool", "type", "--delay", "20", "https://news.example.org/");
  await until(() => widget("text", "https://news.example.org/"), "the address typed in");
  shoot("manager_editor.png");
  x("xdotool", "key", "Return");
  await until(iconsWhen(5), "the new link's icon");
  await until(cell("News"), "News in the outline");
  step("the editor added News and its icon appeared in the tray");
  const before = session.trayIcons().length;

  // Search dragged onto Reading goes into the group, and its icon leaves the tray. Qt starts a drag
  // only once it has handled the press and a move past the drag distance, so the moves are paced.
  const from = await until(cell("Search"), "Search's row");
  const onto = await until(cell("Reading"), "Reading's row");
  const middle = (w) => ({ x: w.x + Math.floor(w.width / 2), y: w.y + Math.floor(w.height / 2) });
  const [a, b] = [middle(from), middle(onto)];
  x("xdotool", "mousemove", String(a.x), String(a.y), "mousedown", "1");
  for (const part of [0.25, 0.5, 0.75, 0.9, 1]) {
    await sleep(100);
    x("xdotool", "mousemove", String(a.x + 4), String(Math.round(a.y + (b.y - a.y) * part)));
  }
  await sleep(100);
  x("xdotool", "mouseup", "1");
  await until(iconsWhen(before - 1), "Search to leave the tray");
  await until(cell("Group · 3 shortcuts"), "Reading to count three shortcuts");
  step("dragging Search onto Reading put it in the group and took its icon out of the tray");
  shoot("manager_dragged.png");

  // Each pane, chosen in the sidebar below the two bars, photographed once its own widgets show.
  let shown = new Set(session.accessible().map((w) => `${w.role}:${w.name}`));
  for (const name of ["Accounts", "Proposals", "Settings", "About"]) {
    session.click(await until(() => widget("list item", name), `the sidebar's ${name}`));
    await until(() => {
      const now = session.accessible();
      const fresh = now.some((w) => !shown.has(`${w.role}:${w.name}`));
      if (!fresh || !now.find((w) => w.role === "list item" && w.name === name)?.selected) return false;
      shown = new Set(now.map((w) => `${w.role}:${w.name}`));
      return true;
    }, `the ${name} pane`);
    shoot(`manager_${name.toLowerCase()}.png`);
  }

  app.kill("SIGTERM");
  const code = await new Promise((resolve) => app.on("exit", (c) => resolve(c)));
  assert.equal(code, 0, session.log);
  step("quitting ended the app cleanly");
} finally {
  session.close();
}
