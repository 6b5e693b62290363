#!/usr/bin/env node
"use strict";
// An OPC UA server of an independent implementation (node-opcua), used as a
// peer in the test suite and in the plant. Prints "ready <port>" once listening.

const {
    opcua,
    parseArgs,
    parsePort,
    fail,
    makePkiFolder,
    certificateManager,
    exitWith,
    announceReady
} = require("./lib/common");
const { DataType, Variant, VariantArrayType, SecurityPolicy, MessageSecurityMode } = opcua;

const args = parseArgs(process.argv.slice(2), {
    port: { default: "4840" },
    listen: { default: "127.0.0.1" },
    host: { default: "" },
    path: { default: "/" },
    name: { default: "Node Peer" },
    "application-uri": { default: "" },
    "product-uri": { default: "urn:discover:sim:node-peer" },
    security: { default: "None" },
    users: { default: "" },
    "allow-anonymous": { flag: true, default: undefined },
    "register-to": { default: "" },
    capabilities: { default: "DA" },
    "extra-variables": { default: "0" },
    "endless-continuation": { default: "" },
    "exit-on-stdin-close": { flag: true, default: false }
});

const port = parsePort(args.port);
const advertisedHost = args.host || args.listen;

// "None", "Basic256Sha256" (Sign and SignAndEncrypt), "Basic256Sha256:Sign",
// "Basic256Sha256:SignAndEncrypt", comma-separated.
function securitySettings(text) {
    const policies = new Set();
    const modes = new Set();
    for (const token of text.split(",").map((t) => t.trim()).filter(Boolean)) {
        const [policy, mode] = token.split(":");
        if (policy === "None") {
            policies.add(SecurityPolicy.None);
            modes.add(MessageSecurityMode.None);
            continue;
        }
        if (policy !== "Basic256Sha256") fail(`unsupported security policy "${policy}"`);
        policies.add(SecurityPolicy.Basic256Sha256);
        if (!mode || mode === "Sign") modes.add(MessageSecurityMode.Sign);
        if (!mode || mode === "SignAndEncrypt") modes.add(MessageSecurityMode.SignAndEncrypt);
        if (mode && mode !== "Sign" && mode !== "SignAndEncrypt") fail(`unsupported security mode "${mode}"`);
    }
    if (policies.size === 0) fail("no security policy given");
    return { securityPolicies: [...policies], securityModes: [...modes] };
}

function parseUsers(text) {
    const users = new Map();
    for (const entry of text.split(",").filter(Boolean)) {
        const colon = entry.indexOf(":");
        if (colon <= 0) fail(`user "${entry}" is not user:password`);
        users.set(entry.slice(0, colon), entry.slice(colon + 1));
    }
    return users;
}

const users = parseUsers(args.users);
const allowAnonymous = args["allow-anonymous"] === undefined ? users.size === 0 : args["allow-anonymous"];
const resourcePath = args.path === "/" ? "" : args.path.startsWith("/") ? args.path : "/" + args.path;
const applicationUri = args["application-uri"] || `urn:discover:sim:node-peer:${advertisedHost}:${port || "pid" + process.pid}`;

function variable(namespace, parent, id, name, dataType, value, extra = {}) {
    return namespace.addVariable({
        componentOf: parent,
        nodeId: `s=${id}`,
        browseName: name,
        dataType,
        value: new Variant({
            dataType: DataType[dataType],
            arrayType: Array.isArray(value) ? VariantArrayType.Array : VariantArrayType.Scalar,
            value
        }),
        ...extra
    });
}

