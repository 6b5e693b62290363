"use strict";
// Shared start-up of the node-opcua peers: quiet logging, a private PKI folder,
// an in-process stand-in for multicast DNS, argument parsing and clean exit.

const fs = require("fs");
const os = require("os");
const path = require("path");
const { EventEmitter } = require("events");

// node-opcua prints through console.log; stdout must carry only the ready line.
const verbose = !!process.env.DISCOVER_PEER_VERBOSE;
const toStderr = (...args) => {
    if (verbose) process.stderr.write(args.map(String).join(" ") + "\n");
};
console.log = toStderr;
console.info = toStderr;
console.warn = toStderr;
console.debug = toStderr;

// node-opcua's discovery server publishes registered servers on multicast DNS
// and reads FindServersOnNetwork records back from it. Multicast must never
// leave this process (tests run in the machine's own namespace), so the
// bonjour module is replaced by a registry that lives in this process only.
class LocalService extends EventEmitter {
    constructor(network, config) {
        super();
        this.network = network;
        this.name = config.name;
        this.host = config.host;
        this.port = config.port;
        this.type = config.type;
        this.protocol = config.protocol || "tcp";
        this.txt = Object.assign({}, config.txt || {});
        this.published = false;
    }
    start() {
        this.published = true;
        this.network.add(this);
        setImmediate(() => this.emit("up"));
    }
    stop(callback) {
        this.network.remove(this);
        this.published = false;
        if (callback) setImmediate(callback);
    }
}

class LocalNetwork extends EventEmitter {
    constructor() {
        super();
        this.services = [];
        this.setMaxListeners(0);
    }
    add(service) {
        this.services.push(service);
        this.emit("up", service);
    }
    remove(service) {
        const index = this.services.indexOf(service);
        if (index >= 0) {
            this.services.splice(index, 1);
            this.emit("down", service);
        }
    }
}

const localNetwork = new LocalNetwork();

class LocalBrowser extends EventEmitter {
    constructor(type) {
        super();
        this.type = type;
        this.onUp = (service) => {
            if (!this.type || service.type === this.type) this.emit("up", service);
        };
        this.onDown = (service) => {
            if (!this.type || service.type === this.type) this.emit("down", service);
        };
        localNetwork.on("up", this.onUp);
        localNetwork.on("down", this.onDown);
        setImmediate(() => localNetwork.services.forEach(this.onUp));
    }
    stop() {
        localNetwork.removeListener("up", this.onUp);
        localNetwork.removeListener("down", this.onDown);
    }
}

class LocalBonjour {
    constructor() {
        this.own = [];
    }
    publish(config) {
        const service = new LocalService(localNetwork, config);
        this.own.push(service);
        return service;
    }
    find(options) {
        return new LocalBrowser(options && options.type);
    }
    unpublishAll(callback) {
        this.own.forEach((service) => localNetwork.remove(service));
        this.own = [];
        if (callback) setImmediate(callback);
    }
    destroy(callback) {
        if (callback) setImmediate(callback);
    }
}

const bonjourModule = require("sterfive-bonjour-service");
bonjourModule.Bonjour = LocalBonjour;
bonjourModule.default = LocalBonjour;

// Publishes a record that FindServersOnNetwork of this process's discovery server reports.
function publishLocalRecord({ name, host, port, path: resourcePath, capabilities }) {
    const service = new LocalService(localNetwork, {
        name,
        host,
        port,
        type: "opcua-tcp",
        txt: { caps: (capabilities || []).join(","), path: resourcePath || "" }
    });
    service.start();
    return service;
}

const opcua = require("node-opcua");

function quietNodeOpcua() {
    opcua.setLogLevel && opcua.setLogLevel(verbose ? opcua.LogLevel.Warning : opcua.LogLevel.Error);
    opcua.setDebugLogger(toStderr);
    opcua.setWarningLogger(toStderr);
    opcua.setErrorLogger(toStderr);
    if (opcua.setTraceLogger) opcua.setTraceLogger(toStderr);
}
quietNodeOpcua();

