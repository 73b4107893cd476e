// What the tests of the page share: shots, the server, and a real browser with a person's hands.
import assert from "node:assert/strict";
import { spawn, execFileSync } from "node:child_process";
import { copyFileSync, mkdirSync, readFileSync, truncateSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";

const require = createRequire(process.env.NQ360_MODULES);
const puppeteer = require("puppeteer-core");
export const axe = readFileSync(require.resolve("axe-core/axe.min.js"), "utf8");
export const [work, pictures] = process.argv.slice(2);

const command = process.env.NQ360;
const preset = process.env.NQ360_PRESET ?? "release";
// A server with sanitizers takes so many times longer.
const slowness = { release: 1, asan: 5, tsan: 15 }[preset];
export const patience = { timeout: 120000 * slowness };
const { environment: sanitizing = {} } = JSON.parse(readFileSync("CMakePresets.json", "utf8"))
    .testPresets.find((one) => one.name === preset);
for (const [name, value] of Object.entries(sanitizing)) {
    process.env[name] = value.replaceAll("${sourceDir}", process.cwd());
}

// ---- Shots

export const folder = join(work, "shots");
export const inFolder = (name) => join(folder, name);
export const sample = (...words) => execFileSync(process.env.NQ360_SAMPLE, words);
export const nq360 = (...words) => execFileSync(command, words);

export function makeShots() {
    mkdirSync(folder);
    sample("still", inFolder("moon_1.jpg"), inFolder("moon_2.jpg"), "--size", "1440", "--scene",
        "tests/data/apollo17.png", "--factor", "1.35", "--turn2", "2");
    sample("still", inFolder("globe_1.jpg"), inFolder("globe_2.jpg"), "--size", "1440");
    sample("movie", inFolder("lens1.mov"), inFolder("lens2.mov"), "--size", "1440", "--frames", "60");
    nq360("export", "-q", inFolder("globe_1.jpg"), inFolder("globe_2.jpg"), inFolder("made.jpg"));
    copyFileSync(inFolder("globe_1.jpg"), inFolder("torn.jpg"));
    truncateSync(inFolder("torn.jpg"), 30000);
}

// ---- Server and browser

/** Ends the test at once when the server does before it is told to. */
export async function serve(shots, ...options) {
    const words = ["view", shots, "--json", "--no-browser", ...options];
    const server = spawn(command, words, { stdio: ["ignore", "pipe", "pipe"] });
    process.once("exit", () => server.kill("SIGKILL"));
    let said = "";
    server.stderr.on("data", (text) => {
        said += text;
        process.stderr.write(text);
    });
    const ended = new Promise((resolve) => server.once("close", (code) => resolve(code)));
    let ends = false;
    ended.then((code) => {
        if (!ends) {
            console.error(`the server ended by itself: ${code}`);
            process.exit(1);
        }
    });
    const line = await new Promise((resolve) => server.stdout.once("data", resolve));
    const end = async () => {
        ends = true;
        server.kill("SIGINT");
        assert.equal(await ended, 0, "the server's exit code");
        assert.doesNotMatch(said, /Sanitizer|runtime error/);
    };
    return { address: JSON.parse(line).address, end };
}

export const browser = await puppeteer.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: ["--no-sandbox", "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--mute-audio",
        "--disable-background-networking", "--disable-component-update", "--disable-sync"],
    protocolTimeout: patience.timeout,
});

/** Everything that the console calls an error, and every address that is not the server's. */
export const complaints = [];

/**
 * In the page, before all else: lets a test hold requests, as a slow server would, and change what is answered.
 * `held` and `changed` know them by how they begin, such as "PUT /api/adjustments".
 */
function installGate() {
    const real = window.fetch;
    const gate = { asked: [], held: new Map(), changed: new Map() };
    const of = (map, request) => [...map].find(([start]) => request.startsWith(start))?.[1];
    gate.hold = (start) => {
        let letGo;
        const wait = new Promise((resolve) => (letGo = resolve));
        gate.held.set(start, { wait, letGo });
    };
    gate.letGo = (start) => {
        gate.held.get(start).letGo();
        gate.held.delete(start);
    };
    window.fetch = async (...words) => {
        const address = (words[0].url ?? String(words[0])).replace(location.origin, "");
        const request = `${words[1]?.method ?? words[0].method ?? "GET"} ${address}`;
        gate.asked.push(request);
        await of(gate.held, request)?.wait;
        const answer = await real(...words);
        const change = of(gate.changed, request);
        return change ? new Response(JSON.stringify(change(await answer.json()))) : answer;
    };
    window.gate = gate;
}

export async function open(address, { width = 1280, height = 800, expected = /^$/, before = () => {} } = {}) {
    const page = await browser.newPage();
    page.setDefaultTimeout(patience.timeout);
    await page.setViewport({ width, height });
    page.on("console", (message) => ["error", "warn"].includes(message.type()) &&
        !/GPU stall|swiftshader|WebGL-0x/i.test(message.text()) && !expected.test(message.text()) &&
        complaints.push(`${message.text()} ${message.location().url ?? ""}`));
    page.on("pageerror", (error) => complaints.push(error.stack));
    const host = new URL(address).host;
    page.on("request", (request) => {
        const asked = new URL(request.url());
        if (!["blob:", "data:"].includes(asked.protocol) && asked.host !== host) {
            complaints.push(`asks ${request.url()}`);
        }
    });
    await page.evaluateOnNewDocument(installGate);
    await page.evaluateOnNewDocument(before);
    await page.goto(address);
    return page;
}

