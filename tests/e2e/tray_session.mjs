// A display, a tray host and a throw-away home for the tray tests: Xvfb picks a free display
// itself (-displayfd), so parallel runs never meet; HOME and the XDG folders point into a
// temporary folder, so nothing lands in the real home.
import { execFileSync, spawn, spawnSync } from "node:child_process";
import { mkdirSync, mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";

const here = dirname(fileURLToPath(import.meta.url));

// Exits with 77, which CTest reads as skipped, when a tool is missing (scripts/deps.sh test
// installs them).
export function requireTools(tools = ["Xvfb", "trayer", "xdotool", "xwininfo", "import"]) {
  const missing = tools.filter((tool) => spawnSync("sh", ["-c", `command -v ${tool}`]).status !== 0);
  if (missing.length > 0) {
    console.log(`skipped: ${missing.join(", ")} not installed`);
    process.exit(77);
  }
}

export const step = (text) => console.log(`- ${text}`);
export const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

export class TraySession {
  constructor(prefix) {
    this.root = mkdtempSync(join(tmpdir(), prefix));
    const runtime = join(this.root, "run");
    mkdirSync(runtime, { mode: 0o700 });
    this.env = {
      PATH: process.env.PATH ?? "/usr/bin:/bin",
      HOME: join(this.root, "home"),
      XDG_RUNTIME_DIR: runtime,
      XDG_CONFIG_HOME: join(this.root, "config"),
      XDG_DATA_HOME: join(this.root, "data"),
      XDG_CACHE_HOME: join(this.root, "cache"),
      XDG_DATA_DIRS: "/usr/local/share:/usr/share",
      // No session bus: icons go to the XEmbed host started here.
      DBUS_SESSION_BUS_ADDRESS: "disabled:",
      QTWEBENGINE_DISABLE_SANDBOX: "1",
    };
    // The sanitizer build's settings for the app, as the test was given them.
    for (const key of ["ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"]) {
      if (process.env[key]) this.env[key] = process.env[key];
    }
    for (const key of ["HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"]) {
      mkdirSync(this.env[key], { recursive: true });
    }
    this.children = [];
    // What the app printed, shown with any time-out.
    this.log = "";
  }

  async until(test, what, limit = 10000) {
    const start = Date.now();
    for (;;) {
      const value = test();
      if (value) return value;
      if (Date.now() - start > limit) throw new Error(`timed out: ${what}\n${this.log}`);
      await sleep(50);
    }
  }

  x(tool, ...args) {
    return execFileSync(tool, args, { env: this.env, encoding: "utf8" });
  }

  start(command, args, extra = {}) {
    const child = spawn(command, args, { env: { ...this.env, ...extra }, stdio: ["ignore", "pipe", "pipe"] });
    this.children.push(child);
    return child;
  }

  // Starts the app and waits for the end of its start-up; its output goes to the log.
  async startApp(vantorel) {
    const app = this.start(vantorel, []);
    app.stdout.on("data", (chunk) => (this.log += chunk));
    app.stderr.on("data", (chunk) => (this.log += chunk));
    await this.until(() => this.log.includes("Vantorel started"), "the app to start");
    return app;
  }

  // Without a `tint` the panel has its GTK theme's colour; trayer paints a tint only when
  // "transparent", over the root window, so an alpha of 0 shows the tint alone.
  async startDisplayAndTray(size, tint) {
    await this.startDisplay(size);
    await this.startTray(tint);
  }

  async startTray(tint) {
    const look = tint ? ["--transparent", "true", "--alpha", "0", "--tint", tint]
                      : ["--transparent", "false", "--tint", "0x333333"];
    const tray = this.start("trayer", ["--edge", "top", "--align", "right", "--widthtype", "request",
                                       "--height", "24", ...look]);
    tray.stderr.on("data", (chunk) => (this.log += chunk));
    this.tray = tray;
    await this.until(() => this.tree().includes('("panel" "trayer")'), "the tray", 30000);
  }

  async startDisplay(size, extra = []) {
    // No reset: by default the server restarts when its last client leaves, and a window-tree
    // query ending just as trayer connects left trayer unable to open the display.
    const xvfb = spawn("Xvfb", ["-displayfd", "3", "-screen", "0", `${size}x24`, "-nolisten", "tcp",
                                "-noreset", ...extra],
                       { stdio: ["ignore", "ignore", "pipe", "pipe"] });
    this.children.push(xvfb);
    let number = "";
    xvfb.stdio[3].on("data", (chunk) => (number += chunk));
    // Generous: beside the sanitizer build's fuzzers both can take many seconds to come up.
    await this.until(() => number.includes("\n"), "the display", 30000);
    this.env.DISPLAY = `:${number.trim()}`;
  }

  // A message bus of this session's own; its address goes into the environment as `variable`.
  startBus(kind = "session", variable = "DBUS_SESSION_BUS_ADDRESS") {
    const folder = mkdtempSync(join(this.root, `${kind}-bus-`));
    const out = execFileSync("dbus-daemon", [`--${kind === "system" ? "session" : kind}`, "--fork",
                                             "--print-address=1", "--print-pid=1",
                                             `--address=unix:path=${join(folder, "bus")}`],
                             { env: this.env, encoding: "utf8" }).trim().split("\n");
    this.env[variable] = out[0];
    this.busPids = [...(this.busPids ?? []), Number(out[1])];
  }

  // Lets the app's widgets be read over AT-SPI (see accessible()): a session bus of its own, which
  // starts the accessibility bus on demand, and Qt told to publish its widgets there.
  enableAccessibility() {
    this.startBus();
    this.env.QT_ACCESSIBILITY = "1";
    this.env.QT_LINUX_ACCESSIBILITY_ALWAYS_ON = "1";
  }

  // What a screen reader sees of the app: its showing widgets with role, name, text, state and
  // place on the screen; empty while the app is not on the accessibility bus yet.
  accessible() {
    const result = spawnSync("/usr/bin/python3", [join(here, "accessible.py"), "vantorel"],
                             { env: this.env, encoding: "utf8", timeout: 10000 });
    if (result.status !== 0) return [];
    return result.stdout.split("\n").filter(Boolean).map((line) => JSON.parse(line));
  }

  // The first showing widget with this role whose name (or text) matches, or null.
  widget(role, name) {
    const matches = (value) => value !== null && (name instanceof RegExp ? name.test(value) : value === name);
    return this.accessible().find((w) => w.role === role && (matches(w.name) || matches(w.text))) ?? null;
  }

  // Clicks the middle of a widget found by widget().
  click(found) {
    this.x("xdotool", "mousemove", String(found.x + Math.floor(found.width / 2)),
           String(found.y + Math.floor(found.height / 2)), "click", "1");
  }

  // The window tree; empty when a window went away mid-query (icons come and go), to be asked again.
  tree() {
    const result = spawnSync("xwininfo", ["-root", "-tree"], { env: this.env, encoding: "utf8" });
    return result.status === 0 ? result.stdout : "";
  }

  // The icons docked in trayer's panel, left to right: its grandchildren that belong to the app.
  trayIcons() {
    const lines = this.tree().split("\n");
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
  }

  // A test for `until`: the icons once there are exactly `count`.
  iconsWhen(count) {
    return () => {
      const icons = this.trayIcons();
      return icons.length === count ? icons : null;
    };
  }

  // Asked to end rather than killed, so Xvfb takes its lock file with it.
  close() {
    for (const child of this.children.reverse()) {
      if (child.exitCode === null) child.kill("SIGTERM");
    }
    for (const pid of this.busPids ?? []) {
      try { process.kill(pid, "SIGTERM"); } catch { /* gone already */ }
    }
    rmSync(this.root, { recursive: true, force: true });
  }
}
