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
