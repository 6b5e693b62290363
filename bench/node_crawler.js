"use strict";
// node-opcua's view of the same walk: an independent client that crawls the address space
// below Objects breadth-first with batched Browse / BrowseNext calls and reads DataType,
// AccessLevel and ValueRank of every variable in batched Reads, as a crawler does.
//
//   node bench/node_crawler.js URL [--browse-batch N] [--read-batch N] [--timeout-ms N]
//
// Needs `npm ci` in sim/node. Prints "nodes N variables V elapsed_ms T" on standard output.

const path = require("path");
const opcua = require(path.join(__dirname, "..", "sim", "node", "node_modules", "node-opcua"));

const quiet = () => {};
console.log = quiet;
console.info = quiet;
console.warn = quiet;

function option(name, fallback) {
    const index = process.argv.indexOf(name);
    return index > 0 && index + 1 < process.argv.length ? Number(process.argv[index + 1]) : fallback;
}

async function main() {
    const url = process.argv[2];
    if (!url) {
        process.stderr.write("usage: node bench/node_crawler.js URL [--browse-batch N] [--read-batch N]\n");
        process.exit(2);
    }
    const browseBatch = option("--browse-batch", 1000);
    const readBatch = option("--read-batch", 3000);
    const timeoutMs = option("--timeout-ms", 60000);
    const started = process.hrtime.bigint();
    const client = opcua.OPCUAClient.create({
        endpointMustExist: false,
        securityMode: opcua.MessageSecurityMode.None,
        securityPolicy: opcua.SecurityPolicy.None,
        requestedSessionTimeout: 600000,
        transportTimeout: timeoutMs,
        connectionStrategy: { maxRetry: 0 },
    });
    await client.connect(url);
    const session = await client.createSession();

    const seen = new Set(["ns=0;i=85"]);
    const queue = [opcua.resolveNodeId("ns=0;i=85")];
    const variables = [];
    const take = (result, continuations) => {
        if (!result.statusCode.isGood()) return;
        for (const reference of result.references || []) {
            const id = reference.nodeId.toString();
            if (seen.has(id)) continue;
            seen.add(id);
            queue.push(reference.nodeId);
            if (reference.nodeClass === opcua.NodeClass.Variable) variables.push(reference.nodeId);
        }
        if (result.continuationPoint && result.continuationPoint.length > 0) continuations.push(result.continuationPoint);
    };
    const classMask = opcua.NodeClassMask.Object | opcua.NodeClassMask.Variable | opcua.NodeClassMask.View;
    for (let done = 0; done < queue.length;) {
        const batch = queue.slice(done, done + browseBatch);
        done += batch.length;
        const results = await session.browse(batch.map((nodeId) => ({
            nodeId,
            browseDirection: opcua.BrowseDirection.Forward,
            referenceTypeId: "HierarchicalReferences",
            includeSubtypes: true,
            nodeClassMask: classMask,
            resultMask: 0x3f,
        })));
        let continuations = [];
        for (const result of results) take(result, continuations);
        while (continuations.length > 0) {
            const next = await session.browseNext(continuations, false);
            continuations = [];
            for (const result of next) take(result, continuations);
        }
    }
    const perVariable = Math.max(1, Math.floor(readBatch / 3));
    for (let done = 0; done < variables.length; done += perVariable) {
        const nodesToRead = [];
        for (const nodeId of variables.slice(done, done + perVariable)) {
            nodesToRead.push({ nodeId, attributeId: opcua.AttributeIds.DataType });
            nodesToRead.push({ nodeId, attributeId: opcua.AttributeIds.AccessLevel });
            nodesToRead.push({ nodeId, attributeId: opcua.AttributeIds.ValueRank });
        }
        await session.read(nodesToRead);
    }
    const elapsedMs = Number((process.hrtime.bigint() - started) / 1000000n);
    await session.close();
    await client.disconnect();
    process.stdout.write(`nodes ${queue.length} variables ${variables.length} elapsed_ms ${elapsedMs}\n`);
}

main().then(() => process.exit(0), (error) => {
    process.stderr.write(`node_crawler: ${error.message}\n`);
    process.exit(1);
});