let taken = 0;
export async function step(name, act) {
    const begun = Date.now();
    await act();
    taken += 1;
    console.log(`${name}: ${((Date.now() - begun) / 1000).toFixed(1)} s`);
}

export async function finish() {
    await browser.close();
    assert.deepEqual(complaints, []);
    console.log(`${taken} steps, no error in the console, nothing asked of any other place`);
}

// ---- Hands

export const choose = (page, name) => page.evaluate((text) => {
    [...document.querySelectorAll(".shot")].find((one) => one.textContent.includes(text)).click();
}, name);
export const listed = (page, name) => page.waitForFunction((text) =>
    [...document.querySelectorAll(".shot")].some((one) => one.textContent.includes(text)), patience, name);
export const press = (page, selector) => page.evaluate((place) => document.querySelector(place).click(), selector);
export const textOf = (page, selector) => page.$eval(selector, (one) => one.textContent);
export const valueOf = (page, selector) => page.$eval(selector, (one) => one.value);
export const says = (page, selector, text) => page.waitForFunction((place, wanted) =>
    document.querySelector(place)?.textContent.includes(wanted), patience, selector, text);

/** Into a field, as a person does, who leaves it with Tab. */
export async function type(page, selector, text) {
    await page.focus(selector);
    await page.$eval(selector, (field) => field.select());
    await page.keyboard.type(text);
    await page.keyboard.press("Tab");
}

/** Waits until it holds what it is to hold. */
export async function until(holds) {
    const end = Date.now() + patience.timeout;
    while (!holds()) {
        assert.ok(Date.now() < end, `in vain: ${holds}`);
        await new Promise((resolve) => setTimeout(resolve, 20));
    }
}

export const jobReaches = (page, name, states) => page.waitForFunction((text, wanted) => {
    const job = [...document.querySelectorAll("#job-list li")].find((one) => one.firstChild.textContent === text);
    return job && wanted.includes(job.dataset.state);
}, patience, name, states);
/** What the export of this name says, below the name. */
export const jobSays = (page, name) => page.evaluate((text) => {
    const job = [...document.querySelectorAll("#job-list li")].find((one) => one.firstChild.textContent === text);
    return [...job.querySelectorAll("p")].slice(1).map((one) => one.textContent).join(" ");
}, name);

// ---- Eyes

/** The shot is on the sphere, in the quality of a hand at rest. */
export async function settled(page) {
    await page.waitForFunction(() => {
        const box = document.querySelector("#sphere");
        return box.dataset.width === "2880" && box.ariaBusy === "false";
    }, patience);
    await frames(page);
}

/** What was changed has been drawn. */
export const frames = (page) => page.evaluate(() => new Promise((resolve) => {
    let left = 4;
    const next = () => (--left > 0 ? requestAnimationFrame(next) : resolve());
    requestAnimationFrame(next);
}));

export const view = (page) => page.evaluate(() => ({ ...nq360.view() }));
export const canvas = async (page) => (await page.$("#sphere canvas")).boundingBox();

/** The mean colour of a few pixels in the middle of the sphere, as it is on the screen. */
export async function middle(page) {
    await frames(page);
    const box = await canvas(page);
    const side = 6;
    const [x, y] = [box.x + box.width / 2 - side / 2, box.y + box.height / 2 - side / 2];
    const clip = { x, y, width: side, height: side };
    const picture = await page.screenshot({ clip, encoding: "base64" });
    return page.evaluate(meanColour, `data:image/png;base64,${picture}`, null);
}

/** In the page: the mean colour of a picture, or of the place in it that a direction (radians) shows. */
export async function meanColour(address, at) {
    // The page's policy lets no script fetch data: addresses; a picture may show them.
    const picture = new Image();
    picture.src = address;
    await picture.decode();
    const { width, height } = picture;
    const side = at ? 5 : width;
    const wrapped = at && ((at.yaw / (2 * Math.PI) + 0.5) % 1 + 1) % 1;
    const x = at ? Math.round(wrapped * width) - 2 : 0;
    const y = at ? Math.round((0.5 - at.pitch / Math.PI) * height) - 2 : 0;
    const canvas = new OffscreenCanvas(side, at ? side : height);
    const context = canvas.getContext("2d");
    context.drawImage(picture, -x, -y);
    const { data } = context.getImageData(0, 0, canvas.width, canvas.height);
    const sum = [0, 0, 0];
    for (let i = 0; i < data.length; i += 4) {
        sum.forEach((_, plane) => (sum[plane] += data[i + plane]));
    }
    return sum.map((one) => one / (data.length / 4));
}

// Radians; half a line of the drawn scene, which smooths differently on the sphere.
const kLineWidth = 0.006;

export const apart = (one, other) => Math.max(...one.map((value, plane) => Math.abs(value - other[plane])));

/** The middle of the sphere shows what the panorama at that address has in the direction of the look. */
export async function assertLooksAt(page, address, what) {
    const at = await view(page);
    const seen = await middle(page);
    const expected = [];
    for (const [right, up] of [[0, 0], [1, 0], [-1, 0], [0, 1], [0, -1]]) {
        const near = { yaw: at.yaw + right * kLineWidth, pitch: at.pitch + up * kLineWidth };
        expected.push(await page.evaluate(meanColour, address, near));
    }
    const differences = expected.map((one) => apart(seen, one));
    assert.ok(Math.min(...differences) < 14, `${what}: ${seen} is seen, not ${expected[0]}, at ${JSON.stringify(at)}`);
    return seen;
}

export const near = (value, expected, by, what) =>
    assert.ok(Math.abs(value - expected) <= by, `${what}: ${value}, not ${expected}`);
