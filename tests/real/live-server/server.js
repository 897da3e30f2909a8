// A live server on free ports of 127.0.0.1. Writes one line when it can be used:
// {"rtmp": PORT, "http": PORT}
"use strict";

const net = require("node:net");
const NodeMediaServer = require("node-media-server");

/** A port that nobody has now; somebody may take it before we do, and then this program ends. */
function freePort() {
  return new Promise((resolve, reject) => {
    const probe = net.createServer();
    probe.once("error", reject);
    probe.listen(0, "127.0.0.1", () => {
      const { port } = probe.address();
      probe.close(() => resolve(port));
    });
  });
}

async function main() {
  const rtmp = await freePort();
  const http = await freePort();
  const server = new NodeMediaServer({
    bind: "127.0.0.1",
    rtmp: { port: rtmp },
    http: { port: http },
    // what it got from its publishers, as FLV
    record: { path: process.argv[2] },
    auth: {},
  });
  const listening = [server.rtmpServer.tcpServer, server.httpServer.httpServer].map(
    (listener) =>
      new Promise((resolve, reject) => {
        listener.once("listening", resolve);
        listener.once("error", reject);
      }),
  );
  server.run();
  await Promise.all(listening);
  process.stdout.write("\n" + JSON.stringify({ rtmp, http }) + "\n");
}

main().catch((error) => {
  console.error(error);
  process.exit(1);
});
