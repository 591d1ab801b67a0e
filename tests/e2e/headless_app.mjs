// The headless app in a folder of its own, with assistants turned on, for the clients' tests.
import { spawn, spawnSync } from "node:child_process";
import { mkdirSync, mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import assert from "node:assert/strict";

export async function startHeadless(vantorel) {
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
  const set = spawnSync(vantorel, ["settings", "set", "assistantsEnabled", "true"], { env });
  assert.equal(set.status, 0, String(set.stderr));

  const app = spawn(vantorel, ["--headless"], { env, stdio: ["pipe", "pipe", "pipe"] });
  const session = {
    env,
    app,
    output: "",
    log: "",
    async until(test, ms, what) {
      const start = Date.now();
      while (!test()) {
        if (Date.now() - start > ms) throw new Error(`timed out: ${what}\n${session.log}\n${session.output}`);
        await new Promise((r) => setTimeout(r, 20));
      }
    },
    end() {
      if (app.exitCode === null) app.kill("SIGKILL");
      rmSync(root, { recursive: true, force: true });
    },
  };
  app.stdout.on("data", (chunk) => (session.output += chunk));
  app.stderr.on("data", (chunk) => (session.log += chunk));
  try {
    await session.until(() => session.log.includes("Vantorel started"), 10000, "the app to start");
  } catch (error) {
    session.end();
    throw error;
  }
  return session;
}
