// An assistant's client through a long review, on the official MCP SDK through vantorel-mcp:
// every tool carries a title and hints the SDK accepts; a call whose client gives up after 15 s
// without news survives a 40 s decision on progress alone; a call the client abandons takes its
// review away with it, and the connection goes on serving.
// Usage: node sdk_waiting.mjs VANTOREL VANTOREL_MCP
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import assert from "node:assert/strict";
import { startHeadless } from "./headless_app.mjs";

const [vantorel, bridge] = process.argv.slice(2);
assert.ok(vantorel && bridge, "usage: node sdk_waiting.mjs VANTOREL VANTOREL_MCP");

const step = (text) => console.log(`- ${text}`);
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
const session = await startHeadless(vantorel);
const { app, env } = session;
// What the terminal printed after `from`, once `text` appears in it.
const printed = async (from, text, what) => {
  await session.until(() => session.output.indexOf(text, from) >= 0, 10000, what);
  return session.output.slice(from);
};

let client;
try {
  client = new Client({ name: "vantorel-e2e-waiting", version: "1.0.0" });
  await client.connect(new StdioClientTransport({ command: bridge, args: [], env, stderr: "inherit" }));

  // listTools checks the answer against the SDK's own schema, hints included.
  const { tools } = await client.listTools();
  for (const tool of tools) {
    assert.ok(tool.title, `${tool.name} has a title`);
    assert.equal(typeof tool.annotations?.readOnlyHint, "boolean", tool.name);
  }
  const named = Object.fromEntries(tools.map((tool) => [tool.name, tool.annotations]));
  assert.equal(named.list_bars.readOnlyHint, true);
  assert.equal(named.list_bars.openWorldHint, false);
  assert.equal(named.remove_bar.destructiveHint, true);
  assert.equal(named.add_bar.destructiveHint, false);
  assert.equal(named.open_shortcut.openWorldHint, true);
  step(`listed ${tools.length} tools with titles and hints`);

  // The client's own timeout is 15 s; only progress keeps the call alive for 40 s.
  let from = session.output.length;
  let progress = 0;
  const longCall = client.callTool({ name: "add_bar", arguments: { name: "Projects" } }, undefined, {
    timeout: 15000,
    resetTimeoutOnProgress: true,
    maxTotalTimeout: 130000,
    onprogress: () => (progress += 1),
  });
  const shown = await printed(from, "Type one of:", "the add_bar review");
  assert.match(shown, /Bar “Projects”: added/);
  await sleep(40000);
  from = session.output.length;
  app.stdin.write("apply\n");
  const applied = JSON.parse((await longCall).content[0].text);
  assert.equal(applied.status, "applied", JSON.stringify(applied));
  assert.ok(progress >= 3, `progress came ${progress} times in 40 s`);
  const bars = JSON.parse((await client.callTool({ name: "list_bars", arguments: {} })).content[0].text);
  assert.ok(bars.bars.some((bar) => bar.name === "Projects"), JSON.stringify(bars));
  step(`a 40 s decision answered "applied" after ${progress} progress notifications`);

  // Abandoned: the SDK sends notifications/cancelled and the review goes away.
  from = session.output.length;
  const abandon = new AbortController();
  const abandoned = client.callTool({ name: "add_bar", arguments: { name: "Later" } }, undefined, {
    signal: abandon.signal,
  });
  await printed(from, "Type one of:", "the second review");
  from = session.output.length;
  abandon.abort("the person moved on");
  await assert.rejects(abandoned);
  const withdrawn = await printed(from, "withdrew", "the review to close");
  assert.match(withdrawn, /The assistant withdrew its proposal, so nothing from it changed\./);
  from = session.output.length;
  app.stdin.write("show\n");
  await printed(from, "There is no proposal to review.", "the inbox to be empty");
  const after = await client.callTool({ name: "list_bars", arguments: {} }, undefined, { timeout: 5000 });
  assert.equal(after.isError, false);
  assert.ok(!JSON.parse(after.content[0].text).bars.some((bar) => bar.name === "Later"));
  step("a cancelled call's review closed, the inbox is empty and the connection still serves");

  await client.close();
  console.log("passed");
} finally {
  session.end();
}
