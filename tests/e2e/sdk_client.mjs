// An assistant's whole path through Vantorel, as a real MCP client takes it: start the headless
// app, connect through vantorel-mcp, list the tools, read the bars, propose a shortcut, apply the
// proposal in the app's terminal review, and find the shortcut in the bar's file on disk.
// Usage: node sdk_client.mjs VANTOREL VANTOREL_MCP
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import { spawn, spawnSync } from "node:child_process";
import { existsSync, mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import assert from "node:assert/strict";

const [vantorel, bridge] = process.argv.slice(2);
assert.ok(vantorel && bridge, "usage: node sdk_client.mjs VANTOREL VANTOREL_MCP");

const root = mkdtempSync(join(tmpdir(), "vantorel-e2e-"));
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

const step = (text) => console.log(`- ${text}`);
const deadline = (ms, what) =>
  new Promise((_, reject) => setTimeout(() => reject(new Error(`timed out: ${what}`)), ms).unref());

// Assistants are off until the person turns them on.
let set = spawnSync(vantorel, ["settings", "set", "assistantsEnabled", "true"], { env });
assert.equal(set.status, 0, String(set.stderr));

const app = spawn(vantorel, ["--headless"], { env, stdio: ["pipe", "pipe", "pipe"] });
let output = "";
let log = "";
app.stdout.on("data", (chunk) => (output += chunk));
app.stderr.on("data", (chunk) => (log += chunk));
const exited = new Promise((resolve) => app.on("exit", (code, signal) => resolve({ code, signal })));
const until = async (test, ms, what) => {
  const start = Date.now();
  while (!test()) {
    if (Date.now() - start > ms) throw new Error(`timed out: ${what}\n${log}\n${output}`);
    await new Promise((r) => setTimeout(r, 20));
  }
};

let client;
try {
  await until(() => log.includes("Vantorel started"), 10000, "the app to start");
  step("the headless app started");

  client = new Client({ name: "vantorel-e2e", version: "1.0.0" });
  await client.connect(new StdioClientTransport({ command: bridge, args: [], env, stderr: "inherit" }));
  assert.equal(client.getServerVersion()?.name, "Vantorel");
  assert.ok(client.getInstructions()?.length > 0, "the server gives instructions");
  step("connected through vantorel-mcp");

  const { tools } = await client.listTools();
  assert.equal(tools.length, 32, `32 tools, got ${tools.length}`);
  assert.equal(tools[0].name, "list_bars");
  for (const tool of tools) assert.equal(tool.inputSchema.type, "object", tool.name);
  step(`listed ${tools.length} tools`);

  const bars = JSON.parse((await client.callTool({ name: "list_bars", arguments: {} })).content[0].text);
  assert.equal(bars.bars.length, 1);
  const bar = bars.bars[0];
  assert.ok(bar.isShowing);
  const shortcuts = await client.callTool({ name: "list_shortcuts", arguments: { barID: bar.id } });
  assert.equal(shortcuts.isError, false, shortcuts.content[0].text);
  step(`read the bar “${bar.name}” with ${bar.shortcutCount} shortcuts`);

  const unknown = await client.callTool({ name: "no_such_tool", arguments: {} });
  assert.equal(unknown.isError, true);

  // A write waits for the person; answer it from the terminal once the review is shown.
  const proposal = client.callTool(
    {
      name: "add_shortcuts",
      arguments: {
        title: "Add the handbook",
        shortcuts: [{ name: "Handbook", target: { kind: "url", url: "https://handbook.example.org/" } }],
      },
    },
    undefined,
    { timeout: 60000 },
  );
  await until(() => output.includes("Type one of:"), 10000, "the review in the terminal");
  assert.match(output, /Handbook/);
  app.stdin.write("apply\n");
  const answer = JSON.parse((await Promise.race([proposal, deadline(30000, "the answer")])).content[0].text);
  assert.equal(answer.status, "applied", JSON.stringify(answer));
  step("proposed a shortcut and applied it in the terminal");

  // The store writes after a short pause; quitting writes at once.
  await client.close();
  app.kill("SIGTERM");
  const end = await Promise.race([exited, deadline(10000, "the app to quit")]);
  assert.equal(end.code, 0, `exit ${JSON.stringify(end)}\n${log}`);
  assert.ok(!existsSync(join(runtime, "vantorel.sock")), "the socket file is gone after quitting");
  const dataFolder = join(env.XDG_DATA_HOME, "Vantorel");
  const files = readdirSync(dataFolder).filter((name) => name.endsWith(".json"));
  const onDisk = files.some((name) => readFileSync(join(dataFolder, name), "utf8").includes("handbook.example.org"));
  assert.ok(onDisk, `the shortcut is in a bar file (${files.join(", ")})`);
  step("found the shortcut on disk after quitting");
  console.log("passed");
} finally {
  if (app.exitCode === null) app.kill("SIGKILL");
  rmSync(root, { recursive: true, force: true });
}
