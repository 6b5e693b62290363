#!/usr/bin/env node
"use strict";
// Asks one OPC UA server a discovery question with node-opcua's client and prints
// the answer, one line per item, fields separated by tabs (as tests/process/plant/plant_probe):
//   node probe.js endpoints URL    endpointUrl mode policyUri tokenTypes applicationName
//   node probe.js findservers URL  applicationName applicationType discoveryUrl
//   node probe.js fson URL         serverName discoveryUrl capabilities
// Unlike a None-only open62541 client, it reads the endpoints of servers that have no None endpoint.

const { opcua, makePkiFolder, certificateManager } = require("./lib/common");

async function main() {
    const [question, url] = process.argv.slice(2);
    if (!["endpoints", "findservers", "fson"].includes(question) || !url) {
        process.stderr.write("usage: probe.js endpoints|findservers|fson URL\n");
        process.exit(2);
    }
    const client = opcua.OPCUAClient.create({
        clientCertificateManager: certificateManager(`${makePkiFolder("node-probe")}/client`),
        endpointMustExist: false,
        connectionStrategy: { maxRetry: 0, initialDelay: 100, maxDelay: 200 },
        requestedSessionTimeout: 10000
    });
    await client.connect(url);
    const out = [];
    if (question === "endpoints") {
        for (const e of await client.getEndpoints()) {
            out.push([e.endpointUrl, e.securityMode, e.securityPolicyUri,
                (e.userIdentityTokens || []).map((t) => t.tokenType).join(","), e.server.applicationName.text || ""]);
        }
    } else if (question === "findservers") {
        for (const app of await client.findServers()) {
            for (const u of app.discoveryUrls || []) out.push([app.applicationName.text || "", app.applicationType, u]);
        }
    } else {
        for (const r of await client.findServersOnNetwork()) {
            out.push([r.serverName, r.discoveryUrl, (r.serverCapabilities || []).join(",")]);
        }
    }
    await client.disconnect();
    process.stdout.write(out.map((fields) => fields.join("\t") + "\n").join(""));
    process.exit(0);
}

main().catch((err) => {
    process.stderr.write(`${err && err.message ? err.message : err}\n`);
    process.exit(1);
});
