// The MCP Inspector's command-line mode against the headless app through vantorel-mcp: the tool
// list with its hints, then three read tools, each a separate run of the Inspector as CI does.
// Usage: node mcp_cli_check.mjs VANTOREL VANTOREL_MCP
import { spawnSync } from "node:child_process";
import { dirname, join } from "node:path";
import assert from "node:assert/strict";
import { startHeadless } from "./headless_app.mjs";

const [vantorel, bridge] = process.argv.slice(2);
assert.ok(vantorel && bridge, "usage: node mcp_cli_check.mjs VANTOREL VANTOREL_MCP");
const inspector = join("node_modules", "@modelcontextprotocol", "inspector", "cli", "build", "cli.js");

const session = await startHeadless(vantorel);
// The Inspector starts its own "node" from PATH: the one running this test comes first.
const path = `${dirname(process.execPath)}:${session.env.PATH}`;
const inspect = (...args) => {
  const run = spawnSync(
    process.execPath,
    [inspector, "--cli", "-e", `XDG_RUNTIME_DIR=${session.env.XDG_RUNTIME_DIR}`, bridge, ...args],
    { env: { ...session.env, PATH: path }, encoding: "utf8", timeout: 60000 },
  );
  assert.equal(run.status, 0, `inspector ${args.join(" ")}\n${run.stderr}\n${run.stdout}`);
  return JSON.parse(run.stdout);
};
const call = (name, ...toolArgs) => {
  const result = inspect("--method", "tools/call", "--tool-name", name, ...toolArgs);
  assert.equal(result.isError, false, `${name}: ${JSON.stringify(result)}`);
  return JSON.parse(result.content[0].text);
};

try {
  const { tools } = inspect("--method", "tools/list");
  assert.equal(tools.length, 32, `32 tools, got ${tools.length}`);
  for (const tool of tools) {
    assert.ok(tool.title, `${tool.name} has a title`);
    assert.equal(typeof tool.annotations?.readOnlyHint, "boolean", `${tool.name} has hints`);
  }
  const listBars = tools.find((tool) => tool.name === "list_bars");
  assert.equal(listBars.annotations.readOnlyHint, true);
  assert.equal(listBars.annotations.openWorldHint, false);
  console.log(`- listed ${tools.length} tools, each with a title and hints`);

  const { bars } = call("list_bars");
  assert.equal(bars.length, 1);
  assert.ok(bars[0].isShowing);
  const listed = call("list_shortcuts", "--tool-arg", `barID=${bars[0].id}`);
  assert.ok(listed.shortcuts.length > 0, JSON.stringify(listed));
  const settings = call("get_settings");
  assert.equal(settings.barCount, 1);
  console.log(`- read the bar “${bars[0].name}”, its ${listed.shortcuts.length} shortcuts and the settings`);
  console.log("passed");
} finally {
  session.end();
}