// Objects/Plant/Line1/Press, Objects/Plant/Line1/Conveyor, Objects/Plant/Utilities/Compressor.
function buildAddressSpace(server) {
    const addressSpace = server.engine.addressSpace;
    const namespace = addressSpace.getOwnNamespace();
    const objects = addressSpace.rootFolder.objects;
    const folder = (parent, id, name) =>
        namespace.addFolder(parent, { nodeId: `s=${id}`, browseName: name });

    const plant = folder(objects, "Plant", "Plant");
    const line = folder(plant, "Plant.Line1", "Line1");
    const press = folder(line, "Plant.Line1.Press", "Press");
    variable(namespace, press, "Plant.Line1.Press.Running", "Running", "Boolean", true);
    variable(namespace, press, "Plant.Line1.Press.CycleCount", "CycleCount", "Int32", 1234);
    variable(namespace, press, "Plant.Line1.Press.Temperature", "Temperature", "Double", 61.5);
    variable(namespace, press, "Plant.Line1.Press.Recipe", "Recipe", "String", "Bracket-A");
    variable(namespace, press, "Plant.Line1.Press.LastCycle", "LastCycle", "DateTime",
        new Date(Date.UTC(2024, 0, 15, 8, 30, 0)));
    variable(namespace, press, "Plant.Line1.Press.Pressures", "Pressures", "Double", [101.5, 99.25, 100.0]);
    variable(namespace, press, "Plant.Line1.Press.SerialNumber", "SerialNumber", "String", "PL1-000042", {
        accessLevel: "CurrentRead",
        userAccessLevel: "CurrentRead"
    });
    variable(namespace, press, "Plant.Line1.Press.Setpoint", "Setpoint", "Double", 60.0, {
        accessLevel: "CurrentWrite",
        userAccessLevel: "CurrentWrite"
    });

    const conveyor = folder(line, "Plant.Line1.Conveyor", "Conveyor");
    variable(namespace, conveyor, "Plant.Line1.Conveyor.Speed", "Speed", "Double", 0.75);
    variable(namespace, conveyor, "Plant.Line1.Conveyor.Enabled", "Enabled", "Boolean", false);

    const utilities = folder(plant, "Plant.Utilities", "Utilities");
    const compressor = folder(utilities, "Plant.Utilities.Compressor", "Compressor");
    variable(namespace, compressor, "Plant.Utilities.Compressor.Pressure", "Pressure", "Double", 7.2);
    variable(namespace, compressor, "Plant.Utilities.Compressor.Hours", "Hours", "Int32", 20450);

    // A wider folder for larger browse runs (benchmarks), empty unless asked for.
    const extra = Number(args["extra-variables"]);
    if (!Number.isInteger(extra) || extra < 0) fail(`invalid --extra-variables "${args["extra-variables"]}"`);
    if (extra > 0) {
        const bulk = folder(plant, "Plant.Bulk", "Bulk");
        for (let i = 0; i < extra; i++) {
            variable(namespace, bulk, `Plant.Bulk.V${i}`, `V${i}`, "Int32", i);
        }
    }
}