// --name value / --flag; repeated options collect into arrays when listed in `multi`.
function parseArgs(argv, schema) {
    const values = {};
    for (const [key, def] of Object.entries(schema)) {
        if (def.default !== undefined) values[key] = def.default;
        if (def.multi) values[key] = [];
    }
    for (let i = 0; i < argv.length; i++) {
        const arg = argv[i];
        if (arg === "--help" || arg === "-h") {
            process.stderr.write("options: " + Object.keys(schema).map((k) => "--" + k).join(" ") + "\n");
            process.exit(0);
        }
        if (!arg.startsWith("--")) fail(`unexpected argument "${arg}"`);
        let key = arg.slice(2);
        let value;
        const eq = key.indexOf("=");
        if (eq >= 0) {
            value = key.slice(eq + 1);
            key = key.slice(0, eq);
        }
        const def = schema[key];
        if (!def) fail(`unknown option "--${key}"`);
        if (def.flag) {
            values[key] = value === undefined ? true : value !== "false";
            continue;
        }
        if (value === undefined) {
            if (i + 1 >= argv.length) fail(`option "--${key}" needs a value`);
            value = argv[++i];
        }
        if (def.multi) values[key].push(value);
        else values[key] = value;
    }
    return values;
}

function fail(message) {
    process.stderr.write(`error: ${message}\n`);
    process.exit(2);
}

function parsePort(text) {
    const port = Number(text);
    if (!Number.isInteger(port) || port < 0 || port > 65535) fail(`invalid port "${text}"`);
    return port;
}

// A PKI folder of its own per process, removed when the process ends. A process
// that was killed leaves its folder behind; the next one removes such leftovers.
function makePkiFolder(prefix) {
    const tmp = os.tmpdir();
    for (const entry of fs.readdirSync(tmp)) {
        const match = /^discover-node-[a-z]+-(\d+)-/.exec(entry);
        if (!match || processAlive(Number(match[1]))) continue;
        try {
            fs.rmSync(path.join(tmp, entry), { recursive: true, force: true });
        } catch (_err) {
            // another process may be removing it at the same time
        }
    }
    const dir = fs.mkdtempSync(path.join(tmp, `discover-${prefix}-${process.pid}-`));
    const remove = () => {
        try {
            fs.rmSync(dir, { recursive: true, force: true });
        } catch (_err) {
            // the folder is in the temp dir; a leftover is harmless
        }
    };
    process.on("exit", remove);
    return dir;
}

function processAlive(pid) {
    try {
        process.kill(pid, 0);
        return true;
    } catch (err) {
        return err.code === "EPERM";
    }
}

function certificateManager(rootFolder) {
    return new opcua.OPCUACertificateManager({
        rootFolder,
        automaticallyAcceptUnknownCertificate: true,
        disableFileWatchers: true,
        keySize: 2048
    });
}

// Stops the server on SIGTERM/SIGINT or when stdin closes (the parent died),
// and never lets shutdown hang: a timer forces the exit.
function exitWith(server) {
    let stopping = false;
    const stop = (code) => {
        if (stopping) return;
        stopping = true;
        // Before the ready line there is nothing to close gracefully, and node-opcua may
        // not notice a shutdown in the middle of its start.
        if (!ready) process.exit(code);
        setTimeout(() => process.exit(code), 3000);
        Promise.resolve()
            .then(() => server.shutdown(0))
            .catch(() => {})
            .then(() => process.exit(code));
    };
    process.on("SIGTERM", () => stop(0));
    process.on("SIGINT", () => stop(0));
    process.on("SIGHUP", () => stop(0));
    return stop;
}

let ready = false;

function announceReady(port) {
    ready = true;
    process.stdout.write(`ready ${port}\n`);
}

module.exports = {
    opcua,
    parseArgs,
    parsePort,
    fail,
    makePkiFolder,
    certificateManager,
    exitWith,
    announceReady,
    publishLocalRecord,
    toStderr
};
