#!/usr/bin/env node
"use strict";
// A local discovery server (node-opcua OPCUADiscoveryServer). Servers register
// with it (peer_server.js --register-to URL) or are seeded with --record; both
// kinds come back from FindServers / FindServersOnNetwork. Prints "ready <port>".

const {
    opcua,
    parseArgs,
    parsePort,
    fail,
    makePkiFolder,
    certificateManager,
    exitWith,
    announceReady,
    publishLocalRecord
} = require("./lib/common");

const args = parseArgs(process.argv.slice(2), {
    port: { default: "4840" },
    listen: { default: "127.0.0.1" },
    host: { default: "" },
    name: { default: "Local Discovery Server" },
    "application-uri": { default: "" },
    "product-uri": { default: "urn:discover:sim:node-lds" },
    // NAME|opc.tcp://HOST:PORT/PATH|CAP,CAP  (a server known to this LDS without registering)
    record: { multi: true },
    "exit-on-stdin-close": { flag: true, default: false }
});

const port = parsePort(args.port);
const advertisedHost = args.host || args.listen;

function parseRecord(text) {
    const [name, url, caps] = text.split("|");
    if (!name || !url) fail(`record "${text}" is not NAME|URL[|CAPS]`);
    const match = /^opc\.tcp:\/\/([^:/]+):(\d+)(\/.*)?$/i.exec(url);
    if (!match) fail(`record URL "${url}" is not opc.tcp://HOST:PORT[/PATH]`);
    return {
        name,
        host: match[1],
        port: Number(match[2]),
        path: match[3] || "",
        capabilities: (caps || "NA").split(",").filter(Boolean)
    };
}

// OPCUADiscoveryServer listens on every interface; a test server must listen only
// where it is told (loopback, or a host address inside a plant namespace). This
// replaces its deferred endpoint set-up with the same one plus the listen address.
function listenOnlyOn(server, listenAddress, port, hostname) {
    server._delayInit = async () => {
        const endPoint = new opcua.OPCUAServerEndPoint({
            port,
            host: listenAddress,
            certificateKeyPairProvider: server.getCertificateChainProvider(),
            certificateManager: server.serverCertificateManager,
            serverInfo: server.serverInfo
        });
        endPoint.addStandardEndpointDescriptions({
            allowAnonymous: true,
            userTokenTypes: [],
            hostname,
            disableDiscovery: true
        });
        server.endpoints.push(endPoint);
        endPoint.on("message", (message, channel) => server.on_request(message, channel));
    };
}

async function main() {
    const records = args.record.map(parseRecord);
    const pki = makePkiFolder("node-lds");
    const server = new opcua.OPCUADiscoveryServer({
        port,
        host: args.listen,
        hostname: advertisedHost,
        serverCertificateManager: certificateManager(`${pki}/server`),
        // Peers register over a None channel too; this LDS lives only on test networks.
        allowUnsecuredRegistration: true,
        automaticallyAcceptUnknownCertificate: true,
        serverInfo: {
            applicationUri: args["application-uri"] || `urn:discover:sim:node-lds:${advertisedHost}:${port || "pid" + process.pid}`,
            productUri: args["product-uri"],
            applicationName: { text: args.name, locale: "en" }
        }
    });
    listenOnlyOn(server, args.listen, port, advertisedHost);
    const stop = exitWith(server);
    await server.start();
    for (const record of records) publishLocalRecord(record);
    announceReady(server.endpoints[0].port);
    if (args["exit-on-stdin-close"]) {
        process.stdin.on("end", () => stop(0));
        process.stdin.resume();
    }
}

main().catch((err) => {
    process.stderr.write(`error: ${err && err.message ? err.message : err}\n`);
    process.exit(1);
});