// --endless-continuation repeat|grow: the folder Plant.Endless pages its children for ever.
// Its Browse gives Plant.Endless.V0 and a continuation point; "repeat" answers every BrowseNext
// with the next variable and that same point again, "grow" with one new variable (made on the
// spot) and a new point each time, "cycle" with one new variable and two points in turn. Other
// nodes page as usual.
function installEndlessContinuation(server, mode) {
    if (mode !== "repeat" && mode !== "grow" && mode !== "cycle") fail(`invalid --endless-continuation "${mode}"`);
    const addressSpace = server.engine.addressSpace;
    const namespace = addressSpace.getOwnNamespace();
    const plant = addressSpace.findNode(`ns=${namespace.index};s=Plant`);
    const endless = namespace.addFolder(plant, { nodeId: "s=Plant.Endless", browseName: "Endless" });
    const endlessId = endless.nodeId.toString();
    const child = (k) =>
        addressSpace.findNode(`ns=${namespace.index};s=Plant.Endless.V${k}`) ||
        variable(namespace, endless, `Plant.Endless.V${k}`, `V${k}`, "Int32", k);
    child(0);
    child(1);
    const hasComponent = opcua.resolveNodeId("HasComponent");
    const page = (k, point) =>
        new opcua.BrowseResult({
            statusCode: opcua.StatusCodes.Good,
            continuationPoint: Buffer.from(point),
            references: [
                new opcua.ReferenceDescription({
                    referenceTypeId: hasComponent,
                    isForward: true,
                    nodeId: child(k).nodeId,
                    browseName: child(k).browseName,
                    displayName: child(k).displayName[0],
                    nodeClass: opcua.NodeClass.Variable,
                    typeDefinition: child(k).typeDefinition
                })
            ]
        });
    const firstPoint = { repeat: "endless-repeat", grow: "endless:1", cycle: "endless-cycle-a" }[mode];
    let cycled = 1;

    const browse = server._on_BrowseRequest.bind(server);
    server._on_BrowseRequest = (message, channel) => {
        if (!channel.endlessContinuation) {
            channel.endlessContinuation = true;
            const send = channel.send_response;
            channel.send_response = function (type, response, request, ...rest) {
                if (response instanceof opcua.BrowseResponse && request && request.request instanceof opcua.BrowseRequest) {
                    request.request.nodesToBrowse.forEach((description, i) => {
                        if (description.nodeId.toString() === endlessId && response.results && response.results[i])
                            response.results[i] = page(0, firstPoint);
                    });
                }
                return send.call(this, type, response, request, ...rest);
            };
        }
        return browse(message, channel);
    };

    const browseNext = server._on_BrowseNextRequest.bind(server);
    server._on_BrowseNextRequest = (message, channel) => {
        const points = (message.request.continuationPoints || []).map((point) => (point ? point.toString() : ""));
        if (!points.some((point) => point.startsWith("endless"))) return browseNext(message, channel);
        server._apply_on_SessionObject(opcua.BrowseNextResponse, message, channel, (session, sendResponse) => {
            const results = points.map((point) => {
                if (message.request.releaseContinuationPoints || !point.startsWith("endless"))
                    return new opcua.BrowseResult({
                        statusCode: point.startsWith("endless")
                            ? opcua.StatusCodes.Good
                            : opcua.StatusCodes.BadContinuationPointInvalid
                    });
                if (mode === "repeat") return page(1, point);
                if (mode === "cycle") {
                    const k = cycled++;
                    return page(k, k % 2 ? "endless-cycle-b" : "endless-cycle-a");
                }
                const k = Number(point.slice("endless:".length));
                return page(k, `endless:${k + 1}`);
            });
            sendResponse(new opcua.BrowseNextResponse({ results }));
        });
    };
}

async function main() {
    const pki = makePkiFolder("node-peer");
    const security = securitySettings(args.security);
    const options = {
        port,
        host: args.listen,
        hostname: advertisedHost,
        resourcePath,
        allowAnonymous,
        ...security,
        serverCertificateManager: certificateManager(`${pki}/server`),
        userCertificateManager: certificateManager(`${pki}/user`),
        serverInfo: {
            applicationUri,
            productUri: args["product-uri"],
            applicationName: { text: args.name, locale: "en" }
        },
        buildInfo: {
            productName: args.name,
            productUri: args["product-uri"],
            manufacturerName: "discover test suite",
            softwareVersion: "1.0"
        },
        capabilitiesForMDNS: args.capabilities.split(",").filter(Boolean),
        isAuditing: false
    };
    if (users.size > 0) {
        options.userManager = {
            isValidUser: (userName, password) => users.has(userName) && users.get(userName) === password
        };
    }
    if (args["register-to"]) {
        options.registerServerMethod = opcua.RegisterServerMethod.LDS;
        options.discoveryServerEndpointUrl = args["register-to"];
    }

    const server = new opcua.OPCUAServer(options);
    const stop = exitWith(server);
    await server.initialize();
    buildAddressSpace(server);
    if (args["endless-continuation"]) installEndlessContinuation(server, args["endless-continuation"]);
    if (args["register-to"]) {
        // The registration is part of being ready: tests look the server up right away.
        await new Promise((resolve, reject) => {
            const timer = setTimeout(() => reject(new Error("registration timed out")), 60000);
            server.once("serverRegistered", () => {
                clearTimeout(timer);
                resolve();
            });
            server.start().catch(reject);
        });
    } else {
        await server.start();
    }
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
