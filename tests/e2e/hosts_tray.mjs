// The icons on a real panel, read as a person reads them: from a screenshot. A bar of a red, a
// green and a blue tinted symbol, a hidden shortcut and a divider shows on the host, then
// Vantorel's own icon; one left click opens the red icon's page under it; the shortcut's own menu
// opens where the host allows it; the wheel over an icon switches bars and back, in order.
// Hosts: trayer (XEmbed), xfce (the Xfce panel's notification area, StatusNotifierItem) and
// gnome (GNOME Shell with its AppIndicator extension, X11 on Xvfb). On each, every glyph drawn in
// the panel's colour (a symbol, letters, the divider, Vantorel's own icon) must stand out from the
// panel pixels around it by a contrast of 4.5:1 or more; trayer is tried with a dark tint, then
// restarted with a light one, which docks the icons anew.
// Usage: node hosts_tray.mjs HOST VANTOREL PREPARE_LIBRARY SCREENSHOT_FOLDER
import { execFileSync, spawnSync } from "node:child_process";
import { mkdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import assert from "node:assert/strict";
import { TraySession, requireTools, step } from "./tray_session.mjs";

const [host, vantorel, prepareLibrary, shots] = process.argv.slice(2);
const hostTools = { trayer: ["trayer"], xfce: ["xfce4-panel"], gnome: ["gnome-shell"] };
requireTools(["Xvfb", "xdotool", "import", "convert", "dbus-daemon", ...hostTools[host]]);

const width = 1024;
const session = new TraySession(`vantorel-${host}-`);
const { env, root } = session;
const until = (...args) => session.until(...args);
const x = (...args) => session.x(...args);

// The top strip of the screen as rows of [r, g, b].
function strip(height = 34) {
  const raw = execFileSync("import", ["-window", "root", "-crop", `${width}x${height}+0+0`,
                                      "-depth", "8", "rgb:-"], { env, maxBuffer: 1 << 24 });
  return { raw, height };
}

const kinds = {
  red: ([r, g, b]) => r > 170 && g < 90 && b < 90,
  green: ([r, g, b]) => g > 150 && r < 110 && b < 170 && b > 60,
  blue: ([r, g, b]) => b > 170 && r < 90 && g < 150,
};

// The horizontal centre of each tinted icon in the strip; none for a colour not there.
function tintedIcons() {
  const { raw, height } = strip();
  const found = {};
  for (const [name, test] of Object.entries(kinds)) {
    let sum = 0;
    let count = 0;
    let min = width;
    let max = 0;
    for (let y = 0; y < height; ++y) {
      for (let px = 0; px < width; ++px) {
        const at = (y * width + px) * 3;
        if (test([raw[at], raw[at + 1], raw[at + 2]])) {
          sum += px;
          ++count;
          min = Math.min(min, px);
          max = Math.max(max, px);
        }
      }
    }
    if (count >= 12) found[name] = { x: Math.round(sum / count), min, max, count };
  }
  return found;
}

// Columns right of `from` holding anything other than the panel's own colour, as runs.
function shapesRightOf(from, limit = 120) {
  const { raw, height } = strip();
  const background = [raw[(5 * width + from) * 3], raw[(5 * width + from) * 3 + 1],
                      raw[(5 * width + from) * 3 + 2]];
  const columns = [];
  for (let px = from; px < Math.min(width, from + limit); ++px) {
    let ink = 0;
    // The band every panel here draws its icons in, clear of its lower edge.
    for (let y = 4; y < Math.min(height, 24); ++y) {
      const at = (y * width + px) * 3;
      const d = Math.abs(raw[at] - background[0]) + Math.abs(raw[at + 1] - background[1])
                + Math.abs(raw[at + 2] - background[2]);
      // Faint on purpose: a dark symbol on a dark bar differs from it by little.
      if (d > 15) ++ink;
    }
    columns.push(ink > 1);
  }
  const runs = [];
  columns.forEach((on, i) => {
    if (on && (i === 0 || !columns[i - 1])) runs.push({ from: from + i, to: from + i });
    if (on) runs[runs.length - 1].to = from + i;
  });
  return runs;
}

// WCAG contrast of two [r, g, b] colours.
function luminance([r, g, b]) {
  const linear = (v) => ((v /= 255) <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
  return 0.2126 * linear(r) + 0.7152 * linear(g) + 0.0722 * linear(b);
}
function contrast(a, b) {
  const [high, low] = [luminance(a), luminance(b)].sort((p, q) => q - p);
  return (high + 0.05) / (low + 0.05);
}

// Each icon's glyph with its contrast against the panel pixels around it: icons stand at a
// regular pitch, so each gets the cell of that width around its centre. The glyph's contrast is
// the one most of its ink reaches (the 85th percentile of its pixels that differ from the panel),
// so anti-aliased edges do not count against it and a stray pixel does not carry it.
function glyphContrasts(centres, pitch) {
  const { raw } = strip();
  const pixel = (px, y) => { const at = (y * width + px) * 3; return [raw[at], raw[at + 1], raw[at + 2]]; };
  const rows = [2, 24];
  const glyphs = [];
  for (const centre of centres) {
    const from = Math.max(0, Math.round(centre - pitch / 2));
    const to = Math.min(width, Math.round(centre + pitch / 2));
    const cell = [];
    for (let y = rows[0]; y < rows[1]; ++y) for (let px = from; px < to; ++px) cell.push(pixel(px, y));
    // The panel is the colour the cell shows most: a glyph covers the lesser part of its square,
    // and panels here are flat.
    const counts = new Map();
    for (const c of cell) counts.set(c.join(","), (counts.get(c.join(",")) ?? 0) + 1);
    const panel = [...counts.entries()].sort((a, b) => b[1] - a[1])[0][0].split(",").map(Number);
    const ratios = [];
    let tinted = 0;
    for (const c of cell) {
      if (Object.values(kinds).some((test) => test(c))) ++tinted;
      const r = contrast(c, panel);
      if (r > 1.15) ratios.push(r);
    }
    if (ratios.length < 6) continue;
    ratios.sort((a, b) => a - b);
    const ratio = ratios[Math.floor(ratios.length * 0.85)];
    glyphs.push({ from, to, ratio: Math.round(ratio * 100) / 100, tinted: tinted >= 12,
                  ink: ratios.length, panel });
  }
  return glyphs;
}

// Waits until every untinted glyph around the tinted icons reads, and says what was measured.
async function checkContrast(what) {
  let measured = [];
  const readable = () => {
    const icons = inOrder();
    if (!icons) return null;
    const pitch = (icons.blue.x - icons.red.x) / 2;
    // Mail and the letters before red; the divider and Vantorel's own icon after blue.
    const centres = [-2, -1, 0, 1, 2, 3, 4].map((k) => icons.red.x + k * pitch);
    measured = glyphContrasts(centres, pitch);
    const ours = measured.filter((g) => !g.tinted);
    return ours.length >= 3 && ours.every((g) => g.ratio >= 4.5) ? measured : null;
  };
  await until(readable, `${what}: every untinted glyph at 4.5:1 or more`, 15000).catch(() => {
    shot(`contrast_${what.replace(/\W+/g, "_")}_failed`);
    const list = measured.map((g) => `${g.from}-${g.to}${g.tinted ? " (tinted)" : ""}: ${g.ratio}`);
    assert.fail(`${what}: glyph contrasts ${list.join(", ")}`);
  });
  const panel = measured[0]?.panel ?? [];
  step(`${what}: panel rgb(${panel.join(",")}), glyph contrasts `
       + measured.map((g) => `${g.from}-${g.to}${g.tinted ? " tinted" : ""} ${g.ratio}:1`).join(", "));
  return measured;
}

const inOrder = () => {
  const icons = tintedIcons();
  return icons.red && icons.green && icons.blue && icons.red.x < icons.green.x
         && icons.green.x < icons.blue.x ? icons : null;
};

// Differing pixels between two screenshots of a region.
function changedPixels(before, after) {
  const result = spawnSync("compare", ["-metric", "AE", "-fuzz", "10%", before, after, "null:"],
                           { env, encoding: "utf8" });
  return Number((result.stderr || "0").trim().split(" ")[0]) || 0;
}
const shot = (name, region) => {
  const file = join(shots, `${host}_${name}.png`);
  x("import", "-window", "root", ...(region ? ["-crop", region] : []), file);
  return file;
};
const visibleWindows = (name) =>
  spawnSync("xdotool", ["search", "--onlyvisible", "--name", name], { env, encoding: "utf8" })
    .stdout.split("\n").filter(Boolean);

async function startHost() {
  if (host === "trayer") {
    await session.startDisplayAndTray(`${width}x900`, "0x333333");
    return;
  }
  if (host === "xfce") {
    await session.startDisplay(`${width}x900`);
    session.startBus();
    const channel = join(env.XDG_CONFIG_HOME, "xfce4", "xfconf", "xfce-perchannel-xml");
    mkdirSync(channel, { recursive: true });
    writeFileSync(join(channel, "xfce4-panel.xml"), `<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="28"/>
      <property name="plugin-ids" type="array"><value type="int" value="1"/></property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="systray"/>
  </property>
</channel>
`);
    const panel = session.start("xfce4-panel", ["--disable-wm-check"]);
    panel.stderr.on("data", (chunk) => (session.log += chunk));
    await until(() => ownerOf("org.kde.StatusNotifierWatcher"), "the panel's watcher", 30000);
    return;
  }
  await session.startDisplay(`${width}x900`, ["+extension", "GLX"]);
  session.startBus();
  session.startBus("system", "DBUS_SYSTEM_BUS_ADDRESS");
  const gsettings = (...args) => execFileSync("gsettings", args, { env });
  Object.assign(env, { XDG_SESSION_TYPE: "x11", XDG_CURRENT_DESKTOP: "GNOME",
                       GSETTINGS_BACKEND: "keyfile" });
  gsettings("set", "org.gnome.shell", "enabled-extensions", "['ubuntu-appindicators@ubuntu.com']");
  gsettings("set", "org.gnome.shell", "disable-user-extensions", "false");
  gsettings("set", "org.gnome.shell", "welcome-dialog-last-shown-version", "'9999'");
  const shell = session.start("gnome-shell", ["--x11", "--replace", "--sm-disable"]);
  shell.stderr.on("data", (chunk) => (session.gnomeLog = (session.gnomeLog ?? "") + chunk));
  await until(() => ownerOf("org.kde.StatusNotifierWatcher"), "the extension's watcher", 60000);
}

// GNOME starts in its overview, where windows are not drawn; a person's first key leaves it. The
// overview is the only time the screen's left edge below the bar is the shell's dark grey.
async function leaveOverview() {
  const pixel = () => {
    const raw = execFileSync("import", ["-window", "root", "-crop", "1x1+20+400", "-depth", "8",
                                        "rgb:-"], { env });
    return [raw[0], raw[1], raw[2]];
  };
  await until(() => {
    const [r, g, b] = pixel();
    if (Math.abs(r - g) < 8 && Math.abs(g - b) < 8 && r < 80) {
      spawnSync("xdotool", ["key", "Escape"], { env });
      return false;
    }
    return true;
  }, "the overview to close", 60000);
}

function ownerOf(name) {
  const result = spawnSync("dbus-send", ["--session", "--print-reply", "--dest=org.freedesktop.DBus",
                                         "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner",
                                         `string:${name}`], { env, encoding: "utf8" });
  return result.stdout.includes("boolean true");
}

let app;
try {
  await startHost();
  step(`${host} is up`);

  const page = join(env.HOME, "page.html");
  writeFileSync(page, "<!doctype html><title>Page</title><body style='background:#fff'>A page");
  execFileSync(prepareLibrary, [join(env.XDG_DATA_HOME, "Vantorel"), page, "hosts"], { env });
  for (const [key, value] of [["welcomeShown", "true"], ["loginItemOffered", "true"]]) {
    execFileSync(vantorel, ["settings", "set", key, value], { env });
  }
  const started = Date.now();
  app = await session.startApp(vantorel);

  // GNOME answers a registration only once its start-up is over, which is slow on Xvfb.
  const icons = await until(inOrder, "red, green and blue icons in order",
                            host === "gnome" ? 120000 : 30000);
  if (host === "gnome") await leaveOverview();
  step(`red, green, blue stand left to right at x = ${icons.red.x}, ${icons.green.x}, `
       + `${icons.blue.x} (${Date.now() - started} ms after the start)`);
  // Right of blue: the divider's thin line, then Vantorel's own icon. Both are drawn for a light
  // bar, so on GNOME's dark one the line may be too faint to find: the icon must be there.
  const after = await until(() => {
    const shapes = shapesRightOf(icons.blue.max + 3, 100);
    return shapes.length >= 1 ? shapes : null;
  }, "Vantorel's icon right of blue", 10000);
  step(`right of blue: ${after.map((s) => `${s.from}-${s.to}`).join(", ")} `
       + `(the divider where it shows, then Vantorel's own icon)`);
  if (after.length >= 2) {
    assert.ok(after[0].to - after[0].from <= 4, "the first shape right of blue is a thin divider");
  }
  shot("icons");
  await checkContrast(host === "trayer" ? "trayer, dark tint" : host);
  shot("contrast");

  // One left click on the red icon opens its page, hanging under the icon.
  const iconSide = icons.red.max - icons.red.min + 1;
  x("xdotool", "mousemove", String(icons.red.x), "14", "click", "1");
  let pageWindow = await until(() => visibleWindows("Red")[0]
                                     ?? (host === "gnome" ? null : undefined), "a first response",
                               host === "gnome" ? 1500 : 15000).catch(() => null);
  if (!pageWindow && host === "gnome") {
    // The extension opens an item's menu on a single click; "Open" is its first row.
    shot("menu");
    x("xdotool", "key", "Down", "Return");
    step("GNOME: the click opened the icon's menu; Open, its first row, was chosen");
  }
  pageWindow = await until(() => visibleWindows("Red")[0], "the red icon's page", 60000);
  const geometry = x("xdotool", "getwindowgeometry", pageWindow);
  const [, left, top] = geometry.match(/Position: (-?\d+),(-?\d+)/).map(Number);
  const [, pageWidth, pageHeight] = geometry.match(/Geometry: (\d+)x(\d+)/).map(Number);
  // Drawn, not only mapped: the page is white. Read at its middle: GNOME's first banner ("Screen
  // Lock disabled") drops over the top of the screen a few seconds after the shell starts.
  const middle = `1x1+${left + Math.floor(pageWidth / 2)}+${top + Math.floor(pageHeight / 2)}`;
  await until(() => {
    const raw = execFileSync("import", ["-window", "root", "-crop", middle,
                                        "-depth", "8", "rgb:-"], { env });
    return raw[0] > 240 && raw[1] > 240 && raw[2] > 240;
  }, "the page to be drawn", 30000);
  shot("page");
  step(`the page hangs at ${left},${top}, ${pageWidth} wide; the icon is ${icons.red.min}-${icons.red.max}`);
  assert.ok(top >= 20, "the page hangs below the panel");
  assert.ok(left <= icons.red.x && left + pageWidth >= icons.red.x, "the page is under its icon");
  // Closed as a person would: the icon again, or Escape where the click opens the menu.
  if (host === "gnome") {
    x("xdotool", "key", "Escape");
  } else {
    x("xdotool", "mousemove", String(icons.red.x), "14", "click", "1");
  }
  await until(() => visibleWindows("Red").length === 0, "the page to close", 10000);

  // The shortcut's own menu from a right click, where the host draws it or we pop it.
  const region = `400x300+${Math.max(0, icons.green.x - 200)}+0`;
  const before = shot("before_menu", region);
  x("xdotool", "mousemove", String(icons.green.x), "14", "click", "3");
  await until(() => changedPixels(before, shot("green_menu", region)) > 2000,
              "the green icon's own menu", 10000);
  step("a right click on green showed its own menu");
  x("xdotool", "key", "Escape");
  await until(() => changedPixels(before, shot("after_menu", region)) < 2000, "the menu to close", 10000)
    .catch(() => {});

  // The wheel: down switches to the next bar (Home: no tinted icons), up comes back in order.
  x("xdotool", "mousemove", String(icons.blue.x), "14", "click", "5");
  const switched = await until(() => !tintedIcons().red, "the wheel to switch bars", 8000)
    .then(() => true, () => false);
  if (switched) {
    shot("home_bar");
    step("the wheel over blue switched to the Home bar");
    x("xdotool", "mousemove", "600", "300", "sleep", "0.3");
    const back = await until(() => {
      const shapes = tintedIcons();
      if (shapes.red) return inOrder();
      const any = shapesRightOf(0, width).filter((s) => s.to - s.from >= 6);
      if (any.length > 0) x("xdotool", "mousemove", String(any[0].from + 4), "14", "click", "4");
      return null;
    }, "the wheel back to the Work bar, in order", 15000);
    step(`back on Work: red, green, blue at ${back.red.x}, ${back.green.x}, ${back.blue.x}`);
  } else {
    step("the wheel did not switch bars on this host");
  }
  // Switching bars from Vantorel's own menu, there and back; the row stays in order.
  const appIcon = () => {
    const [from, to] = { xfce: [0, 400], trayer: [500, width], gnome: [650, 980] }[host];
    const runs = shapesRightOf(from, to - from).filter((r) => r.to - r.from >= 8);
    return runs.length > 0 ? Math.round((runs.at(-1).from + runs.at(-1).to) / 2) : null;
  };
  const chooseBar = async (downs, what) => {
    const at = await until(appIcon, "Vantorel's icon", 10000);
    x("xdotool", "mousemove", String(at), "14", "click", "1", "sleep", "0.5");
    x("xdotool", "key", ...Array(downs).fill("Down"), "Return");
    return what;
  };
  // trayer's run of this (desktop_tray.mjs) is its own test.
  if (host !== "trayer") await chooseBar(2, "Home");
  if (host !== "trayer") {
    await until(() => !tintedIcons().red, "the Home bar from Vantorel's menu", 15000);
    shot("menu_home");
    step("choosing Home in Vantorel's menu replaced the icons");
    await chooseBar(1, "Work");
    // In order, and where they stood at first: the Home bar's icons are all gone (GNOME lets an
    // item whose name left the bus linger half a second).
    const again = await until(() => {
      const now = inOrder();
      return now && Math.abs(now.red.x - icons.red.x) <= 2 ? now : null;
    }, "the Work bar from Vantorel's menu, in order and alone", 15000);
    step(`choosing Work again: red, green, blue at ${again.red.x}, ${again.green.x}, ${again.blue.x}`);
  }
  shot("end");

  if (host === "trayer") {
    // The person switches to a light panel: the tray goes and comes back; Qt docks the icons anew.
    session.tray.kill("SIGTERM");
    await until(() => !session.tree().includes('("panel" "trayer")'), "the dark tray to go", 10000);
    await session.startTray("0xE0E0E0");
    await until(inOrder, "the icons on the light tray", 30000);
    await checkContrast("trayer, light tint");
    shot("contrast_light");
  }

  app.kill("SIGTERM");
  const code = await new Promise((resolve) => app.on("exit", (c) => resolve(c)));
  assert.equal(code, 0, session.log);
  step("quitting ended the app cleanly");
} catch (error) {
  try { shot("failure"); } catch { /* no display */ }
  if (session.gnomeLog) console.log(session.gnomeLog.split("\n").slice(-40).join("\n"));
  throw error;
} finally {
  session.close();
}
