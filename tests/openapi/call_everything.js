// call_everything.js DESCRIPTION URL TOKEN IMAGE-ARCHIVE COMPOSE-FILE: makes every call of a running service with a client
// that openapi-client-axios builds from the description, and prints the answers for call_service.py, which judges them.
"use strict";

const fs = require("fs");
const path = require("path");
const OpenAPIClientAxios = require("openapi-client-axios").default;

const [descriptionFile, url, token, imageArchive, composeFile] = process.argv.slice(2);
const description = JSON.parse(fs.readFileSync(descriptionFile));
const COMPOSE_NAME = path.basename(composeFile);

function form(file, name = path.basename(file)) {
    const data = new FormData();
    data.append("file", new Blob([fs.readFileSync(file)]), name);
    return data;
}

function attachment(name) {
    return {"Content-Disposition": `attachment; filename="${name}"`};
}

// What is called, in this order: operation, expected status, parameters, body. A body of bytes is sent as it is.
const CALLS = [
    ["getOpenApiDocument", 200],

    ["listContainers", 200, {all: true}],
    ["startContainer", 204, {name: "worker"}],
    ["startContainer", 304, {name: "worker"}],
    ["startContainer", 404, {name: "nobody"}],
    ["getContainerLogs", 426, {name: "worker", tail: "1", timestamps: true}], // this client speaks no WebSocket
    ["inspectContainer", 200, {name: "worker"}],
    ["inspectContainer", 404, {name: "nobody"}],
    ["containerStats", 200, {name: "worker"}],
    ["containerStats", 404, {name: "nobody"}],
    ["followEvents", 426],
    ["followLogEntries", 426, {name: "worker", tail: "1"}],
    ["getStorage", 200],
    ["getHealth", 200],
    ["getAudit", 200, {after: 0, limit: 3}],
    ["getAudit", 400, {limit: 0}],
    ["getMetrics", 200],
    ["restartContainer", 204, {name: "worker", timeout: 0}],
    ["restartContainer", 404, {name: "nobody"}],
    ["deleteContainer", 409, {name: "worker"}],
    ["stopContainer", 204, {name: "worker", timeout: 0}],
    ["stopContainer", 304, {name: "worker"}],
    ["containerStats", 409, {name: "worker"}],
    ["deleteContainer", 204, {name: "worker", force: false}],
    ["deleteContainer", 404, {name: "worker"}],

    ["uploadImage", 400, attachment("no.tar"), Buffer.from("no archive")],
    ["uploadImage", 204, {}, () => form(imageArchive)],
    ["listImages", 200],
    ["removeImage", 200, {name: "localhost/unused:1"}],
    ["removeImage", 404, {name: "localhost/unused:1"}],

    ["getSettings", 200],
    ["patchSettings", 200, {}, {cores_num: 1}],
    ["patchSettings", 400, {}, {cores_num: 1000000}],
    ["getEnable", 200],
    ["patchEnable", 200, {}, {enabled: true}],
    ["patchEnable", 400, {}, {enabled: "yes"}],

    ["uploadPlugin", 200, attachment("motion_2.1.crp"), Buffer.from("plugin")],
    ["uploadPlugin", 400, attachment("motion.txt"), Buffer.from("plugin")],
    ["listPlugins", 200],
    ["activatePlugin", 200, {name: "motion", pluginVersion: "2.1"}, {activate: false}],
    ["activatePlugin", 404, {name: "motion", pluginVersion: "3"}, {activate: false}],
    ["deletePlugin", 204, {name: "motion_2.1.crp"}],
    ["deletePlugin", 404, {name: "motion_2.1.crp"}],

    ["uploadComposeFile", 200, {}, () => form(composeFile)],
    ["listComposeFiles", 200],
    ["composeCreate", 201, {name: COMPOSE_NAME}],
    ["composeStart", 200, {name: COMPOSE_NAME}],
    ["composeStop", 200, {name: COMPOSE_NAME}],
    ["composeRemove", 200, {name: COMPOSE_NAME}],
    ["composeStart", 404, {name: "nothing.yml"}],
    ["deleteComposeFile", 204, {name: COMPOSE_NAME}],
    ["deleteComposeFile", 404, {name: COMPOSE_NAME}],

    ["uploadCertificate", 200, {}, () => form(composeFile, "any.crt")],
    ["uploadPrivateKey", 200, attachment("any.key"), Buffer.from("key")],
    ["uploadCaCertificate", 200, attachment("any.crt"), Buffer.from("certificate")],
    ["listCerts", 200],
    ["deleteCertificate", 204],
    ["deleteCertificate", 404],
    ["deletePrivateKey", 204],
    ["deleteCaCertificate", 204],
];

async function main() {
    const api = new OpenAPIClientAxios({
        definition: description,
        withServer: {url},
        axiosConfigDefaults: {
            headers: {Authorization: `Bearer ${token}`}, validateStatus: () => true, timeout: 60000, responseType: "text",
            transformResponse: data => data,
        },
    });
    const client = await api.init();
    const answers = [];
    for (const [operation, expected, parameters, body] of CALLS) {
        const data = typeof body === "function" ? body() : body;
        const headers = Buffer.isBuffer(data) ? {"Content-Type": "application/octet-stream"} : {};
        const answer = await client[operation](parameters, data, {headers});
        const {method} = api.getOperation(operation);
        const target = answer.config.url.startsWith(url) ? answer.config.url.slice(url.length) : answer.config.url;
        answers.push({operation, expected, method: method.toUpperCase(), path: target, status: answer.status,
                      type: answer.headers["content-type"], body: answer.data});
    }
    console.log(JSON.stringify(answers));
}

main();
