// The headless app as a person and their scripts meet it: settings reach the running app at once,
// documents are handed to its review, a second start is refused, and quitting tidies up.
// Usage: node headless_cli.mjs VANTOREL
import { spawn, spawnSync } from "node:child_process";
import { existsSync, mkdirSync, mkdtempSync, rmSync, statSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import assert from "node:assert/strict";

const [vantorel, bridge] = process.argv.slice(2);
const root = mkdtempSync(join(tmpdir(), "vantorel-cli-"));
const runtime = join(root, "run");
mkdirSync(runtime, { mode: 0o700 });
const env = {
  PATH: process.env.PATH ?? "/usr/bin:/bin",
  HOME: join(root, "home"),
  XDG_RUNTIME_DIR: runtime,
  XDG_CONFIG_HOME: join(root, "config"),
  XDG_DATA_HOME: join(root, "data"),
  XDG_DATA_DIRS: join(root, "none"),
};
mkdirSync(env.HOME);
const socket = join(runtime, "vantorel.sock");
const run = (...args) => spawnSync(vantorel, args, { env, encoding: "utf8", timeout: 20000 });
const isSocket = () => existsSync(socket) && statSync(socket).isSocket();
const until = async (test, what) => {
  const start = Date.now();
  while (!test()) {
    if (Date.now() - start > 10000) throw new Error(`timed out: ${what}\n${log}\n${output}`);
    await new Promise((r) => setTimeout(r, 20));
  }
};
const step = (text) => console.log(`- ${text}`);

let output = "";
let log = "";
const app = spawn(vantorel, ["--headless"], { env, stdio: ["pipe", "pipe", "pipe"] });
app.stdout.on("data", (chunk) => (output += chunk));
app.stderr.on("data", (chunk) => (log += chunk));
const exited = new Promise((resolve) => app.on("exit", (code) => resolve(code)));
try {
  await until(() => log.includes("Vantorel started"), "the app to start");
  await until(() => output.includes("Assistants are off"), "the hint to turn assistants on");
  assert.ok(!existsSync(socket), "no socket while assistants are off");
  // An assistant asking now is told what to do rather than left waiting.
  const asked = spawnSync(bridge, [], {
    env,
    encoding: "utf8",
    timeout: 20000,
    input: '{"jsonrpc":"2.0","id":1,"method":"tools/list"}\n',
  });
  assert.equal(asked.status, 0, asked.stderr);
  const refusal = JSON.parse(asked.stdout.trim());
  assert.equal(refusal.id, 1);
  assert.match(refusal.error.message, /turn them on/);
  step("the bridge says assistants are off while the app runs");

  let result = run("settings", "set", "assistantsEnabled", "true");
  assert.equal(result.status, 0, result.stderr);
  await until(isSocket, "the socket after turning assistants on");
  result = run("settings", "set", "assistantsEnabled", "false");
  await until(() => !existsSync(socket), "the socket to go after turning assistants off");
  step("turning assistants on and off reaches the running app at once");

  result = run("settings", "set", "assistantsEnabled", "sometimes");
  assert.equal(result.status, 2);
  assert.equal(result.stderr.trim(), "vantorel: “assistantsEnabled” takes true or false.");
  result = run("settings", "get", "colour");
  assert.equal(result.status, 2);
  assert.match(result.stderr, /“colour” is not a setting\./);
  step("a wrong setting or value gets one sentence");

  const document = join(root, "Shared.VANTOREL");
  writeFileSync(document, JSON.stringify({
    title: "A link from a friend",
    bars: [{ shortcuts: [{ name: "Recipes", target: { kind: "url", url: "https://recipes.example.org/" } }] }],
  }));
  result = run(document);
  assert.equal(result.status, 0, result.stderr);
  assert.match(result.stdout, /is waiting for your review in the running Vantorel/);
  await until(() => output.includes("A link from a friend"), "the review of the document");
  assert.match(output, /From the document “Shared\.VANTOREL”/);
  app.stdin.write("decline\n");
  await until(() => output.includes("Declined; nothing was changed."), "declining");
  step("a document goes to the running app's review");

  const broken = join(root, "broken.vantorel");
  writeFileSync(broken, '{"formatVersion": 3}');
  result = run(broken);
  assert.equal(result.status, 1);
  assert.equal(result.stderr.trim(),
    "vantorel: “broken.vantorel” could not be opened: written by a newer Vantorel (format 3, this build reads up to 1).");
  step("a document from a newer Vantorel is explained");

  result = run("--headless");
  assert.equal(result.status, 1);
  assert.equal(result.stderr.trim(), "vantorel: Vantorel is already running.");
  step("a second start is refused");

  run("settings", "set", "assistantsEnabled", "true");
  await until(isSocket, "the socket again");
  app.kill("SIGINT");
  assert.equal(await exited, 0, log);
  assert.ok(!existsSync(socket), "quitting removes the socket file");
  step("quitting removes the socket");
  console.log("passed");
} finally {
  if (app.exitCode === null) app.kill("SIGKILL");
  rmSync(root, { recursive: true, force: true });
}
